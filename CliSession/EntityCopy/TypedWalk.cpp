#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/TypedWalk.h"

#include <optional>
#include <typeinfo>

#include "CliSession/CliSession.h"
#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/AttrStorage.h"
#include "Kel/Trace.h"
#include "Zuk/PathSplit.h"

namespace Cli::Session {

// What holds for one call of copyAttrs.
struct TypedWalk::Run {
  EntityCopy& ec;
  Kel::Ptr<EntityCopyGlobalSessionHandler> const handler;
  EntityCopy::Impl& impl;
  Kel::Entity& destTop;  // what the walk began with
  Kel::Entity const& srcTop;
  Kel::String8 const path;
  bool compare;                                   // nothing is changed
  Kel::Entity const* const src = ec.src().ptr();  // of the copy, for comparison alone
  Kel::Entity const* const dest = ec.dest().ptr();
  bool typed = true;                // this road may still be taken
  bool inSessionRoot = false;       // the walk began with a session root or below one
  bool nestedRoots = false;         // session roots lie below the entity that it began with
  std::optional<bool> atItsPath{};  // whether it began with what its path names, in both trees
};

// An entity of the walk, and how it was reached. Its path is made when somebody asks; it is kept alive, and its
// collections from moving their members, once anything runs that might change the trees behind the walk's back.
struct TypedWalk::Frame {
  Frame(Frame* upper, Kel::Entity& destEntity, Kel::Entity const& srcEntity, Kel::KelAttr const* through)
      : up(upper), dest(destEntity), src(srcEntity), reachedThrough(through) {}

  Frame* const up;
  Kel::Entity& dest;
  Kel::Entity const& src;
  Kel::KelAttr const* const reachedThrough;
  Kel::KelAttr const* walking = nullptr;  // the collection that is being walked
  bool otherKeys = false;                 // the destination has a member there under a key that the source lacks
  bool havePath = false, haveLogPath = false;
  Kel::String8 pathText, logPathText;
  Kel::Ptr<Kel::Entity> destHold;
  Kel::Ptr<Kel::Entity const> srcHold;
  std::unique_ptr<Kel::AttrIterator> srcPin, destPin;

  // The path that the walk has, relative to the source.
  Kel::String8 const& path() {
    if (!havePath) pathText = below(up->path(), src);
    havePath = true;
    return pathText;
  }
  // The path under which edits are counted, relative to the destination.
  Kel::String8 const& logPath(EntityCopy const& ec) {
    if (!haveLogPath) logPathText = up ? below(up->logPath(ec), dest) : pathBelow(*ec.dest(), dest);
    haveLogPath = true;
    return logPathText;
  }
  void hold() {
    for (Frame* f = this; f; f = f->up) {
      if (!f->destHold) {
        f->destHold = Kel::Ptr<Kel::Entity>(&f->dest);
        f->srcHold = Kel::Ptr<Kel::Entity const>(&f->src);
      }
      if (!f->walking || f->srcPin) continue;
      f->srcPin = f->walking->access().iterator(*f->walking, f->src, nullptr);
      f->destPin = f->walking->access().iterator(*f->walking, f->dest, nullptr);
    }
  }
  void walkEnds() {
    walking = nullptr;
    srcPin.reset();
    destPin.reset();
  }

