#include "compiler/Emit.h"
#include "compiler/Names.h"

namespace kelc {

namespace {

TypeRef const& keyType(Attribute const& a) {
  return a.shape.kind == Shape::Kind::queue ? a.shape.index : a.shape.key.type;
}

// Writes one of the two reactor classes of an entity: the one with a mutable notifier, or the one with a const
// notifier.
class ReactorEmitter {
 public:
  ReactorEmitter(EntityDecl const& entity, CppTypes const& types, bool isConst)
      : entity_(entity),
        types_(types.inside(memberNames(entity))),
        name_(entity.name.text),
        reactor_(isConst ? "NotifieeConst" : "Notifiee"),
        const_(isConst),
        class_(name_ + "::" + reactor_) {}

  void emit(Texts& out) {
    class_.base = "public " + (entity_.base ? types_.name(*entity_.base) + "::" + reactor_ : "Kel::EntityNotifiee");
    class_.types = {"using Ptr = Kel::Ptr<" + reactor_ + ">;"};
    addNotifier();
    addHandlers();
    bool const inherited = cases_.empty() && entity_.base;
    if (!inherited) addDispatch();
    out.header.gap();
    class_.declare(out.header, out.exported);
    class_.define(out.source);
  }

 private:
  void addNotifier() {
    std::string const pointer = name_ + (const_ ? "::PtrConst" : "::Ptr");
    std::string const bound = "static_cast<" + name_ + " const*>(bound().ptr())";
    std::string const target = const_ ? bound : "const_cast<" + name_ + "*>(" + bound + ")";
    CppGroup& group = class_.group();
    group.add(pointer, "notifier").asConst().does({"return " + pointer + "(" + target + ");"});
    group.add("void", "notifierIs").takes(pointer + " const&", "notifier").inlined("bind(notifier);");
  }

  void addHandlers() {
    CppGroup& group = class_.group();
    for (Attribute const& a : entity_.attributes) {
      std::string const handler = reactorName(a);
      if (handler.empty()) continue;
      CppMethod& method = group.add("void", handler).prefixed("virtual").inlined("");
      std::string arg;
      if (a.isCollection()) {
        method.takes(types_.param(keyType(a)), "");
        arg = "*static_cast<" + types_.type(keyType(a)) + " const*>(key)";
        keyUsed_ = true;
      }
      cases_.push_back("  case " + a.name.text + "Attr: return " + handler + "(" + arg + ");");
    }
  }

  void addDispatch() {
    CppMethod& dispatch = class_.protectedGroup().add("void", "dispatch").suffixed("override");
    bool const idUsed = !cases_.empty();
    dispatch.takes("Kel::AttributeId", idUsed ? "id" : "");
    dispatch.takes("void const*", keyUsed_ || entity_.base ? "key" : "");
    if (cases_.empty()) return void(dispatch.does({}));
    Lines body = {"switch (id) {"};
    body.insert(body.end(), cases_.begin(), cases_.end());
    std::string const base =
        entity_.base ? "return " + types_.name(*entity_.base) + "::" + reactor_ + "::dispatch(id, key);" : "break;";
    body.insert(body.end(), {"  default: " + base, "}"});
    dispatch.does(body);
  }

  EntityDecl const& entity_;
  CppTypes const types_;
  std::string const& name_;
  std::string const reactor_;
  bool const const_;
  CppClass class_;
  Lines cases_;
  bool keyUsed_ = false;
};

}  // namespace

void emitReactors(EntityDecl const& entity, CppTypes const& types, Texts& out) {
  ReactorEmitter(entity, types, false).emit(out);
  ReactorEmitter(entity, types, true).emit(out);
}

}  // namespace kelc
