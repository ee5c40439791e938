#include "Kel/Strep.h"

#include <array>
#include <charconv>
#include <cstdio>

namespace Kel {

namespace {

void skipBlanks(char const*& begin, char const* end) {
  while (begin != end && (*begin == ' ' || *begin == '\t' || *begin == '\n' || *begin == '\r')) ++begin;
}

[[noreturn, gnu::cold]] void throwPremature(char const* typeName) {
  throwRangeException(String8("premature end of value type ") + typeName);
}

// A wrong token. The parser of a field counts columns from the beginning of the field; the parser of the whole value
// adds the field's own column.
class WrongToken : public RangeException {
 public:
  WrongToken(String8 what, S64 column)
      : RangeException(what + " expected at column " + std::to_string(column)), what_(what), column_(column) {}
  WrongToken in(String8 const& field, S64 start) const { return WrongToken(field + ": " + what_, start + column_); }

 private:
  String8 what_;
  S64 column_;
};

[[noreturn, gnu::cold]] void throwExpected(std::string_view what, S64 column) {
  throw WrongToken(String8(what), column);
}

// The longest run of characters of which numbers and words consist.
std::string_view word(char const* begin, char const* end) {
  char const* at = begin;
  auto part = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '+' || c == '-' ||
           c == '.';
  };
  while (at != end && part(*at)) ++at;
  return {begin, static_cast<std::size_t>(at - begin)};
}

// Whether all of `text` is one number.
template <class T>
std::from_chars_result wholeNumber(std::string_view text, T& v) {
  std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), v);
  if (result.ec == std::errc() && result.ptr != text.data() + text.size()) result.ec = std::errc::invalid_argument;
  return result;
}

// Whether `text` could be the beginning of a number.
template <class T>
bool beginsNumber(std::string_view text) {
  T ignored{};
  for (char const* rest : {"0", "inf", "nf", "f", "nan", "an", "n"})
    if (wholeNumber(std::string(text) + rest, ignored).ec == std::errc()) return true;
  return false;
}

template <class T>
void parseNumber(char const*& begin, char const* end, T* v) {
  char const* const start = begin;
  skipBlanks(begin, end);
  std::string const name = TypeOf<T>::type()->name().str();
  if (begin == end) throwPremature(name.c_str());
  std::string_view const text = word(begin, end);
  T parsed{};
  std::errc const error = wholeNumber(text, parsed).ec;
  if (error == std::errc::result_out_of_range) throwRangeException(String8(text) + " is out of the range of " + name);
  if (error != std::errc() && text.data() + text.size() == end && beginsNumber<T>(text)) throwPremature(name.c_str());
  if (error != std::errc()) throwExpected(name, begin - start);
  *v = parsed;
  begin += text.size();
}

template <class T>
String8 number(T v) {
  std::array<char, 40> text;
  auto const [end, error] = std::to_chars(text.data(), text.data() + text.size(), v);
  (void)error;
  return String8(std::string_view(text.data(), static_cast<std::size_t>(end - text.data())));
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

String8 quoted(std::string_view text) {
  std::string out = "'";
  for (char c : text) {
    switch (c) {
      case '\'': out += "\\'"; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
          std::array<char, 8> hex;
          std::snprintf(hex.data(), hex.size(), "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
          out += hex.data();
        } else {
          out += c;
        }
    }
  }
  out += '\'';
  return String8(out);
}

// Reads the escape sequence after a backslash at `begin`. Leaves `begin` on its last character.
char escaped(char const*& begin, char const* end, char const* typeName, char const* start) {
  switch (*begin) {
    case '\'': return '\'';
    case '\\': return '\\';
    case 'n': return '\n';
    case 't': return '\t';
    case 'r': return '\r';
    case 'x':
      if (end - begin < 3) throwPremature(typeName);
      if (hexDigit(begin[1]) >= 0 && hexDigit(begin[2]) >= 0) {
        begin += 2;
        return static_cast<char>(hexDigit(begin[-1]) * 16 + hexDigit(begin[0]));
      }
      break;
    default: break;
  }
  throwExpected("escape sequence", begin - start);
}

// Columns are counted from `start`.
String8 parseQuoted(char const*& begin, char const* end, char const* typeName, char const* start) {
  skipBlanks(begin, end);
  if (begin == end) throwPremature(typeName);
  if (*begin != '\'') throwExpected("quoted string", begin - start);
  std::string text;
  for (++begin; begin != end; ++begin) {
    if (*begin == '\'') {
      ++begin;
      return String8(text);
    }
    if (*begin == '\\') {
      if (++begin == end) break;
      text += escaped(begin, end, typeName, start);
    } else {
      text += *begin;
    }
  }
  throwPremature(typeName);
}

}  // namespace

