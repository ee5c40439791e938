#include "Kel/Entity.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <ostream>
#include <vector>

#include "Kel/AttrAccess.h"
#include "Kel/ChangeJournal.h"
#include "Kel/TypeBuilder.h"

namespace Kel {

Atomic<U64> Entity::departures_{0};

Entity::~Entity() { delete extras_; }

KelType const* Entity::_fwkType() {
  static KelType const* const type = EntityTypeBuilder<Entity>("Kel::Entity", nullptr).done();
  return type;
}

KelAttr const* Entity::parentAttr() const { return parent_ ? parent_->type()->attr(parentAttrId_) : nullptr; }

Entity const* Entity::root() const {
  Entity const* e = this;
  while (e->parent_) e = e->parent_;
  return e;
}

String8 Entity::attributeString(AttributeId id) const {
  return GenericIf::ofEntity(PtrConst(this))->attributeString(id);
}

namespace {

// The place of a queue's member that has no name. Cost: a walk.
String8 placeInQueue(Entity const& e, KelAttr const& attr) {
  IteratorRoom room;
  for (AttrIterator& it = attr.access().iterate(attr, *e.parent(), room); it.nonNull(); it.inc())
    if (it.target() == &e) return it.key()->text();
  return e.name();
}

// A path, written from its end.
class PathText {
 public:
  void prepend(std::string_view part) {
    while (part.size() > at_) grow();
    at_ -= part.size();
    std::copy(part.begin(), part.end(), text() + at_);
  }
  std::string_view view() { return {text() + at_, size() - at_}; }

 private:
  char* text() { return large_.empty() ? room_.data() : large_.data(); }
  std::size_t size() const { return large_.empty() ? room_.size() : large_.size(); }
  void grow() {
    std::string larger(size(), ' ');
    larger.append(text(), size());
    at_ += size();
    large_ = std::move(larger);
  }

  std::array<char, 256> room_;
  std::string large_;
  std::size_t at_ = room_.size();
};

// Calls `take` with each part of a path, the last one first, until it answers false.
template <class Take>
bool takeParts(Entity const& from, Entity const* top, Take const& take) {
  for (Entity const* e = &from; e != top && e->parent(); e = e->parent()) {
    KelType const& owner = *e->parent()->type();
    if (owner.entries() && owner.entries()->isEntry(*e)) {
      if (!take(e->name()) || !take("/")) return false;
    } else if (KelAttr const* attr = owner.attr(e->parentAttrId())) {
      bool const named = !attr->isQueue() || !e->type()->ctorArgs().empty();
      if (attr->isCollection() && (!take(named ? e->name() : placeInQueue(*e, *attr)) || !take("/"))) return false;
      if (!take(attr->name()) || !take(".")) return false;
    }
  }
  return true;
}

PathText pathText(Entity const& from, Entity const* top) {
  PathText path;
  takeParts(from, top, [&](std::string_view part) {
    path.prepend(part);
    return true;
  });
  return path;
}

}  // namespace

void Entity::makeName() const {
  KelAttr const& key = *type()->getAttr(type()->ctorArgs().front().name);
  name_ = key.access().get(key, this, nullptr, true)->text();
  nameIsDue_ = false;
}

String8 Entity::fullName() const { return pathFrom(nullptr); }

String8 Entity::pathFrom(Entity const* top) const { return pathText(*this, top).view(); }

String8 Entity::localPath(Entity const* top) const {
  PathText path = pathText(*this, top);
  std::string_view const text = path.view();
  return text.substr(text.empty() ? 0 : 1);
}

bool Entity::hasFullName(std::string_view text) const {
  std::string_view rest = text;
  bool const ends = takeParts(*this, nullptr, [&](std::string_view part) {
    bool const fits = rest.ends_with(part);
    if (fits) rest.remove_suffix(part.size());
    return fits;
  });
  return ends && rest.empty();
}

std::ostream& operator<<(std::ostream& out, Entity const* entity) {
  return entity ? out << entity->fullName() : out << "<null>";
}

// --- Look-up ---

namespace {

// The places where a component that begins at `from` may end: each later separator, and the end of the path.
std::size_t nextEnd(std::string_view path, std::size_t from) {
  while (from < path.size() && path[from] != '/' && path[from] != '.') ++from;
  return std::min(from, path.size());
}

// A collection whose member the path names, and the end of the key that was tried last.
struct Choice {
  Entity const* owner;
  KelAttr const* attr;  // null: the collection is the owner's entries
  std::size_t key;
  std::size_t end = std::string_view::npos;      // none has been tried
  std::size_t longest = std::string_view::npos;  // length of the collection's keys, once it is known
  unsigned tries = 0;
};

// The length of the longest key of a collection, printed.
std::size_t longestKey(Entity const& owner, KelAttr const& attr) {
  std::size_t longest = std::numeric_limits<U64>::digits10 + 2;  // an index prints no longer
  attr.access().eachOwned(
      owner,
      [](Entity* member, U64, void* to) {
        auto& length = *static_cast<std::size_t*>(to);
        length = std::max<std::size_t>(length, member->name().chars());
      },
      &longest);
  return longest;
}

// Walks a path. Choices are kept in a list, not on the stack: a path may be as long as a tree is deep.
class Resolver {
 public:
  explicit Resolver(std::string_view path) : path_(path) { choices_.reserve(8); }

