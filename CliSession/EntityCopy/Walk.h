// One walk over a source and a destination: the engine's algorithm.
//
// There is one body for each kind of attribute, with its traces in it. A filter in front of it skips what is equal.
// While a trace handle is on, the filter is off, so that every step is traced. The operations of EntityCopy that are
// called by name make a walk that begins with their arguments (Ops.cpp).
//
// Between two calls of foreign code (handlers, reactors, bypass checkers), only the walk changes the trees. So it works
// on references, and keeps what it has looked up. A `ForeignCode` object guards each call.
#pragma once

// The module and the trace handle of all files that include this one. Before the framework's headers.
#define KEL_SOURCE_NAME "EntityCopy"
#include <array>
#include <optional>

#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopy/Frame.h"
#include "CliSession/EntityCopyCompare.h"
#include "Kel/HashMap.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

// A trace of the walk. If `traced_` is false, it costs one test.
#define WALK_TRACE(level) WALK_TRACE_AS(level, __func__)
#define WALK_TRACE_AS(level, operation) !traced_ ? static_cast<void>(0) : KEL_TRACE_AS(level, operation)

namespace Cli::Session {

// Whether a trace handle is on, so that runs have to trace their steps.
bool anyTrace();

class Walk final : private Kel::SameTarget {
 public:
  using Box = Kel::GenericIf::PtrConst;

  // `dest` is the entity that the walk begins with. REQUIRES: it outlives the walk.
  Walk(EntityCopy& ec, Kel::Entity const& dest);
  Walk(Walk const&) = delete;
  Walk& operator=(Walk const&) = delete;

  // A member of a collection that is being copied.
  struct Member {
    Kel::AttrIterator const* at = nullptr;  // on the source's member; null: it is given by boxes
    Kel::Entity* key = nullptr;             // the destination's key, where keys are pointers
    Box srcIndexBox, indexBox, srcMemberBox;

    Box srcIndex() const { return at ? Box(at->key()) : srcIndexBox; }
    Box index() const { return key ? Box(genericIf(key)) : indexBox ? indexBox : srcIndex(); }
    Box srcMember() const { return at ? Box(at->obj(true)) : srcMemberBox; }
    // The source's member as an entity.
    Kel::Ptr<Kel::Entity const> entity() const {
      return at ? Kel::Ptr<Kel::Entity const>(at->target()) : entityConstOf(srcMemberBox);
    }
    // Before foreign code may delete the source's member.
    void leaveSource() { *this = {nullptr, key, srcIndex(), indexBox, srcMember()}; }
  };

  // The steps of the walk. A step that is also an operation of EntityCopy has its name, and traces under it. Each
  // answers whether source and destination differ in what it covers.
  bool attributes(Frame& frame);  // doCopyEntityAttrs
  // The same for a copy root. Skips what has not changed since both sides were last equal, if that is known.
  bool root(Frame& frame);
  // doCopyAttr behind the filter.
  bool differs(Frame& frame, Step const& step) {
    return (traced_ || !equalInPlace(frame, step)) && doCopyAttr(frame, step);
  }
  // The following do not apply the filter, except valueIfDifferent.
  bool doCopyValue(Frame& frame, Step const& step);
  bool valueIfDifferent(Frame& frame, Step const& step) {
    return (traced_ || !equalInPlace(frame, step)) && doCopyValue(frame, step);
  }
  bool doCopySingleton(Frame& frame, Step const& step);
  bool doCopyCollection(Frame& frame, Step const& step);
  bool doCopyQueue(Frame& frame, Step const& step);
  bool doCopyCollectionMember(Frame& frame, Step const& step, Member& m);
  bool doCopyPtr(Frame& frame, Step const& step, Member* m);  // `m` is null for a single pointer
  // The destination's target; null if the pointer has to wait, which is recorded.
  Kel::Entity* resolvePtr(Frame& frame, Step const& step, Kel::Ptr<Kel::Entity const> const& owner,
                          Kel::Entity const& srcTarget, Member* m, bool isKey);

