#include "Reflect.h"

#include "Kel/Exception.h"

namespace Tests {

using Kel::GenericIf;

GenericIf::Ptr call(Kel::Entity::Ptr const& entity, char const* operation, GenericIf::Args const& args) {
  GenericIf::Ptr const gif = GenericIf::ofEntity(entity);
  return gif->attributeCall(gif->attributeId(operation), args);
}

GenericIf::Ptr read(Kel::Entity::Ptr const& entity, char const* attribute, GenericIf::PtrConst const& key) {
  GenericIf::Ptr const gif = GenericIf::ofEntity(entity);
  return gif->attribute(gif->attributeId(attribute), key);
}

void write(Kel::Entity::Ptr const& entity, char const* attribute, GenericIf::PtrConst const& value,
           GenericIf::PtrConst const& key) {
  GenericIf::Ptr const gif = GenericIf::ofEntity(entity);
  gif->attributeIs(gif->attributeId(attribute), key, value);
}

namespace {

GenericIf::Ptr listOf(std::vector<GenericIf::PtrConst> const& objects) {
  GenericIf::List::Ptr const list(new GenericIf::List);
  for (auto const& object : objects) list->objectEnq(object);
  return GenericIf::List::genericIf(list);
}

}  // namespace

Kel::Entity::Ptr create(Kel::Entity::Ptr const& entity, char const* attribute,
                        std::vector<GenericIf::PtrConst> const& args) {
  GenericIf::Ptr const gif = GenericIf::ofEntity(entity);
  Kel::AttributeId const id = gif->attributeId(attribute);
  GenericIf::PtrConst const key = gif->attr(id)->isCollection() ? args.at(0) : nullptr;
  if (!gif->attribute(id, key)) gif->attributeIs(id, key, listOf(args));
  return gif->attribute(id, key)->entity();
}

// --- Paths ---

namespace {

// The attribute, and perhaps the key, that follow an entity in a path.
bool parseAttribute(Target& target, std::string const& rest) {
  std::size_t const slash = rest.find('/');
  target.attr = target.entity->type()->findAttr(std::string_view(rest).substr(0, slash));
  if (!target.attr) return false;
  if (slash == std::string::npos) return true;
  if (!target.attr->isCollection() || target.attr->keyIsPtr()) return false;
  target.key = target.attr->keyType()->genericFromText(rest.substr(slash + 1));
  return true;
}

}  // namespace

std::string Target::text() const {
  std::string text = entity->fullName().str();
  if (attr) text += "." + attr->name().str();
  if (key) text += "/" + key->text().str();
  return text;
}

Target locate(Kel::Dir::Ptr const& dir, std::string const& path) {
  if (Kel::Entity::Ptr const entity = dir->entity(Kel::String(path))) return {entity, nullptr, nullptr};
  // Keys hold dots themselves: the longest path that leads to an entity with such an attribute counts.
  std::string deepest;
  for (std::size_t dot = path.rfind('.'); dot != std::string::npos && dot > 0; dot = path.rfind('.', dot - 1)) {
    Kel::Entity::Ptr const owner = dir->entity(Kel::String(path.substr(0, dot)));
    if (!owner) continue;
    if (deepest.empty()) deepest = path.substr(0, dot);
    Target target{owner, nullptr, nullptr};
    if (parseAttribute(target, path.substr(dot + 1))) return target;
  }
  if (deepest.empty()) Kel::throwRangeException(Kel::String("'") + path + "': no such entity");
  Kel::throwRangeException(Kel::String("'") + path + "': '" + deepest + "' has no such attribute or member");
}

Target locateExisting(Kel::Dir::Ptr const& dir, std::string const& path) {
  Target target = locate(dir, path);
  if (target.key) {
    GenericIf::PtrConst const gif = GenericIf::ofEntity(Kel::Entity::PtrConst(target.entity));
    if (!gif->attributeIteratorKeyConst(target.attr->id(), target.key))
      Kel::throwRangeException(Kel::String("'") + path + "': no such member");
  }
  return target;
}

// --- Changes ---

namespace {

GenericIf::Ptr valueFromText(Kel::Dir::Ptr const& dir, Kel::KelAttr const& attr, std::string const& text) {
  if (!attr.isPtr()) return attr.type()->genericFromText(text);
  if (text == "null") return nullptr;
  Kel::Entity::Ptr const entity = dir->entity(Kel::String(text));
  if (!entity) Kel::throwRangeException(Kel::String("'") + text + "': no such entity to point at");
  return GenericIf::ofEntity(entity);
}

// The constructor arguments of an owned entity: its key, then what the texts give.
GenericIf::Ptr argumentsFromText(Target const& target, std::vector<std::string> const& texts) {
  std::vector<GenericIf::PtrConst> args;
  if (target.key && !target.attr->isQueue()) args.push_back(target.key);
  Kel::KelConstraint const wanted = target.attr->constraint();
  std::size_t const supplied = args.size() + (target.attr->isQueue() ? 1 : 0);
  if (supplied + texts.size() != wanted.args())
    Kel::throwRangeException(Kel::String(target.text()) + ": a new " + target.attr->type()->name() + " takes " +
                             std::to_string(wanted.args() - supplied) + " values after its key, " +
                             std::to_string(texts.size()) + " given");
  for (std::size_t i = 0; i < texts.size(); ++i)
    args.push_back(wanted.argPtr(static_cast<unsigned>(supplied + i))->type()->genericFromText(texts[i]));
  return listOf(args);
}

}  // namespace

void setFromText(Kel::Dir::Ptr const& dir, Target const& target, std::vector<std::string> const& texts) {
  if (!target.attr) Kel::throwRangeException(Kel::String(target.text()) + " is there already");
  GenericIf::Ptr const gif = GenericIf::ofEntity(target.entity);
  if (target.attr->isCollection() && !target.attr->isQueue() && !target.key)
    Kel::throwRangeException(Kel::String(target.text()) + ": a key is needed, as in " + target.attr->name() + "/KEY");
  GenericIf::PtrConst value;
  if (target.attr->instantiating()) {
    value = argumentsFromText(target, texts);
  } else {
    if (texts.size() != 1) Kel::throwRangeException(Kel::String(target.text()) + ": one value expected");
    value = valueFromText(dir, *target.attr, texts.front());
  }
  if (target.attr->isQueue())
    gif->attributeSQEnq(target.attr->id(), value);
  else
    gif->attributeIs(target.attr->id(), target.key, value);
}

void deleteTarget(Target const& target) {
  if (!target.attr) {
    Kel::Entity* owner = target.entity->parent();
    Kel::KelAttr const* holder = target.entity->parentAttr();
    if (!holder) Kel::throwRangeException(Kel::String(target.text()) + " is a root");
    GenericIf::PtrConst key;
    if (holder->isCollection()) key = holder->keyType()->genericFromText(target.entity->name());
    GenericIf::ofEntity(Kel::Entity::Ptr(owner))->attributeDel(holder->id(), key);
    return;
  }
  GenericIf::Ptr const gif = GenericIf::ofEntity(target.entity);
  if (target.attr->isCollection() && !target.key)
    gif->attributeOp(Kel::AttributeOp::deleteAll, target.attr->id());
  else
    gif->attributeDel(target.attr->id(), target.key);
}

// --- Looking ---

Counts countBelow(Kel::Entity::PtrConst const& top) {
  Counts counts;
  std::vector<Kel::Entity::PtrConst> open{top};
  while (!open.empty()) {
    GenericIf::PtrConst const gif = GenericIf::ofEntity(open.back());
    open.pop_back();
    ++counts.entities;
    for (Kel::KelAttr const* attr : gif->type()->attributeQ()) {
      if (!attr->copiable()) continue;
      if (attr->isCollection()) {
        for (auto it = gif->attributeIteratorConst(attr->id()); it; ++it) {
          if (attr->instantiating())
            open.push_back(it.obj()->entityConst());
          else
            ++counts.attributes;
        }
      } else if (GenericIf::PtrConst const value = gif->attribute(attr->id())) {
        if (attr->instantiating())
          open.push_back(value->entityConst());
        else
          ++counts.attributes;
      }
    }
  }
  return counts;
}

std::vector<std::string> describe(Kel::Entity::PtrConst const& entity) {
  std::vector<std::string> lines;
  GenericIf::PtrConst const gif = GenericIf::ofEntity(entity);
  for (Kel::KelAttr const* attr : gif->type()->attributeQ()) {
    if (attr->isFunction()) continue;
    lines.push_back(attr->name().str() + ": " + gif->attributeString(attr->id()).str());
  }
  return lines;
}

}  // namespace Tests
