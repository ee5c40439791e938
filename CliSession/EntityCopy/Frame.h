// An entity of a walk, its counterpart, and how they were reached.
#pragma once

#include <memory>
#include <optional>

#include "CliSession/EntityCopy/Changes.h"
#include "CliSession/EntityCopy/Plan.h"

namespace Cli::Session {

// What a frame needs for an edit, or while foreign code runs.
struct FrameExtras {
  std::optional<Kel::String8> path;
  Kel::String8 logPath;
  Kel::U64 logPathAt = 0;  // 0: not made
  Kel::Ptr<Kel::Entity> dest;
  Kel::Ptr<Kel::Entity const> src;
  std::unique_ptr<Kel::AttrIterator> destPin, srcPin;
};

// Lives on the stack and points at the frame above. A frame costs nothing but its fields until an edit or foreign code
// needs more: the texts of its paths, handles that keep both entities, and iterators that keep the collection under
// walk from moving its members.
class Frame {
 public:
  // A walk begins here.
  Frame(Kel::Entity& dest, Kel::Entity const& src, Kel::String8 const& path);
  // A child of `up`, reached through one of its attributes.
  Frame(Frame& up, Step const& through, Kel::Entity& d, Kel::Entity const& s, Plan const& p)
      : dest(d), src(s), plan(p), up_(&up), through_(&through) {}

  Kel::Entity& dest;
  Kel::Entity const& src;
  Plan const& plan;

  Kel::Ptr<Kel::Entity> destPtr() const { return Kel::Ptr<Kel::Entity>(&dest); }
  Kel::Ptr<Kel::Entity const> srcPtr() const { return Kel::Ptr<Kel::Entity const>(&src); }

  // The path that the walk has: the root's, and from there attributes and the names of the source's members.
  Kel::String8 const& path();
  // The walk's path of a child of this frame.
  Kel::String8 childPath(Kel::KelAttr const& attr, Kel::Entity const& srcChild);
  // The path under which edits are counted: where the destination's entity stands below the copy's destination; empty
  // for the copy's destination itself and for what is not below it. `generation` says when foreign code ran last.
  Kel::String8 const& logPath(EntityCopy const& ec, Kel::U64 generation) {
    return extras_ && extras_->logPathAt == generation ? extras_->logPath : makeLogPath(ec, generation);
  }

  // Keeps the entities of this frame and of those above while foreign code runs.
  void hold();
  // The collection that is being walked by positions, from which its members must not move; null: none.
  void walking(Step const* step);

  // When the walk made the destination's entity, if it did: until foreign code runs, no pointer of it waits already.
  Kel::U64 newAt = 0;
  // What has changed here since both sides were last equal; null: that is not known, or everything.
  Changed const* changed = nullptr;
  // What the handler said of all paths below this frame's, and when.
  bool walkedThrough = false;
  Kel::U64 askedAt = 0;
  // The same for the paths through one attribute.
  Step const* throughStep = nullptr;
  bool stepWalkedThrough = false;
  Kel::U64 stepAskedAt = 0;
  // Whether the destination has a member where the source has another one of the same hash.
  bool otherKeys = false;

  Frame* up() const { return up_; }

 private:
  Kel::String8 const& makeLogPath(EntityCopy const& ec, Kel::U64 generation);
  FrameExtras& extras() { return extras_ ? *extras_ : extras_.emplace(); }

  Frame* const up_ = nullptr;
  Step const* const through_ = nullptr;
  Step const* walking_ = nullptr;
  std::optional<FrameExtras> extras_;
};

}  // namespace Cli::Session