  // An edit; answers whether the destination changes or, in a comparison, would. If the storage can make it, and no
  // foreign code has to see it, it is counted and `write` makes it. Otherwise `hook` does all of it with a boxed value.
  template <class Hook, class Write>
  bool edit(Frame& frame, Step const& step, AttributeEditType type, bool typed, Hook const& hook, Write const& write) {
    return typed && !traced_ && counts(frame, step, type) ? carryOut(frame, step, write) : hook();
  }

  // The hooks: an edit of the destination's attribute, with its value boxed. `current` is the present value, or null if
  // the caller does not know it.
  bool attributeIs(Frame& frame, Step const& step, Box const& index, Box const& value, Box current = nullptr);
  bool attributeDel(Frame& frame, Step const& step, Box const& index);
  bool attributeAdd(Frame& frame, Step const& step, Box const& value);
  bool attributeRemove(Frame& frame, Step const& step);

  // Guards a call of foreign code: keeps the frames' entities alive, and afterwards reads again what the walk relies
  // on.
  class ForeignCode {
   public:
    ForeignCode(Walk& walk, Frame& frame) : walk_(walk) {
      frame.hold();
      walk.beforeForeignCode();
    }
    ~ForeignCode() {
      walk_.revalidate();
      walk_.renewChanges();
    }
    ForeignCode(ForeignCode const&) = delete;
    ForeignCode& operator=(ForeignCode const&) = delete;

   private:
    Walk& walk_;
  };

 private:
  // The handler's answer for a type.
  struct TypeAnswer {
    Kel::KelType const* type = nullptr;
    bool asks = false;
  };

  // Forgets what was looked up, and reads again what the walk relies on.
  void revalidate();
  // EntityCopy::stop.
  bool stopped() const { return compare_ && log_ && log_->attributeEditEntrys() > 0; }

  bool attributesFrom(Frame& frame, std::size_t id);
  bool doCopyAttr(Frame& frame, Step const& step);
  // The filter: true if an attribute is known to be equal. It traces nothing.
  bool equalInPlace(Frame& frame, Step const& step) {
    Kel::ChangedEntity const* const here = changed(frame);
    if (here && !here->concerns(step.attr)) return true;
    bool const leaves = !here && step.dense && guide_ && walkedThrough(frame, step) && areLeaves(step);
    return isEqual(step, frame.dest, frame.src, leaves);
  }
  // Owned entities are known to be equal if there are none, or if they are `leaves`, at the same positions.
  bool isEqual(Step const& step, Kel::Entity& dest, Kel::Entity const& src, bool leaves) {
    if (leaves) return step.access.membersEqual(dest, src, step.usualPlan->plainDifferences);
    if (!step.typed || (step.withPointers && ec_.pendingAttrs() > 0)) return false;
    return step.access.equalThrough(dest, src, *this);
  }
  // Whether a pointer of the source's to `src` leads to `dest` already.
  bool operator()(Kel::Entity& dest, Kel::Entity& src) override;
  // `madeAt`: the generation in which the walk made the destination's child, so that all of it is walked; 0: it was
  // there already.
  bool child(Frame& frame, Step const& step, Kel::Entity& dest, Kel::Entity const& src, Kel::U64 madeAt = 0);
  bool descend(Frame& frame, Step const& step, Kel::Entity& dest, Kel::Entity const& src, Kel::U64 madeAt = 0);
  // What the decisions at and below a root depend on, besides the two trees. Nothing if it cannot be told.
  std::optional<Kel::EqualTrees::Context> context(Frame& root);
  // What has changed at an entity since both sides were last equal; null if that is not known, or is everything.
  Kel::ChangedEntity* changed(Frame const& f) const {
    return f.changed && skips_ && !f.changed->has(Kel::Change::whole) ? f.changed : nullptr;
  }
  // The next walk has to look at the destination's entity again: it got a value that does not equal itself, such as a
  // NaN, one of its pointers has to wait, or the handler was asked about it. It counts as changed.
  void unsettle(Kel::Entity& dest, Kel::Change as = Kel::Change::members);
  void beforeForeignCode();
  void renewChanges() noexcept;
  Kel::U32 gatherChanged(Frame& frame, Step const& step, Kel::U32& position, Kel::AttrAccess::Pair* pairs,
                         Kel::U32 most);
  // Whether the handler has to be asked about entities of a type.
  bool asksForType(Kel::KelType const& type) {
    TypeAnswer& known = types_[(reinterpret_cast<std::uintptr_t>(&type) >> 6) % types_.size()];
    if (known.type != &type) known = {&type, !guide_->walksThroughType(type.fullTypeName())};
    return known.asks;
  }
  // Whether the handler need not be asked about what an attribute leads to, but for types that it has to be asked
  // about.
  bool walkedThrough(Frame& frame, Step const& step) {
    bool const known = frame.askedAt == impl_.generation && (!frame.askedAbout || frame.askedAbout == &step);
    return known ? frame.walkedThrough : askWalkedThrough(frame, step);
  }

