// How entities of one type are copied onto entities of another: a list of steps, one an attribute.
//
// Plans are made when they are first asked for, once a pair of types for the whole process, and never change or go.
// They may be read on any thread.
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

  // The plan for what an owning attribute usually holds on both sides: entities of its own type.
  Plan const& usualPlan() const {
    Plan const* const known = usual_.load(std::memory_order_acquire);
    return known ? *known : makeUsualPlan();
  }
  // The plan for entities of these types that the attribute owns. Cost: a comparison, but for members of derived types.
  Plan const& childPlan(Kel::KelType const& dest, Kel::KelType const& src) const;

  Kel::KelAttr const& attr;
  Kel::KelAttr const* destAttr;   // the destination's attribute of that name; null: there is none
  Kel::AttrAccess const& access;  // of the source; also of the destination where `typed` is set
  Kind kind;
  bool supported;     // checkValue finds nothing to object to
  bool typed;         // supported, both sides have the same storage, and values compare by ==
  bool dense;         // owned members that have positions
  bool withPointers;  // keyed by pointers, or with pointers as members
  Kel::U32 number;    // among all steps of the process
  AttributeEdit const set, del;

 private:
  Plan const& makeUsualPlan() const;

  mutable std::atomic<Plan const*> usual_{nullptr}, child_{nullptr};
};

struct Plan {
  static Plan const& of(Kel::KelType const& dest, Kel::KelType const& src);
  Plan(Kel::KelType const& dest, Kel::KelType const& src);
  // The step for an attribute of the source's type; null for an attribute of another type.
  Step const* find(Kel::KelAttr const& attr) const;

  Kel::KelType const& dest;
  Kel::KelType const& src;
  std::deque<Step> steps;            // all attributes in the order of the attribute queue
  std::vector<Step const*> copied;   // those that take part
  std::vector<Step const*> further;  // of these, those that `plainEqual` does not compare
  bool (*plainEqual)(Kel::Entity const& dest, Kel::Entity const& src);  // null: no such comparison
  // The constructor parameters of two entities are equal: null where parameters may be pointers, or the types differ.
  bool (*paramsEqual)(Kel::Entity const& dest, Kel::Entity const& src);
  bool keyOnly;  // the key is the only constructor parameter
  bool leaf;     // that, and `plainEqual` compares all that there is
};

// The number of steps made so far in the process.
Kel::U32 stepCount();

}  // namespace Cli::Session
