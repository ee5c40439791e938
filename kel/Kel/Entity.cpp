#include "Kel/Entity.h"

#include <ostream>

#include "Kel/AttrAccess.h"
#include "Kel/Dir.h"
#include "Kel/TypeBuilder.h"

namespace Kel {

std::atomic<U64> Entity::departures_{0};

Entity::~Entity() { delete reactors_; }

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

// A child of a directory stands in the path by its name alone; everything else shows the attribute that holds it.
bool isDirEntry(Entity const& e) {
  return e.parentAttrId() == Dir::entryStateAttr && e.parent()->type() == Dir::_fwkType() &&
         e.type() != Dir::EntryState::_fwkType();
}

}  // namespace

String8 Entity::fullName() const {
  std::vector<Entity const*> chain;
  for (Entity const* e = this; e->parent_; e = e->parent_) chain.push_back(e);
  std::string path;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    Entity const& e = **it;
    if (isDirEntry(e)) {
      path += '/';
      path += e.name_.view();
      continue;
    }
    KelAttr const* attr = e.parentAttr();
    if (!attr) continue;
    path += '.';
    path += attr->name().view();
    if (attr->isCollection()) {
      path += '/';
      path += e.name_.view();
    }
  }
  return String8(path);
}

std::ostream& operator<<(std::ostream& out, Entity const* entity) {
  return entity ? out << entity->fullName() : out << "<null>";
}

// --- Look-up ---

namespace {

// Where the text of a component that starts at `from` may end: at each later separator, and at the end.
std::size_t nextEnd(std::string_view path, std::size_t from) {
  std::size_t const at = path.find_first_of("/.", from);
  return at == std::string_view::npos ? path.size() : at;
}

Entity const* childOf(Entity const& e, KelAttr const* attr, std::string_view key) {
  if (attr) return attr->access().child(e, key);
  return static_cast<Dir const&>(e).entityRef(Name(key)).ptr();
}

// Resolves what follows an entity. Backtracking only happens where a key holds a separator; its depth is the number of
// components, which `limit` bounds.
Entity const* resolve(Entity const& from, std::string_view path, U32 limit);

// Tries the keys that `path` may begin with, shortest first.
Entity const* resolveKey(Entity const& e, KelAttr const* attr, std::string_view path, U32 limit) {
  if (path.empty()) return nullptr;
  for (std::size_t end = nextEnd(path, 0);; end = nextEnd(path, end + 1)) {
    if (end > 0) {
      if (Entity const* child = childOf(e, attr, path.substr(0, end)))
        if (Entity const* found = resolve(*child, path.substr(end), limit)) return found;
    }
    if (end >= path.size()) return nullptr;
  }
}

Entity const* resolve(Entity const& from, std::string_view path, U32 limit) {
  if (path.empty()) return &from;
  if (limit == 0) return nullptr;
  if (path.front() == '/') {
    if (from.type() != Dir::_fwkType()) return nullptr;
    return resolveKey(from, nullptr, path.substr(1), limit - 1);
  }
  std::size_t const end = nextEnd(path, 1);
  KelAttr const* attr = path.front() == '.' ? from.type()->findAttr(path.substr(1, end - 1)) : nullptr;
  if (!attr || !attr->instantiating()) return nullptr;
  if (attr->isCollection()) {
    if (end >= path.size() || path[end] != '/') return nullptr;
    return resolveKey(from, attr, path.substr(end + 1), limit - 1);
  }
  Entity const* child = childOf(from, attr, {});
  return child ? resolve(*child, path.substr(end), limit - 1) : nullptr;
}

constexpr U32 maxPathDepth = 10000;

}  // namespace

Entity const* Entity::lookup(String8 const& path) const {
  if (path.empty()) return nullptr;
  std::string_view const text = path;
  if (text.front() == '/') return resolve(*root(), text, maxPathDepth);
  if (text.front() == '.') return resolve(*this, text, maxPathDepth);
  if (type() != Dir::_fwkType()) return nullptr;
  return resolveKey(*this, nullptr, text, maxPathDepth);
}

// --- Leaving the tree, and the end ---

namespace {

void collectChildren(Entity const& e, std::vector<Entity*>& into, bool onlyWithPointers) {
  for (KelAttr const* attr : e.type()->ownAttrs()) {
    if (onlyWithPointers && !attr->type()->pointersBelow()) continue;
    attr->access().eachChild(
        e, [](Entity* child, void* list) { static_cast<std::vector<Entity*>*>(list)->push_back(child); }, &into);
  }
}

// Drops the pointer attributes of an entity and of everything below it.
void dropPointersBelow(Entity& top) {
  if (!top.type()->pointersBelow()) return;
  std::vector<Entity*> open{&top};
  while (!open.empty()) {
    Entity& e = *open.back();
    open.pop_back();
    collectChildren(e, open, true);
    for (KelAttr const* attr : e.type()->ptrAttrs()) attr->access().dropPointers(e);
  }
}

}  // namespace

// The entities of this thread that have lost their last handle and wait to be destroyed. Objects are taken apart one
// after the other: an entity's children are moved here before it is deleted, so that destruction never recurses.
class Dismantling {
 public:
  static void add(Entity& e) noexcept {
    if (current_) {
      current_->waiting_.push_back({&e, true});
      return;
    }
    Dismantling run;
    current_ = &run;
    run.waiting_.push_back({&e, true});
    while (!run.waiting_.empty()) run.next();
    current_ = nullptr;
  }

 private:
  struct Waiting {
    Entity* entity;
    bool top;  // lost its last handle by itself: what is below it may still hold pointers
  };

  void next() {
    auto const [entity, top] = waiting_.back();
    waiting_.pop_back();
    if (top) dropPointersBelow(*entity);
    for (KelAttr const* attr : entity->type()->ownAttrs()) attr->access().takeChildren(*entity, children_);
    while (!children_.empty()) {
      Ptr<Entity> child = std::move(children_.back());
      children_.pop_back();
      if (child->refs() > 1 || child->isNondestructing()) {
        child->parent_ = nullptr;  // somebody holds it: it stays, out of the tree
      } else {
        waiting_.push_back({child.release(), false});  // nobody else does: its count is left at 1 and never read again
      }
    }
    delete entity;
  }

  static thread_local Dismantling* current_;
  std::vector<Waiting> waiting_;
  std::vector<Ptr<Entity>> children_;
};

thread_local Dismantling* Dismantling::current_ = nullptr;

void Entity::destroySelf() noexcept { Dismantling::add(*this); }

void Entity::leaveTree(Ptr child) noexcept {
  departures_.fetch_add(1, std::memory_order_relaxed);
  child->parent_ = nullptr;
  child->parentAttrId_ = noAttribute;
  if (child->refs() > 1) dropPointersBelow(*child);
}

}  // namespace Kel
