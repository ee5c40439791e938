// The operations that are called by name: each begins a walk with its arguments.
#include "CliSession/EntityCopy/Walk.h"
#include "CliSession/EntityCopyUtils.h"

namespace Cli::Session {

Kel::KelAttr const& destAttribute(Kel::Entity const& dest, Kel::KelAttr const& attr) {
  if (Kel::KelAttr const* found = dest.type()->findAttr(attr.name())) return *found;
  Kel::throwUnknownAttrException(dest.fullName() + ": " + dest.type()->fullTypeName(), attr.name());
}

namespace {

using EntityPtr = Kel::Ptr<Kel::Entity>;
using EntityPtrConst = Kel::Ptr<Kel::Entity const>;
using AttrPtr = Kel::Ptr<Kel::KelAttr const>;
using GifConst = Kel::GenericIf::PtrConst;

// Makes one step of a walk that begins with these entities. The attribute is looked up by its name in the source's
// type. Raises "null ValidPtr" if an entity or the attribute is null. Keeps the entities alive.
template <auto step, class... Args>
auto walkOne(EntityCopy& ec, EntityPtr const& dest, EntityPtrConst const& src, Kel::String8 const& path,
             AttrPtr const& attr, Args&&... args) {
  requireNonNull(dest, src, attr);
  Walk walk(ec, *dest);
  Frame frame(*dest, *src, path);
  frame.hold();
  return (walk.*step)(frame, frame.plan.steps[destAttribute(*src, *attr).id()], args...);
}

// Raises "null ValidPtr", or OpNotSupportedException if an operation is not for attributes of this shape.
void requireShape(AttrPtr const& attr, bool (*isRight)(Kel::KelAttr const&), char const* operation) {
  requireNonNull(attr);
  if (!isRight(*attr)) Kel::throwOpNotSupportedException(attr->fullName(), operation);
}
bool isSingleValue(Kel::KelAttr const& a) { return a.isValue() && !a.isCollection(); }
bool isSingleton(Kel::KelAttr const& a) { return a.instantiating() && !a.isCollection(); }
bool isKeyed(Kel::KelAttr const& a) { return a.isCollection() && !a.isQueue(); }
bool isQueue(Kel::KelAttr const& a) { return a.isQueue(); }
bool isPointer(Kel::KelAttr const& a) { return a.isPtr() && !a.isQueue(); }

}  // namespace

// --- Entities ---

bool EntityCopy::stop() const {
  return stopAtFirstDiff() && attributeEditLog() && attributeEditLog()->attributeEditEntrys() > 0;
}

bool EntityCopy::doCopyEntity(EntityPtr const& dest, EntityPtrConst const& src, Kel::String path) {
  KEL_TRACE(1) << "doCopyEntity: " << path;
  Depth const depth(Impl::of(*this).depth);
  return Kel::validPtr(handler())->handleEntity(this, dest, src, path);
}

bool EntityCopy::handleEntity(Kel::Ptr<Kel::GenericIf> const& dest, GifConst const& src, AttrPtr const& attr,
                              Kel::String path) {
  requireNonNull(attr);
  EntityPtr const destEntity = entityOf(dest);
  EntityPtrConst const srcEntity = entityConstOf(src);
  Kel::String8 const below = childPath(path, *attr, srcEntity.ptr());
  KEL_TRACE_AS(1, "chPath") << "Path changed from " << path << " to " << below;
  Depth const depth(Impl::of(*this).depth);
  return Kel::validPtr(handler())->handleEntity(this, destEntity, srcEntity, below);
}

bool EntityCopy::doCopyEntityAttrs(EntityPtr const& destEntity, EntityPtrConst const& srcEntity, Kel::String path,
                                   Kel::Ptr<AttributeFilter const> const& filter) {
  KEL_ASSERT(destEntity);
  KEL_ASSERT(srcEntity);
  if (path.empty()) path = pathBelow(src().ptr(), *srcEntity);
  KEL_ASSERT_TEXT(srcEntity->type(), "srcT");
  KEL_ASSERT_TEXT(destEntity->type(), "destT");
  KEL_TRACE(1) << "doCopyEntityAttrs: " << path;
  Walk walk(*this, *destEntity);
  Frame frame(*destEntity, *srcEntity, path);
  if (!filter) return walk.root(frame);
  bool differs = false;
  for (Step const* step : frame.plan.all) {
    if (filter->attributeName(step->attr.name())) {
      KEL_TRACE(2) << path << ": attribute " << step->attr.name() << " filtered (not copied).";
      continue;
    }
    differs |= walk.differs(frame, *step);
    if (stop()) break;
  }
  for (auto it = filter->attributeNameIterator(); it; ++it)
    KEL_ASSERT_TEXT(!it.value() || srcEntity->type()->findAttr(it.key()) || stopAtFirstDiff(),
                    "!filter || filter->attributeNames() == filtered || stopAtFirstDiff()");
  return differs;
}

// --- Attributes ---

bool EntityCopy::doCopyAttrByName(EntityPtr const& dest, EntityPtrConst const& src, Kel::String path,
                                  Kel::Name attrName) {
  KEL_TRACE(2) << "doCopyAttrByName: " << attrName;
  Kel::KelAttr const* attrIdx = Kel::validPtr(src)->type()->findAttr(attrName);
  KEL_ASSERT(attrIdx);
  return doCopyAttr(dest, src, path, attrIdx);
}

bool EntityCopy::doCopyAttr(EntityPtr const& dest, EntityPtrConst const& src, Kel::String path, AttrPtr const& attr) {
  return walkOne<&Walk::differs>(*this, dest, src, path, attr);
}

bool EntityCopy::doCopyValue(EntityPtr const& dest, EntityPtrConst const& src, AttrPtr const& attr) {
  requireShape(attr, isSingleValue, "doCopyValue");
  return walkOne<&Walk::valueIfDifferent>(*this, dest, src, {}, attr);
}

bool EntityCopy::doCopySingleton(EntityPtr const& dest, EntityPtrConst const& src, Kel::String path,
                                 AttrPtr const& attr) {
  requireShape(attr, isSingleton, "doCopySingleton");
  return walkOne<&Walk::doCopySingleton>(*this, dest, src, path, attr);
}

bool EntityCopy::doCopyCollection(EntityPtr const& dest, EntityPtrConst const& src, Kel::String path,
                                  AttrPtr const& attr) {
  requireShape(attr, isKeyed, "doCopyCollection");
  return walkOne<&Walk::doCopyCollection>(*this, dest, src, path, attr);
}

bool EntityCopy::doCopyCollectionMember(EntityPtr const& dest, EntityPtrConst const& src, Kel::String path,
                                        GifConst const& srcIndex, GifConst const& index, GifConst const& srcMember,
                                        AttrPtr const& attr) {
  requireShape(attr, isKeyed, "doCopyCollectionMember");
  Walk::Member m{nullptr, nullptr, srcIndex, index, srcMember};
  return walkOne<&Walk::doCopyCollectionMember>(*this, dest, src, path, attr, m);
}

bool EntityCopy::doCopyQueue(EntityPtr const& dest, EntityPtrConst const& src, Kel::String path, AttrPtr const& attr) {
  requireShape(attr, isQueue, "doCopyQueue");
  return walkOne<&Walk::doCopyQueue>(*this, dest, src, path, attr);
}

bool EntityCopy::doCopyPtr(EntityPtr const& dest, EntityPtrConst const& src, Kel::String path, AttrPtr const& attr,
                           GifConst const& index) {
  requireShape(attr, isPointer, "doCopyPtr");
  if (!index) return walkOne<&Walk::doCopyPtr>(*this, dest, src, path, attr, nullptr);
  requireNonNull(src, attr);
  Walk::Member m{nullptr, nullptr, index, index, genericIf(src)->attribute(destAttribute(*src, *attr).id(), index)};
  return walkOne<&Walk::doCopyPtr>(*this, dest, src, path, attr, &m);
}

EntityPtr EntityCopy::resolvePtr(EntityPtrConst const& src, EntityPtrConst const& srcTarget, GifConst const& srcIndex,
                                 GifConst const& srcMember, EntityPtr const& dest, GifConst const& indexValue,
                                 Kel::String path, AttrPtr const& attr) {
  requireNonNull(srcTarget, attr);
  // The pointer is either the key or the member.
  bool const isKey = attr->keyIsPtr() && entityConstOf(srcIndex) == srcTarget && !indexValue;
  Walk::Member m{nullptr, nullptr, srcIndex, indexValue, srcMember};
  return walkOne<&Walk::resolvePtr>(*this, dest, src ? src : dest, path, attr, src, *srcTarget, &m, isKey);
}

// --- The hooks ---

Kel::Ptr<AttributeIsReturn> EntityCopy::attributeIs(EntityPtr const& dest, AttrPtr const& attr, GifConst const& index,
                                                    GifConst const& value, GifConst const& result) {
  return attributeIsReturnFactory(walkOne<&Walk::attributeIs>(*this, dest, dest, {}, attr, index, value, result),
                                  value);
}

bool EntityCopy::attributeDel(EntityPtr const& dest, AttrPtr const& attr, GifConst const& index) {
  return walkOne<&Walk::attributeDel>(*this, dest, dest, {}, attr, index);
}

bool EntityCopy::attributeAdd(EntityPtr const& dest, AttrPtr const& attr, GifConst const& value) {
  return walkOne<&Walk::attributeAdd>(*this, dest, dest, {}, attr, value);
}

bool EntityCopy::attributeRemove(EntityPtr const& dest, AttrPtr const& attr) {
  return walkOne<&Walk::attributeRemove>(*this, dest, dest, {}, attr);
}

}  // namespace Cli::Session
