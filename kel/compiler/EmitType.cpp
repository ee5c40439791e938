#include "compiler/Emit.h"
#include "compiler/Names.h"
#include "compiler/TypeRules.h"

namespace kelc {

namespace {

class TypeRecord {
 public:
  TypeRecord(EntityDecl const& entity, CppTypes const& types)
      : entity_(entity), types_(types), name_(entity.name.text) {}

  Lines body() {
    line("Kel::EntityTypeBuilder<" + name_ + "> b(" + cppString(entity_.qualified) + ", Base::_fwkType());");
    if (!entity_.params.empty()) params();
    for (IdMember const& member : idMembers(entity_)) {
      if (member.attribute) {
        attribute(*member.attribute);
      } else {
        operation(*member.operation);
      }
    }
    plainContent();
    if (!entity_.abstract) line("b.constructs<" + getters(entity_.allParams()) + ">();");
    line("return b.done();");
    Lines all = {"static Kel::KelType const* const type = [] {"};
    all.insert(all.end(), lines_.begin(), lines_.end());
    all.insert(all.end(), {"}();", "return type;"});
    return all;
  }

 private:
  void line(std::string const& text) { lines_.push_back("  " + text); }

  std::string member(std::string const& name) const { return "&" + name_ + "::" + name; }

  std::string getters(std::vector<Attribute const*> const& params) const {
    Lines list;
    for (Attribute const* p : params) list.push_back(member(p->name.text));
    return joined(list);
  }

  void params() {
    for (Attribute const& p : entity_.params) {
      std::string const& x = p.name.text;
      if (isKeyedByName(entity_) && &p == entity_.allParams().front())
        line("b.name(" + x + "Attr);");
      else
        line("b.param(" + x + "Attr, " + cppString(x) + ", " + member(x + "_") + ");");
    }
  }

  void wrapped(std::string const& head, Lines const& items, std::string const& tail) {
    CppText text;
    text.list("  ", head, items, tail);
    std::string const& all = text.text();
    for (std::size_t start = 0; start < all.size();) {
      std::size_t const end = all.find('\n', start);
      lines_.push_back(all.substr(start, end - start));
      start = end + 1;
    }
  }

  void attribute(Attribute const& a) {
    std::string const& x = a.name.text;
    std::string const args = "(" + x + "Attr, " + cppString(x) + ", " + member(x + "_");
    switch (a.kind) {
      case Attribute::Kind::value: value(a, args); break;
      case Attribute::Kind::pointer: line("b.pointer" + args + ");"); break;
      case Attribute::Kind::singleton: line("b.singleton" + args + ");"); break;
      case Attribute::Kind::values: line("b.collectionOf" + args + ");"); break;
      case Attribute::Kind::pointers:
        line("b.collectionOf" + args + (a.has(Modifier::Kind::nonnull) ? ", true);" : ");"));
        break;
      case Attribute::Kind::valuesByField:
        line("b.collectionByField<&" + types_.type(a.shape.target) + "::" + a.shape.key.field.text + ">" + args + ");");
        break;
      case Attribute::Kind::entities: line("b.owned" + args + ");"); break;
      case Attribute::Kind::valueQueue: line("b.queue" + args + ");"); break;
      case Attribute::Kind::entityQueue: line("b.ownedQueue" + args + ");"); break;
      case Attribute::Kind::constant: line("b.constantValue(" + x + "Attr, " + cppString(x) + ", " + x + "());"); break;
      case Attribute::Kind::parameter: break;
    }
    modifiers(a);
  }

  void plainContent() {
    Lines ids;
    for (Attribute const* a : plainAttributes(entity_)) ids.push_back(a->name.text + "Attr");
    if (!ids.empty()) wrapped("b.plainContent<" + member("_plainDifferences") + ">({", ids, "});");
  }

  // The default is passed only if it is not that of the C++ type.
  void value(Attribute const& a, std::string const& args) {
    TypeRef const& type = a.shape.target;
    EnumDecl const* const decl = enumDecl(type);
    bool const told = a.init || (decl && decl->enumerators.front().value != 0);
    std::string const initial = told ? ", " + types_.initialValue(type, a.init) : "";
    line((a.has(Modifier::Kind::inc) ? "b.counter" : "b.value") + args + initial + ");");
  }

  void modifiers(Attribute const& a) {
    if (Modifier const* const m = a.modifier(Modifier::Kind::onChange)) {
      line("b.afterChange([](Kel::Entity& e) { static_cast<" + name_ + "&>(e)." + m->operation.text + "(); });");
    }
    if (a.has(Modifier::Kind::readonly)) line("b.readonly();");
    if (a.has(Modifier::Kind::nolog)) line("b.nolog();");
  }

  void operation(Operation const& op) {
    Lines names;
    for (Param const& p : op.params) names.push_back(cppString(p.name.text));
    std::string const head = "b.op<" + member(op.name.text) + ">(" + op.name.text + "Attr, " + cppString(op.name.text);
    if (names.empty()) return line(head + ");");
    wrapped(head + ", {", names, "});");
  }

  EntityDecl const& entity_;
  CppTypes const& types_;
  std::string const& name_;
  Lines lines_;
};

}  // namespace

Lines typeRecord(EntityDecl const& entity, CppTypes const& types) { return TypeRecord(entity, types).body(); }

}  // namespace kelc
