// How entities of one type are copied onto entities of another: a list of steps, one for each attribute.
//
// A plan is made when it is first asked for, once in the process for each pair of types. It never changes and is never
// destroyed. Any thread may read it.
#pragma once

#include <atomic>
#include <deque>
#include <vector>

#include "CliSession/EntityCopy.h"
#include "Kel/AttrAccess.h"

namespace Cli::Session {

struct Plan;

// One attribute of the source's type.
struct Step {
  enum class Kind : Kel::U8 { skipped, value, collection, pointer, singleton, members, queue, unsupported };

  Step(Kel::KelType const& destType, Kel::KelAttr const& attr);
  Step(Step const&) = delete;
  Step& operator=(Step const&) = delete;

  // The plan for entities of the attribute's own type on both sides, the usual case.
  Plan const& usualPlan() const {
    Plan const* const known = usual_.load(std::memory_order_acquire);
    return known ? *known : makeUsualPlan();
  }
  // The plan for entities of these types that the attribute owns. Cost: usually a comparison; a look-up if the
  // attribute has members of several types.
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
  bool supported;     // checkValue accepts its types
  bool typed;         // supported, both sides have the same storage, and values compare by ==
  bool dense;         // owned members that have positions
  bool reflexive;     // a copied value always equals its source, unlike a NaN
  bool withPointers;  // a pointer, keyed by pointers, or with pointers as members
  Kel::U32 number;    // unique in the process, from 0
  AttributeEdit const set, del;

 private:
  Plan const& makeUsualPlan() const;

  bool (*const paramsEqual_)(Kel::Entity const& dest, Kel::Entity const& src);
  mutable std::atomic<Plan const*> usual_{nullptr}, child_{nullptr};
};

struct Plan {
  static Plan const& of(Kel::KelType const& dest, Kel::KelType const& src);
  Plan(Kel::KelType const& dest, Kel::KelType const& src);
  // The step for an attribute of the source's type; null for an attribute of another type.
  Step const* find(Kel::KelAttr const& attr) const;

  Kel::KelType const& dest;
  Kel::KelType const& src;
  std::deque<Step> steps;                // all attributes in the order of the attribute queue
  std::vector<Step const*> all, copied;  // the steps of all attributes, and of those that are copied
  std::vector<Step const*> further;      // of these, those that `plainEqual` does not compare
  bool (*plainEqual)(Kel::Entity const& dest, Kel::Entity const& src);  // null: no such comparison
  bool keyOnly;                                                         // the key is the only constructor parameter
  bool leaf;                                                            // keyOnly, and `plainEqual` compares everything
};

// The number of steps made so far in the process.
Kel::U32 stepCount();

}  // namespace Cli::Session
