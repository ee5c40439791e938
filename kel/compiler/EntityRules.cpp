#include "compiler/EntityRules.h"

#include <set>

#include "compiler/Names.h"
#include "compiler/Suggest.h"

namespace kelc {

namespace {

// Ids have 16 bits; the two highest mean "no attribute".
constexpr std::size_t maxAttributes = 65534;
// A limit, because names are looked up along the chain of bases.
constexpr unsigned maxBases = 64;

// The framework's declarations have no position.
std::vector<Note> noteAt(Loc const& loc, std::string const& text) {
  if (!loc.file) return {};
  return {{loc, text}};
}

std::vector<Note> declaredHere(Decl const& decl) {
  return noteAt(decl.name.loc, inQuotes(decl.name.text) + " is declared here");
}

char const* word(Modifier::Kind kind) {
  switch (kind) {
    case Modifier::Kind::inc: return "inc";
    case Modifier::Kind::nonnull: return "nonnull";
    case Modifier::Kind::counter: return "counter";
    case Modifier::Kind::readonly: return "readonly";
    case Modifier::Kind::nolog: return "nolog";
    case Modifier::Kind::onChange: return "onChange";
  }
  return "";
}

bool isCounter(Attribute const& a) {
  return a.kind == Attribute::Kind::values && a.shape.target.builtin == Builtin::u8 && !a.shape.key.ordered;
}

std::string parameterTypes(EntityDecl const& entity) {
  std::string list;
  for (Attribute const* param : entity.allParams()) {
    list += (list.empty() ? "" : ", ") + spelled(param->shape.target);
  }
  return list.empty() ? "no arguments" : "the arguments (" + list + ")";
}

// Has been reported already.
bool isMistaken(TypeRef const& type) { return !type.resolved() || (!type.isRef && type.decl && type.decl->isEntity()); }

bool sameOrMistaken(TypeRef const& a, TypeRef const& b) { return isMistaken(a) || isMistaken(b) || sameType(a, b); }

bool sameSignature(Operation const& a, Operation const& b) {
  if (a.paramsUnknown || b.paramsUnknown) return true;
  if (a.params.size() != b.params.size() || a.isConst != b.isConst) return false;
  for (std::size_t i = 0; i < a.params.size(); ++i) {
    if (!sameOrMistaken(a.params[i].shape.target, b.params[i].shape.target)) return false;
  }
  if (!a.result || !b.result) return !a.result && !b.result;
  return sameOrMistaken(*a.result, *b.result);
}

}  // namespace

void EntityRules::resolveBase(Model const& model, EntityDecl& entity) const {
  if (!entity.baseName) return;
  QName const& name = *entity.baseName;
  Decl const* const decl = scope_.find(model, name.text);
  auto const refuse = [&](std::string const& why) {
    entity.baseUnknown = true;
    diagnostics_.error(name.loc, "the base " + inQuotes(name.text) + why,
                       decl ? declaredHere(*decl) : std::vector<Note>());
  };
  if (!decl) {
    entity.baseUnknown = true;
    return types_.refuseUnknown(model, name, "base", true);
  }
  if (decl->kind == Decl::Kind::external) return refuse(" is 'extern' and cannot be derived from");
  if (decl->kind != Decl::Kind::entity) return refuse(" is not an entity");
  if (!decl->model) {
    if (decl->name.text != "Entity") refuse(" cannot be derived from");
    return;
  }
  if (decl == &entity) return refuse(" is the entity itself");
  if (decl->model == &model && entity.name.loc < decl->name.loc) return refuse(" must be declared before it is used");
  auto const* const base = static_cast<EntityDecl const*>(decl);
  if (base->depth == maxBases) return refuse(" is the last in a chain of more than 64 bases");
  entity.base = base;
  entity.depth = base->depth + 1;
}

void EntityRules::check(EntityDecl& entity) {
  Members& members = members_[&entity];
  if (entity.base) members.attributes = members_[entity.base].attributes;
  if (isEntityMember(entity.name.text)) {
    diagnostics_.error(entity.name.loc, inQuotes(entity.name.text) + " is a member of every entity's class");
  }
  checkNameOfEntity(entity);
  for (Attribute& param : entity.params) checkParam(param);
  for (Attribute& attribute : entity.attributes) checkAttribute(attribute);
  for (Attribute const& param : entity.params) enterAttribute(entity, param);
  for (Attribute const& attribute : entity.attributes) enterAttribute(entity, attribute);
  for (Operation const& op : entity.operations) {
    checkOperation(entity, op);
    enterOperation(entity, op);
  }
  for (Attribute const& attribute : entity.attributes) checkModifiers(entity, attribute);
  checkAttributeCount(entity);
}

// --- attributes ---

void EntityRules::checkParam(Attribute& param) const {
  TypeRef const& type = param.shape.target;
  types_.checkName(param.name);
  if (!types_.checkSingle(param.shape, "a constructor parameter")) return;
  ValueDecl const* const value = type.isRef ? nullptr : valueDecl(type);
  if (!value || !value->has(Trait::Kind::noCompare)) return;
  diagnostics_.error(type.name.loc,
                     inQuotes(value->name.text) + " is 'noCompare' and cannot be a constructor parameter",
                     declaredHere(*value));
}

// The framework stores the name of every entity: it is the text of the key under which the owner holds it.
void EntityRules::checkNameOfEntity(EntityDecl const& entity) const {
  if (!entity.paramsKnown()) return;
  auto const refuse = [&](Ident const& name) {
    if (name.text != "name") return;
    diagnostics_.error(name.loc, "'name' is reserved for the first constructor parameter, of type Name");
  };
  for (Attribute const& param : entity.params) {
    bool const first = &param == entity.allParams().front();
    bool const isName = param.shape.kind == Shape::Kind::single && !param.shape.target.isRef &&
                        param.shape.target.builtin == Builtin::string;
    if (!first || !isName) refuse(param.name);
  }
  for (Attribute const& attribute : entity.attributes) refuse(attribute.name);
  for (Operation const& op : entity.operations) refuse(op.name);
}

void EntityRules::checkAttribute(Attribute& attribute) const {
  types_.checkName(attribute.name);
  char const initial = attribute.name.text.front();
  if (attribute.isCollection() && initial >= 'A' && initial <= 'Z') {
    diagnostics_.error(
        attribute.name.loc,
        "a collection's name must begin with a lower-case letter: the capital one is for its iterator types");
  }
  if (attribute.kind == Attribute::Kind::constant) return checkConstant(attribute);
  if (!checkShape(attribute) || !attribute.init) return;
  if (attribute.kind == Attribute::Kind::value) {
    types_.checkLiteral(*attribute.init, attribute.shape.target);
  } else {
    diagnostics_.error(attribute.init->loc, "only a single value can have a default");
  }
}

void EntityRules::checkConstant(Attribute const& attribute) const {
  if (attribute.shape.kind != Shape::Kind::single) {
    types_.checkSingle(attribute.shape, "a constant");
  } else if (types_.checkValue(attribute.shape.target, "a constant")) {
    types_.checkLiteral(*attribute.init, attribute.shape.target);
  }
}

bool EntityRules::checkShape(Attribute& attribute) const {
  switch (attribute.shape.kind) {
    case Shape::Kind::single: return checkSingle(attribute);
    case Shape::Kind::keyed: return checkKeyed(attribute);
    case Shape::Kind::queue: return checkQueue(attribute);
  }
  return false;
}

bool EntityRules::checkSingle(Attribute& attribute) const {
  TypeRef const& target = attribute.shape.target;
  if (attribute.own) {
    attribute.kind = Attribute::Kind::singleton;
    return checkOwned(target) != nullptr;
  }
  attribute.kind = target.isRef ? Attribute::Kind::pointer : Attribute::Kind::value;
  return target.isRef ? types_.checkPointer(target) : checkPlainValue(target);
}

bool EntityRules::checkKeyed(Attribute& attribute) const {
  Shape& shape = attribute.shape;
  if (attribute.own) {
    attribute.kind = Attribute::Kind::entities;
    EntityDecl const* const entity = checkOwned(shape.target);
    if (shape.key.type.isRef) {
      diagnostics_.error(shape.key.type.name.loc, "an owned collection cannot be keyed by pointers");
      return false;
    }
    if (!entity || !types_.checkKey(shape)) return false;
    checkMemberKey(*entity, shape.target, shape.key.type, "key");
    return true;
  }
  attribute.kind = shape.key.isField ? Attribute::Kind::valuesByField : Attribute::Kind::values;
  if (shape.target.isRef) attribute.kind = Attribute::Kind::pointers;
  bool const target = shape.target.isRef ? types_.checkPointer(shape.target) : checkPlainValue(shape.target);
  return target && types_.checkKey(shape);
}

bool EntityRules::checkQueue(Attribute& attribute) const {
  Shape const& shape = attribute.shape;
  attribute.kind = attribute.own ? Attribute::Kind::entityQueue : Attribute::Kind::valueQueue;
  bool const index = shape.index.resolved() && !shape.index.isRef && isInteger(shape.index.builtin);
  if (!index && shape.index.resolved()) {
    diagnostics_.error(shape.index.name.loc, "the index of a queue must be an integer type");
  }
  if (attribute.own) {
    EntityDecl const* const entity = checkOwned(shape.target);
    if (entity && index && !entity->allParams().empty()) checkMemberKey(*entity, shape.target, shape.index, "index");
    return entity && index;
  }
  if (shape.target.isRef) {
    diagnostics_.error(shape.target.name.loc, "a queue cannot hold pointers");
    return false;
  }
  return checkPlainValue(shape.target) && index;
}

bool EntityRules::checkPlainValue(TypeRef const& type) const {
  if (!type.decl || !type.decl->isEntity()) return types_.checkValue(type, "an attribute");
  diagnostics_.error(type.name.loc, inQuotes(type.name.text) + " is an entity and needs 'own' or 'ref'",
                     declaredHere(*type.decl));
  return false;
}

// The entity, if it can be made and owned; else reports an error and answers null.
EntityDecl const* EntityRules::checkOwned(TypeRef const& type) const {
  if (!type.resolved()) return nullptr;
  auto const refuse = [&](std::string const& text) {
    diagnostics_.error(type.name.loc, text, type.decl ? declaredHere(*type.decl) : std::vector<Note>());
  };
  std::string const name = inQuotes(type.name.text);
  EntityDecl const* const entity = entityDecl(type);
  if (type.isRef) {
    refuse("'own' and 'ref' cannot be combined");
  } else if (type.is(Decl::Kind::external)) {
    refuse(name + " is 'extern' and can only be used with 'ref'");
  } else if (!entity) {
    refuse("'own' needs an entity, but " + name + " is " + kindOf(type));
  } else if (entity->abstract) {
    refuse(name + " is abstract and cannot be owned");
  } else {
    if (type.hasArgs) checkArguments(type, *entity);
    return entity;
  }
  return nullptr;
}

void EntityRules::checkArguments(TypeRef const& type, EntityDecl const& entity) const {
  std::vector<Attribute const*> const params = entity.allParams();
  if (!entity.paramsKnown()) return;
  for (TypeRef const& arg : type.args) {
    if (!arg.resolved()) return;
  }
  bool same = params.size() == type.args.size();
  for (std::size_t i = 0; same && i < params.size(); ++i) {
    TypeRef const& param = params[i]->shape.target;
    same = sameOrMistaken(param, type.args[i]);
  }
  if (same) return;
  diagnostics_.error(type.name.loc, inQuotes(type.name.text) + " takes " + parameterTypes(entity),
                     declaredHere(entity));
}

// The first constructor parameter of an owned member is its key or index.
void EntityRules::checkMemberKey(EntityDecl const& entity, TypeRef const& type, TypeRef const& key,
                                 char const* role) const {
  std::vector<Attribute const*> const params = entity.allParams();
  std::string const name = inQuotes(type.name.text);
  if (!entity.paramsKnown()) return;
  if (params.empty()) {
    return diagnostics_.error(type.name.loc, name + " has no constructor parameter to serve as its " + role,
                              declaredHere(entity));
  }
  Attribute const& first = *params.front();
  if (!first.shape.target.resolved() || sameType(first.shape.target, key)) return;
  std::string const written = inQuotes(first.name.text + " : " + spelled(first.shape.target));
  diagnostics_.error(key.name.loc,
                     std::string("the ") + role + " of " + name + " must have the type of its parameter " + written,
                     noteAt(first.name.loc, "the parameter is declared here"));
}

void EntityRules::checkAttributeCount(EntityDecl const& entity) const {
  if (members_.at(&entity).attributes <= maxAttributes) return;
  diagnostics_.error(entity.name.loc, inQuotes(entity.name.text) + " has more than 65534 attributes");
}

// --- modifiers ---

void EntityRules::checkModifiers(EntityDecl const& entity, Attribute const& attribute) const {
  std::set<Modifier::Kind> seen;
  for (Modifier const& modifier : attribute.modifiers) {
    std::string const name = inQuotes(word(modifier.kind));
    if (!seen.insert(modifier.kind).second) {
      diagnostics_.error(modifier.loc, "duplicate modifier " + name);
    } else if (char const* const needed = misplaced(modifier.kind, attribute)) {
      diagnostics_.error(modifier.loc, name + " needs " + needed);
    } else if (modifier.kind == Modifier::Kind::onChange) {
      checkOnChange(entity, modifier.operation);
    }
  }
}

// What the attribute would have to be for the modifier; null if it is, or if another mistake leaves that unknown.
char const* EntityRules::misplaced(Modifier::Kind kind, Attribute const& attribute) const {
  TypeRef const& target = attribute.shape.target;
  if (!target.resolved()) return nullptr;
  switch (kind) {
    case Modifier::Kind::inc:
      return attribute.kind == Attribute::Kind::value && isInteger(target.builtin) ? nullptr : "a single integer";
    case Modifier::Kind::nonnull:
      return attribute.kind == Attribute::Kind::pointers ? nullptr : "a collection of pointers";
    case Modifier::Kind::counter: return isCounter(attribute) ? nullptr : "a collection of U8 that is not 'ordered'";
    default: return nullptr;
  }
}

void EntityRules::checkOnChange(EntityDecl const& entity, Ident const& name) const {
  Member const* const found = find(&entity, &Members::accessors, name.text);
  if (!found && !entity.membersKnown()) return;
  if (!found || !found->operation) {
    diagnostics_.error(name.loc, inQuotes(entity.name.text) + " has no operation " + inQuotes(name.text) +
                                     didYouMean(nearestOperation(&entity, name.text)));
  } else if (!found->operation->params.empty()) {
    diagnostics_.error(name.loc, "the operation of 'onChange' must have no parameters",
                       {{found->loc, inQuotes(name.text) + " is declared here"}});
  }
}

// --- operations ---

void EntityRules::checkOperation(EntityDecl const& entity, Operation const& op) const {
  types_.checkName(op.name);
  std::map<std::string, Loc> seen;
  for (Param const& param : op.params) {
    types_.checkName(param.name);
    types_.checkSingle(param.shape, "a parameter");
    auto const [earlier, added] = seen.emplace(param.name.text, param.name.loc);
    if (added) continue;
    diagnostics_.error(param.name.loc, "duplicate parameter " + inQuotes(param.name.text),
                       {{earlier->second, "the previous parameter is here"}});
  }
  if (op.result) types_.checkValueOrPointer(*op.result, "a result");
  if (op.binding == Operation::Binding::overrideOp) checkOverride(entity, op);
}

void EntityRules::checkOverride(EntityDecl const& entity, Operation const& op) const {
  Member const* const found = entity.base ? find(entity.base, &Members::accessors, op.name.text) : nullptr;
  Operation const* const base = found ? found->operation : nullptr;
  std::string const name = inQuotes(op.name.text);
  if (!found && !(entity.base ? entity.base->membersKnown() : !entity.baseUnknown)) return;
  if (!base) {
    diagnostics_.error(op.name.loc, name + " overrides no operation of a base" +
                                        didYouMean(nearestOperation(entity.base, op.name.text)));
  } else if (base->binding == Operation::Binding::plain) {
    diagnostics_.error(op.name.loc, name + " overrides an operation that is not virtual",
                       {{found->loc, "the operation of the base"}});
  } else if (!sameSignature(*base, op)) {
    diagnostics_.error(op.name.loc, name + " overrides an operation with another signature",
                       {{found->loc, "the operation of the base"}});
  }
}

// --- names ---

EntityRules::Member const* EntityRules::find(EntityDecl const* entity, NameTable table, std::string const& name) const {
  for (; entity; entity = entity->base) {
    auto const members = members_.find(entity);
    if (members == members_.end()) continue;
    auto const found = (members->second.*table).find(name);
    if (found != (members->second.*table).end()) return &found->second;
  }
  return nullptr;
}

// The name of an operation of the entity or its bases that is nearest to a wrong one; empty if there is none.
std::string EntityRules::nearestOperation(EntityDecl const* entity, std::string const& name) const {
  Nearest nearest(name);
  for (; entity; entity = entity->base) {
    for (Operation const& op : entity->operations) nearest.consider(op.name.text);
  }
  return nearest.best();
}

void EntityRules::enterAttribute(EntityDecl const& entity, Attribute const& attribute) {
  ++members_[&entity].attributes;
  Member const member{"attribute " + inQuotes(attribute.name.text), attribute.name.loc, nullptr};
  // One error for each attribute: if its own name clashes, names made from it clash as well.
  for (std::string const& name : namesOf(attribute)) {
    if (!enter(entity, &Members::accessors, name, member, name != attribute.name.text)) return;
  }
  std::string const reactor = reactorName(attribute);
  if (!reactor.empty()) enter(entity, &Members::reactors, reactor, member, true);
}

void EntityRules::enterOperation(EntityDecl const& entity, Operation const& op) {
  Member const member{"operation " + inQuotes(op.name.text), op.name.loc, &op};
  Member const* const earlier = find(&entity, &Members::accessors, op.name.text);
  bool const overrides = op.binding == Operation::Binding::overrideOp && earlier && earlier->operation;
  if (overrides && members_[&entity].accessors.count(op.name.text) == 0) {
    members_[&entity].accessors[op.name.text] = member;
    return;
  }
  for (std::string const& name : namesOf(op)) {
    if (!enter(entity, &Members::accessors, name, member, name != op.name.text)) return;
  }
}

// Reports an error and answers false if the name is taken. `isAccessor`: the name does not appear in the model.
bool EntityRules::enter(EntityDecl const& entity, NameTable table, std::string const& name, Member const& member,
                        bool isAccessor) {
  bool const reactor = table == &Members::reactors;
  std::string const generated = inQuotes(name) + " of ";
  std::string const what = (isAccessor ? generated : std::string()) + member.what;
  if (entity.hasImpl && (name == "impl" || name == "impl_")) {
    diagnostics_.error(member.loc, what + " clashes with a member of every entity with 'impl'");
    return false;
  }
  if (reactor ? isReactorMember(name) : isEntityMember(name) || name == entity.name.text) {
    diagnostics_.error(member.loc, what + " clashes with a member of every entity");
    return false;
  }
  Member const* const earlier = find(&entity, table, name);
  if (earlier) {
    bool const same = !isAccessor && earlier->what == member.what;
    diagnostics_.error(member.loc, what + (same ? " is already declared" : " clashes with " + earlier->what),
                       {{earlier->loc, earlier->what + " is declared here"}});
    return false;
  }
  (members_[&entity].*table).emplace(name, member);
  return true;
}

}  // namespace kelc
