// Parses JSON texts, fast also for large objects, and finds the lines of their members.
#include "service/JsonText.h"

#include <iterator>
#include <unordered_set>

#include "service/JsonTree.h"
#include "service/ValueText.h"

namespace Cli::Service {

namespace {

constexpr std::size_t maxText = std::size_t(64) << 20;
constexpr std::size_t maxDepth = 200;

std::size_t lineAt(std::string_view text, std::size_t at) {
  std::size_t line = 1;
  for (std::size_t i = 0; i < std::min(at, text.size()); ++i) line += text[i] == '\n';
  return line;
}

// Builds the document. The library's own builder takes quadratic time: its objects search all members for each new one.
class Builder : public nlohmann::json_sax<Json> {
 public:
  Json document;
  std::string problem;

  bool null() override { return put(nullptr); }
  bool boolean(bool value) override { return put(value); }
  bool number_integer(number_integer_t value) override { return put(value); }
  bool number_unsigned(number_unsigned_t value) override { return put(value); }
  bool number_float(number_float_t value, string_t const&) override { return put(value); }
  bool string(string_t& value) override { return put(std::move(value)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(false); }
  bool start_array(std::size_t) override { return open(true); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool key(string_t& name) override {
    key_ = name;
    if (open_.back().names.insert(name).second) return true;
    return fail("'" + name + "' is there twice in one object");
  }
  bool parse_error(std::size_t, std::string const&, nlohmann::detail::exception const& error) override {
    std::string const what = error.what();
    std::size_t const colon = what.find("; ");
    std::size_t const parser = what.find(": ", what.find("parse error"));
    problem = "is no JSON: " + what.substr(colon != std::string::npos && colon > parser ? parser + 2 : 0);
    return false;
  }

 private:
  // An object or list that is being read. Members are collected first, because an object that grows copies them.
  struct Open {
    bool isArray;
    std::string key;  // its name in the object that contains it
    std::vector<std::pair<std::string, Json>> members;
    Json items = Json::array();
    std::unordered_set<std::string> names;
  };

  template <class V>
  bool put(V&& value) {
    add(Json(std::forward<V>(value)));
    return true;
  }
  void add(Json value) {
    if (open_.empty())
      document = std::move(value);
    else if (open_.back().isArray)
      open_.back().items.push_back(std::move(value));
    else
      open_.back().members.emplace_back(std::move(key_), std::move(value));
  }
  bool open(bool isArray) {
    if (open_.size() >= maxDepth) return fail("is nested deeper than " + std::to_string(maxDepth) + " levels");
    open_.push_back({isArray, std::move(key_), {}, Json::array(), {}});
    return true;
  }
  bool close() {
    Open done = std::move(open_.back());
    open_.pop_back();
    Json value = std::move(done.items);
    if (!done.isArray) {
      value = Json::object();
      auto& object = value.get_ref<Json::object_t&>();
      object.reserve(done.members.size());
      for (auto& [name, member] : done.members) object.emplace_back(std::move(name), std::move(member));
    }
    key_ = std::move(done.key);
    add(std::move(value));
    return true;
  }
  bool fail(std::string what) {
    problem = std::move(what);
    return false;
  }

  std::vector<Open> open_;
  std::string key_;
};

// Counts how much of the text the parser has taken.
struct Counting {
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = char const*;
  using reference = char const&;

  char const* at;
  std::size_t* taken;
  reference operator*() const { return *at; }
  Counting& operator++() {
    ++at;
    ++*taken;
    return *this;
  }
  Counting operator++(int) {
    Counting const before = *this;
    ++*this;
    return before;
  }
  bool operator==(Counting const& other) const { return at == other.at; }
  bool operator!=(Counting const& other) const { return at != other.at; }
};

// Finds the value to which names and indices lead. REQUIRES: the text is valid JSON.
class Finder {
 public:
  explicit Finder(std::string_view text) : text_(text) {}

  std::size_t find(JsonPlace const& place) {
    for (auto const& step : place.steps) {
      skipBlanks();
      if (!into(step)) break;
    }
    skipBlanks();
    return at_;
  }

 private:
  bool into(std::variant<std::string, std::size_t> const& step) {
    std::size_t const begin = at_;
    bool const object = peek() == '{';
    if (!object && peek() != '[') return false;
    ++at_;
    for (std::size_t index = 0;; ++index) {
      skipBlanks();
      if (at_ >= text_.size() || peek() == '}' || peek() == ']') break;
      std::string const name = object ? stringValue() : std::string();
      if (object) {
        skipBlanks();
        ++at_;  // the colon
      }
      bool const found = object ? std::holds_alternative<std::string>(step) && std::get<std::string>(step) == name
                                : std::holds_alternative<std::size_t>(step) && std::get<std::size_t>(step) == index;
      if (found) {
        skipBlanks();
        return true;
      }
      skipValue();
      skipBlanks();
      if (peek() == ',') ++at_;
    }
    at_ = begin;
    return false;
  }

  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
  void skipBlanks() {
    while (at_ < text_.size() && (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r')) ++at_;
  }
  std::string_view skipString() {
    std::size_t const begin = at_++;
    while (at_ < text_.size() && peek() != '"') at_ += peek() == '\\' ? 2 : 1;
    ++at_;
    return text_.substr(begin, at_ - begin);
  }
  std::string stringValue() {
    Json const parsed = Json::parse(skipString(), nullptr, false);
    return parsed.is_string() ? parsed.get<std::string>() : std::string();
  }
  void skipValue() {
    skipBlanks();
    std::size_t depth = 0;
    while (at_ < text_.size()) {
      char const c = peek();
      if (c == '"') {
        skipString();
      } else if (c == '{' || c == '[') {
        ++depth;
        ++at_;
      } else if (c == '}' || c == ']') {
        if (depth == 0) return;
        --depth;
        ++at_;
      } else if (c == ',' && depth == 0) {
        return;
      } else {
        ++at_;
        continue;
      }
      if (depth == 0) return;
    }
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace

Json parseJson(std::string const& file, std::string_view text) {
  if (text.size() > maxText) throw ImportError(file, 0, "", "is bigger than " + std::to_string(maxText) + " bytes");
  Builder builder;
  std::size_t taken = 0;
  if (Json::sax_parse(Counting{text.data(), &taken}, Counting{text.data() + text.size(), &taken}, &builder))
    return std::move(builder.document);
  throw ImportError(file, lineAt(text, taken ? taken - 1 : 0), "", builder.problem);
}

std::string shortText(Json const& json, std::size_t most) {
  return shortened(json.dump(-1, ' ', false, Json::error_handler_t::replace), most);
}

std::size_t lineOf(std::string_view text, JsonPlace const& place) { return lineAt(text, Finder(text).find(place)); }

}  // namespace Cli::Service
