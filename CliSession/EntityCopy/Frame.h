// An entity of a walk, its counterpart, and how they were reached.
#pragma once

#include <optional>

#include "CliSession/EntityCopy/Plan.h"
#include "Kel/TreePair.h"

namespace Cli::Session {

// The walk's path of a child: that of its owner, the attribute's name, and the name of a collection's member.
Kel::String8 childPath(Kel::String8 const& path, Kel::KelAttr const& attr, Kel::Entity const* child);

// Lives on the stack and points at the frame above. The texts of its paths, and handles to both entities, are made only
// when an edit or foreign code needs them.
class Frame {
 public:
  // A walk begins here.
  Frame(Kel::Entity& dest, Kel::Entity const& src, Kel::String8 const& path);
  // A child of `above`, reached through one of its attributes.
  Frame(Frame& above, Step const& step, Kel::Entity& d, Kel::Entity const& s)
      : dest(d), src(s), plan(step.childPlan(*d.type(), *s.type())), up(&above), through(&step) {}

  Kel::Entity& dest;
  Kel::Entity const& src;
  Plan const& plan;
  Frame* const up = nullptr;            // the frame above; null: the walk begins here
  Step const* const through = nullptr;  // the step of the frame above that led here

  // The walk's path: the root's path, and from there the names of attributes and of the source's members.
  Kel::String8 const& path();
  // The path under which edits are counted: the destination entity's, relative to the copy's destination. Empty for the
  // copy's destination itself and for an entity that is not below it. It is kept for one generation.
  Kel::String8 const& logPath(EntityCopy const& ec, Kel::U64 generation) {
    return logPathAt_ == generation ? logPath_ : makeLogPath(ec, generation);
  }

  // Keeps the entities of this frame and of those above alive.
  void hold();

  // The generation in which the walk made the destination's entity; 0: it was there already. In that generation, none
  // of its pointers waits.
  Kel::U64 newAt = 0;
  // What has changed here since both sides were last equal; null if that is not known.
  Kel::ChangedEntity* changed = nullptr;
  // Whether the handler need not be asked about what this entity owns through `askedAbout` or, if that is null, through
  // any attribute. Known in the generation `askedAt` only.
  Step const* askedAbout = nullptr;
  bool walkedThrough = false;
  Kel::U64 askedAt = 0;
  void walkedThroughIs(bool answer, Step const* about, Kel::U64 generation) {
    walkedThrough = answer;
    askedAbout = about;
    askedAt = generation;
  }

 private:
  Kel::String8 const& makeLogPath(EntityCopy const& ec, Kel::U64 generation);

  std::optional<Kel::String8> path_;
  Kel::String8 logPath_;
  Kel::U64 logPathAt_ = 0;  // 0: not made
  Kel::Ptr<Kel::Entity> heldDest_;
  Kel::Ptr<Kel::Entity const> heldSrc_;
};

}  // namespace Cli::Session
