#include "compiler/Suggest.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <vector>

namespace kelc {

namespace {

struct Habit {
  std::string_view theirs;  // in lower case
  std::string_view ours;
};

// Sorted, so that a look-up is a binary search.
constexpr Habit types[] = {
    {"binary", "String"},
    {"boolean", "bool"},
    {"byte", "U8"},
    {"bytes", "String"},
    {"cstring", "String"},
    {"decimal64", "F64"},
    {"double", "F64"},
    {"duration", "Seconds"},
    {"f32", "F32"},
    {"f64", "F64"},
    {"float", "F32"},
    {"float32", "F32"},
    {"float32_t", "F32"},
    {"float64", "F64"},
    {"float64_t", "F64"},
    {"i16", "S16"},
    {"i32", "S32"},
    {"i64", "S64"},
    {"i8", "S8"},
    {"int", "S32"},
    {"int16", "S16"},
    {"int16_t", "S16"},
    {"int32", "S32"},
    {"int32_t", "S32"},
    {"int64", "S64"},
    {"int64_t", "S64"},
    {"int8", "S8"},
    {"int8_t", "S8"},
    {"integer", "S32"},
    {"long", "S64"},
    {"number", "F64"},
    {"real", "F64"},
    {"short", "S16"},
    {"size_t", "U64"},
    {"str", "String"},
    {"string", "String"},
    {"string_view", "String"},
    {"text", "String"},
    {"time", "Seconds"},
    {"timestamp", "Seconds"},
    {"uint", "U32"},
    {"uint16", "U16"},
    {"uint16_t", "U16"},
    {"uint32", "U32"},
    {"uint32_t", "U32"},
    {"uint64", "U64"},
    {"uint64_t", "U64"},
    {"uint8", "U8"},
    {"uint8_t", "U8"},
    {"unsigned", "U32"},
};

constexpr std::string_view byKey = "; values by key are written 'VALUE[KEY]'";
constexpr std::string_view inLine = "; a sequence is written 'queue VALUE'";
constexpr std::string_view aSet = "; a set is written 'bool[KEY]'";
constexpr std::string_view aPointer = "; a pointer is written 'ref ENTITY'";

constexpr Habit hints[] = {
    {"array", inLine},        {"deque", inLine},        {"dict", byKey},         {"hashmap", byKey},
    {"list", inLine},         {"map", byKey},           {"optional", aPointer},  {"pointer", aPointer},
    {"ptr", aPointer},        {"sequence", inLine},     {"set", aSet},           {"shared_ptr", aPointer},
    {"unique_ptr", aPointer}, {"unordered_map", byKey}, {"unordered_set", aSet}, {"vector", inLine},
};

constexpr Habit keywords[] = {
    {"class", "entity"},  {"container", "entity"}, {"def", "op"},           {"enumeration", "enum"},
    {"func", "op"},       {"function", "op"},      {"include", "import"},   {"interface", "entity"},
    {"message", "value"}, {"method", "op"},        {"module", "namespace"}, {"package", "namespace"},
    {"record", "value"},  {"struct", "value"},     {"type", "value"},       {"using", "import"},
};

template <std::size_t count>
constexpr bool isSorted(Habit const (&table)[count]) {
  return std::is_sorted(std::begin(table), std::end(table), [](Habit a, Habit b) { return a.theirs < b.theirs; });
}
static_assert(isSorted(types) && isSorted(hints) && isSorted(keywords));

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Ignores case, and a leading `std::`.
template <std::size_t count>
std::string_view find(Habit const (&table)[count], std::string_view word) {
  std::string last(word.substr(word.substr(0, 5) == "std::" ? 5 : 0));
  std::transform(last.begin(), last.end(), last.begin(), lower);
  auto const found = std::lower_bound(std::begin(table), std::end(table), last,
                                      [](Habit const& habit, std::string const& name) { return habit.theirs < name; });
  return found != std::end(table) && found->theirs == last ? found->ours : std::string_view();
}

}  // namespace

std::size_t editDistance(std::string_view a, std::string_view b, std::size_t limit) {
  std::size_t const difference = a.size() > b.size() ? a.size() - b.size() : b.size() - a.size();
  if (difference > limit) return limit + 1;
  // Rows of the table of distances between prefixes of the two names.
  std::vector<std::size_t> beforeLast, last(b.size() + 1), row(b.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      char const x = lower(a[i - 1]), y = lower(b[j - 1]);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (x == y ? 0 : 1)});
      bool const swapped = i > 1 && j > 1 && x == lower(b[j - 2]) && lower(a[i - 2]) == y;
      if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
    beforeLast = std::move(last);
    last = row;
    if (*std::min_element(row.begin(), row.end()) > limit) return limit + 1;
  }
  return std::min(last.back(), limit + 1);
}

Nearest::Nearest(std::string_view wrong) : wrong_(wrong), limit_((wrong.size() + 1) / 3) {}

bool Nearest::consider(std::string_view compared, std::string_view suggested) {
  if (isExact()) return false;
  std::size_t const limit = found_ ? limit_ - 1 : limit_;
  std::size_t const distance = editDistance(wrong_, compared, limit);
  // A name that would differ in every character was not meant.
  if (distance > limit || distance >= std::min(wrong_.size(), compared.size())) return false;
  found_ = true;
  limit_ = distance;
  best_ = suggested;
  return true;
}

std::string didYouMean(std::string const& best) { return best.empty() ? "" : "; did you mean '" + best + "'?"; }

std::string typeOfHabit(std::string_view name) { return std::string(find(types, name)); }
std::string hintOfHabit(std::string_view name) { return std::string(find(hints, name)); }
std::string_view keywordOfHabit(std::string_view word) { return find(keywords, word); }

}  // namespace kelc
