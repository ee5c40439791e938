// A JSON document with what a configuration loader needs besides the values: the place of each value, numbers as they
// are written, the order of members, and the member names that were given twice.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ConfigDb {

// Lines and columns count from 1; a column is a byte.
struct JsonPlace {
  std::size_t line = 1;
  std::size_t column = 1;
};

struct JsonMember;

struct JsonValue {
  enum class Kind { null, boolean, number, string, array, object };

  Kind kind = Kind::null;
  JsonPlace place;
  std::string text;                 // the characters of a string; the literal of a number, a boolean and null
  std::vector<JsonValue> items;     // of an array
  std::vector<JsonMember> members;  // of an object; the last one for each name

  bool isObject() const { return kind == Kind::object; }
  JsonValue const* find(std::string_view name) const;
};

struct JsonMember {
  std::string name;
  JsonValue value;
};

// "an object", "a string", …
char const* kindName(JsonValue::Kind kind);

// A repetition of a member name in an object.
struct JsonDuplicate {
  std::vector<std::string> path;  // the names on the way to the member, its own last
  JsonPlace place;
};

struct JsonDocument {
  JsonValue value;
  std::vector<JsonDuplicate> duplicates;
};

class JsonError : public std::runtime_error {
 public:
  JsonError(JsonPlace where, std::string const& what) : std::runtime_error(what), place(where) {}
  JsonPlace place;
};

// The limits of a document. A document beyond them is refused with a JsonError.
struct JsonLimits {
  std::size_t depth = 64;
  std::size_t values = 4000000;
};

// Raises JsonError.
JsonDocument parseJson(std::string_view text, JsonLimits const& limits);

}  // namespace ConfigDb
