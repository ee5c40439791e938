// The conflicts listed are those that an independent three-way comparison finds: one that works on flat lists of paths
// and texts, and knows nothing of differences. Queues are left to other tests.
#include <set>

#include "service/core/RandomDevices.h"

namespace {

using namespace Tests;

// A tree as texts by path.
struct Flat {
  std::map<std::string, std::string> entities;  // type and constructor parameters
  std::map<std::string, std::string> leaves;
  std::multimap<std::string, std::string> targets;  // of pointers that are set, by the leaf
  std::map<std::string, std::string> owners;        // the attribute of a member under a pointer, by the leaf
};

class Flattening {
 public:
  explicit Flattening(Sv::Tree const& tree) : tree_(tree) {
    for (Kel::Entity* root : rootsOf(tree)) entity(*root);
  }
  Flat flat;

 private:
  std::string nameOf(Kel::Entity const& e) const {
    return e.fullName().str().substr(tree_.dir->fullName().chars() + 1);
  }
  std::string textOf(Kel::GenericIf::PtrConst const& value) const {
    if (!value) return "null";
    return value->entityConst() ? "@" + nameOf(*value->entityConst()) : value->strep().str();
  }
  void entity(Kel::Entity& e) {
    auto const gif = Kel::GenericIf::ofEntity(EntityPtr(&e));
    std::string const path = nameOf(e);
    std::string& made = flat.entities[path] = e.type()->fullTypeName().str();
    for (Kel::KelAttr const* attr : e.type()->attributeQ()) {
      if (attr->ctorParam()) made += " " + textOf(gif->attribute(attr->id()));
      if (attr->copiable()) attribute(e, *gif, *attr, path + "." + attr->name().str());
    }
  }
  void attribute(Kel::Entity& e, Kel::GenericIf& gif, Kel::KelAttr const& attr, std::string const& at) {
    if (attr.isQueue()) {
      Scope const scope{*tree_.dir, {tree_.dir.ptr()}};
      std::string& items = flat.leaves[at + "[]"];
      for (auto it = gif.attributeIterator(attr.id()); it; ++it)
        items += it.obj()->isEntity() ? itemText(*it.obj()->entity(), scope) : textOf(it.obj()) + "\n";
      return;
    }
    if (!attr.isCollection()) {
      auto const value = gif.attribute(attr.id());
      if (attr.instantiating()) return value ? entity(*value->entity()) : void();
      leaf(at, value);
      if (attr.isPtr()) points(at, value);
      return;
    }
    for (auto it = gif.attributeIterator(attr.id()); it; ++it) {
      if (attr.instantiating()) {
        entity(*it.obj()->entity());
        continue;
      }
      std::string const key =
          attr.keyIsPtr() ? it.key() ? nameOf(*it.key()->entityConst()) : "" : it.key()->text().str();
      leaf(at + "/" + key, it.obj());
      if (attr.keyIsPtr()) points(at + "/" + key, it.key());
      if (attr.isPtr()) points(at + "/" + key, it.obj());
      if (attr.keyIsPtr()) flat.owners[at + "/" + key] = at;
    }
    (void)e;
  }
  std::string itemText(Kel::Entity& e, Scope const& scope) const {
    std::string text = dump(e, scope), name = e.fullName().str();
    // Without indices.
    std::string const itself = "/" + e.name().str();
    for (std::size_t at = 0; (at = text.find(".job" + itself, at)) != std::string::npos; ++at)
      text.erase(at + 4, itself.size());
    return text;
  }
  void leaf(std::string const& path, Kel::GenericIf::PtrConst const& value) { flat.leaves[path] = textOf(value); }
  void points(std::string const& path, Kel::GenericIf::PtrConst const& pointer) {
    if (pointer) flat.targets.emplace(path, nameOf(*pointer->entityConst()));
  }

  Sv::Tree tree_;
};

bool isBelow(std::string const& path, std::string const& top) {
  return path.size() > top.size() && path.compare(0, top.size(), top) == 0 && path[top.size()] == '.';
}

// What one side did to the ancestor.
struct Side {
  Flat const &ancestor, &flat;
  std::set<std::string> entities;  // topmost ones that came, went or were replaced
  std::set<std::string> leaves;    // that differ, and do not lie in one of these

