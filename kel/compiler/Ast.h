// A model file as a tree.
//
// The parser makes the tree. The checker completes it with the meanings of names and the kinds of attributes. A model
// owns its declarations, which refer to each other by plain pointers. All models of a run live until its end.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "compiler/Source.h"

namespace kelc {

struct Model;
struct EntityDecl;

struct Ident {
  std::string text;
  Loc loc;
};

// A name with its qualification, `A::B::C`.
struct QName {
  std::string text;
  Loc loc;
  bool qualified() const { return text.find("::") != std::string::npos; }
};

struct Literal {
  enum class Kind { integer, floating, string, word };
  Kind kind = Kind::word;
  Loc loc;
  bool negative = false;
  std::uint64_t magnitude = 0;
  double floating = 0;
  std::string written;  // as written in the file, without the sign
  std::string text;     // string: its characters; word: `true`, `infinity` or an enumerator
};

enum class Builtin { none, boolean, character, u8, u16, u32, u64, s8, s16, s32, s64, f32, f64, seconds, string };

struct Decl {
  enum class Kind { enumeration, value, entity, external, counted };

  explicit Decl(Kind k) : kind(k) {}
  virtual ~Decl() = default;
  Decl(Decl const&) = delete;
  Decl& operator=(Decl const&) = delete;

  bool isEntity() const { return kind == Kind::entity || kind == Kind::external; }

  Kind kind;
  Ident name;
  std::string qualified;         // with its namespace
  Model const* model = nullptr;  // null for the framework's own
  std::string header;            // the header that declares it in C++
  // A part of it could not be read, so something that seems to be missing may be in that part.
  bool incomplete = false;
};

// The type of a value or, after `ref`, of a pointer.
struct TypeRef {
  bool isRef = false;
  bool isConst = false;
  QName name;
  bool hasArgs = false;  // `T(A, B)`
  std::vector<TypeRef> args;

  // Set by the checker; neither is set if the name is unknown.
  Builtin builtin = Builtin::none;
  Decl const* decl = nullptr;

  bool resolved() const { return builtin != Builtin::none || decl; }
  bool is(Decl::Kind kind) const { return decl && decl->kind == kind; }
};

struct Key {
  bool ordered = false;
  bool isField = false;  // `.id`
  Ident field;
  TypeRef type;  // once checked, also the type of the field
};

struct Shape {
  enum class Kind { single, keyed, queue };
  Kind kind = Kind::single;
  TypeRef target;
  Key key;        // keyed
  TypeRef index;  // queue
};

struct Modifier {
  enum class Kind { inc, nonnull, counter, readonly, nolog, onChange };
  Kind kind = Kind::inc;
  Loc loc;
  Ident operation;  // onChange
};

struct Param {
  Ident name;
  Shape shape;  // a single value or pointer, once checked
};

struct Field {
  Ident name;
  Shape shape;  // a single value, once checked
  std::optional<Literal> init;
};

struct Attribute {
  enum class Kind {
    value,
    pointer,
    singleton,
    values,         // by key
    valuesByField,  // by a field of their own
    pointers,       // by key
    entities,       // owned, by their first constructor parameter
    valueQueue,
    entityQueue,
    constant,
    parameter,  // of the constructor
  };

  Ident name;
  bool own = false;
  Kind kind = Kind::value;
  Shape shape;
  std::optional<Literal> init;
  std::vector<Modifier> modifiers;

  Modifier const* modifier(Modifier::Kind wanted) const;
  bool has(Modifier::Kind wanted) const { return modifier(wanted) != nullptr; }
  // Both collections and queues: their reactors and accessors take a key or an index.
  bool isCollection() const { return shape.kind != Shape::Kind::single; }
};

struct Operation {
  enum class Binding { plain, virtualOp, overrideOp };
  Ident name;
  Binding binding = Binding::plain;
  bool hidden = false;
  bool isConst = false;
  bool paramsUnknown = false;  // some could not be read
  std::vector<Param> params;
  std::optional<TypeRef> result;
};

struct Enumerator {
  Ident name;
  std::optional<Literal> init;
  std::int64_t value = 0;

  // How it prints: the name without one trailing underscore.
  std::string text() const;
};

struct EnumDecl : Decl {
  EnumDecl() : Decl(Kind::enumeration) {}
  std::vector<Enumerator> enumerators;
};

struct Trait {
  enum class Kind { ordered, hashed, xorHashed, noCompare, autoconvert };
  Kind kind = Kind::ordered;
  Loc loc;
};

struct ValueDecl : Decl {
  ValueDecl() : Decl(Kind::value) {}
  bool has(Trait::Kind wanted) const;
  bool isHashed() const { return has(Trait::Kind::hashed) || has(Trait::Kind::xorHashed); }
  Field const* field(std::string const& wanted) const;

  bool rep = false;
  std::vector<Trait> traits;
  std::vector<Field> fields;
};

struct EntityDecl : Decl {
  EntityDecl() : Decl(Kind::entity) {}
  // Constructor parameters in order, those of the base first.
  std::vector<Attribute const*> allParams() const;

  // Whether all parameters, or all members, could be read, including those of the bases.
  bool paramsKnown() const;
  bool membersKnown() const;

  bool abstract = false;
  bool hasImpl = false;
  bool paramsUnknown = false;  // some of its own could not be read
  bool baseUnknown = false;    // there is a base, but `base` could not be found
  std::optional<QName> baseName;
  EntityDecl const* base = nullptr;  // null if it derives from Kel::Entity only
  unsigned depth = 0;                // the length of the chain of bases
  std::vector<Attribute> params;     // of its own
  std::vector<Attribute> attributes;
  std::vector<Operation> operations;
};

struct ExternDecl : Decl {
  ExternDecl() : Decl(Kind::external) {}
  QName written;
};

// A counted object of the framework that is not an entity.
struct CountedDecl : Decl {
  CountedDecl() : Decl(Kind::counted) {}
};

struct Import {
  std::string path;
  Loc loc;
  Model const* model = nullptr;
};

// One file.
struct Model {
  SourceFile const* file = nullptr;
  std::string includePath;  // of its header, without extension: "Zuk/PathTrie"
  QName nameSpace;
  std::vector<Import> imports;
  std::vector<std::unique_ptr<EnumDecl>> enums;
  std::vector<std::unique_ptr<ValueDecl>> values;
  std::vector<std::unique_ptr<EntityDecl>> entities;
  std::vector<std::unique_ptr<ExternDecl>> externs;
  // A declaration or import could not be read, so an unknown name may be right.
  bool incomplete = false;
};

}  // namespace kelc
