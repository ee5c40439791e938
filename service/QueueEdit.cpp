#include "service/QueueEdit.h"

#include <algorithm>
#include <numeric>

#include "service/Importer.h"
#include "service/OwnedMaker.h"
#include "service/References.h"

namespace Cli::Service {

using Kel::GenericIf;

QueueEdit::QueueEdit(Kel::Dir::Ptr base, PendingReferences& pending, Undo& undo, Kel::Entity& owner, Path queue)
    : base_(std::move(base)),
      pending_(pending),
      undo_(undo),
      owner_(owner),
      queue_(std::move(queue)),
      attr_(*queue_.steps.back().attr) {}

// Call it before the first write.
void QueueEdit::note() {
  undo_.noteAll(owner_, attr_);
  undo_.notePending(pending_);
}

std::vector<std::size_t> QueueEdit::order() const {
  std::vector<std::size_t> all(attr_.access().count(attr_, owner_));
  std::iota(all.begin(), all.end(), 0U);
  return all;
}

void QueueEdit::insert(std::size_t position, GenericIf::PtrConst const& item) {
  std::vector<std::size_t> now = order();
  now.insert(now.begin() + static_cast<std::ptrdiff_t>(position), made);
  arrange(now, item);
}

void QueueEdit::replace(std::size_t position, GenericIf::PtrConst const& value) {
  std::vector<std::size_t> now = order();
  now[position] = made;
  arrange(now, value);
}

// The items after it stay the same entities; only their positions in paths change.
void QueueEdit::erase(std::size_t position) {
  std::vector<std::size_t> positions = order();
  GenericIf::PtrConst index;
  eachMember(owner_, attr_, [&](Kel::AttrIterator const& it, std::size_t at) {
    if (at == position) index = it.key();
    return at < position;
  });
  for (std::size_t i = position; i < positions.size(); ++i) positions[i] = i == position ? made : i - 1;
  note();
  pending_.erase(queue_.parent() / queueStep(attr_, position));
  gifOf(owner_)->attributeDel(attr_.id(), index);
  remapPending(positions);
}

void QueueEdit::move(std::size_t from, std::size_t to) {
  std::vector<std::size_t> now = order();
  now.erase(now.begin() + static_cast<std::ptrdiff_t>(from));
  now.insert(now.begin() + static_cast<std::ptrdiff_t>(to), from);
  arrange(now, nullptr);
}

void QueueEdit::arrange(std::vector<std::size_t> const& order, GenericIf::PtrConst const& item) {
  std::size_t kept = 0;
  while (kept < order.size() && order[kept] == kept) ++kept;
  note();
  if (attr_.instantiating()) return arrangeEntities(order, kept, item);
  std::vector<GenericIf::PtrConst> indices, values;
  eachMember(owner_, attr_, [&](Kel::AttrIterator const& it, std::size_t position) {
    values.push_back(it.obj(true));
    if (position >= kept) indices.push_back(it.key());
    return true;
  });
  GenericIf::Ptr const owner = gifOf(owner_);
  for (std::size_t i = indices.size(); i-- > 0;) owner->attributeDel(attr_.id(), indices[i]);
  for (std::size_t i = kept; i < order.size(); ++i)
    owner->attributeSQEnq(attr_.id(), order[i] == made ? item : values[order[i]]);
}

// Replaces the position of an item in a path with its position after the edit.
void QueueEdit::remap(Path& path, std::vector<std::size_t> const& positions) const {
  if (path.steps.size() < queue_.steps.size() || !path.isWithin(queue_)) return;
  PathStep& step = path.steps[queue_.steps.size() - 1];
  if (!step.key) return;
  std::size_t const before = step.key->attrVal<Kel::U32>();
  if (before < positions.size() && positions[before] != made) step = queueStep(attr_, positions[before]);
}

void QueueEdit::remapPending(std::vector<std::size_t> const& positions) {
  auto const below = pending_.within(queue_);
  std::vector<PendingReference> moved(below.begin(), below.end());
  pending_.erase(queue_);
  for (PendingReference& reference : moved) {
    remap(reference.place, positions);
    pending_.add(std::move(reference));
  }
}

// The text of a target's path after the edit.
std::string QueueEdit::targetBehind(Kel::Entity const* target, std::vector<std::size_t> const& positions) const {
  if (!target) return {};
  auto path = pathOf(*target, *base_);
  if (!path) return targetText(*target, *base_);
  remap(*path, positions);
  return path->text();
}

void QueueEdit::noteReference(Reference const& reference, std::vector<std::size_t> const& positions,
                              std::vector<PendingReference>& to) const {
  Kel::KelAttr const& attr = *reference.attr;
  auto place = placeOf(reference, *base_);
  if (!place || attr.ctorParam() || (reference.isKey && attr.isPtr())) return;  // with its member
  remap(*place, positions);
  std::string const target = targetBehind(reference.target, positions);
  if (target.empty() && reference.target) return;  // it has left the tree
  Json value = reference.target ? Json(target) : Json(nullptr);
  if (attr.keyIsPtr()) {
    Kel::Entity const* const key = reference.key ? reference.key->entityConst().ptr() : nullptr;
    place->steps.back().key = GenericIf::of(Kel::String8(targetBehind(key, positions)));
  }
  if (reference.isKey) value = exportValue(gifOf(*reference.owner)->attribute(attr.id(), reference.key).ptr(), *base_);
  to.push_back({std::move(*place), std::move(value), target, {}});
}

void QueueEdit::arrangeEntities(std::vector<std::size_t> const& order, std::size_t kept,
                                GenericIf::PtrConst const& item) {
  struct Old {
    GenericIf::PtrConst index;
    Kel::KelType const* type;
    std::vector<GenericIf::PtrConst> args;
    Json content;
  };
  std::vector<std::size_t> positions(this->order().size(), made);
  for (std::size_t i = 0; i < order.size(); ++i)
    if (order[i] != made) positions[order[i]] = i;
  Path const owner = queue_.parent();
  std::vector<Old> olds(kept);
  std::vector<PendingReference> references;
  Departed departed;
  ExportOptions plain;
  plain.references = false;
  eachMember(owner_, attr_, [&](Kel::AttrIterator const& it, std::size_t position) {
    if (position < kept) return true;
    Kel::Entity& e = *it.target();
    std::vector<GenericIf::PtrConst> args;
    for (Kel::KelAttr const* param : furtherParams(*e.type())) args.push_back(valueOfAttr(e, *param));
    Json content = exportEntity(e, *base_, plain);
    for (Kel::KelAttr const* param : furtherParams(*e.type())) content.erase(param->name().str());
    olds.push_back({it.key(), e.type(), std::move(args), std::move(content)});
    departed.note(e, owner / queueStep(attr_, positions[position]));
    auto const noted = [&](Reference const& reference) { noteReference(reference, positions, references); };
    eachReference(e, noted, true);
    return true;
  });
  GenericIf::Ptr const gif = gifOf(owner_);
  for (std::size_t i = olds.size(); i-- > kept;) gif->attributeDel(attr_.id(), olds[i].index);
  remapPending(positions);
  ImportOptions options;
  options.merge = true;
  options.values = ValueRule::asWritten;
  OwnedMaker maker;
  for (std::size_t i = kept; i < order.size(); ++i) {
    if (order[i] == made) {
      gif->attributeSQEnq(attr_.id(), item);
      continue;
    }
    Old const& old = olds[order[i]];
    maker.make(owner_, attr_, nullptr, *old.type, old.args);
    importPart(base_, owner / queueStep(attr_, i), old.content, options, nullptr);
  }
  departed.repoint(base_, &pending_, &undo_);
  for (PendingReference& reference : references) {
    reference.reason = setReference(base_, reference);
    if (!reference.reason.empty()) pending_.add(std::move(reference));
  }
}

}  // namespace Cli::Service
