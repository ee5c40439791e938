// The engine's inner loop, for runs in which nothing has to be shown.
//
// The operations of EntityCopy work on boxed values and path strings, so that every step can be traced, intercepted and
// called by name. Where tracing is off and the handler is the plain session handler, the same steps are taken here on
// the storage itself: an attribute found equal costs a comparison, an entity without edits costs no path. Whatever is
// out of the ordinary (a deletion, a queue, reactors, bypass and debug tables, custom handlers, nested session roots)
// is handed to the boxed operation, for that attribute or that entity alone. Both roads do the same things in the same
// order.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "CliSession/EntityCopy.h"
#include "Kel/AttrAccess.h"

namespace Cli::Session {

class TypedWalk {
 public:
  // Whether the run may take this road now.
  static bool possible(EntityCopy const& ec);

  // A run begins: nothing is known yet of where targets lie.
  void newRun() { targets_.clear(); }

  // All attributes of one entity, as `doCopyEntityAttrs` without a filter.
  bool copyAttrs(EntityCopy& ec, Kel::Entity& dest, Kel::Entity const& src, Kel::String8 const& path);

 private:
  struct Plan;
  // One attribute that takes part in copies, and how it is compared.
  struct Step {
    enum Kind : Kel::U8 { string, boolean, u8, u16, u32, u64, f64, value, values, pointer, singleton, members, boxed };
    union Slot {
      Kel::String8 Kel::Entity::*string;
      bool Kel::Entity::*boolean;
      Kel::U8 Kel::Entity::*u8;
      Kel::U16 Kel::Entity::*u16;
      Kel::U32 Kel::Entity::*u32;
      Kel::U64 Kel::Entity::*u64;
      Kel::F64 Kel::Entity::*f64;
    };
    Kind kind = boxed;
    Slot slot{};
    Kel::KelAttr const* attr = nullptr;
    Kel::AttrAccess const* access = nullptr;
    Plan* child = nullptr;               // of the type of owned entities
    Kel::Ptr<AttributeEditEntry> entry;  // where this attribute's sets are counted, once it had one
  };
  struct Plan {
    Kel::KelType const* type = nullptr;
    bool keyOnly = false;  // its only constructor parameter is the key, which a look-up has compared
    std::vector<Step> steps;
  };
  struct Frame;
  struct Run;

  Plan& planOf(Kel::KelType const& type);
  static Step makeStep(Kel::KelAttr const& attr);

  bool attrs(Run& run, Frame& frame, Plan& plan);
  bool step(Run& run, Frame& frame, Step& step);
  bool copyPointer(Run& run, Frame& frame, Step& step);
  bool copySingleton(Run& run, Frame& frame, Step& step);
  bool copyMembers(Run& run, Frame& frame, Step& step);
  bool copyMember(Run& run, Frame& frame, Step& step, Kel::Entity const& srcMember, Kel::U32 position);
  bool descend(Run& run, Frame& frame, Step& step, Kel::Entity& dest, Kel::Entity const& src);
  bool boxed(Run& run, Frame& frame, Step const& step);
  bool boxedMember(Run& run, Frame& frame, Step const& step, Kel::Entity const& srcMember);
  static bool maySet(Run& run, Frame& frame, Step& step);
  void readRoots(Run& run);
  void anythingMayHaveRun(Run& run);
  static bool standsAtItsPath(Run& run);
  static void countSet(Run& run, Frame& frame, Step& step);
  Kel::Entity* counterpart(Run& run, Frame& frame, Kel::Entity& srcTarget);

  std::unordered_map<Kel::KelType const*, std::unique_ptr<Plan>> plans_;

  // Where the targets of pointers lie in the destination, as long as nothing leaves a tree and the copy is between the
  // same ends: a handler may start a run within a run.
  struct Ends {
    void const *src, *dest, *handler, *externalDest;
    bool operator==(Ends const&) const = default;
  };
  std::unordered_map<Kel::Entity const*, Kel::Entity*> targets_;
  Ends targetsBetween_{};
  Kel::U64 departures_ = 0;
};

}  // namespace Cli::Session
