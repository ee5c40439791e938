#include "Kel/DebugLayout.h"

#include <cstddef>

#include "Kel/Entity.h"
#include "Kel/GenericIf.h"
#include "Kel/HashMap.h"

// The classes are not of standard layout, but none of them has a virtual base.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace Kel {

void const* DebugLayout::types = nullptr;

DebugLayout::Member const DebugLayout::members[] = {
    {"String.size", offsetof(String8::Rep, size)},
    {"String.text", sizeof(String8::Rep)},
    {"Entity.name", offsetof(Entity, name_)},
    {"Entity.nameIsDue", offsetof(Entity, nameIsDue_)},
    {"Entity.parent", offsetof(Entity, parent_)},
    {"Entity.parentAttrId", offsetof(Entity, parentAttrId_)},
    {"Entity", sizeof(Entity)},
    {"Type.fullName", offsetof(KelType, fullName_)},
    {"Type.kind", offsetof(KelType, kind_)},
    {"Type.builtin", offsetof(KelType, builtin_)},
    {"Type.attrs", offsetof(KelType, attrs_)},
    {"Type.ctorArgs", offsetof(KelType, ctorArgs_)},
    {"Type.enumerators", offsetof(KelType, enumerators_)},
    {"Enumerator.name", offsetof(KelType::Enumerator, name)},
    {"Enumerator.value", offsetof(KelType::Enumerator, value)},
    {"Enumerator", sizeof(KelType::Enumerator)},
    {"Attr.name", offsetof(KelAttr, name_)},
    {"Attr.fullName", offsetof(KelAttr, fullName_)},
    {"Attr.type", offsetof(KelAttr, type_) + offsetof(TypeLink, type_)},
    {"Attr.keyType", offsetof(KelAttr, keyType_) + offsetof(TypeLink, type_)},
    {"Attr.flags", offsetof(KelAttr, flags_)},
    {"Attr.collection", offsetof(KelAttr, collection_)},
    {"Attr.keyIsPtr", offsetof(KelAttr, keyIsPtr_)},
    {"Attr.counts", offsetof(KelAttr, counts_)},
    {"Attr.offset", offsetof(KelAttr, offset_)},
    {"Attr.initial", offsetof(KelAttr, initial_)},
    {"Generic.type", offsetof(GenericIf, type_)},
    {"Generic.entity", offsetof(GenericIf, entity_)},
    {"Generic.list", offsetof(GenericIf, list_)},
    {"Generic.object", offsetof(GenericIf, object_)},
    {"Generic.string", offsetof(GenericIf, string_)},
    {"Generic.scalar", offsetof(GenericIf, scalar_)},
    {"List.objects", offsetof(GenericIf::List, objects_)},
    {"Holder.value", sizeof(ValueHolder)},
    {"Hash.used", offsetof(HashMapGeneric::Rep, used)},
    {"Hash.cap", offsetof(HashMapGeneric::Rep, cap)},
    {"Hash", sizeof(HashMapGeneric::Rep)},
    {"", 0},
};

}  // namespace Kel
