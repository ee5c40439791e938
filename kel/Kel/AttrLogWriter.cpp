#include <unordered_map>

#include "Kel/AttrAccess.h"
#include "Kel/AttrLog.h"
#include "Kel/AttrLogStream.h"

namespace Kel {

namespace {

// An entity of the log, and where its owner holds it.
struct Held {
  Entity const* entity;
  U32 owner = attrLogNoOwner;
  U32 attribute = 0;  // the position among the owner's streamed attributes
  U64 sequence = 0;   // number of a member of a queue
  bool queued = false;
};

class Writer {
 public:
  explicit Writer(Entity const& top) : out_(top.root()) { number(top); }

  std::string write() {
    out_.putBytes(attrLogMagic);
    out_.put(attrLogVersion);
    for (Held const& held : held_) entity(held);
    // Unowned entities have no pointers, so these are all.
    for (Entity const* target : out_.unowned()) entity({target});
    std::size_t const length = open(AttrLogRecord::end);
    out_.put(static_cast<U32>(held_.size() + out_.unowned().size()));
    out_.patch(length, 2 * sizeof(U32));  // the checksum covers all bytes before it
    out_.put(attrLogChecksum(out_.bytes()));
    return out_.take();
  }

 private:
  // Gives every entity its number: owners before what they own, members in order.
  void number(Entity const& top) {
    std::vector<Held> open{{&top}};
    std::vector<Held> children;
    while (!open.empty()) {
      Held const held = open.back();
      open.pop_back();
      auto const id = static_cast<U32>(held_.size());
      held_.push_back(held);
      out_.number(*held.entity);
      std::vector<KelAttr const*> const& attrs = held.entity->type()->attrLogSa().attributes();
      for (U32 i = 0; i < attrs.size(); ++i) {
        if (!attrs[i]->instantiating()) continue;
        std::size_t const first = children.size();
        attrs[i]->access().eachOwned(
            *held.entity,
            [](Entity* child, U64 sequence, void* list) {
              static_cast<std::vector<Held>*>(list)->push_back({child, 0, 0, sequence, false});
            },
            &children);
        for (std::size_t c = first; c < children.size(); ++c)
          children[c] = {children[c].entity, id, i, children[c].sequence, attrs[i]->isQueue()};
      }
      for (; !children.empty(); children.pop_back()) open.push_back(children.back());
    }
  }

  // Describes a type, unless it is described already. The types of its values come first.
  void describe(KelType const* type) {
    if (type->isBuiltin() || type->kind() == KelType::Kind::object || !described_.emplace(type, types_).second) return;
    if (!type->isEnum()) {
      for (KelAttr const* attr : type->attrLogSa().attributes()) {
        if (attr->type() && attr->type()->isValue()) describe(attr->type());
        if (attr->keyType() && attr->keyType()->isValue()) describe(attr->keyType());
      }
    }
    described_[type] = types_++;
    std::size_t const length = open(AttrLogRecord::type);
    type->attrLogSa().describe(out_);
    close(length);
  }

  void entity(Held const& held) {
    describe(held.entity->type());
    std::size_t const length = open(AttrLogRecord::entity);
    out_.put(described_.at(held.entity->type()));
    out_.put(held.owner);
    if (held.owner != attrLogNoOwner) out_.put(held.attribute);
    if (held.queued) out_.put(held.sequence);
    held.entity->type()->attrLogSa().write(*held.entity, out_);
    close(length);
  }

  // Begins a record. Answers the offset of its length.
  std::size_t open(AttrLogRecord kind) {
    out_.put(kind);
    out_.put(U32(0));
    return out_.size() - sizeof(U32);
  }
  void close(std::size_t length) {
    std::size_t const size = out_.size() - length - sizeof(U32);
    if (size > 0xffffffffu) throwAttrLogRecord(length, "a record of " + std::to_string(size) + " bytes");
    out_.patch(length, static_cast<U32>(size));
  }

  std::vector<Held> held_;
  std::unordered_map<KelType const*, U32> described_;
  U32 types_ = 0;
  AttrLogOut out_;
};

}  // namespace

std::string writeAttrLog(Entity const& top) { return Writer(top).write(); }

}  // namespace Kel
