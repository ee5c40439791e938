// Keyed collections and queues.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyCompare.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

namespace {

// A pointer key of the destination as its counterpart in the source: by path where it lies below the destination's
// root, itself elsewhere. Null for an entity that has left its tree, or is about to, or whose counterpart is not there.
Kel::GenericIf::PtrConst sourceKey(EntityCopy const& ec, Kel::GenericIf::PtrConst const& destKey) {
  Kel::Ptr<Kel::Entity const> const key = entityConstOf(destKey);
  if (!key || !ec.src() || !ec.dest()) return destKey;
  char separator = 0;
  Kel::String8 const relative = pathBelow(*ec.dest(), *key, &separator);
  if (relative.empty()) return key->parent() ? destKey : nullptr;
  Kel::String8 const fullName = ec.src()->fullName() + std::string_view(&separator, 1) + relative;
  Kel::Ptr<Kel::Entity const> found = entityInTree(*ec.src(), fullName);
  // Keys may hold separators: of two entities that bear the name it is the one that stands where the key stands.
  Kel::Ptr<Kel::Entity const> const exact = standIn(*key, *ec.dest(), const_cast<Kel::Entity&>(*ec.src()));
  if (exact && exact != found && exact->fullName() == fullName) found = exact;
  if (!found || !outlivesRun(ec, *key, *found)) return nullptr;
  return genericIf(found);
}

}  // namespace

Kel::GenericIf::AttributeIterator memberAtKey(Kel::GenericIf const& owner, Kel::KelAttr const& attr,
                                              Kel::GenericIf::PtrConst const& key) {
  if (key || !attr.keyIsPtr()) return owner.attributeIteratorKeyConst(attr.id(), key);
  auto it = owner.attributeIteratorConst(attr.id());
  while (it && it.key()) ++it;
  return it;
}

namespace {

// Whether the destination's member may stay, as far as the source's member under the same key says.
bool memberStays(Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& destMember,
                 Kel::GenericIf::PtrConst const& srcMember) {
  // A pointer's changed target is one set; only set against null counts as missing.
  if (attr.isPtr()) return !destMember == !srcMember;
  return attrEqual(attr, destMember, srcMember);
}

}  // namespace

bool EntityCopy::doCopyCollection(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                                  Kel::String path, Kel::Ptr<Kel::KelAttr const> const& attr) {
  wantArgs(dest, src, attr);
  Kel::GenericIf::Ptr const destGif = genericIf(dest);
  Kel::GenericIf::PtrConst const srcGif = genericIf(src);
  Kel::KelAttr const& destOwn = destAttribute(*dest, *attr);
  KEL_TRACE(2) << "doCopyCollection: " << attr->name();
  Kel::KelType const* keyType = attr->keyType();
  KEL_TRACE(3) << "Key is of type " << keyType->name() << " (internal=" << keyType->isEntity()
               << ", pointer=" << attr->keyIsPtr() << ")";
  if (!attr->keyIsPtr()) checkValue(*attr, *keyType);
  // Every member that the source has now will be met again.
  if (pendingAttrs() > 0) supersedePending(*this, *dest, *attr);

  bool differs = false;
  Kel::U32 deleted = 0, examined = 0;
  for (auto it = destGif->attributeIterator(destOwn.id()); it; ++it) {
    ++examined;
    Kel::GenericIf::PtrConst const key = it.key();
    Kel::GenericIf::PtrConst const srcKey = attr->keyIsPtr() ? sourceKey(*this, key) : key;
    if (srcKey || !key) {
      auto const found = memberAtKey(*srcGif, *attr, srcKey);
      if (found && memberStays(*attr, it.obj(), found.obj())) continue;
    }
    ++deleted;
    differs |= attributeDel(dest, attr, key);
    if (stop()) return differs;
  }
  KEL_TRACE(3) << "Deleted " << deleted << " members out of " << examined;

  Kel::U32 copied = 0;
  for (auto it = srcGif->attributeIteratorConst(attr->id()); it; ++it) {
    Kel::GenericIf::PtrConst const srcKey = it.key();
    if (!srcKey) {
      KEL_TRACE(3) << "Key is NULL";
      continue;
    }
    Kel::GenericIf::PtrConst const srcMember = it.obj();
    Kel::GenericIf::PtrConst destKey = srcKey;
    if (attr->keyIsPtr()) {
      Kel::Ptr<Kel::Entity> const target =
          resolvePtr(src, entityConstOf(srcKey), srcKey, srcMember, dest, nullptr, path, attr);
      if (!target) continue;
      destKey = genericIf(target);
    }
    differs |= doCopyCollectionMember(dest, src, path, srcKey, destKey, srcMember, attr);
    ++copied;
    if (stop()) return differs;
  }
  KEL_TRACE(3) << "copied " << copied << " members";
  return differs;
}

