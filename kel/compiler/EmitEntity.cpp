#include <algorithm>

#include "compiler/Emit.h"
#include "compiler/Names.h"

namespace kelc {

namespace {

// The key, as the accessor answers it.
TypeRef const& keyType(EntityDecl const& entity) { return entity.allParams().front()->shape.target; }

bool isName(EntityDecl const& entity, Attribute const& param) {
  return isKeyedByName(entity) && &param == entity.allParams().front();
}

class EntityEmitter {
 public:
  EntityEmitter(EntityDecl const& entity, CppTypes const& types)
      : entity_(entity),
        outside_(types),
        types_(types.inside(memberNames(entity))),
        name_(entity.name.text),
        class_(name_) {}

  void emit(Texts& out) {
    std::string const base = entity_.base ? outside_.name(*entity_.base) : "Kel::Entity";
    class_.base = "public " + base;
    class_.aliases = {"using Base = " + (entity_.base ? types_.name(*entity_.base) : base) + ";"};
    addTypes();
    addBasics();
    for (IdMember const& member : idMembers(entity_)) {
      if (member.attribute) addAccessors(class_, *member.attribute, types_);
    }
    addOperations();
    addPlainDifferences();
    if (entity_.hasImpl) addImpl();
    heading(out.header, "entity " + name_);
    class_.declare(out.header, out.exported);
    heading(out.source, "entity " + name_);
    class_.define(out.source);
    if (!entity_.abstract) emitFactory(out);
  }

 private:
  void addTypes() {
    class_.types = {"using Ptr = Kel::Ptr<" + name_ + ">;", "using PtrConst = Kel::Ptr<" + name_ + " const>;",
                    "class Notifiee;", "class NotifieeConst;"};
    if (entity_.hasImpl) class_.types.push_back("class Impl;");
    Lines ids;
    for (Attribute const& p : entity_.params) ids.push_back(p.name.text + "Attr");
    for (IdMember const& member : idMembers(entity_)) ids.push_back(member.name().text + "Attr");
    ids.push_back("endAttr");
    ids.front() += " = Base::endAttr";
    CppText text;
    text.braced("  ", "enum Attribute : Kel::AttributeId", ids);
    // The class adds its own indentation.
    std::string const& lines = text.text();
    for (std::size_t start = 0; start < lines.size();) {
      std::size_t const end = lines.find('\n', start);
      class_.types.push_back(lines.substr(start + 2, end - start - 2));
      start = end + 1;
    }
  }

  void addBasics() {
    if (entity_.allParams().empty()) addNamedConstructor();
    if (entity_.abstract) {
      addConstructor(class_.protectedGroup());
      addTypeMethods(class_.group());
    } else {
      CppGroup& group = class_.group();
      addConstructor(group);
      addTypeMethods(group);
    }
    CppGroup& group = class_.group();
    for (Attribute const& p : entity_.params) {
      if (isName(entity_, p)) continue;
      std::string const& x = p.name.text;
      group.add(types_.param(p.shape.target), x).asConst().inlined("return " + x + "_;");
      // The framework clears a pointer parameter that leads to an owner, because the two would keep each other alive.
      std::string const fixed = p.shape.target.isRef ? " " : " const ";
      class_.fields.push_back({types_.type(p.shape.target) + fixed + x + "_;"});
    }
  }

  // An entity without parameters has no name, but derived entities may have one.
  void addNamedConstructor() {
    CppMethod& constructor = class_.protectedGroup().add("", name_).prefixed("explicit").takes("Kel::Name", "name");
    constructor.initializes({"Base(std::move(name))"})
        .does({})
        .commented("For derived types: what their owners call them.");
  }

  void addConstructor(CppGroup& group) {
    std::vector<Attribute const*> const params = entity_.allParams();
    CppMethod& constructor = group.add("", name_);
    for (Attribute const* p : params) constructor.takes(types_.type(p->shape.target), cppParam(p->name.text));
    if (params.size() == 1) constructor.prefixed("explicit");
    Lines initializers = {"Base(" + baseArguments() + ")"};
    for (Attribute const& p : entity_.params) {
      if (!isName(entity_, p)) initializers.push_back(p.name.text + "_(" + passed(p) + ")");
    }
    constructor.initializes(initializers).does(printsKey(entity_) ? Lines{"nameFollowsKey();"} : Lines{});
  }

  static std::string passed(Attribute const& param) {
    std::string const name = cppParam(param.name.text);
    return isScalar(param.shape.target) ? name : "std::move(" + name + ")";
  }

