#include "service/PointerClash.h"

#include <unordered_map>

#include "service/JsonTree.h"
#include "service/PathSet.h"
#include "service/Pointers.h"
#include "service/Positions.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::Entity;
using Kel::KelAttr;

namespace {

class Clashes {
 public:
  explicit Clashes(MergeInput const& in) : in_(in), session_(in.edits), running_(in.changes) {}

  void find(bool byEdit) {
    std::vector<Difference> const &setters = byEdit ? in_.edits : in_.changes,
                                  &deleters = byEdit ? in_.changes : in_.edits;
    PathSet deleted;
    for (Difference const& d : deleters) {
      if (d.isEntity() && d.kind == DifferenceKind::deleted) deleted.add(d.path);
      // An item that was moved is still there.
      if (!d.run || !d.attr->instantiating() || d.kind == DifferenceKind::reordered) continue;
      for (std::size_t i = 0; i < d.before.size(); ++i)
        deleted.add(d.path.parent() / queueStep(*d.attr, d.run->from + i));
    }
    if (deleted.empty()) return;
    Tree const& tree = byEdit ? in_.session : in_.running;
    Positions const& there = byEdit ? session_ : running_;
    Positions const back(inverse(setters));
    for (Difference const& d : setters) {
      if (d.run || d.kind == DifferenceKind::deleted) continue;
      if (d.isEntity()) {
        auto const place = there(d.path);
        if (Entity::Ptr const made = place ? entityAt(tree.dir, *place) : nullptr)
          eachPointer(*made, d.path,
                      [&](Pointer const& p) { add(placeOf(p, *tree.dir), *p.attr, *p.target, byEdit, deleted, back); });
      } else if (d.attr->isPtr() || d.attr->keyIsPtr()) {
        for (std::string const& text : targetsOf(d))
          if (Entity::Ptr const target = targetAt(tree.dir, text)) add(d.path, *d.attr, *target, byEdit, deleted, back);
      }
    }
  }
  std::vector<PointerClash> take() { return std::move(clashes_); }

 private:
  static std::vector<std::string> targetsOf(Difference const& d) {
    std::vector<std::string> texts;
    if (d.attr->keyIsPtr() && d.path.steps.back().key) texts.push_back(d.path.steps.back().keyText());
    if (d.attr->isPtr() && d.after.is_string()) texts.push_back(d.after.get<std::string>());
    return texts;
  }

  // `back`: from the setter's tree to the ancestor.
  void add(Path const& place, KelAttr const& attr, Entity const& target, bool byEdit, PathSet const& deleted,
           Positions const& back) {
    Tree const& tree = byEdit ? in_.session : in_.running;
    auto path = pathOf(target, *tree.dir);
    if (path) path = back(*path);
    if (!path) return;
    Path around;
    if (!deleted.anyAround(*path, [&](Path const& top) { return (around = top, true); })) return;
    // A member under a pointer may be one, too.
    auto const [known, isNew] = seen_.try_emplace(place.text(), clashes_.size());
    if (!isNew) {
      PointerClash& same = clashes_[known->second];
      if (same.byEdit == byEdit) same.deleted.push_back(around);
      return;
    }
    PointerClash clash;
    clash.byEdit = byEdit;
    clash.deleted.push_back(around);
    Conflict& c = clash.conflict;
    c.path = place;
    c.kind = ConflictKind::existence;
    c.type = attr.ownerType();
    c.attr = &attr;
    c.target = *path;
    bool inAncestor = false;
    c.ancestor = contentAt(in_.ancestor, place, inAncestor);
    c.session = contentAt(in_.session, session_(place), clash.inSession);
    c.running = contentAt(in_.running, running_(place), clash.inRunning);
    clashes_.push_back(std::move(clash));
  }

  static Json contentAt(Tree const& tree, std::optional<Path> const& place, bool& isThere) {
    Place const at = place ? locate(tree.dir, *place) : Place();
    isThere = place && at.there();
    if (!isThere || !at.attr) return {};
    if (!at.isMember) return at.attr->isCollection() ? Json() : exportAttribute(*at.entity, *at.attr, *tree.dir);
    Kel::GenericIf::Ptr const member = at.attr->access().get(*at.attr, at.entity.ptr(), at.key.ptr(), true);
    return member ? exportValue(member.ptr(), *tree.dir) : Json();
  }

  MergeInput const& in_;
  Positions const session_, running_;  // where the ancestor's items stand
  std::vector<PointerClash> clashes_;
  std::unordered_map<std::string, std::size_t> seen_;  // by the place: which clash it is
};

}  // namespace

std::vector<PointerClash> clashingPointers(MergeInput const& input) {
  Clashes clashes(input);
  clashes.find(true);
  clashes.find(false);
  return clashes.take();
}

void followPointers(Tree const& tree, std::unordered_set<std::string> const& holders,
                    std::function<bool(std::string const& place)> const& visit) {
  std::vector<std::string> open(holders.begin(), holders.end());
  while (!open.empty()) {
    Entity::Ptr const holder = targetAt(tree.dir, open.back());
    open.pop_back();
    if (!holder) continue;
    eachPointer(*holder, {}, [&](Pointer const& p) {
      auto const path = pathOf(*p.target, *tree.dir);
      if (!path) return;
      PathSet::eachTop(*path, [&](Path const& top) {
        std::string place = top.text();
        if (visit(place)) open.push_back(std::move(place));
        return false;
      });
    });
  }
}

}  // namespace Cli::Service
