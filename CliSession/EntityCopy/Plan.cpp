#include "CliSession/EntityCopy/Plan.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>

namespace Cli::Session {

namespace {

std::atomic<Kel::U32> steps{0};

Step::Kind kindOf(Kel::KelAttr const& attr) {
  using Kind = Step::Kind;
  if (!attr.copiable()) return Kind::skipped;
  if (attr.isQueue()) return Kind::queue;
  if (attr.isCollection()) return Kind::collection;
  if (attr.type()->isEntity())
    return attr.instantiating() ? Kind::singleton : attr.isPtr() ? Kind::pointer : Kind::unsupported;
  return attr.isValue() ? Kind::value : Kind::unsupported;
}

bool onlyValues(Kel::KelType const* type) {
  if (!type || type->isEntity()) return true;
  for (Kel::KelAttr const* field : type->attributeQ())
    if (!field->isValue() && !field->isFunction()) return false;
  return true;
}

// Whether the storage itself can compare what the attribute holds.
bool comparable(Kel::KelAttr const& attr) {
  if (attr.instantiating()) return attr.type()->paramsEqual() != nullptr;
  return attr.type()->isEntity() || attr.type()->valueOps().equal;
}

// Whether every value of a type is known to equal itself. A type's own comparison may answer anything.
bool isReflexive(Kel::KelType const* type) {
  using Builtin = Kel::KelType::Builtin;
  if (!type || !type->isBuiltin()) return !type || type->isEntity() || type->isEnum();
  return type->builtin() != Builtin::f32 && type->builtin() != Builtin::f64;
}

}  // namespace

Kel::U32 stepCount() { return steps.load(std::memory_order_relaxed); }

Step::Step(Kel::KelType const& destType, Kel::KelAttr const& a)
    : attr(a),
      destAttr(destType.attr(a.id()) == &a ? &a : destType.findAttr(a.name())),
      access(a.access()),
      kind(kindOf(a)),
      typed(kind != Kind::skipped && kind != Kind::unsupported && destAttr == &a && onlyValues(a.type()) &&
            (a.keyIsPtr() || onlyValues(a.keyType())) && comparable(a)),
      dense(typed && a.instantiating() && a.collectionKind() == Kel::KelAttr::Collection::hashMap),
      reflexive(isReflexive(a.type()) && isReflexive(a.keyType())),
      withPointers(!a.instantiating() && (a.keyIsPtr() || a.isPtr())),
      number(steps.fetch_add(1, std::memory_order_relaxed)),
      paramsEqual_(a.isQueue() ? a.type()->furtherParamsEqual()
                   : a.type()  ? a.type()->paramsEqual()
                               : nullptr) {}

Plan::Plan(Kel::KelType const& d, Kel::KelType const& s)
    : dest(d), src(s), plainDifferences(&d == &s ? s.plainDifferences() : nullptr), keyOnly(s.ctorArgs().size() == 1) {
  steps.reserve(s.attributeQ().size());
  for (Kel::AttributeId id = 0; Kel::KelAttr const* attr = s.attr(id); ++id) steps.emplace_back(d, *attr);
  for (Kel::KelAttr const* attr : s.attributeQ()) {
    Step const& step = steps[attr->id()];
    all.push_back(&step);
    // An unsupported attribute must be visited, because it is an assertion.
    if (step.kind == Step::Kind::skipped || (plainDifferences && step.typed && attr->plainBit())) continue;
    further.push_back(&step);
    furtherBits |= Kel::plainBit(attr->id());
  }
  leaf = keyOnly && plainDifferences && further.empty();
}

namespace {

using Plans = std::map<std::pair<Kel::KelType const*, Kel::KelType const*>, Plan>;

// A plan, and those of everything that it leads to. `made` takes the new ones.
Plan const& planIn(Plans const& plans, Plans& made, Kel::KelType const& dest, Kel::KelType const& src) {
  std::pair const types{&dest, &src};
  if (auto const known = plans.find(types); known != plans.end()) return known->second;
  auto const [found, isNew] = made.try_emplace(types, dest, src);
  Plan& plan = found->second;
  if (isNew)
    for (Step& step : plan.steps)
      if (step.attr.instantiating()) step.usualPlan = &planIn(plans, made, *step.attr.type(), *step.attr.type());
  return plan;
}

}  // namespace

Plan const& Plan::of(Kel::KelType const& dest, Kel::KelType const& src) {
  static std::mutex mutex;
  static Plans& plans = *new Plans;
  // Copy roots and members of derived types are looked up one by one.
  static thread_local std::array<Plan const*, 61> recent{};  // a prime: types are laid out regularly
  Plan const*& known = recent[reinterpret_cast<std::uintptr_t>(&dest) / alignof(Kel::KelType) % recent.size()];
  if (known && &known->dest == &dest && &known->src == &src) return *known;
  std::lock_guard const lock(mutex);
  Plans made;  // kept apart, so that running out of memory leaves no plan that is not linked
  known = &planIn(plans, made, dest, src);
  plans.merge(made);
  return *known;
}

}  // namespace Cli::Session
