#include "examples/config_db/Tree.h"

#include "examples/config_db/Loader.h"
#include "examples/config_db/Values.h"

namespace ConfigDb {

using Kel::GenericIf;

namespace {

// The last component of a path, and what is before it.
std::string_view baseName(std::string_view path) { return path.substr(path.rfind('/') + 1); }
std::string_view dirName(std::string_view path) {
  std::size_t const slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

// Calls `visit` with each component of the path; stops when it answers false.
template <class Visit>
void eachComponent(std::string_view path, Visit const& visit) {
  while (!path.empty()) {
    std::size_t const slash = path.find('/');
    if (!visit(Kel::Name(path.substr(0, slash))) || slash == std::string_view::npos) return;
    path.remove_prefix(slash + 1);
  }
}

GenericIf::Ptr member(GenericIf::Ptr const& owner, Kel::KelAttr const& attr, std::string const& name) {
  auto const key = Cli::Service::valueOf(*attr.keyType(), name);
  if (!key) return nullptr;
  owner->attributeIs(attr.id(), key, nullptr);
  return owner->attribute(attr.id(), key);
}

Kel::Dir::Ptr asDir(Kel::Entity::Ptr const& entity) {
  bool const isDir = entity && entity->type()->isA(Kel::Dir::_fwkType());
  return isDir ? Kel::Dir::Ptr(static_cast<Kel::Dir*>(entity.ptr())) : nullptr;
}

// What is in the way of a root at that path; empty if nothing is.
std::string obstacle(Kel::Dir::Ptr const& into, std::string_view path) {
  Kel::Dir::Ptr dir = into;
  std::string taken;
  eachComponent(dirName(path), [&](Kel::Name const& name) {
    bool const there = dir->entry(name) != nullptr;
    dir = there ? asDir(dir->entityRef(name)) : nullptr;
    if (there && !dir) taken = name.str() + " is no directory";
    return dir != nullptr;
  });
  if (dir && dir->entry(Kel::Name(baseName(path)))) taken = std::string(path) + " is there already";
  return taken;
}

}  // namespace

Tree::Tree() {
  for (Root const& root : roots()) {
    Kel::KelType const* const type = Kel::KelType::find(root.type);
    roots_[root.path] = GenericIf::ofEntity(type->newEntity(Kel::Name(baseName(root.path))));
  }
  for (Table const& table : tables()) {
    GenericIf::Ptr const& root = roots_.at(table.root);
    places_[&table] = {root, root->type()->getAttr(table.attribute)};
  }
}

GenericIf::Ptr Tree::entry(Table const& table, std::string const& name) {
  auto const& [root, attr] = places_.at(&table);
  if (!table.isSingleton()) return member(root, *attr, name);
  if (name != table.key + 1) return nullptr;
  GenericIf::List::Ptr const args(new GenericIf::List);
  args->objectEnq(GenericIf::of(Kel::Name(name)));
  root->attributeIs(attr->id(), nullptr, GenericIf::List::genericIf(args));
  return root->attribute(attr->id());
}

GenericIf::Ptr Tree::child(GenericIf::Ptr const& entry, std::string const& collection, std::string const& name) {
  return member(entry, *entry->type()->getAttr(collection), name);
}

std::vector<Table const*> const& Tree::tablesOf(Kel::KelType const& type) const {
  auto const [found, added] = tablesOf_.try_emplace(&type);
  if (added)
    for (Table const& table : tables())
      if (places_.at(&table).attr->type()->isA(&type)) found->second.push_back(&table);
  return found->second;
}

namespace {

// A text that refers to an entry: "name", "[TABLE|name]".
struct Referring {
  std::string_view table, name;
};
Referring referring(std::string_view text) {
  std::string_view const name = trimmed(text);
  std::size_t const bar = name.find('|');
  if (name.size() <= 2 || name.front() != '[' || name.back() != ']' || bar == std::string_view::npos) return {{}, name};
  return {name.substr(1, bar - 1), name.substr(bar + 1, name.size() - bar - 2)};
}

}  // namespace

std::string Tree::nameIn(std::string_view text) { return std::string(referring(text).name); }

std::vector<std::string> Tree::expected(Kel::KelType const& type, std::string_view text) const {
  auto const [tableName, name] = referring(text);
  std::vector<std::string> paths;
  for (Table const* table : tablesOf(type))
    if (tableName.empty() || tableName == table->name)
      paths.push_back(std::string(table->root) + "." + table->attribute + "/" + std::string(name));
  if (paths.empty()) paths.emplace_back(name);
  return paths;
}

Cli::Service::Path Tree::pathOf(Kel::Entity const& entity) const {
  Cli::Service::Path path;
  for (auto const& [rootPath, root] : roots_) {
    if (root->entityConst().ptr() != entity.root()) continue;
    eachComponent(rootPath, [&](Kel::Name const& name) {
      path.steps.push_back(Cli::Service::entryStep(name));
      return true;
    });
    auto const below = Cli::Service::pathOf(entity, *root->entityConst());
    path.steps.insert(path.steps.end(), below->steps.begin(), below->steps.end());
  }
  return path;
}

Tree::Found Tree::referred(Kel::KelType const& type, std::string_view text) const {
  auto const [tableName, name] = referring(text);
  std::string names;
  for (Table const* table : tablesOf(type)) {
    names += (names.empty() ? "" : "|") + std::string(table->name);
    if (!tableName.empty() && tableName != table->name) continue;
    auto const& [root, attr] = places_.at(table);
    auto const found = root->attribute(attr->id(), GenericIf::of(Kel::Name(name)));
    if (found) return {found->entity(), {}};
    if (isImplied(*table, name)) return {};
  }
  return {nullptr, "there is no " + names + " \"" + std::string(trimmed(text)) + "\""};
}

void Tree::attach(std::string const& file, Kel::Dir::Ptr const& into) const {
  for (auto const& [path, root] : roots_)
    if (std::string const taken = obstacle(into, path); !taken.empty())
      throw LoadError(file + ": cannot be loaded into \"" + into->fullName().str() + "\": " + taken);
  for (auto const& [path, root] : roots_) {
    Kel::Dir::Ptr dir = into;
    eachComponent(dirName(path), [&](Kel::Name const& name) {
      Kel::Entity::Ptr const there = dir->entityRef(name);
      dir = asDir(there ? there : dir->newEntity("Kel::Dir", name));
      return true;
    });
    dir->entryIs(root->entity());
  }
}

}  // namespace ConfigDb