  Entity const* from(Entity const& e) { return run(&e); }
  // The path begins with the name of an entry.
  Entity const* fromEntryOf(Entity const& e) {
    choices_.push_back({&e, nullptr, 0});
    return run(nullptr);
  }

 private:
  Entity const* run(Entity const* at) {
    while (!at || at_ < path_.size()) {
      if (at) at = step(*at);
      while (!at && !choices_.empty()) at = nextMember();
      if (!at) return nullptr;
    }
    return at;
  }

  // Goes to a singleton, or adds a choice of members.
  Entity const* step(Entity const& e) {
    if (path_[at_] == '/') {
      if (e.type()->entries()) choices_.push_back({&e, nullptr, at_ + 1});
      return nullptr;
    }
    std::size_t const end = nextEnd(path_, at_ + 1);
    KelAttr const* attr = path_[at_] == '.' ? e.type()->findAttr(path_.substr(at_ + 1, end - at_ - 1)) : nullptr;
    if (!attr || !attr->instantiating()) return nullptr;
    if (attr->isCollection()) {
      if (end < path_.size() && path_[end] == '/') choices_.push_back({&e, attr, end + 1});
      return nullptr;
    }
    at_ = end;
    return attr->access().child(e, {});
  }

  // The member under the next longer key of the last choice. A choice without such a member is dropped. The shortest
  // key is the empty one.
  Entity const* nextMember() {
    Choice& c = choices_.back();
    bool const first = c.end == std::string_view::npos;
    if (!first && !longerKeyMayBe(c)) {
      choices_.pop_back();
      return nullptr;
    }
    at_ = c.end = nextEnd(path_, first ? c.key : c.end + 1);
    std::string_view const key = path_.substr(c.key, c.end - c.key);
    return c.attr ? c.attr->access().child(*c.owner, key) : entriesOf(c).find(*c.owner, key);
  }

  bool longerKeyMayBe(Choice& c) const {
    if (c.end == path_.size()) return false;
    std::size_t const least = c.end + 1 - c.key;
    if (!c.attr) return entriesOf(c).anyNameBegins(*c.owner, path_.substr(c.key, least));
    // Each try hashes the key from its beginning. In a path with many separators, tries that must fail would take
    // quadratic time.
    if (++c.tries == triesBeforeMeasuring) c.longest = longestKey(*c.owner, *c.attr);
    return least <= c.longest;
  }

  static EntryOps const& entriesOf(Choice const& c) { return *c.owner->type()->entries(); }

  static constexpr unsigned triesBeforeMeasuring = 16;  // so many look-ups are cheaper than a walk over the members
  std::string_view path_;
  std::size_t at_ = 0;
  std::vector<Choice, PoolAllocator<Choice>> choices_;
};

}  // namespace

Entity const* Entity::lookup(String8 const& path) const {
  if (path.empty()) return nullptr;
  std::string_view const text = path;
  if (text.front() == '/') return Resolver(text).from(*root());
  if (text.front() == '.') return Resolver(text).from(*this);
  return type()->entries() ? Resolver(text).fromEntryOf(*this) : nullptr;
}

// --- Leaving the tree, and the end ---

// A stack of entities. It allocates nothing: the link of an entity is stored in its extras or, if it has none, in place
// of their address. REQUIRES: nothing asks for the reactors of an entity that is on a stack.
class EntityStack {
 public:
  bool empty() const { return !top_; }
  void push(Entity& e) noexcept {
    if (e.extras_)
      e.extras_->next = top_;
    else
      e.extras_ = reinterpret_cast<EntityExtras*>(reinterpret_cast<std::uintptr_t>(top_) | EntityExtras::isLink);
    top_ = &e;
  }
  Entity& pop() noexcept {
    Entity& e = *top_;
    auto const bits = reinterpret_cast<std::uintptr_t>(e.extras_);
    if ((bits & EntityExtras::isLink) != 0) {
      top_ = reinterpret_cast<Entity*>(bits & ~EntityExtras::isLink);
      e.extras_ = nullptr;
    } else {
      top_ = e.extras_->next;
    }
    return e;
  }

