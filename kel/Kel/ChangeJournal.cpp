#include "Kel/ChangeJournal.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "Kel/AttrAccess.h"
#include "Kel/Exception.h"

namespace Kel {

namespace {

constexpr unsigned changeBits = 2;
constexpr U32 changeMask = 3;
constexpr U32 lastEpoch = (1u << (32 - changeBits)) - 1;

constexpr std::size_t maxDepartures = 4096;

U64 entryOf(Entity const& e, U32 stamp) { return reinterpret_cast<std::uintptr_t>(&e) | (stamp & changeMask); }

Entity const* entityOf(U64 entry) {
  return reinterpret_cast<Entity const*>(static_cast<std::uintptr_t>(entry & ~U64(changeMask)));
}

}  // namespace

Atomic<U32> Entity::stampFloor_{0};
Atomic<U64> Entity::upheavals_{0};
Atomic<U64> ChangeJournal::heldDepartures_{0};

EntityExtras::EntityExtras() noexcept = default;
EntityExtras::~EntityExtras() { delete journal; }

// --- Epochs ---

// Changes seldom, and only under the lock. Writes to entities read Entity::stampFloor_ instead.
struct ChangeJournal::Epochs {
  std::mutex lock;
  U32 epoch = 0;  // 0: no journal was ever attached
  std::atomic<bool> on;

