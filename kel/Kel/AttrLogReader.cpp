#include <memory>
#include <optional>
#include <unordered_set>

#include "Kel/AttrAccess.h"
#include "Kel/AttrLog.h"
#include "Kel/AttrLogStream.h"

namespace Kel {

namespace {

// An entity of the log, while the log is read.
struct Item {
  std::size_t at;        // where its record begins
  std::size_t contents;  // where the next contents begin
  std::size_t end;
  KelNboAttrLogSa const* sa;
  U32 owner = attrLogNoOwner;
  KelAttr const* heldBy = nullptr;  // the owner's attribute
  U64 sequence = 0;
  bool waiting = false;  // one of its constructor parameters is being made
  Entity::Ptr made = nullptr;
};

// Reads in steps, each for all entities: first the records, so that damage is found before any entity is made; then it
// makes the entities, beginning with those that are constructor parameters of others; then it puts them in their
// places; then it reads their contents.
class Reader final : private AttrLogIn::Entities {
 public:
  Reader(std::string_view log, Entity* context) : log_(log), context_(context) {}
  ~Reader() {
    if (!done_) takeApart();
  }

  Entity::Ptr read() {
    header();
    while (record()) {
    }
    for (U32 id = 0; id < items_.size(); ++id) make(id);
    for (Item const& item : items_)
      if (item.heldBy) inPlace(item);
    for (Item const& item : items_) contents(item);
    done_ = true;
    return items_.front().made;
  }

 private:
  // --- Records ---

  void header() {
    if (log_.substr(0, attrLogMagic.size()) != attrLogMagic) throwAttrLogRecord(0, "no attribute log: 'KELA' expected");
    AttrLogIn in(log_, attrLogMagic.size(), log_.size());
    auto const version = in.get<U16>();
    if (version != attrLogVersion)
      in.throwRecord("version " + std::to_string(attrLogVersion) + " expected, " + std::to_string(version) + " given");
    at_ = in.offset();
  }

  // Reads one record; false after the last.
  bool record() {
    AttrLogIn head(log_, at_, log_.size());
    auto const kind = head.get<U8>();
    auto const length = head.get<U32>();
    if (length > log_.size() - head.offset())
      head.throwRecord("a record of " + std::to_string(length) + " bytes, " +
                       std::to_string(log_.size() - head.offset()) + " left");
    std::size_t const start = at_;
    at_ = head.offset() + length;
    AttrLogIn in(log_, head.offset(), at_, this);
    switch (static_cast<AttrLogRecord>(kind)) {
      case AttrLogRecord::type: type(in); break;
      case AttrLogRecord::entity: entity(start, in); break;
      case AttrLogRecord::end: end(in); return false;
      default: throwAttrLogRecord(start, "unknown kind of record " + std::to_string(kind));
    }
    return true;
  }

  void type(AttrLogIn& in) {
    auto sa = std::make_unique<KelNboAttrLogSa>(KelNboAttrLogSa::described(in));
    KelType const& type = sa->type();
    if (described_.count(&type)) in.throwRecord(type.fullTypeName() + " is described twice");
    for (KelAttr const* attr : sa->attributes()) {
      wantDescribed(*attr, attr->type(), in);
      wantDescribed(*attr, attr->keyType(), in);
    }
    described_.insert(&type);
    types_.push_back(std::move(sa));
    wantEnd(in);
  }

  // Values have no description of their own. If their type was not checked, they might be read as values of another
  // type.
  void wantDescribed(KelAttr const& attr, KelType const* type, AttrLogIn const& in) const {
    if (type && type->isValue() && !type->isBuiltin() && !described_.count(type))
      in.throwRecord(attr.fullName() + ": " + type->fullTypeName() + " was not described before");
  }

  void entity(std::size_t start, AttrLogIn& in) {
    auto const type = in.get<U32>();
    if (type >= types_.size() || !types_[type]->type().isEntity())
      in.throwRecord("no entity type #" + std::to_string(type));
    Item item{start, 0, at_, types_[type].get()};
    item.owner = in.get<U32>();
    if (item.owner == attrLogNoOwner) {
      if (!items_.empty() && !attrLogMayBeUnowned(item.sa->type()))
        in.throwRecord(item.sa->type().fullTypeName() + " needs an owner");
    } else {
      if (item.owner >= items_.size()) in.throwRecord("no entity #" + std::to_string(item.owner) + " before this one");
      auto const& attrs = items_[item.owner].sa->attributes();
      auto const attribute = in.get<U32>();
      if (attribute >= attrs.size() || !attrs[attribute]->instantiating())
        in.throwRecord("attribute #" + std::to_string(attribute) + " of the owner owns no entities");
      item.heldBy = attrs[attribute];
      if (item.heldBy->isQueue()) item.sequence = in.get<U64>();
    }
    item.contents = in.offset();
    items_.push_back(std::move(item));
  }

