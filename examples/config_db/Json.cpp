#include "examples/config_db/Json.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <utility>

namespace ConfigDb {

JsonValue const* JsonValue::find(std::string_view name) const {
  for (JsonMember const& member : members)
    if (member.name == name) return &member.value;
  return nullptr;
}

char const* kindName(JsonValue::Kind kind) {
  switch (kind) {
    case JsonValue::Kind::null: return "null";
    case JsonValue::Kind::boolean: return "a boolean";
    case JsonValue::Kind::number: return "a number";
    case JsonValue::Kind::string: return "a string";
    case JsonValue::Kind::array: return "an array";
    case JsonValue::Kind::object: return "an object";
  }
  return "";
}

namespace {

// Feeds the parser and counts how far it has read, because the parser tells its position only in errors.
class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = char const*;
  using reference = char const&;

  CountingIterator(char const* at, char const** reached) : at_(at), reached_(reached) {}
  char const& operator*() const { return *at_; }
  CountingIterator& operator++() {
    *reached_ = ++at_;
    return *this;
  }
  bool operator==(CountingIterator const& o) const { return at_ == o.at_; }
  bool operator!=(CountingIterator const& o) const { return at_ != o.at_; }

 private:
  char const* at_;
  char const** reached_;
};

// Takes what the parser finds, event by event.
class Builder final : public nlohmann::json_sax<nlohmann::json> {
 public:
  Builder(std::string_view text, JsonLimits const& limits) : text_(text), limits_(limits) {
    if (text_.substr(0, 3) == "\xef\xbb\xbf") last_ = lineStart_ = 3;
  }

  JsonDocument build() {
    reached_ = text_.data();
    char const* const end = text_.data() + text_.size();
    nlohmann::json::sax_parse(CountingIterator(text_.data(), &reached_), CountingIterator(end, &reached_), this);
    return std::move(document_);
  }

  bool null() override { return scalar(JsonValue::Kind::null, "null"); }
  bool boolean(bool v) override { return scalar(JsonValue::Kind::boolean, v ? "true" : "false"); }
  bool number_integer(number_integer_t v) override { return scalar(JsonValue::Kind::number, std::to_string(v)); }
  bool number_unsigned(number_unsigned_t v) override { return scalar(JsonValue::Kind::number, std::to_string(v)); }
  bool number_float(number_float_t, string_t const& literal) override {
    return scalar(JsonValue::Kind::number, literal);
  }
  bool string(string_t& v) override { return scalar(JsonValue::Kind::string, std::move(v)); }
  bool binary(binary_t&) override { return false; }

  bool start_object(std::size_t) override { return open(JsonValue::Kind::object); }
  bool start_array(std::size_t) override { return open(JsonValue::Kind::array); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  // A repeated name keeps its position and gets the later value.
  bool key(string_t& name) override {
    JsonPlace const place = nextPlace();
    Open& top = open_.back();
    auto const [found, added] = top.index.emplace(name, top.value->members.size());
    if (added) {
      top.value->members.push_back({name, JsonValue()});
    } else {
      top.value->members[found->second].value = JsonValue();
      document_.duplicates.push_back({pathTo(name), place});
    }
    member_ = &top.value->members[found->second].value;
    top.name = std::move(name);
    return true;
  }

  bool parse_error(std::size_t position, std::string const&, nlohmann::json::exception const& e) override {
    std::string what = e.what();
    // The message without the library's prefix and place.
    if (std::size_t const column = what.find("column "); column != std::string::npos)
      if (std::size_t const colon = what.find(": ", column); colon != std::string::npos) what.erase(0, colon + 2);
    throw JsonError(placeOf(position == 0 ? 0 : position - 1), what);
  }

 private:
  struct Open {
    JsonValue* value;
    std::unordered_map<std::string, std::size_t> index;
    std::string name;  // of the member that is being read
  };

  JsonPlace placeOf(std::size_t at) {
    at = std::min(at, text_.size());
    for (; counted_ < at; ++counted_) {
      if (text_[counted_] != '\n') continue;
      ++line_;
      lineStart_ = counted_ + 1;
    }
    return {line_, at - std::min(at, lineStart_) + 1};
  }

  // The beginning of the token that was just read: after the previous one, blanks and separators.
  JsonPlace nextPlace() {
    std::size_t const start = text_.find_first_not_of(" \t\r\n,:", last_);
    last_ = static_cast<std::size_t>(reached_ - text_.data());
    return placeOf(std::min(start, last_));
  }

  std::vector<std::string> pathTo(std::string const& name) const {
    std::vector<std::string> path;
    for (std::size_t i = 0; i + 1 < open_.size(); ++i)
      if (open_[i].value->isObject()) path.push_back(open_[i].name);
    path.push_back(name);
    return path;
  }

  // The place in the document for the next value.
  JsonValue& next(JsonValue::Kind kind) {
    JsonPlace const place = nextPlace();
    if (++values_ > limits_.values) throw JsonError(place, "more than " + std::to_string(limits_.values) + " values");
    JsonValue* value = &document_.value;
    if (!open_.empty()) {
      Open& top = open_.back();
      value = top.value->isObject() ? member_ : &top.value->items.emplace_back();
    }
    value->kind = kind;
    value->place = place;
    return *value;
  }

  bool scalar(JsonValue::Kind kind, std::string text) {
    next(kind).text = std::move(text);
    return true;
  }

  bool open(JsonValue::Kind kind) {
    JsonValue& value = next(kind);
    if (open_.size() >= limits_.depth)
      throw JsonError(value.place, "nested deeper than " + std::to_string(limits_.depth) + " levels");
    open_.push_back({&value, {}, {}});
    return true;
  }

  bool close() {
    last_ = static_cast<std::size_t>(reached_ - text_.data());
    open_.pop_back();
    return true;
  }

  std::string_view text_;
  JsonLimits const limits_;
  char const* reached_ = nullptr;
  std::size_t last_ = 0, counted_ = 0, line_ = 1, lineStart_ = 0, values_ = 0;
  std::vector<Open> open_;  // no value moves while something in it is open
  JsonValue* member_ = nullptr;
  JsonDocument document_;
};

}  // namespace

JsonDocument parseJson(std::string_view text, JsonLimits const& limits) { return Builder(text, limits).build(); }

}  // namespace ConfigDb
