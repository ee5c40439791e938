// How entities of one type are copied onto entities of another: a list of steps, one for each attribute.
//
// A plan is made when it is first asked for, once in the process for each pair of types. It never changes and is never
// destroyed. Any thread may read it.
#pragma once

#include <vector>

#include "CliSession/EntityCopy.h"
#include "Kel/AttrAccess.h"

namespace Cli::Session {

struct Plan;

// One attribute of the source's type.
struct Step {
  enum class Kind : Kel::U8 { skipped, value, collection, pointer, singleton, queue, unsupported };

  Step(Kel::KelType const& destType, Kel::KelAttr const& attr);
  Step(Step&&) = default;  // for the plan's vector, which has its full size at once
  Step& operator=(Step const&) = delete;

  // The plan for entities of these types that the attribute owns. Cost: usually a comparison.
  Plan const& childPlan(Kel::KelType const& dest, Kel::KelType const& src) const;
  // Owned members and singletons: whether no constructor parameter differs, apart from the index of a queue's member.
  // REQUIRES: `typed`.
  bool alike(Kel::Entity const& dest, Kel::Entity const& src) const {
    return dest.type() == src.type() && paramsEqual_(dest, src);
  }

  Kel::KelAttr const& attr;
  Kel::KelAttr const* destAttr;   // the destination's attribute of that name; null: there is none
  Kel::AttrAccess const& access;  // of the source; also of the destination where `typed` is set
  Kind kind;
  bool typed;         // both sides have the same storage, values compare by ==, and checkValue accepts their types
  bool dense;         // owned members that have positions
  bool reflexive;     // a copied value or key always equals its source, unlike a NaN
  bool withPointers;  // a pointer, keyed by pointers, or with pointers as members
  Kel::U32 number;    // unique in the process, from 0
  // Attributes that own entities: the plan for the attribute's own type on both sides.
  Plan const* usualPlan = nullptr;

 private:
  bool (*const paramsEqual_)(Kel::Entity const& dest, Kel::Entity const& src);
};

struct Plan {
  static Plan const& of(Kel::KelType const& dest, Kel::KelType const& src);
  Plan(Kel::KelType const& dest, Kel::KelType const& src);

  Kel::KelType const& dest;
  Kel::KelType const& src;
  std::vector<Step> steps;                 // by the id of the source's attribute; copied ones are queued in that order
  std::vector<Step const*> all;            // in the order of the attribute queue
  Kel::PlainDifferences plainDifferences;  // null: no such comparison
  std::vector<Step const*> further;        // those that are copied, and that it does not compare
  Kel::U64 furtherBits = 0;                // their bits, as in plainBit
  bool keyOnly;                            // the key is the only constructor parameter
  bool leaf;                               // keyOnly, and `plainDifferences` compares everything
};

inline Plan const& Step::childPlan(Kel::KelType const& d, Kel::KelType const& s) const {
  return &usualPlan->dest == &d && &usualPlan->src == &s ? *usualPlan : Plan::of(d, s);
}

// The number of steps made so far in the process.
Kel::U32 stepCount();

}  // namespace Cli::Session