  bool askWalkedThrough(Frame& frame, Step const& step);

  // Sets a pointer to `target`, or the member `m` to the source's value.
  bool assign(Frame& frame, Step const& step, Member* m, Kel::Entity* target);
  // Makes a member or singleton with the source's constructor parameters, and copies what it has. `params` is the list
  // of these, or null if there is none yet. `isFree`: the destination has nothing in its place.
  bool make(Frame& frame, Step const& step, Member* m, Kel::Entity const& src, ParamList params, bool isFree);
  Kel::Entity* held(Frame& frame, Step const& step, Member* m, Kel::Entity const& src);
  bool paramsDiffer(Step const& step, Kel::Entity const* dest, Kel::Entity const& src, ParamList& params);
  // `m` is null for a member that was found by its position.
  bool ownedMember(Frame& frame, Step const& step, Member* m, Kel::Entity* dest, Kel::Entity const& src);

  // The source's pointer keys, by the entities that they lead to in the destination. Made on first use.
  using KeyMap = std::optional<Kel::HashMap<Kel::Ptr<Kel::Entity>, Kel::Ptr<Kel::Entity>>>;
  bool deleteExtra(Frame& frame, Step const& step, Kel::U32 from = 0);
  bool deleteUnpaired(Frame& frame, Step const& step);
  bool comparesWhole(Plan const& plan);
  bool equalThroughout(Plan const& plan, Kel::Entity& dest, Kel::Entity const& src);
  // Whether dense members have plain attributes only, and the handler need not be asked about their type.
  bool areLeaves(Step const& step) {
    Plan const& usual = *step.usualPlan;
    return step.reflexive && usual.leaf && !usual.src.hasDerived() && !asksForType(usual.src);
  }
  // `deletionPassed`: the members that may not stay are deleted already.
  bool copyPairs(Frame& frame, Step const& step, bool deletionPassed);
  bool copyMembers(Frame& frame, Step const& step);
  bool deleteMember(Frame& frame, Step const& step, Kel::AttrIterator const& at);
  bool stays(Frame& frame, Step const& step, Kel::AttrIterator const& at, KeyMap& keys);
  Kel::Entity* sourceKey(Frame& frame, Step const& step, Kel::Entity& destKey, KeyMap& keys);
  // What is known about a pointer's target without asking the handler.
  Counterparts::Answer counterpart(Kel::Entity const& srcTarget) {
    return byPosition_ ? impl_.counterparts.find(ec_, srcTarget) : Counterparts::Answer();
  }
  PtrTarget ask(Frame& frame, Kel::Entity const& srcTarget, Counterparts::Answer const& known, Member* m);
  // Replaces the record of a pointer that is met again. Null `record`: it waits no more.
  void replacePending(Frame& frame, Step const& step, Member* m, Kel::Ptr<AttributeCopy> const& record);
  void supersede(Frame& frame, Step const& step, Member* m) {
    if (ec_.pendingAttrs() > 0 && frame.newAt != impl_.generation) replacePending(frame, step, m, nullptr);
  }
  // The records for all members of a collection.
  std::vector<Kel::Ptr<AttributeCopy>> waitingMembers(Frame const& frame, Step const& step) const;
  // Makes a pointer wait for its target. `isKey`: it is the key of member `m`.
  void defer(Frame& frame, Step const& step, Kel::Ptr<Kel::Entity const> const& owner, Kel::Entity const& srcTarget,
             Member* m, bool isKey, Kel::String8 const& destTarget);

