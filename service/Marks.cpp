#include "service/Marks.h"

#include <algorithm>

#include "service/Walk.h"

namespace Cli::Service {

using Kel::Change;
using Kel::ChangeJournal;

// --- Session roots ---

std::vector<std::string> outerRoots(std::vector<std::string> const& roots) {
  std::vector<std::string> outer;
  for (std::string const& path : roots) {
    bool const isNested = std::any_of(roots.begin(), roots.end(), [&](std::string const& other) {
      return path.size() > other.size() && path.compare(0, other.size(), other) == 0 &&
             (path[other.size()] == '/' || path[other.size()] == '.');
    });
    if (!isNested) outer.push_back(path);
  }
  return outer;
}

Kel::Entity* rootAt(Tree const& tree, std::string const& path) {
  Kel::Entity* at = tree.dir.ptr();
  std::string_view rest = path;
  while (at && !rest.empty()) {
    std::size_t const end = std::min(rest.find('/'), rest.size());
    Kel::Dir const* const dir = asDir(at);
    at = dir ? const_cast<Kel::Entity*>(dir->child(rest.substr(0, end))) : nullptr;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return at;
}

Path rootPath(std::string const& path) {
  Path steps;
  std::string_view rest = path;
  while (!rest.empty()) {
    std::size_t const end = std::min(rest.find('/'), rest.size());
    steps.steps.push_back(entryStep(Kel::Name(rest.substr(0, end))));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return steps;
}

Kel::Entity* heldLike(Kel::Entity const& owner, Kel::Entity const& e) {
  if (!e.parent() || owner.type() != e.parent()->type()) return nullptr;
  if (Kel::Dir const* const dir = asDir(&owner)) {
    if (e.type() == Kel::Dir::EntryState::_fwkType()) return nullptr;
    return const_cast<Kel::Entity*>(dir->child(e.name()));
  }
  Kel::KelAttr const* const held = e.parentAttr();
  if (!held || held->isQueue()) return nullptr;
  return held->isCollection() ? held->access().findCounterpart(owner, e, 0) : held->access().target(owner);
}

// --- Marks ---

Marks::Mark& Marks::at(Kel::Entity const& e, Kel::Entity const& root) {
  auto const [found, isNew] = marks_.try_emplace(&e);
  Mark& mark = found->second;  // stays valid while the map grows
  if (isNew && &e != &root) at(*e.parent(), root).owned.push_back(&e);
  return mark;
}

void Marks::note(Kel::Entity const& e, Kel::Entity const& root, Change change) {
  Mark& mark = at(e, root);
  mark.change = std::max(mark.change, static_cast<Kel::U8>(change));
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

void Marks::add(Kel::Entity const& root, Kel::Entity const& otherRoot, std::vector<ChangeJournal::Entry> const& here,
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
        Mark& mark = at(*mine, root);
        if (std::find(mark.queues.begin(), mark.queues.end(), held) == mark.queues.end()) mark.queues.push_back(held);
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

// --- Equal points ---

EqualPoint::EqualPoint(Tree const& a, Tree const& b) noexcept {
  try {
    note(a, b);
  } catch (...) {
    known_ = false;
  }
}

void EqualPoint::note(Tree const& a, Tree const& b) {
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

std::unique_ptr<Marks> EqualPoint::changes(Tree const& a, Tree const& b) const {
  if (!known_ || !ChangeJournal::enabled()) return nullptr;
  if (heldDepartures_ != ChangeJournal::heldDepartures() || upheavals_ != ChangeJournal::upheavals()) return nullptr;
  auto marks = std::make_unique<Marks>();
  std::size_t n = 0;
  for (std::string const& path : outerRoots(*a.roots)) {
    Kel::Entity const *const x = rootAt(a, path), *const y = rootAt(b, path);
    if (!x || !y || n == roots_.size()) return nullptr;
    ChangeJournal *const aJournal = ChangeJournal::of(*x), *const bJournal = ChangeJournal::of(*y);
    Root const& was = roots_[n++];
    if (!aJournal || !bJournal || aJournal->id() != was.aJournal || bJournal->id() != was.bJournal) return nullptr;
    if (!aJournal->holds(was.a) || !bJournal->holds(was.b)) return nullptr;
    marks->add(*x, *y, aJournal->since(was.a), bJournal->since(was.b));
  }
  return marks;
}

}  // namespace Cli::Service
