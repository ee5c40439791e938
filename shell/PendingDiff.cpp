#include "PendingDiff.h"

#include <set>
#include <utility>

namespace Shell {

namespace Service = Cli::Service;
using Service::Difference;
using Service::DifferenceKind;
using Service::Json;
using Service::Path;
using Service::PendingReference;
using Service::PendingReferences;

void fillPending(Json& content, Path const& top, PendingReference const& reference, Json const& text) {
  Json* at = &content;
  auto const& steps = reference.place.steps;
  for (std::size_t i = top.steps.size(); i < steps.size(); ++i) {
    Service::PathStep const& step = steps[i];
    bool const last = i + 1 == steps.size();
    // A null pointer is left out of the content, and so is a collection without other members.
    auto const enter = [&](std::string const& name) {
      if (at->is_null() && last) *at = Json::object();
      if (!at->is_object() || !(last || at->contains(name))) return false;
      at = &(*at)[name];
      return true;
    };
    if (!step.attr || !enter(step.attr->name().str())) return;
    if (step.key && step.attr->isQueue()) {
      auto const position = step.key->attrVal<Kel::U32>();
      if (!at->is_array() || position >= at->size()) return;
      at = &(*at)[position];
    } else if (step.key && !enter(step.keyText())) {
      return;
    }
  }
  if (at->is_null() || *at == Json(reference.target)) *at = text;
}

namespace {

// As an export has it: the text, or all possible ones.
Json textOf(PendingReference const& reference) {
  if (reference.others.empty() || !reference.value.is_string()) return reference.value;
  Json texts = Json::array({reference.value});
  for (std::string const& other : reference.others) texts.push_back(other);
  return texts;
}

void fillAll(Json& content, Path const& place, PendingReferences const& pending) {
  if (!content.is_object() && !content.is_null()) return;
  for (PendingReference const& reference : pending.within(place))
    fillPending(content, place, reference, textOf(reference));
}

void fillItems(Json& items, Difference const& difference, std::size_t position, PendingReferences const& pending) {
  for (Json& item : items)
    fillAll(item, difference.path.parent() / Service::queueStep(*difference.attr, position++), pending);
}

void fill(Difference& difference, PendingReferences const& from, PendingReferences const& to) {
  if (difference.run) {
    fillItems(difference.before, difference, difference.run->from, from);
    fillItems(difference.after, difference, difference.run->to, to);
    return;
  }
  if (difference.kind != DifferenceKind::created) fillAll(difference.before, difference.path, from);
  if (difference.kind != DifferenceKind::deleted) fillAll(difference.after, difference.path, to);
}

Difference ofReference(Path const& place, PendingReference const* from, PendingReference const* to) {
  Service::PathStep const& step = place.steps.back();
  Difference difference;
  difference.path = place;
  difference.attr = step.attr;
  difference.type = step.attr->ownerType();
  if (from) difference.before = textOf(*from);
  if (to) difference.after = textOf(*to);
  bool const member = step.attr->isCollection();
  difference.kind = member && !from ? DifferenceKind::created
                    : member && !to ? DifferenceKind::deleted
                                    : DifferenceKind::changed;
  return difference;
}

}  // namespace

std::vector<Difference> withPending(std::vector<Difference> differences, PendingReferences const& from,
                                    PendingReferences const& to) {
  auto const isSame = [](PendingReference const* a, PendingReference const* b) {
    return a && b && a->target == b->target && a->value == b->value;
  };
  std::vector<Difference> out;
  std::set<Path> told;
  for (Difference& difference : differences) {
    told.insert(difference.path);
    // The same reference: as a null member on one side, and as none on the other.
    if (!difference.run && isSame(from.find(difference.path), to.find(difference.path))) continue;
    fill(difference, from, to);
    out.push_back(std::move(difference));
  }
  auto const isTold = [&](Path path) {
    for (; !path.empty(); path = path.parent()) {
      Service::PathStep const& step = path.steps.back();
      bool const isItem = step.attr && step.attr->isQueue() && step.key;
      if (told.count(path) || (isItem && told.count(path.parent() / Service::attributeStep(*step.attr)))) return true;
    }
    return false;
  };
  std::set<Path> places;
  for (PendingReferences const* pending : {&from, &to})
    for (PendingReference const& reference : pending->list()) places.insert(reference.place);
  for (Path const& place : places) {
    PendingReference const *const before = from.find(place), *const after = to.find(place);
    if (!isSame(before, after) && !isTold(place)) out.push_back(ofReference(place, before, after));
  }
  return out;
}

}  // namespace Shell