  Side(Flat const& a, Flat const& f) : ancestor(a), flat(f) {
    differ(a.entities, f.entities, entities);
    differ(a.leaves, f.leaves, leaves);
  }
  bool inChanged(std::string const& path) const {
    return std::any_of(entities.begin(), entities.end(), [&](std::string const& e) { return isBelow(path, e); });
  }
  bool isGone(std::string const& e) const { return entities.count(e) && !flat.entities.count(e); }
  // The entity that went in which a place lies.
  bool isWithinGone(std::string const& path) const {
    return std::any_of(entities.begin(), entities.end(),
                       [&](std::string const& e) { return isGone(e) && (path == e || isBelow(path, e)); });
  }
  std::string content(std::string const& e) const {
    std::string text;
    for (auto const* map : {&flat.entities, &flat.leaves})
      for (auto const& [path, value] : *map)
        if (path == e || isBelow(path, e)) text += path + "=" + value + "\n";
    return text;
  }
  // What changed below an entity: nothing, only deletions, or more.
  enum class Below { nothing, deletions, more };
  Below below(std::string const& e) const {
    Below found = Below::nothing;
    auto const note = [&](bool deletion) { found = std::max(found, deletion ? Below::deletions : Below::more); };
    for (std::string const& other : entities)
      if (isBelow(other, e)) note(isGone(other));
    for (std::string const& leaf : leaves)
      if (isBelow(leaf, e)) note(!flat.leaves.count(leaf));
    return found;
  }

 private:
  void differ(std::map<std::string, std::string> const& a, std::map<std::string, std::string> const& b,
              std::set<std::string>& found) {
    auto const look = [&](auto const& one, auto const& other) {
      for (auto const& [path, text] : one) {
        auto const same = other.find(path);
        if ((same == other.end() || same->second != text) && !inChanged(path)) found.insert(path);
      }
    };
    look(a, b);
    look(b, a);
    std::erase_if(found, [&](std::string const& path) {
      return inChanged(path) || std::any_of(found.begin(), found.end(),
                                            [&](auto const& e) { return &found == &entities && isBelow(path, e); });
    });
  }
};

std::set<std::string> conflictsBetween(Flat const& ancestor, Flat const& mine, Flat const& theirs) {
  Side const s(ancestor, mine), r(ancestor, theirs);
  std::set<std::string> found, pointers;
  auto const clash = [&](Side const& setter, Side const& deleter) {
    for (auto const& [leaf, target] : setter.flat.targets) {
      bool const inMade = setter.inChanged(leaf);
      if (!(inMade || setter.leaves.count(leaf)) || !deleter.isWithinGone(target)) continue;
      auto const owner = setter.flat.owners.find(leaf);
      pointers.insert(inMade && owner != setter.flat.owners.end() ? owner->second : leaf);
    }
  };
  clash(s, r);
  clash(r, s);
  for (std::string const& p : pointers) found.insert(p + " existence");
  std::set<std::string> entities = s.entities;
  entities.insert(r.entities.begin(), r.entities.end());
  for (std::string const& e : entities) {
    bool const both = s.entities.count(e) && r.entities.count(e);
    if (both) {
      if (s.content(e) != r.content(e)) found.insert(e + " existence");
      continue;
    }
    Side const &changed = s.entities.count(e) ? s : r, &other = s.entities.count(e) ? r : s;
    if (other.inChanged(e)) continue;
    auto const below = other.below(e);
    if (below == Side::Below::nothing || (below == Side::Below::deletions && changed.isGone(e))) continue;
    found.insert(e + " existence");
  }
  for (std::string const& leaf : s.leaves) {
    if (!r.leaves.count(leaf) || pointers.count(leaf) || leaf.find("[]") != std::string::npos) continue;
    auto const textIn = [&](Side const& side) {
      auto const at = side.flat.leaves.find(leaf);
      return at == side.flat.leaves.end() ? std::string("absent") : at->second;
    };
    if (textIn(s) != textIn(r)) found.insert(leaf + " value");
  }
  return found;
}

std::string linesOfSet(std::set<std::string> const& set) {
  std::string lines;
  for (std::string const& line : set) lines += line + "\n";
  return lines;
}

TEST(ServiceOracle, FindsTheSameConflicts) {
  unsigned conflicts = 0;
  for (unsigned seed : seeds(300)) {
    if (HasFailure()) return;
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomDevice device(seed);
    device.theirs.commit();
    std::set<std::string> listed;
    for (Sv::Conflict const& c : device.mine.conflicts())
      if (!inQueue(c.path)) listed.insert(c.path.text() + " " + Sv::text(c.kind));
    std::set<std::string> const wanted =
        conflictsBetween(Flattening(device.mine.ancestor()).flat, Flattening(device.mine.tree()).flat,
                         Flattening(device.service->running()).flat);
    conflicts += static_cast<unsigned>(wanted.size());
    EXPECT_EQ(linesOfSet(listed), linesOfSet(wanted)) << "mine\n"
                                                      << linesOf(device.mine.differences()) << "theirs\n"
                                                      << linesOf(device.mine.differencesInRunning());
  }
  EXPECT_GT(conflicts, 15u);
}

}  // namespace
