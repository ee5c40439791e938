#include "Walk.h"

#include <stdexcept>

#include "Kel/GenericIf.h"
#include "examples/config_db/Loader.h"

using Kel::GenericIf;

namespace {

std::string text(GenericIf::PtrConst const& object) { return object ? object->text().str() : "<null>"; }

class Walker {
 public:
  std::map<std::string, std::string> said;

  void entity(Kel::Entity::PtrConst const& entity, std::string const& path) {
    said[path] = entity->typeName().str();
    expectPath(*entity, path);
    GenericIf::PtrConst const object = GenericIf::ofEntity(entity);
    for (Kel::KelAttr const* attr : entity->type()->attributeQ()) {
      std::string const name = path + "." + attr->name().str();
      if (attr->isCollection())
        collection(object, *attr, name);
      else if (!attr->isFunction())
        member(object->attribute(attr->id()), attr->instantiating(), name);
    }
  }

 private:
  // Paths are the full names that the entities have.
  static void expectPath(Kel::Entity const& entity, std::string const& path) {
    if (entity.fullName().view() != path) throw std::runtime_error(path + " is " + entity.fullName().str());
  }

  void member(GenericIf::PtrConst const& object, bool owned, std::string const& path) {
    if (owned && object)
      entity(object->entityConst(), path);
    else if (!owned)
      said[path] = text(object);
  }

  void collection(GenericIf::PtrConst const& object, Kel::KelAttr const& attr, std::string const& name) {
    for (auto it = object->attributeIteratorConst(attr.id()); it; ++it)
      member(it.obj(), attr.instantiating(), name + "/" + text(it.key()));
  }
};

}  // namespace

Kel::Dir::Ptr newDir() { return Kel::dirFactory(""); }

std::string at(Kel::Dir::Ptr const& dir, std::string const& path, std::string const& attribute,
               std::string const& key) {
  Kel::Entity::PtrConst const entity = Kel::Dir::PtrConst(dir)->entity(Kel::String8(path));
  if (!entity) return "<none>";
  GenericIf::PtrConst const object = GenericIf::ofEntity(entity);
  Kel::KelAttr const& attr = *entity->type()->getAttr(attribute);
  if (!attr.isCollection()) return text(object->attribute(attr.id()));
  std::string members;
  for (auto it = object->attributeIteratorConst(attr.id()); it; ++it) {
    if (!key.empty() && text(it.key()) == key) return text(it.obj());
    members += (members.empty() ? "" : ",") + text(attr.isQueue() ? GenericIf::PtrConst(it.obj()) : it.key());
  }
  return key.empty() ? members : "<none>";
}

std::map<std::string, std::string> everything(Kel::Dir::Ptr const& dir) {
  Walker walker;
  for (auto const& root : ConfigDb::sessionRoots()) {
    std::string const path = "/" + root.path;
    walker.entity(dir->entity(Kel::String8(path)), path);
  }
  return walker.said;
}