  // The constructor arguments of the base: its own parameters or, if it has none, the key where that is a text.
  std::string baseArguments() const {
    std::vector<Attribute const*> const params = entity_.allParams();
    if (entity_.base && !entity_.base->allParams().empty()) {
      Lines args;
      for (Attribute const* p : entity_.base->allParams()) args.push_back(passed(*p));
      return joined(args);
    }
    if (params.empty() || printsKey(entity_)) return {};
    Attribute const& key = *params.front();
    if (isName(entity_, key)) return passed(key);
    return key.shape.target.isRef ? std::string() : cppParam(key.name.text);
  }

  void addTypeMethods(CppGroup& group) {
    group.add("", "~" + name_).suffixed("override").defaulted();
    group.add("Kel::KelType const*", "_fwkType").prefixed("static").does(typeRecord(entity_, types_));
    group.add("Kel::KelType const*", "type").asConst().suffixed("override").inlined("return _fwkType();");
  }

  void addOperations() {
    CppGroup& group = class_.group();
    for (Operation const& op : entity_.operations) group.methods.push_back(operationMethod(op, types_));
  }

  // Derived classes call it, so no attribute may hide its name.
  void addPlainDifferences() {
    std::vector<Attribute const*> const plain = plainAttributes(entity_);
    if (plain.empty()) return;
    CppGroup& group = class_.protectedGroups.emplace_back();
    group.comment = "In what plain content two entities differ, inherited attributes included.";
    group.add("Kel::U64", "_plainDifferences")
        .takes(name_ + " const&", "o")
        .asConst()
        .does(plainDifferences(entity_, plain));
  }

  void addImpl() {
    CppGroup& group = class_.group("What the bodies of the operations keep for themselves.");
    group.add("std::shared_ptr<Impl>&", "impl").inlined("return impl_;");
    group.add("std::shared_ptr<Impl> const&", "impl").asConst().inlined("return impl_;");
    class_.fields.push_back({"std::shared_ptr<Impl> impl_;"});
  }

  void emitFactory(Texts& out) const {
    CppMethod factory(name_ + "::Ptr", factoryName(entity_));
    Lines args;
    for (Attribute const* p : entity_.allParams()) {
      factory.takes(outside_.param(p->shape.target), cppParam(p->name.text));
      args.push_back(cppParam(p->name.text));
    }
    factory.does({"return " + name_ + "::Ptr(new " + name_ + "(" + joined(args) + "));"});
    out.header.gap();
    factory.declare(out.header, {}, out.exported);
    out.source.gap();
    factory.define(out.source, {});
  }

  EntityDecl const& entity_;
  CppTypes const& outside_;
  CppTypes const types_;
  std::string const& name_;
  CppClass class_;
};

}  // namespace

std::vector<IdMember> idMembers(EntityDecl const& entity) {
  std::vector<IdMember> all;
  for (Attribute const& a : entity.attributes) all.push_back({&a, nullptr});
  for (Operation const& op : entity.operations) {
    if (hasId(op)) all.push_back({nullptr, &op});
  }
  std::sort(all.begin(), all.end(), [](auto const& a, auto const& b) { return a.name().loc < b.name().loc; });
  return all;
}

bool isKeyedByName(EntityDecl const& entity) {
  std::vector<Attribute const*> const params = entity.allParams();
  return !params.empty() && params.front()->name.text == "name";
}

bool printsKey(EntityDecl const& entity) {
  std::vector<Attribute const*> const params = entity.allParams();
  if (params.empty() || (entity.base && !entity.base->allParams().empty())) return false;
  Shape const& key = params.front()->shape;
  return !key.target.isRef && key.target.builtin != Builtin::string;
}

bool hasEntityKey(EntityDecl const& entity) {
  return !entity.allParams().empty() && !isKeyedByName(entity) && !keyType(entity).isRef;
}

// The class is not complete yet: its key is declared before it and defined after it.
void emitEntityKey(EntityDecl const& entity, CppTypes const& types, CppText& header) {
  TypeRef const& key = keyType(entity);
  header.gap();
  header.line("template <>");
  header.line("struct Kel::EntityKey<" + types.name(entity) + "> {");
  header.line("  using type = " + types.type(key) + ";");
  header.line("  static " + types.param(key) + " key(" + types.name(entity) + " const& entity);");
  header.line("};");
}

void emitEntityKeyBody(EntityDecl const& entity, CppTypes const& types, CppText& header) {
  std::string const name = types.name(entity);
  CppMethod key("inline " + types.param(keyType(entity)), "key");
  key.takes(name + " const&", "entity").does({"return entity." + entity.allParams().front()->name.text + "();"});
  key.define(header, "Kel::EntityKey<" + name + ">");
}

void emitEntity(EntityDecl const& entity, CppTypes const& types, Texts& out) { EntityEmitter(entity, types).emit(out); }

}  // namespace kelc
