#include "compiler/Sema.h"

#include <limits>
#include <map>
#include <set>

#include "compiler/EntityRules.h"
#include "compiler/Names.h"
#include "compiler/Scope.h"
#include "compiler/TypeRules.h"

namespace kelc {

namespace {

char const* word(Trait::Kind kind) {
  switch (kind) {
    case Trait::Kind::ordered: return "ordered";
    case Trait::Kind::hashed: return "hashed";
    case Trait::Kind::xorHashed: return "xorHashed";
    case Trait::Kind::noCompare: return "noCompare";
    case Trait::Kind::autoconvert: return "autoconvert";
  }
  return "";
}

// Checks the enumerations and value types of one model.
class ValueRules {
 public:
  ValueRules(TypeRules const& types, Diagnostics& diagnostics) : types_(types), diagnostics_(diagnostics) {}

  void check(EnumDecl& decl) const {
    std::int64_t next = 0;
    bool fits = true;
    for (Enumerator& e : decl.enumerators) {
      types_.checkName(e.name);
      e.value = next;
      if (e.init) fits = enumeratorValue(*e.init, e.value);
      if (!e.init && fits && next > std::numeric_limits<std::int32_t>::max()) {
        diagnostics_.error(e.name.loc, "the value of " + inQuotes(e.name.text) + ", " + std::to_string(next) +
                                           ", is out of range for " + withRange(Builtin::s32));
        fits = false;
      }
      next = e.value + 1;
    }
    checkDistinct(decl);
  }

  void check(ValueDecl const& decl) const {
    checkTraits(decl);
    if (decl.rep && !decl.incomplete && decl.fields.size() != 1) {
      diagnostics_.error(decl.name.loc, "a 'rep value' must have exactly one field");
    }
    std::map<std::string, Loc> seen;
    for (Field const& field : decl.fields) {
      checkFieldName(decl, field, seen);
      if (checkFieldType(decl, field)) checkFieldTraits(decl, field);
    }
  }

 private:
  bool enumeratorValue(Literal const& init, std::int64_t& value) const {
    if (init.kind != Literal::Kind::integer) {
      diagnostics_.error(init.loc, "the value of an enumerator must be an integer");
      return false;
    }
    if (!types_.checkRange(init, Builtin::s32)) return false;
    auto const magnitude = static_cast<std::int64_t>(init.magnitude);
    value = init.negative ? -magnitude : magnitude;
    return true;
  }

  // Values are parsed from their text form, so each enumerator must have another one.
  void checkDistinct(EnumDecl const& decl) const {
    std::map<std::string, Enumerator const*> texts;
    std::map<std::int64_t, Enumerator const*> values;
    for (Enumerator const& e : decl.enumerators) {
      std::string const name = inQuotes(e.name.text);
      if (e.text().empty()) diagnostics_.error(e.name.loc, name + " has an empty text form");
      Enumerator const* const twin = texts.emplace(e.text(), &e).first->second;
      Enumerator const* const equal = values.emplace(e.value, &e).first->second;
      if (twin != &e) {
        bool const same = twin->name.text == e.name.text;
        std::string const why =
            same ? " is already declared" : " has the same text form as " + inQuotes(twin->name.text);
        diagnostics_.error(e.name.loc, name + why, {{twin->name.loc, "the previous enumerator is here"}});
      } else if (equal != &e && !decl.incomplete) {
        diagnostics_.error(e.name.loc, name + " has the same value as " + inQuotes(equal->name.text),
                           {{equal->name.loc, "the previous enumerator is here"}});
      }
    }
  }

  void checkTraits(ValueDecl const& decl) const {
    std::set<Trait::Kind> seen;
    for (Trait const& trait : decl.traits) {
      if (!seen.insert(trait.kind).second)
        diagnostics_.error(trait.loc, "duplicate trait " + inQuotes(word(trait.kind)));
      if (trait.kind == Trait::Kind::autoconvert && !decl.rep) {
        diagnostics_.error(trait.loc, "'autoconvert' is for a 'rep value' only");
      }
      if (trait.kind == Trait::Kind::noCompare && decl.has(Trait::Kind::ordered)) {
        diagnostics_.error(trait.loc, "'noCompare' and 'ordered' cannot be combined");
      }
      if (trait.kind == Trait::Kind::xorHashed && decl.has(Trait::Kind::hashed)) {
        diagnostics_.error(trait.loc, "'hashed' and 'xorHashed' cannot be combined");
      }
    }
  }

  void checkFieldName(ValueDecl const& decl, Field const& field, std::map<std::string, Loc>& seen) const {
    std::string const& name = field.name.text;
    types_.checkName(field.name);
    for (std::string const& taken : {name, name + "Is", name + "_"}) {
      std::string const what = (taken == name ? "" : inQuotes(taken) + " of ") + "field " + inQuotes(name);
      if (isValueMember(taken) || taken == decl.name.text || taken == decl.name.text + "Is") {
        return diagnostics_.error(field.name.loc, what + " clashes with a member of every value type");
      }
      auto const [earlier, added] = seen.emplace(taken, field.name.loc);
      if (added) continue;
      return diagnostics_.error(field.name.loc, what + " is already declared",
                                {{earlier->second, "the previous field is here"}});
    }
  }