  bool appendValue(Frame& frame, Step const& step, Kel::AttrIterator const& src);

  // Counts an edit. Answers false, and does nothing, if foreign code or a debug action has to see it.
  bool counts(Frame& frame, Step const& step, AttributeEditType type) {
    if (!log_) return true;
    std::size_t const at = 2 * std::size_t(step.number) + (type == AttributeEditType::del_ ? 1 : 0);
    bool const known = at < impl_.entries.size() && impl_.entries[at].generation == impl_.generation;
    AttributeEditEntry* const entry = known ? impl_.entries[at].entry : findEntry(frame, step, type, at);
    if (entry) entry->pathCounterCounterInc(frame.logPath(ec_, impl_.generation));
    return entry;
  }
  AttributeEditEntry* findEntry(Frame const& frame, Step const& step, AttributeEditType type, std::size_t at);
  // An edit by its hook. `value()` boxes the value for foreign code that has to see it.
  template <class Value, class Write>
  bool editBoxed(Frame& frame, Step const& step, AttributeEditType type, Value const& value, Write const& write) {
    bool const differs = counts(frame, step, type) || record(frame, step, type, value());
    if (compare_) unsettle(frame.dest, Kel::Change::whole);
    return compare_ ? differs : carryOut(frame, step, write);
  }
  bool record(Frame& frame, Step const& step, AttributeEditType type, Box const& value);
  // Calls `write`, which changes the destination, unless this is a comparison.
  template <class Write>
  bool carryOut(Frame& frame, Step const& step, Write const& write) {
    std::optional<ForeignCode> guard;
    if (compare_) return true;
    if (frame.dest.hasReactors() || step.destAttr->afterChange()) guard.emplace(*this, frame);
    write();
    return true;
  }
  // The destination's attribute. Raises UnknownAttrException where there is none.
  static Kel::KelAttr const& destAttr(Frame const& frame, Step const& step) {
    return step.destAttr ? *step.destAttr : destAttribute(frame.dest, step.attr);
  }

  EntityCopy& ec_;
  EntityCopy::Impl& impl_;
  Kel::Entity const& top_;
  // Read again after foreign code.
  EntityCopyGlobalSessionHandler const* guide_ = nullptr;  // EntityCopyHandler::decidesAs; null while tracing
  AttributeEditLogBypass* checker_ = nullptr;
  AttributeEditLog* log_ = nullptr;
  bool compare_ = false;
  bool traced_ = false;
  bool byPosition_ = false;             // targets can be found by position
  std::array<TypeAnswer, 16> types_{};  // by a hash of the types' addresses

  // For skipping what has not changed.
  Frame* root_ = nullptr;                     // where the walk began, if it will be remembered
  Kel::EqualTrees::Context context_;          // of the root
  bool compares_ = false;                     // `compare_` then
  bool skips_ = false;                        // `changes_` is complete
  Kel::ChangedEntities changes_;              // below the root
  Kel::EqualTrees beforeFirst_, beforeLast_;  // before foreign code ran for the first time, and for the last time
  Kel::U32 checkpoints_ = 0;
  std::vector<std::pair<Kel::Ptr<Kel::Entity>, Kel::Change>> unsettled_;  // see unsettle
};

}  // namespace Cli::Session
