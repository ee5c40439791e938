// The text form of values ("strep"): what prints and parses back.
//
// A string is in single quotes, with backslash escapes for quote, backslash and control bytes (`\n`, `\t`, `\r`,
// `\xHH`). An integer is decimal. A floating-point number has the fewest digits that read back the same, or is "inf",
// "-inf" or "nan". A boolean is True or False. An enumerator is its name in single quotes. A value type is
// "Value('Ns::Type', ** {'field': …, 'field': …})".
//
// Parsers read from [begin, end), skip blanks before each token, and leave `begin` after what they read. All errors are
// RangeExceptions. If the input ends too early, the message is "premature end of value type T"; for a wrong token it
// says what was expected and at which column, counted from 0.
#pragma once

#include <string>
#include <string_view>

#include "Kel/Exception.h"
#include "Kel/KelType.h"
#include "Kel/String8.h"

namespace Kel {

// Writes a value. Generated code adds the enumerations and value types, in their own namespaces.
KEL_API String8 valueToStrep(bool v);
KEL_API String8 valueToStrep(char v);
KEL_API String8 valueToStrep(S8 v);
KEL_API String8 valueToStrep(U8 v);
KEL_API String8 valueToStrep(S16 v);
KEL_API String8 valueToStrep(U16 v);
KEL_API String8 valueToStrep(S32 v);
KEL_API String8 valueToStrep(U32 v);
KEL_API String8 valueToStrep(long v);
KEL_API String8 valueToStrep(S64 v);
KEL_API String8 valueToStrep(U64 v);
KEL_API String8 valueToStrep(F32 v);
KEL_API String8 valueToStrep(F64 v);
KEL_API String8 valueToStrep(char const* v);
KEL_API String8 valueToStrep(String8 const& v);

// Reads one value into `*v`. Generated code adds the enumerations and value types, in their own namespaces.
KEL_API void sequenceToValue(char const*& begin, char const* end, bool* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, char* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, S8* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, U8* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, S16* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, U16* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, S32* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, U32* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, long* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, S64* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, U64* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, F32* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, F64* v);
KEL_API void sequenceToValue(char const*& begin, char const* end, String8* v);

// Raises RangeException "junk at column N deserializing T".
[[noreturn, gnu::cold]] KEL_API void throwJunk(S64 column, char const* typeName);
// Parses a whole text. Anything after the value, even a blank, raises the exception of throwJunk.
template <class T>
T strepToValue(String8 const& text);

// The parts of a value type's parser; generated code drives it:
//
//     ValueParser p("Ns::T", "T", begin, end);
//     while (p.nextField())
//       if (p.is("cmd")) p.read(&cmd_); else if (p.is("id")) p.read(&id_); else p.unknown();
class KEL_API ValueParser {
 public:
  // Reads the opening of the value. REQUIRES: the pointers outlive the parser.
  ValueParser(char const* fullTypeName, char const* typeName, char const*& begin, char const* end);
  // Reads up to the next field's ':'; false at the end of the value.
  bool nextField();
  // Whether the field that was found last has that name.
  bool is(char const* name) const { return field_ == name; }
  // Raises: the type has no such field.
  [[noreturn, gnu::cold]] void unknown() const;
  // Reads the field's value.
  template <class T>
  void read(T* v) {
    try {
      sequenceToValue(begin_, end_, v);
    } catch (RangeException const& e) {
      failed(e);
    }
  }

 private:
  void expect(std::string_view token);
  [[noreturn, gnu::cold]] void failed(RangeException const& e) const;

  char const* typeName_;
  char const*& begin_;
  char const* start_;
  char const* end_;
  char const* fieldStart_ = nullptr;
  bool first_ = true;
  String8 field_;
};

// An enumerator, as generated code lists them.
struct EnumName {
  char const* name;
  S32 value;
};
// Reads a quoted enumerator and answers its number. Raises RangeException with the text and the type.
KEL_API S32 parseEnumerator(char const* typeName, EnumName const* names, std::size_t count, char const*& begin,
                            char const* end);
// The name of an enumerator, or "Type(7)".
KEL_API String8 enumeratorName(char const* typeName, EnumName const* names, std::size_t count, S32 value);

// The plain text of a number.
KEL_API String8 plainText(F64 v);

template <class T>
T strepToValue(String8 const& text) {
  char const* const begin = text.charPtr();
  char const* const end = begin + text.chars();
  char const* at = begin;
  T v{};
  sequenceToValue(at, end, &v);
  if (at != end) throwJunk(at - begin, TypeOf<T>::type()->name().str().c_str());
  return v;
}

}  // namespace Kel