bool EntityCopy::doCopyCollectionMember(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                                        Kel::String path, Kel::Ptr<Kel::GenericIf const> const& srcIndex,
                                        Kel::Ptr<Kel::GenericIf const> const& index,
                                        Kel::Ptr<Kel::GenericIf const> const& srcMember,
                                        Kel::Ptr<Kel::KelAttr const> const& attr) {
  wantArgs(dest, src, attr);
  KEL_TRACE(2) << "doCopyCollectionMember: " << srcMember;
  if (attr->isValue()) {
    KEL_TRACE(3) << "Member is a value";
    bool const changed = attributeIs(dest, attr, index, srcMember, nullptr)->changed();
    if (!stop()) KEL_TRACE(3) << "Collection is not instantiating";
    return changed;
  }
  KEL_TRACE(3) << "Member is not a value";
  Kel::GenericIf::Ptr const destGif = genericIf(dest);
  Kel::AttributeId const destId = destAttribute(*dest, *attr).id();
  Kel::GenericIf::Ptr destMember = destGif->attribute(destId, index);
  KEL_TRACE(3) << (destMember ? "Member exists in dest" : "Member does not exist in dest");
  if (attr->isPtr()) {
    KEL_TRACE(3) << srcMember << " is a pointer, copying target";
    bool const changed = copyPtrMember(*this, dest, src, path, attr, srcIndex, index);
    if (!stop()) KEL_TRACE(3) << "Collection is not instantiating";
    return changed;
  }
  if (destMember) KEL_TRACE(3) << "Collection is instantiating";
  wantArgs(entityConstOf(srcMember));
  ParamList const params(new Kel::GenericIf::List);
  bool const create = constructorParams(entityConstOf(destMember), entityConstOf(srcMember), *attr, params);
  if (destMember) KEL_TRACE(3) << (create ? "Constructor parameters changed" : "Constructor parameters did not change");
  KEL_TRACE(3) << "Collection is instantiating, processing member";
  bool changed = false;
  if (create) {
    KEL_TRACE(3) << "Re-creating item";
    changed = attributeIs(dest, attr, index, Kel::GenericIf::List::genericIf(params), nullptr)->changed();
    if (stop() || stopAtFirstDiff()) return changed;
    destMember = destGif->attribute(destId, index);
  } else {
    KEL_TRACE(3) << "Getting pre-existing item";
  }
  if (destMember) {
    KEL_TRACE(3) << "Traversing child";
    changed |= handleEntity(destMember, srcMember, attr, path);
  } else {
    KEL_TRACE(3) << "No child, we're done";
  }
  return changed;
}

namespace {

// Everything that the two halves of a queue's copy share.
struct QueueCopy {
  EntityCopy& ec;
  Kel::Ptr<Kel::Entity> const& dest;
  Kel::String8 const& path;
  Kel::Ptr<Kel::KelAttr const> const& attr;
  Kel::AttributeId destId;
  bool entities;
  Kel::GenericIf::PtrConst last;  // the key of the last member that stays

  // Appends one member; answers whether that is a difference.
  bool append(Kel::GenericIf::PtrConst const& srcMember) {
    if (!entities) return ec.attributeAdd(dest, attr, srcMember);
    ParamList const params(new Kel::GenericIf::List);
    constructorParams(entityConstOf(srcMember), *attr, params);
    bool const differs = ec.attributeAdd(dest, attr, Kel::GenericIf::List::genericIf(params));
    if (!ec.stopAtFirstDiff()) ec.handleEntity(newestMember(), srcMember, attr, path);
    return differs;
  }

 private:
  // The member that an append has just made.
  Kel::GenericIf::Ptr newestMember() {
    Kel::GenericIf::Ptr const gif = genericIf(dest);
    auto it = last ? gif->attributeIteratorKey(destId, last) : gif->attributeIterator(destId);
    if (!it) it = gif->attributeIterator(destId);  // somebody has deleted what stood there
    Kel::GenericIf::Ptr newest;
    for (; it; ++it) {
      newest = it.obj();
      last = it.key();
    }
    return newest;
  }
};

}  // namespace

bool EntityCopy::doCopyQueue(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                             Kel::String path, Kel::Ptr<Kel::KelAttr const> const& attr) {
  wantArgs(dest, src, attr);
  KEL_TRACE(2) << "doCopyQueue: " << attr->name();
  bool const entities = attr->type()->isEntity();
  if (!entities) checkValue(*attr, *attr->type());
  QueueCopy copy{*this, dest, path, attr, destAttribute(*dest, *attr).id(), entities, nullptr};
  auto srcIt = genericIf(src)->attributeIteratorConst(attr->id());
  auto destIt = genericIf(dest)->attributeIterator(copy.destId);
  bool differs = false;
  while (srcIt && destIt) {
    Kel::GenericIf::PtrConst const srcMember = srcIt.obj();
    Kel::GenericIf::Ptr const destMember = destIt.obj();
    if (attrEqual(*attr, destMember, srcMember)) {
      if (entities) differs |= handleEntity(destMember, srcMember, attr, path);
      if (stop()) return differs;
      copy.last = destIt.key();
      ++srcIt;
    } else {
      differs |= attributeDel(dest, attr, destIt.key());
      if (stop()) return true;
    }
    ++destIt;
  }
  for (; destIt; ++destIt) {
    differs |= attributeDel(dest, attr, destIt.key());
    if (stop()) return true;
  }
  for (; srcIt; ++srcIt) {
    differs |= copy.append(srcIt.obj());
    if (stop()) return true;
  }
  return differs;
}

}  // namespace Cli::Session