 private:
  Kel::String8 below(Kel::String8 const& parent, Kel::Entity const& e) const {
    std::string_view const attr = reachedThrough->name(), name = e.name();
    std::string text;
    text.reserve(parent.chars() + attr.size() + name.size() + 2);
    text.append(parent.view()).append(1, '.').append(attr);
    if (reachedThrough->isCollection() && !name.empty()) text.append(1, '/').append(name);
    return Kel::String8(text);
  }
};

bool TypedWalk::possible(EntityCopy const& ec) {
  static Kel::TraceHandle const* const handles[] = {
      &Kel::TraceHandle::get("EntityCopy"), &Kel::TraceHandle::get("EntityCopyUtils"),
      &Kel::TraceHandle::get("CliSession"), &Kel::TraceHandle::get("PathTrie"), &Kel::TraceHandle::get("PrefixTrie")};
  for (Kel::TraceHandle const* handle : handles)
    if (handle->any()) return false;
  if (!ec.dest() || !ec.src() || !ec.handler() || ec.stop()) return false;
  // A handler derived from the session handler, by a model or in C++, may override what is done here.
  EntityCopyHandler const& handler = *ec.handler();
  if (typeid(handler) != typeid(EntityCopyGlobalSessionHandler)) return false;
  Kel::Ptr<Status> const& status = static_cast<EntityCopyGlobalSessionHandler const&>(handler).sessionStatus();
  if (!status || !status->rootTrie()) return false;
  AttributeEditLog const* log = ec.attributeEditLog().ptr();
  // Rules that look at each edit want it boxed, and so does whoever watches the log.
  return !ec.attributeEditBypassChecker() && log && !log->hasReactors() && log->attributeEditDebugConfigs() == 0 &&
         log->attributeEditDebugTypeConfigs() == 0;
}

// --- Plans ---

TypedWalk::Step TypedWalk::makeStep(Kel::KelAttr const& attr) {
  Step step;
  step.attr = &attr;
  step.access = &attr.access();
  if (attr.afterChange()) return step;
  auto const slotted = [&]<class T>(Step::Kind kind, T Kel::Entity::*Step::Slot::*where) {
    auto const* access = dynamic_cast<Kel::ValueAccess<T> const*>(step.access);
    if (!access) return false;
    step.kind = kind;
    step.slot.*where = access->slot();
    return true;
  };
  if (attr.isCollection()) {
    if (attr.isValue() && !attr.keyIsPtr()) step.kind = Step::values;
    bool const dense = attr.instantiating() && attr.collectionKind() == Kel::KelAttr::Collection::hashMap;
    if (dense && attr.type()->paramsEqual()) step.kind = Step::members;
  } else if (attr.instantiating()) {
    if (attr.type()->paramsEqual()) step.kind = Step::singleton;
  } else if (attr.isPtr()) {
    if (attr.type()->isEntity()) step.kind = Step::pointer;
  } else if (attr.isValue() && attr.type()->valueOps().equal) {
    step.kind = Step::value;
    slotted(Step::string, &Step::Slot::string) || slotted(Step::boolean, &Step::Slot::boolean) ||
        slotted(Step::u8, &Step::Slot::u8) || slotted(Step::u16, &Step::Slot::u16) ||
        slotted(Step::u32, &Step::Slot::u32) || slotted(Step::u64, &Step::Slot::u64) ||
        slotted(Step::f64, &Step::Slot::f64);
  }
  return step;
}

TypedWalk::Plan& TypedWalk::planOf(Kel::KelType const& type) {
  std::unique_ptr<Plan>& plan = plans_[&type];
  if (plan) return *plan;
  plan = std::make_unique<Plan>();
  Plan& made = *plan;
  made.type = &type;
  made.keyOnly = type.ctorArgs().size() == 1;
  for (Kel::KelAttr const* attr : type.attributeQ())
    if (attr->copiable()) made.steps.push_back(makeStep(*attr));
  return made;
}

// --- The walk ---

namespace {

// Whether a trie holds prefixes below a path.
bool rootsBelow(Zuk::PathTrie const& trie, std::string_view path) {
  if (path.empty()) return !trie.empty();
  Zuk::PathSplit const split = Zuk::splitPath(path);
  Kel::Ptr<Zuk::PathTrie const> const next = trie.child(Kel::Name(split.first));
  if (!next) return false;
  return split.more ? rootsBelow(*next, split.rest) : !next->empty();
}

}  // namespace

bool TypedWalk::copyAttrs(EntityCopy& ec, Kel::Entity& dest, Kel::Entity const& src, Kel::String8 const& path) {
  auto& handler = static_cast<EntityCopyGlobalSessionHandler&>(*ec.handler());
  Run run{ec,
          Kel::Ptr<EntityCopyGlobalSessionHandler>(&handler),
          EntityCopy::Impl::of(ec),
          dest,
          src,
          path,
          ec.stopAtFirstDiff()};
  readRoots(run);
  if (run.impl.depth == 0) targets_.clear();  // of an earlier run
  Frame frame(nullptr, dest, src, nullptr);
  frame.pathText = path;
  frame.havePath = true;
  return attrs(run, frame, planOf(*src.type()));
}

void TypedWalk::readRoots(Run& run) {
  Zuk::PathTrie const& roots = *run.handler->sessionStatus()->rootTrie();
  run.inSessionRoot = !run.path.empty() && roots.hasPrefix(run.path);
  run.nestedRoots = rootsBelow(roots, run.path);
}

bool TypedWalk::attrs(Run& run, Frame& frame, Plan& plan) {
  bool differs = false;
  for (Step& s : plan.steps) {
    differs |= run.typed ? step(run, frame, s) : boxed(run, frame, s);
    if ((run.compare || !run.typed) && run.ec.stop()) break;
  }
  return differs;
}

// Hands one attribute to the boxed operation.
bool TypedWalk::boxed(Run& run, Frame& frame, Step const& step) {
  frame.hold();
  bool const differs = run.ec.doCopyAttr(Kel::Ptr<Kel::Entity>(&frame.dest), Kel::Ptr<Kel::Entity const>(&frame.src),
                                         frame.path(), Kel::KelAttr::PtrConst(step.attr));
  anythingMayHaveRun(run);
  return differs;
}

// Handlers and reactors may have given the copy rules of its own, another handler or other ends, or the session other
// roots.
void TypedWalk::anythingMayHaveRun(Run& run) {
  EntityCopy const& ec = run.ec;
  run.typed = possible(ec) && ec.handler() == run.handler && ec.stopAtFirstDiff() == run.compare &&
              ec.src().ptr() == run.src && ec.dest().ptr() == run.dest;
  run.atItsPath.reset();
  if (run.typed) readRoots(run);
}

bool TypedWalk::step(Run& run, Frame& frame, Step& step) {
  Kel::Entity& dest = frame.dest;
  Kel::Entity const& src = frame.src;
  bool equal = false;
  switch (step.kind) {
    case Step::string: equal = dest.*step.slot.string == src.*step.slot.string; break;
    case Step::boolean: equal = dest.*step.slot.boolean == src.*step.slot.boolean; break;
    case Step::u8: equal = dest.*step.slot.u8 == src.*step.slot.u8; break;
    case Step::u16: equal = dest.*step.slot.u16 == src.*step.slot.u16; break;
    case Step::u32: equal = dest.*step.slot.u32 == src.*step.slot.u32; break;
    case Step::u64: equal = dest.*step.slot.u64 == src.*step.slot.u64; break;
    case Step::f64: equal = dest.*step.slot.f64 == src.*step.slot.f64; break;
    case Step::value: equal = step.access->equal(dest, src); break;
    case Step::values: return !step.access->equal(dest, src) && boxed(run, frame, step);
    case Step::pointer: return copyPointer(run, frame, step);
    case Step::singleton: return copySingleton(run, frame, step);
    case Step::members: return copyMembers(run, frame, step);
    case Step::boxed: return boxed(run, frame, step);
  }
  if (equal) return false;
  if (!maySet(run, frame, step)) return boxed(run, frame, step);
  countSet(run, frame, step);
  step.access->copyValue(*step.attr, dest, src);
  return true;
}

// Whether a write can be made and counted here: nobody reacts to it.
bool TypedWalk::maySet(Run& run, Frame& frame, Step& step) {
  if (!run.typed || run.compare || frame.dest.hasReactors()) return false;
  Kel::Ptr<AttributeEditLog> const& log = run.ec.attributeEditLog();
  if (!step.entry || step.entry->parent() != log.ptr())
    step.entry = log->attributeEditEntryIs(
        AttributeEdit(step.attr->name(), frame.dest.type()->fullTypeName(), AttributeEditType::set_));
  return !step.entry->hasReactors();
}

// Counts an edit that may be made here.
void TypedWalk::countSet(Run& run, Frame& frame, Step& step) {
  step.entry->pathCounterCounterInc(frame.logPath(run.ec));
}

// Whether what the walk began with is what its path names in both trees: who calls an operation by itself may give any
// path, and any two entities.
bool TypedWalk::standsAtItsPath(Run& run) {
  if (!run.atItsPath) {
    char srcSeparator = 0, destSeparator = 0;
    run.atItsPath = pathBelow(*run.ec.src(), run.srcTop, &srcSeparator) == run.path &&
                    pathBelow(*run.ec.dest(), run.destTop, &destSeparator) == run.path && srcSeparator == destSeparator;
  }
  return *run.atItsPath;
}

// The entity of the destination that a pointer's target stands for; null where that takes the boxed road to find out.
Kel::Entity* TypedWalk::counterpart(Run& run, Frame& frame, Kel::Entity& srcTarget) {
  Ends const ends{run.src, run.dest, run.handler.ptr(), run.handler->externalDest().ptr()};
  if (departures_ != Kel::Entity::departures() || !(targetsBetween_ == ends)) {
    targets_.clear();
    departures_ = Kel::Entity::departures();
    targetsBetween_ = ends;
  }
  if (auto const known = targets_.find(&srcTarget); known != targets_.end()) return known->second;
  Kel::Entity* found = nullptr;
  if (run.inSessionRoot && !run.nestedRoots && isBelow(srcTarget, run.srcTop) && standsAtItsPath(run)) {
    found = standIn(srcTarget, run.srcTop, run.destTop);
    if (found && !outlivesRun(run.ec, *found, srcTarget)) return nullptr;
  }
  if (!found) {
    frame.hold();
    PtrTarget const target =
        run.handler->resolveEntityPtr(EntityCopy::Ptr(&run.ec), Kel::Ptr<Kel::Entity const>(&srcTarget));
    anythingMayHaveRun(run);
    if (!target.copiable()) return nullptr;
    found = targetInTree(run.ec, frame.dest, target.target(), &srcTarget).ptr();
  }
  if (found && departures_ == Kel::Entity::departures()) targets_.emplace(&srcTarget, found);
  return found;
}

bool TypedWalk::copyPointer(Run& run, Frame& frame, Step& step) {
  Kel::Entity* const srcTarget = step.access->single(frame.src);
  Kel::Entity* const destTarget = step.access->single(frame.dest);
  if (!srcTarget && !destTarget && run.ec.pendingAttrs() == 0) return false;
  Kel::Entity* const wanted = srcTarget ? counterpart(run, frame, *srcTarget) : nullptr;
  bool const settled =
      wanted && (wanted == destTarget || (wanted->type()->isA(step.attr->type()) && maySet(run, frame, step)));
  if (!settled) return boxed(run, frame, step);
  if (run.ec.pendingAttrs() > 0) supersedePending(run.ec, frame.dest, *step.attr, nullptr);
  if (wanted == destTarget) return false;
  countSet(run, frame, step);
  step.access->point(*step.attr, frame.dest, wanted);
  return true;
}

bool TypedWalk::copySingleton(Run& run, Frame& frame, Step& step) {
  Kel::Entity* const srcChild = step.access->single(frame.src);
  Kel::Entity* destChild = step.access->single(frame.dest);
  if (!srcChild && !destChild) return false;
  if (!srcChild) return boxed(run, frame, step);
  bool created = false;
  if (!destChild) {
    if (!maySet(run, frame, step)) return boxed(run, frame, step);
    countSet(run, frame, step);
    destChild = step.access->newLike(*step.attr, frame.dest, *srcChild);
    created = true;
  } else if (!step.attr->type()->paramsEqual()(*destChild, *srcChild)) {
    return boxed(run, frame, step);
  }
  bool const differs = descend(run, frame, step, *destChild, *srcChild);
  return created || differs;
}

bool TypedWalk::copyMembers(Run& run, Frame& frame, Step& step) {
  Kel::AttrAccess const& access = *step.access;
  Kel::U32 const destEnd = access.memberEnd(frame.dest);
  if (!step.child) step.child = &planOf(*step.attr->type());
  // First what the source lacks, or has with other parameters, is deleted. Where both have keys of the same hashes at
  // the same positions there is no such member; should equal hashes stand for different keys all the same, the copy
  // finds out and begins again the long way.
  bool const sameShape = step.child->keyOnly && access.sameShape(frame.dest, frame.src);
  frame.otherKeys = false;
  for (Kel::U32 i = 0; !sameShape && i < destEnd; ++i) {
    Kel::Entity const* const member = access.memberAt(frame.dest, i);
    if (!member) continue;
    Kel::Entity const* const other = access.memberLike(frame.src, *member, i);
    if (!other || !step.attr->type()->paramsEqual()(*member, *other)) return boxed(run, frame, step);
  }
  if (destEnd == 0 && !run.compare) access.reserveMembers(frame.dest, access.count(*step.attr, frame.src));
  frame.walking = step.attr;
  bool differs = false;
  for (Kel::U32 i = 0; i < access.memberEnd(frame.src); ++i) {
    Kel::Entity const* const srcMember = access.memberAt(frame.src, i);
    if (!srcMember) continue;
    differs |= copyMember(run, frame, step, *srcMember, i);
    if ((run.compare || !run.typed) && run.ec.stop()) break;
  }
  frame.walkEnds();
  if (sameShape && frame.otherKeys) differs |= boxed(run, frame, step);
  return differs;
}

bool TypedWalk::copyMember(Run& run, Frame& frame, Step& step, Kel::Entity const& srcMember, Kel::U32 position) {
  if (!run.typed) return boxedMember(run, frame, step, srcMember);
  Kel::Entity* destMember = step.access->memberLike(frame.dest, srcMember, position);
  bool created = false;
  if (!destMember) {
    Kel::Entity const* const instead = step.access->memberAt(frame.dest, position);
    frame.otherKeys |= instead && !step.access->memberLike(frame.src, *instead, position);
    if (!maySet(run, frame, step)) return boxedMember(run, frame, step, srcMember);
    countSet(run, frame, step);
    destMember = step.access->newLike(*step.attr, frame.dest, srcMember);
    created = true;
  }
  bool const differs = descend(run, frame, step, *destMember, srcMember);
  return created || differs;
}

// Hands one member to the boxed operation.
bool TypedWalk::boxedMember(Run& run, Frame& frame, Step const& step, Kel::Entity const& srcMember) {
  frame.hold();
  Kel::GenericIf::Ptr const src = genericIf(Kel::Ptr<Kel::Entity>(const_cast<Kel::Entity*>(&srcMember)));
  Kel::GenericIf::PtrConst const key = src->attribute(src->attributeId(step.attr->type()->ctorArgs().front().name));
  bool const differs =
      run.ec.doCopyCollectionMember(Kel::Ptr<Kel::Entity>(&frame.dest), Kel::Ptr<Kel::Entity const>(&frame.src),
                                    frame.path(), key, key, src, Kel::KelAttr::PtrConst(step.attr));
  anythingMayHaveRun(run);
  return differs;
}

namespace {

// Whether the handler may have something of its own to say about an entity of this type.
bool needsHandler(EntityCopyGlobalSessionHandler const& handler, Kel::KelType const& type) {
  if (!handler.copied() || !handler.copied()->empty()) return true;
  EntityCopyCustomHandlerTable const* table = handler.handlerTable().ptr();
  return table && (table->pathSpecificHandlers() > 0 || table->typeSpecificHandlers(type.fullTypeName()));
}

}  // namespace

bool TypedWalk::descend(Run& run, Frame& frame, Step& step, Kel::Entity& dest, Kel::Entity const& src) {
  Frame child(&frame, dest, src, step.attr);
  if (run.nestedRoots || dest.hasReactors() || needsHandler(*run.handler, *src.type())) {
    child.hold();
    bool const differs =
        run.ec.handleEntity(Kel::GenericIf::ofEntity(child.destHold), Kel::GenericIf::ofEntity(child.srcHold),
                            Kel::KelAttr::PtrConst(step.attr), frame.path());
    anythingMayHaveRun(run);
    return differs;
  }
  if (!step.child) step.child = &planOf(*src.type());
  Depth const depth(run.impl.depth);
  return attrs(run, child, *step.child);
}

}  // namespace Cli::Session