 private:
  Entity* top_ = nullptr;
};

// Both walks below recurse, because a child is cheap to visit right after its owner. They recurse so many levels only:
// deeper entities wait on a stack until the walk is back at the top.
constexpr unsigned maxLevels = 16;

// Drops the pointer attributes of an entity and of everything below it.
class PointerDrop {
 public:
  static void run(Entity& top) {
    PointerDrop drop;
    drop.visit(top);
    while (!drop.deeper_.empty()) drop.visit(drop.deeper_.pop());
  }

 private:
  void visit(Entity& e) {
    if (levels_ == maxLevels) return deeper_.push(e);
    ++levels_;
    for (KelAttr const* attr : e.type()->ownAttrs())
      if (attr->type()->pointersBelow())
        attr->access().eachChild(
            e, [](Entity* child, void* drop) { static_cast<PointerDrop*>(drop)->visit(*child); }, this);
    bool any = false;
    for (KelAttr const* attr : e.type()->ptrAttrs()) any |= attr->access().dropPointers(e);
    if (any) e.mark(Change::content);
    --levels_;
  }

  EntityStack deeper_;
  unsigned levels_ = 0;
};

// While an object of this class exists, entities of this thread that lose their last handle wait. The outermost one
// destroys them at its end.
class Dismantling {
 public:
  Dismantling() noexcept : outermost_(!std::exchange(waiting_.underWay, true)) {}
  ~Dismantling() {
    if (!outermost_) return;
    while (waiting_.destroyNext()) continue;
    waiting_.underWay = false;
  }
  Dismantling(Dismantling const&) = delete;
  Dismantling& operator=(Dismantling const&) = delete;

  static void add(Entity& e) noexcept {
    Entity::departures_.fetch_add(1, Order::relaxed);
    Dismantling const run;
    waiting_.tops.push(e);
  }
  // Entities that are destroyed by this wait: their destructors must not meet a tree whose entities are on a stack.
  static void dropPointersBelow(Entity& top) noexcept {
    if (!top.type()->pointersBelow()) return;
    Dismantling const run;
    PointerDrop::run(top);
  }

 private:
  struct Waiting {
    bool destroyNext() noexcept {
      if (!parts.empty()) {
        destroy(parts.pop());
      } else if (!tops.empty()) {
        Entity& top = tops.pop();
        dropPointersBelow(top);
        destroy(top);
      } else {
        return false;
      }
      return true;
    }
    void destroy(Entity& e) noexcept {
      if (levels == maxLevels) return parts.push(e);
      ++levels;
      for (KelAttr const* attr : e.type()->ownAttrs()) attr->access().takeChildren(e, &takeOut, this);
      delete &e;
      --levels;
    }
    static void takeOut(Entity::Ptr child, void* waiting) {
      child->parent_ = nullptr;
      child->parentAttrId_ = noAttribute;
      // An entity with other handles stays, outside of the tree.
      if (child->refs() > 1 || child->isNondestructing()) return ChangeJournal::noteHeldDeparture();
      // Its count is left at 1 and never read again.
      static_cast<Waiting*>(waiting)->destroy(*child.release());
    }

    EntityStack tops;   // lost their last handle; entities below them may still hold pointers
    EntityStack parts;  // were owned by destroyed entities, and hold no pointers
    unsigned levels = 0;
    bool underWay = false;
  };

  static thread_local Waiting waiting_;
  bool const outermost_;
};

thread_local Dismantling::Waiting Dismantling::waiting_;

void Entity::destroySelf() noexcept { Dismantling::add(*this); }

void Entity::leaveTree(Ptr child) noexcept {
  child->noteLeaving();
  departures_.fetch_add(1, Order::relaxed);
  child->parent_ = nullptr;
  child->parentAttrId_ = noAttribute;
  if (child->refs() > 1) Dismantling::dropPointersBelow(*child);
  if (child->refs() > 1) ChangeJournal::noteHeldDeparture();
}

}  // namespace Kel
