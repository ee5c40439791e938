#include "service/ChangedEntities.h"

#include <algorithm>

#include "CliSession/EntityCopy/HeldLike.h"
#include "service/Walk.h"

namespace Cli::Service {

using Cli::Session::heldLike;
using Kel::Change;
using Kel::ChangeJournal;

// --- Changed entities ---

ChangedEntity& ChangedEntities::at(Kel::Entity const& e, Kel::Entity const& root) {
  auto const [found, isNew] = entities_.try_emplace(&e);
  ChangedEntity& changed = found->second;  // stays valid while the map grows
  if (isNew && &e != &root) at(*e.parent(), root).owned.push_back(&e);
  return changed;
}

void ChangedEntities::note(Kel::Entity const& e, Kel::Entity const& root, Change change) {
  ChangedEntity& changed = at(e, root);
  changed.change = std::max(changed.change, static_cast<Kel::U8>(change));
}

namespace {

// The entities from the root (excluded) down to `e`; empty if `e` is not below the root.
std::optional<std::vector<Kel::Entity const*>> wayTo(Kel::Entity const& e, Kel::Entity const& root) {
  std::vector<Kel::Entity const*> way;
  for (Kel::Entity const* at = &e; at != &root; at = at->parent()) {
    if (!at) return std::nullopt;
    way.push_back(at);
  }
  std::reverse(way.begin(), way.end());
  return way;
}

}  // namespace

void ChangedEntities::add(Kel::Entity const& root, Kel::Entity const& otherRoot,
                          std::vector<ChangeJournal::Entry> const& here,
                          std::vector<ChangeJournal::Entry> const& other) {
  at(root, root);
  auto const place = [&](Kel::Entity const& top, ChangeJournal::Entry const& entry) {
    auto const way = wayTo(*entry.entity, top);
    if (!way) return;
    Kel::Entity const* mine = &root;
    for (Kel::Entity const* e : *way) {
      Kel::KelAttr const* const held = asDir(e->parent()) ? nullptr : e->parentAttr();
      if (held && held->isQueue()) {
        // The items are aligned later, so the counterpart of this one is not known yet.
        ChangedEntity& changed = at(*mine, root);
        if (std::find(changed.queues.begin(), changed.queues.end(), held) == changed.queues.end())
          changed.queues.push_back(held);
        return;
      }
      Kel::Entity const* const next = &top == &root ? e : heldLike(*mine, *e);
      if (!next) return note(*mine, root, Change::members);
      mine = next;
    }
    note(*mine, root, entry.change);
  };
  for (auto const& entry : here) place(root, entry);
  for (auto const& entry : other) place(otherRoot, entry);
}

// --- Checkpoints ---

Checkpoint::Checkpoint(Tree const& a, Tree const& b) noexcept {
  try {
    note(a, b);
  } catch (...) {
    known_ = false;
  }
}

void Checkpoint::note(Tree const& a, Tree const& b) {
  if (!ChangeJournal::enabled()) return;
  for (std::string const& path : outerRoots(*a.roots)) {
    Kel::Entity const *const x = rootAt(a, path), *const y = rootAt(b, path);
    if (!x || !y) return;
    ChangeJournal &aJournal = ChangeJournal::attach(*x), &bJournal = ChangeJournal::attach(*y);
    Kel::U64 const at = aJournal.checkpoint();
    roots_.push_back({aJournal.id(), at, bJournal.id(), bJournal.end()});
  }
  heldDepartures_ = ChangeJournal::heldDepartures();
  upheavals_ = ChangeJournal::upheavals();
  known_ = true;
}

std::unique_ptr<ChangedEntities> Checkpoint::changedSince(Tree const& a, Tree const& b) const {
  if (!known_ || !ChangeJournal::enabled()) return nullptr;
  if (heldDepartures_ != ChangeJournal::heldDepartures() || upheavals_ != ChangeJournal::upheavals()) return nullptr;
  auto changed = std::make_unique<ChangedEntities>();
  std::size_t n = 0;
  for (std::string const& path : outerRoots(*a.roots)) {
    Kel::Entity const *const x = rootAt(a, path), *const y = rootAt(b, path);
    if (!x || !y || n == roots_.size()) return nullptr;
    ChangeJournal *const aJournal = ChangeJournal::of(*x), *const bJournal = ChangeJournal::of(*y);
    Root const& was = roots_[n++];
    if (!aJournal || !bJournal || aJournal->id() != was.aJournal || bJournal->id() != was.bJournal) return nullptr;
    if (!aJournal->holds(was.a) || !bJournal->holds(was.b)) return nullptr;
    changed->add(*x, *y, aJournal->since(was.a), bJournal->since(was.b));
  }
  return changed;
}

}  // namespace Cli::Service