  Epochs() {
    char const* const given = std::getenv("KEL_CHANGE_JOURNAL");
    on = !given || std::strcmp(given, "off") != 0;
  }
  void next() {
    if (!on) return;
    if (epoch == lastEpoch) return off();
    ++epoch;
    Entity::stampFloor_.store(epoch << changeBits, Order::relaxed);
  }
  void off() {
    on = false;
    Entity::stampFloor_.store(0, Order::relaxed);
    Entity::upheavals_.fetch_add(1, Order::relaxed);
  }
};

ChangeJournal::Epochs& ChangeJournal::epochs() {
  static Epochs epochs;
  return epochs;
}

void ChangeJournal::newEpoch() {
  Epochs& e = epochs();
  std::lock_guard<std::mutex> guard(e.lock);
  if (e.epoch > 0) e.next();
}

void ChangeJournal::lastEpochsLeftIs(U32 left) {
  Epochs& e = epochs();
  std::lock_guard<std::mutex> guard(e.lock);
  e.epoch = std::max(e.epoch, lastEpoch - left);
}

bool ChangeJournal::enabled() { return epochs().on; }

void ChangeJournal::enabledIs(bool on) {
  Epochs& e = epochs();
  std::lock_guard<std::mutex> guard(e.lock);
  if (on == e.on) return;
  if (!on) return e.off();
  if (e.epoch == lastEpoch) return;
  e.on = true;
  Entity::upheavals_.fetch_add(1, Order::relaxed);  // changes made while journals were off are unknown
  if (e.epoch > 0) e.next();
}

U64 ChangeJournal::heldDepartures() { return heldDepartures_.load(Order::relaxed); }
U64 ChangeJournal::upheavals() { return Entity::upheavals_.load(Order::relaxed); }

// --- Journals ---

namespace {

U64 nextId() {
  static Atomic<U64> last{0};
  return last.fetch_add(1, Order::relaxed) + 1;
}

}  // namespace

ChangeJournal::ChangeJournal() : id_(nextId()), upheavals_(upheavals()) {}

ChangeJournal& ChangeJournal::attach(Entity const& anchor) {
  if (ChangeJournal* const journal = of(anchor)) return *journal;
  EntityExtras& extras = anchor.extras();
  std::unique_ptr<ChangeJournal> made(new ChangeJournal);
  // Entities with stamps of this epoch have no entry in this journal.
  Epochs& e = epochs();
  std::lock_guard<std::mutex> guard(e.lock);
  e.epoch = std::max(e.epoch, 1u);
  e.next();
  return *(extras.journal = made.release());
}

ChangeJournal* ChangeJournal::of(Entity const& anchor) {
  // An entity that waits to be destroyed may have a link there.
  bool const none = !anchor.extras_ || (reinterpret_cast<std::uintptr_t>(anchor.extras_) & EntityExtras::isLink) != 0;
  return none ? nullptr : anchor.extras_->journal;
}

U64 ChangeJournal::checkpoint() {
  newEpoch();
  return end();
}

U64 ChangeJournal::end() {
  forgetAfterUpheaval();
  wanted_ = true;
  return position();
}

bool ChangeJournal::holds(U64 from) {
  forgetAfterUpheaval();
  return enabled() && wanted_ && base_ <= from && from <= position();
}

void ChangeJournal::forget() noexcept {
  base_ = position() + 1;
  next_ = roomEnd_ = nullptr;
  departures_.clear();
  left_.clear();
  equalTrees_.reset();
  wanted_ = false;
}

void ChangeJournal::forgetAfterUpheaval() noexcept {
  U64 const now = upheavals();
  if (now == upheavals_) return;
  upheavals_ = now;
  forget();
}

// Adds an entry to the journal of an entity and to those above. The first write to an entity in an epoch costs this
// loop. Another function calls makeRoom, so that the loop needs no stack.
inline void ChangeJournal::noteAbove(Entity const* e, U64 entry, U32 stamp) noexcept {
  for (; e; e = e->parent_)
    if (ChangeJournal* const journal = of(*e)) {
      if (journal->next_ == journal->roomEnd_) return noteWithRoom(e, entry, stamp);
      // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): if it is null, so is the end of the room
      *journal->next_++ = entry;
    }
}

// Goes on where the journal of `e` has no room. Leaves that journal out if it wants no entry or can have no more.
[[gnu::noinline]] void ChangeJournal::noteWithRoom(Entity const* e, U64 entry, U32 stamp) noexcept {
  noteAbove(of(*e)->makeRoom(stamp) ? e : e->parent_, entry, stamp);
}

// Answers false if no entry is wanted, or if there can be no more: then the journal forgets.
bool ChangeJournal::makeRoom(U32 stamp) noexcept {
  if (!wanted_) return false;
  constexpr std::size_t least = 256;
  std::size_t const size = entries().size();
  if (size == 0) oldest_ = stamp & ~changeMask;  // later epochs are not smaller
  try {
    if (size == room_.size()) room_.resize(std::min(std::max(least, 2 * size), maxEntries));
  } catch (std::bad_alloc const&) {
  }
  if (size == room_.size()) {
    forget();
    return false;
  }
  next_ = room_.data() + size;
  roomEnd_ = room_.data() + room_.size();
  return true;
}

// Makes the entries of all leaving entities void: they may be destroyed soon, and other entities may get their
// addresses.
void ChangeJournal::depart(Entity const& top) noexcept {
  if (entries().empty()) return;
  try {
    departBelow(top);
  } catch (std::bad_alloc const&) {
    forget();
  }
}

void ChangeJournal::departBelow(Entity const& top) {
  std::vector<Entity const*> open{&top};
  while (!open.empty()) {
    Entity const& e = *open.back();
    open.pop_back();
    for (KelAttr const* attr : e.type()->ownAttrs())
      attr->access().eachOwned(
          e, [](Entity* owned, U64, void* to) { static_cast<std::vector<Entity const*>*>(to)->push_back(owned); },
          &open);
    // The stamp of an anchor does not tell whether the anchor is new in this journal's tree.
    if (e.stamp_ < oldest_ && !of(e)) continue;
    if (departures_.size() == maxDepartures) settle();
    departures_.push_back({&e, position()});
  }
}

// Makes the entries before a departure of the same entity void, and forgets which members had left it.
void ChangeJournal::settle() noexcept {
  if (departures_.empty()) return;
  auto const byEntity = [](Departure const& a, Departure const& b) {
    return a.entity != b.entity ? std::less<>()(a.entity, b.entity) : a.at < b.at;
  };
  std::sort(departures_.begin(), departures_.end(), byEntity);
  auto const departedAfter = [&](Entity const* e, U64 at) {
    auto const found = std::lower_bound(departures_.begin(), departures_.end(), Departure{e, at}, byEntity);
    return found != departures_.end() && found->entity == e;
  };
  U64 at = base_;
  for (U64& entry : entries())
    if (departedAfter(entityOf(entry), ++at)) entry = 0;
  for (LeftAt& gone : left_)
    if (departedAfter(gone.left.owner, gone.at)) gone.left.owner = nullptr;
  departures_.clear();
}

// The owner is noted already, so that its own departure will be known. Without entries, no checkpoint is held.
void ChangeJournal::noteLeft(Left const& left) noexcept {
  if (entries().empty()) return;
  if (left_.size() == maxEntries) noteOwnersOfLeft();
  try {
    left_.push_back({left, position()});
  } catch (std::bad_alloc const&) {
    forget();
  }
}

// Notes as a whole each owner that members have left, and forgets which members these were.
void ChangeJournal::noteOwnersOfLeft() noexcept {
  settle();
  auto const left = std::exchange(left_, {});
  U32 const whole = Entity::stampFloor_.load(Order::relaxed) | static_cast<U32>(Change::whole);
  Entity const* last = nullptr;
  for (LeftAt const& gone : left) {
    if (!gone.left.owner || gone.left.owner == last) continue;
    if (next_ == roomEnd_ && !makeRoom(whole)) return;
    *next_++ = entryOf(*(last = gone.left.owner), whole);
  }
}

std::vector<ChangeJournal::Left> ChangeJournal::leftSince(U64 from) {
  if (from < base_ || from > position()) throwRangeException("change journal: the position is not held");
  settle();
  auto gone = std::upper_bound(left_.begin(), left_.end(), from, [](U64 at, LeftAt const& l) { return at < l.at; });
  std::vector<Left> answer;
  for (; gone != left_.end(); ++gone)
    if (gone->left.owner) answer.push_back(gone->left);
  return answer;
}

std::vector<ChangeJournal::Entry> ChangeJournal::since(U64 from) {
  if (from < base_ || from > position()) throwRangeException("change journal: the position is not held");
  settle();
  struct Noted {
    Entity const* entity;
    Change change;
    std::size_t at;
  };
  std::vector<Noted> noted;
  std::span<U64 const> const all = entries();
  for (auto at = static_cast<std::size_t>(from - base_); at < all.size(); ++at)
    if (U64 const entry = all[at]) noted.push_back({entityOf(entry), static_cast<Change>(entry & changeMask), at});
  // One entry for each entity, at the place of its first.
  std::sort(noted.begin(), noted.end(), [](Noted const& a, Noted const& b) {
    return a.entity != b.entity ? std::less<>()(a.entity, b.entity) : a.at < b.at;
  });
  auto last = noted.begin();
  for (auto const& n : noted) {
    if (n.entity != last->entity) *++last = n;
    last->change = std::max(last->change, n.change);
  }
  if (!noted.empty()) noted.erase(last + 1, noted.end());
  std::sort(noted.begin(), noted.end(), [](Noted const& a, Noted const& b) { return a.at < b.at; });
  std::vector<Entry> answer;
  answer.reserve(noted.size());
  for (Noted const& n : noted) answer.push_back({n.entity, n.change});
  return answer;
}

// --- Entities ---

// Not called while journals are off: the floor is 0 then, and no stamp is below that of `whole`.
void Entity::note(U32 stamp) const noexcept {
  stamp_ = stamp;
  ChangeJournal::noteAbove(this, entryOf(*this, stamp), stamp);
}

void Entity::noteArrival(Entity& child) const noexcept {
  U32 const floor = stampFloor_.load(Order::relaxed);
  if (floor == 0) return;
  mark(Change::members);
  // An anchor is not stamped: the journals above have noted it as a whole, but its own journal has not.
  U32 const stamp = floor | static_cast<U32>(Change::whole);
  if (!ChangeJournal::of(child)) child.stamp_ = std::max(child.stamp_, stamp);
  if (stamp_ == stamp) return;
  ChangeJournal::noteAbove(this, entryOf(child, stamp), stamp);
}

void Entity::noteLeaving() const noexcept {
  U32 const floor = stampFloor_.load(Order::relaxed);
  if (floor == 0 || !parent_) return;
  for (Entity const* e = parent_; e; e = e->parent_)
    if (ChangeJournal* const journal = ChangeJournal::of(*e)) journal->depart(*this);
  parent_->mark(Change::members);
  KelAttr const& in = *parentAttr();
  if (in.collectionKind() != KelAttr::Collection::hashMap) return;
  ChangeJournal::Left const left{parent_, in.id(), in.access().hashOfKey(*this)};
  for (Entity const* e = parent_; e; e = e->parent_)
    if (ChangeJournal* const journal = ChangeJournal::of(*e)) journal->noteLeft(left);
}

}  // namespace Kel