  bool checkFieldType(ValueDecl const& decl, Field const& field) const {
    TypeRef const& type = field.shape.target;
    if (field.shape.kind != Shape::Kind::single) return types_.checkSingle(field.shape, "a field");
    if (!types_.checkValue(type, "a field")) return false;
    if (field.init) types_.checkLiteral(*field.init, type);
    ValueDecl const* const value = valueDecl(type);
    if (!value || value->model != decl.model || value->name.loc < decl.name.loc) return true;
    std::string const name = inQuotes(value->name.text);
    if (value == &decl) {
      diagnostics_.error(type.name.loc, name + " contains itself");
    } else if (contains(*value, decl)) {
      diagnostics_.error(type.name.loc, inQuotes(decl.name.text) + " contains itself through " + name,
                         {{value->name.loc, name + " is declared here"}});
    } else {
      diagnostics_.error(type.name.loc, name + " must be declared before it is used in a field",
                         {{value->name.loc, name + " is declared here"}});
    }
    return false;
  }

  // Whether `outer` contains an `inner`, directly or in its fields. Iterates, because values may nest to any depth. The
  // answer only chooses between two messages, so it may be false in a model with thousands of mistakes.
  static bool contains(ValueDecl const& outer, ValueDecl const& inner) {
    std::set<ValueDecl const*> seen = {&outer};
    std::vector<ValueDecl const*> open = {&outer};
    while (!open.empty() && seen.size() < 1000) {
      ValueDecl const* const value = open.back();
      open.pop_back();
      if (value == &inner) return true;
      for (Field const& field : value->fields) {
        ValueDecl const* const next = field.shape.target.isRef ? nullptr : valueDecl(field.shape.target);
        if (next && seen.insert(next).second) open.push_back(next);
      }
    }
    return false;
  }

  // The type of the field must support all operations of the value type.
  void checkFieldTraits(ValueDecl const& decl, Field const& field) const {
    ValueDecl const* const value = valueDecl(field.shape.target);
    if (!value || value->incomplete || decl.incomplete) return;
    std::string const outer = inQuotes(decl.name.text);
    auto const refuse = [&](std::string const& missing) {
      diagnostics_.error(field.shape.target.name.loc, inQuotes(value->name.text) + missing,
                         {{value->name.loc, inQuotes(value->name.text) + " is declared here"}});
    };
    if (!decl.has(Trait::Kind::noCompare) && value->has(Trait::Kind::noCompare)) {
      refuse(" is 'noCompare', so " + outer + " must be 'noCompare', too");
    }
    if (decl.isHashed() && !value->isHashed()) refuse(" is not hashed, so " + outer + " cannot be hashed");
  }

  TypeRules const& types_;
  Diagnostics& diagnostics_;
};

class Checker {
 public:
  Checker(Scope const& scope, Diagnostics& diagnostics)
      : types_(scope, diagnostics),
        values_(types_, diagnostics),
        entities_(scope, types_, diagnostics),
        diagnostics_(diagnostics) {}

  void check(Model& model) {
    checkNames(model);
    resolve(model);
    for (auto& decl : model.enums) values_.check(*decl);
    for (auto& decl : model.values) values_.check(*decl);
    for (auto& decl : model.entities) entities_.resolveBase(model, *decl);
    for (auto& decl : model.entities) entities_.check(*decl);
  }

 private:
  void checkNames(Model const& model) const {
    checkNamespace(model.nameSpace);
    for (auto const& decl : model.enums) checkDeclared(decl->name);
    for (auto const& decl : model.values) checkDeclared(decl->name);
    for (auto const& decl : model.entities) checkDeclared(decl->name);
  }

  void checkDeclared(Ident const& name) const {
    types_.checkName(name);
    if (!whyNoName(name.text).empty()) return;
    if (isModelWord(name.text)) {
      diagnostics_.error(name.loc, inQuotes(name.text) + " is reserved by the model language");
    } else if (isNamespaceMember(name.text)) {
      diagnostics_.error(name.loc, inQuotes(name.text) + " has another meaning in generated code");
    }
  }

  // Generated code uses `Kel::` and `std::` inside the namespace.
  void checkNamespace(QName const& name) const {
    std::string const& text = name.text;
    for (std::size_t start = 0; start < text.size();) {
      std::size_t const colons = text.find("::", start);
      std::size_t const end = colons == std::string::npos ? text.size() : colons;
      Ident const part{text.substr(start, end - start), name.loc};
      bool const framework = part.text == "Kel" && start == 0;
      if (isNamespaceMember(part.text) && !framework) {
        diagnostics_.error(name.loc, inQuotes(part.text) + " has another meaning in generated code");
      }
      types_.checkName(part);
      start = end + 2;
    }
  }

  void resolve(Model& model) const {
    for (auto& decl : model.values) {
      for (Field& field : decl->fields) types_.resolve(model, field.shape);
    }
    for (auto& decl : model.entities) {
      for (Attribute& param : decl->params) types_.resolve(model, param.shape);
      for (Attribute& attribute : decl->attributes) types_.resolve(model, attribute.shape);
      for (Operation& op : decl->operations) {
        for (Param& param : op.params) types_.resolve(model, param.shape);
        if (op.result) types_.resolve(model, *op.result);
      }
    }
  }

  TypeRules types_;
  ValueRules values_;
  EntityRules entities_;
  Diagnostics& diagnostics_;
};

}  // namespace

void check(ModelSet& set, Diagnostics& diagnostics) {
  Scope scope;
  scope.collect(set, diagnostics);
  Checker checker(scope, diagnostics);
  for (auto& model : set.models) checker.check(*model);
}

}  // namespace kelc