  void end(AttrLogIn& in) {
    if (in.get<U32>() != items_.size() || items_.empty())
      in.throwRecord("the log holds " + std::to_string(items_.size()) + " entities, another number than it says");
    std::size_t const summed = in.offset();
    if (in.get<U32>() != attrLogChecksum(log_.substr(0, summed))) in.throwRecord("the checksum is wrong");
    wantEnd(in);
    if (at_ != log_.size()) throwAttrLogRecord(at_, std::to_string(log_.size() - at_) + " bytes after the end");
  }

  static void wantEnd(AttrLogIn const& in) {
    if (!in.atEnd()) throwAttrLogRecord(in.offset(), "bytes left over in the record");
  }

  // --- Entities ---

  Entity* byId(U32 id) override { return id < items_.size() ? items_[id].made.ptr() : nullptr; }
  Entity* byPath(String8 const& path) override {
    if (!context_) return nullptr;
    auto* const root = const_cast<Entity*>(context_->root());
    return path.empty() ? root : root->entity(path).ptr();
  }

  // Makes an entity. Before that, makes the entities that are its constructor parameters, and theirs.
  void make(U32 id) {
    std::vector<U32> open{id};
    while (!open.empty()) {
      Item& item = items_[open.back()];
      std::optional<U32> const needed = item.made ? std::nullopt : makeOrNeed(item);
      if (!needed) {
        open.pop_back();
        continue;
      }
      if (items_[*needed].waiting) throwAttrLogEntity(item.at, "a constructor parameter leads back to its own entity");
      item.waiting = true;
      open.push_back(*needed);
    }
  }

  std::optional<U32> makeOrNeed(Item& item) {
    AttrLogIn in(log_, item.contents, item.end, this);
    std::vector<GenericIf::PtrConst> args;
    for (KelAttr const* attr : item.sa->attributes()) {
      if (!attr->ctorParam()) break;
      if (attr->isPtr()) {
        std::optional<U32> const id = in.referredId();
        if (id && *id < items_.size() && !items_[*id].made) return id;
      }
      args.push_back(param(*attr, in));
    }
    item.contents = in.offset();
    asEntityError(item, [&] { item.made = item.sa->type().newEntity(args); });
    return std::nullopt;
  }

  static GenericIf::PtrConst param(KelAttr const& attr, AttrLogIn& in) {
    if (!attr.isPtr()) return attr.type()->valueOps().read(in);
    if (attr.type()->isEntity()) return GenericIf::ofEntity(Entity::Ptr(in.reference(attr.type())));
    in.wantNull(attr.type());
    return nullptr;
  }

  void inPlace(Item const& item) {
    asEntityError(
        item, [&] { item.heldBy->access().restore(*item.heldBy, *items_[item.owner].made, item.made, item.sequence); });
  }

  void contents(Item const& item) {
    AttrLogIn in(log_, item.contents, item.end, this);
    item.sa->read(*item.made, in);
    wantEnd(in);
  }

  // Turns an exception of the framework into one that names the entity.
  template <class Step>
  static void asEntityError(Item const& item, Step step) {
    try {
      step();
    } catch (Exception const& e) {
      throwAttrLogEntity(item.at, e.message());
    }
  }

  // Drops entities that may point at each other and at their owners.
  void takeApart() noexcept {
    // The entities stay in `items_`.
    auto const leave = [](Entity::Ptr child, void*) { child->parentIs(nullptr); };
    for (Item& item : items_) {
      if (!item.made) continue;
      for (KelAttr const* attr : item.made->type()->ptrAttrs()) attr->access().dropPointers(*item.made);
      for (KelAttr const* attr : item.made->type()->ownAttrs()) attr->access().takeChildren(*item.made, leave, nullptr);
    }
  }

  std::string_view log_;
  Entity* context_;
  std::size_t at_ = 0;
  std::vector<std::unique_ptr<KelNboAttrLogSa>> types_;
  std::unordered_set<KelType const*> described_;
  std::vector<Item> items_;
  bool done_ = false;
};

}  // namespace

Entity::Ptr readAttrLog(std::string_view log, Entity* context) { return Reader(log, context).read(); }

}  // namespace Kel