String8 valueToStrep(bool v) { return v ? "True" : "False"; }
String8 valueToStrep(char v) { return quoted(std::string_view(&v, 1)); }
String8 valueToStrep(S8 v) { return number(static_cast<int>(v)); }
String8 valueToStrep(U8 v) { return number(static_cast<unsigned>(v)); }
String8 valueToStrep(S16 v) { return number(v); }
String8 valueToStrep(U16 v) { return number(v); }
String8 valueToStrep(S32 v) { return number(v); }
String8 valueToStrep(U32 v) { return number(v); }
String8 valueToStrep(long v) { return number(v); }
String8 valueToStrep(S64 v) { return number(v); }
String8 valueToStrep(U64 v) { return number(v); }
String8 valueToStrep(F32 v) { return number(v); }
String8 valueToStrep(F64 v) { return number(v); }
String8 valueToStrep(char const* v) { return quoted(v ? v : ""); }
String8 valueToStrep(String8 const& v) { return quoted(v); }
String8 plainText(F64 v) { return number(v); }

void sequenceToValue(char const*& begin, char const* end, bool* v) {
  char const* const start = begin;
  skipBlanks(begin, end);
  if (begin == end) throwPremature("bool");
  std::string_view const text = word(begin, end);
  if (text != "True" && text != "False") {
    auto begins = [text](std::string_view name) { return name.substr(0, text.size()) == text; };
    if (begin + text.size() == end && (begins("True") || begins("False"))) throwPremature("bool");
    throwExpected("True or False", begin - start);
  }
  *v = text == "True";
  begin += text.size();
}

void sequenceToValue(char const*& begin, char const* end, char* v) {
  char const* const start = begin;
  skipBlanks(begin, end);
  S64 const column = begin - start;
  String8 const text = parseQuoted(begin, end, "char", start);
  if (text.chars() != 1) throwExpected("one quoted character", column);
  *v = text[0];
}

void sequenceToValue(char const*& begin, char const* end, S8* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, U8* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, S16* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, U16* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, S32* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, U32* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, long* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, S64* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, U64* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, F32* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, F64* v) { parseNumber(begin, end, v); }
void sequenceToValue(char const*& begin, char const* end, String8* v) {
  *v = parseQuoted(begin, end, "String8", begin);
}

void throwJunk(S64 column, char const* typeName) {
  throwRangeException(String8("junk at column ") + std::to_string(column) + " deserializing " + typeName);
}

ValueParser::ValueParser(char const* fullTypeName, char const* typeName, char const*& begin, char const* end)
    : typeName_(typeName), begin_(begin), start_(begin), end_(end) {
  expect("Value");
  expect("(");
  expect("'" + std::string(fullTypeName) + "'");
  expect(",");
  expect("**");
  expect("{");
}

void ValueParser::expect(std::string_view token) {
  skipBlanks(begin_, end_);
  for (char c : token) {
    if (begin_ == end_) throwPremature(typeName_);
    if (*begin_ != c) throwExpected(token, begin_ - start_);
    ++begin_;
  }
}

bool ValueParser::nextField() {
  skipBlanks(begin_, end_);
  if (begin_ == end_) throwPremature(typeName_);
  if (*begin_ == '}') {
    expect("}");
    expect(")");
    return false;
  }
  if (!first_) expect(",");
  first_ = false;
  field_ = parseQuoted(begin_, end_, typeName_, start_);
  expect(":");
  fieldStart_ = begin_;
  return true;
}

void ValueParser::unknown() const { throwRangeException(String8(typeName_) + " has no such attribute: " + field_); }

void ValueParser::failed(RangeException const& e) const {
  String8 const field = String8(typeName_) + "." + field_;
  if (auto const* wrong = dynamic_cast<WrongToken const*>(&e)) throw wrong->in(field, fieldStart_ - start_);
  throwRangeException(field + ": " + e.message());
}

S32 parseEnumerator(char const* typeName, EnumName const* names, std::size_t count, char const*& begin,
                    char const* end) {
  String8 const text = parseQuoted(begin, end, typeName, begin);
  for (std::size_t i = 0; i < count; ++i)
    if (text == names[i].name) return names[i].value;
  throwRangeException(String8(typeName) + " has no such value: " + text);
}

String8 enumeratorName(char const* typeName, EnumName const* names, std::size_t count, S32 value) {
  for (std::size_t i = 0; i < count; ++i)
    if (names[i].value == value) return names[i].name;
  return String8(typeName) + "(" + std::to_string(value) + ")";
}

}  // namespace Kel
