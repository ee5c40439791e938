// The types that need no model: the builtins, directories, and the counted objects that attributes may hold.
#include <ostream>

#include "Kel/Dir.h"
#include "Kel/TypeBuilder.h"

namespace Kel {

namespace {

template <class T>
struct BuiltinOps {
  static T const& of(void const* value) { return *static_cast<T const*>(value); }
  static void print(void const* value, std::ostream& out) {
    if constexpr (std::is_same_v<T, bool>)
      out << (of(value) ? "true" : "false");
    else if constexpr (std::is_floating_point_v<T>)
      out << valueToStrep(of(value));
    else if constexpr (sizeof(T) == 1 && !std::is_same_v<T, char>)
      out << static_cast<int>(of(value));
    else
      out << of(value);
  }
  static String8 strep(void const* value) { return valueToStrep(of(value)); }
  static GenericIf::Ptr box(void const* value) { return GenericIf::of(of(value)); }
  static bool equal(void const* a, void const* b) { return of(a) == of(b); }
  static GenericIf::Ptr parse(char const*& begin, char const* end) {
    T v{};
    sequenceToValue(begin, end, &v);
    return GenericIf::of(v);
  }
};

// Character pointers can be printed and compared, but not parsed: there is no memory to read into.
template <class T>
struct CharPtrOps {
  static char const* of(void const* value) { return *static_cast<T const*>(value); }
  static void print(void const* value, std::ostream& out) { out << (of(value) ? of(value) : ""); }
  static String8 strep(void const* value) { return valueToStrep(of(value)); }
  static GenericIf::Ptr box(void const* value) { return GenericIf::of(*static_cast<T const*>(value)); }
  static bool equal(void const* a, void const* b) { return of(a) == of(b); }
  static GenericIf::Ptr parse(char const*&, char const*) { throwRangeException("a character pointer cannot be read"); }
};

template <class T>
GenericIf::Ptr initialOf() {
  return GenericIf::of(T{});
}
template <class T>
GenericIf::Ptr readOne(AttrLogIn& in) {
  return GenericIf::of(streamIn<T>(in));
}

template <class T, template <class> class Ops = BuiltinOps>
KelType const* makeBuiltin(char const* name) {
  TypeBuilderBase b(name, KelType::Kind::builtin, nullptr);
  b.setBuiltin(TypeOf<T>::builtin);
  b.setOps({&Ops<T>::print, &Ops<T>::strep, &Ops<T>::parse, &Ops<T>::box, &Ops<T>::equal, &initialOf<T>, &readOne<T>});
  return b.done();
}

struct BuiltinTable {
  KelType const* types[17] = {
      nullptr,
      makeBuiltin<bool>("bool"),
      makeBuiltin<char>("char"),
      makeBuiltin<S8>("S8"),
      makeBuiltin<U8>("U8"),
      makeBuiltin<S16>("S16"),
      makeBuiltin<U16>("U16"),
      makeBuiltin<S32>("S32"),
      makeBuiltin<U32>("U32"),
      makeBuiltin<long>("long"),
      makeBuiltin<S64>("S64"),
      makeBuiltin<U64>("U64"),
      makeBuiltin<F32>("F32"),
      makeBuiltin<F64>("F64"),
      makeBuiltin<char*, CharPtrOps>("char *"),
      makeBuiltin<char const*, CharPtrOps>("char const *"),
      makeBuiltin<String8>("Kel::String8"),
  };
};

KelType const* makeObjectType(char const* name) { return TypeBuilderBase(name, KelType::Kind::object, nullptr).done(); }

}  // namespace

KelType const* builtinType(KelType::Builtin builtin) {
  static BuiltinTable const table;
  return table.types[static_cast<std::size_t>(builtin)];
}

KelType const* TypeOf<KelAttr>::type() {
  static KelType const* const type = makeObjectType("Kel::KelAttr");
  return type;
}
KelType const* TypeOf<GenericIf>::type() {
  static KelType const* const type = makeObjectType("Kel::GenericIf");
  return type;
}

void KelType::makeFrameworkTypes() {
  Dir::_fwkType();
  builtinType(Builtin::none);  // makes all builtins
  TypeOf<KelAttr>::type();
  TypeOf<GenericIf>::type();
}

}  // namespace Kel
