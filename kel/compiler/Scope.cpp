#include "compiler/Scope.h"

#include <algorithm>
#include <utility>

#include "compiler/Names.h"
#include "compiler/Suggest.h"

namespace kelc {

namespace {

std::unique_ptr<EntityDecl> abstractEntity() {
  auto decl = std::make_unique<EntityDecl>();
  decl->abstract = true;
  return decl;
}

// `Kel::Dir` is made from its name.
std::unique_ptr<EntityDecl> directory() {
  auto decl = std::make_unique<EntityDecl>();
  Attribute name;
  name.name.text = "name";
  name.kind = Attribute::Kind::parameter;
  name.shape.target.name.text = "Name";
  name.shape.target.builtin = Builtin::string;
  decl->params.push_back(std::move(name));
  return decl;
}

// Sorted, so that of two declarations of one name the first in the file comes first.
std::vector<Decl*> inFileOrder(Model const& model) {
  std::vector<Decl*> all;
  for (auto const& decl : model.enums) all.push_back(decl.get());
  for (auto const& decl : model.values) all.push_back(decl.get());
  for (auto const& decl : model.entities) all.push_back(decl.get());
  std::sort(all.begin(), all.end(), [](Decl* a, Decl* b) { return a->name.loc < b->name.loc; });
  return all;
}

std::string join(std::string const& scope, std::string const& name) {
  return scope.empty() ? name : scope + "::" + name;
}

std::size_t partsOf(std::string_view name) {
  std::size_t parts = 1;
  for (std::size_t at = name.find("::"); at != std::string_view::npos; at = name.find("::", at + 2)) ++parts;
  return parts;
}

// The last part of a qualified name.
std::string_view lastPartsOf(std::string_view name, std::size_t parts) {
  std::size_t start = name.size();
  while (parts-- > 0) {
    start = start == 0 ? std::string_view::npos : name.rfind("::", start - 1);
    if (start == std::string_view::npos) return name;
  }
  return name.substr(start + 2);
}

// The namespace of a model and the enclosing ones, innermost first.
std::vector<std::string> scopesOf(Model const& model) {
  std::vector<std::string> scopes = {model.nameSpace.text};
  while (!scopes.back().empty()) {
    std::size_t const last = scopes.back().rfind("::");
    scopes.push_back(scopes.back().substr(0, last == std::string::npos ? 0 : last));
  }
  return scopes;
}

}  // namespace

void Scope::enterFramework(ModelSet& set, std::unique_ptr<Decl> decl, char const* name, char const* header) {
  decl->name.text = name;
  decl->qualified = join("Kel", name);
  decl->header = header;
  declared_[decl->qualified] = decl.get();
  all_.push_back(decl.get());
  set.framework.push_back(std::move(decl));
}

void Scope::collect(ModelSet& set, Diagnostics& diagnostics) {
  enterFramework(set, abstractEntity(), "Entity", "Kel/Entity.h");
  enterFramework(set, directory(), "Dir", "Kel/Dir.h");
  enterFramework(set, std::make_unique<CountedDecl>(), "KelAttr", "Kel/KelType.h");
  enterFramework(set, std::make_unique<CountedDecl>(), "GenericIf", "Kel/GenericIf.h");
  for (auto const& model : set.models) {
    std::set<Model const*>& visible = visible_[model.get()];
    visible.insert(model.get());
    for (Import const& import : model->imports) {
      if (import.model) visible.insert(visible_[import.model].begin(), visible_[import.model].end());
    }
    for (Decl* decl : inFileOrder(*model)) enter(*model, *decl, diagnostics);
    for (auto const& decl : model->externs) enterExtern(*model, *decl, diagnostics);
  }
  for (auto const& model : set.models) {
    for (auto const& decl : model->entities) {
      if (decl->abstract) continue;
      std::string const factory = join(model->nameSpace.text, factoryName(*decl));
      take(factory, {"the factory of '" + decl->name.text + "'", decl->name.loc}, diagnostics);
    }
  }
}

void Scope::take(std::string const& qualified, Taken const& by, Diagnostics& diagnostics) {
  auto const [earlier, added] = taken_.emplace(qualified, by);
  if (added) return;
  Taken const& other = earlier->second;
  diagnostics.error(by.loc, by.what + " clashes with " + other.what, {{other.loc, other.what + " is declared here"}});
}

void Scope::enter(Model const& model, Decl& decl, Diagnostics& diagnostics) {
  decl.model = &model;
  decl.header = model.includePath + ".h";
  decl.qualified = join(model.nameSpace.text, decl.name.text);
  all_.push_back(&decl);
  auto const [earlier, added] = declared_.emplace(decl.qualified, &decl);
  std::string const name = "'" + decl.name.text + "'";
  if (added) {
    take(decl.qualified, {name, decl.name.loc}, diagnostics);
  } else if (!earlier->second->model) {
    diagnostics.error(decl.name.loc, name + " is already declared by the framework");
  } else {
    Loc const loc = earlier->second->name.loc;
    diagnostics.error(decl.name.loc, name + " is already declared", {{loc, "the previous declaration is here"}});
  }
}

// A name without qualification is one of the model's own namespace. The same entity may be `extern` to several files,
// one of which may well be imported by the model that declares it.
void Scope::enterExtern(Model const& model, ExternDecl& decl, Diagnostics& diagnostics) {
  QName const& written = decl.written;
  decl.model = &model;
  decl.qualified = written.qualified() ? written.text : join(model.nameSpace.text, written.text);
  std::size_t const last = decl.qualified.rfind("::");
  decl.name = {last == std::string::npos ? decl.qualified : decl.qualified.substr(last + 2), written.loc};
  auto const declared = declared_.find(decl.qualified);
  Decl const* earlier = declared == declared_.end() ? nullptr : declared->second;
  if (earlier && earlier->model != &model) earlier = nullptr;
  std::vector<ExternDecl const*>& same = externs_[decl.qualified];
  for (ExternDecl const* other : same) {
    if (other->model == &model) earlier = other;
  }
  same.push_back(&decl);
  all_.push_back(&decl);
  if (!earlier) return;
  diagnostics.error(written.loc, "'" + written.text + "' is already declared",
                    {{earlier->name.loc, "the previous declaration is here"}});
}

bool Scope::sees(Model const& model, Decl const& decl) const {
  return !decl.model || visible_.at(&model).count(decl.model) > 0;
}

Decl const* Scope::findFull(Model const& model, std::string const& qualified) const {
  auto const declared = declared_.find(qualified);
  if (declared != declared_.end() && sees(model, *declared->second)) return declared->second;
  auto const externs = externs_.find(qualified);
  if (externs == externs_.end()) return nullptr;
  for (ExternDecl const* decl : externs->second) {
    if (sees(model, *decl)) return decl;
  }
  return nullptr;
}

bool Scope::isComplete(Model const& model) const {
  std::set<Model const*> const& visible = visible_.at(&model);
  return std::none_of(visible.begin(), visible.end(), [](Model const* m) { return m->incomplete; });
}

Decl const* Scope::find(Model const& model, std::string const& name) const {
  for (std::string const& scope : scopesOf(model)) {
    if (Decl const* const decl = findFull(model, join(scope, name))) return decl;
  }
  return nullptr;
}

Decl const* Scope::findNotImported(Model const& model, std::string const& name) const {
  for (std::string const& scope : scopesOf(model)) {
    auto const declared = declared_.find(join(scope, name));
    if (declared != declared_.end()) return declared->second;
  }
  return nullptr;
}

std::string Scope::shortestName(Model const& model, Decl const& decl) const {
  for (std::string const& scope : scopesOf(model)) {
    std::string const prefix = join(scope, "");
    if (decl.qualified.compare(0, prefix.size(), prefix) != 0) continue;
    std::string name = decl.qualified.substr(prefix.size());
    if (find(model, name) == &decl) return name;
  }
  return decl.qualified;
}

std::string Scope::nearest(Model const& model, std::string const& wrong, bool targets,
                           std::vector<std::string_view> const& others) const {
  Nearest all(wrong), lastParts(lastPartsOf(wrong, 1));
  std::size_t const parts = partsOf(wrong);
  std::map<std::string_view, Decl const*> found;
  for (std::string_view other : others) all.consider(other);
  for (Decl const* decl : all_) {
    bool const target = decl->isEntity() || decl->kind == Decl::Kind::counted;
    if (!sees(model, *decl) || (targets && !target)) continue;
    bool const near = all.consider(lastPartsOf(decl->qualified, parts), decl->qualified);
    // In another namespace, only the same name counts.
    if (lastParts.consider(decl->name.text, decl->qualified) || near) found[decl->qualified] = decl;
  }
  std::string const& best = all.best().empty() && lastParts.isExact() ? lastParts.best() : all.best();
  auto const decl = found.find(best);
  return decl == found.end() ? best : shortestName(model, *decl->second);
}

}  // namespace kelc
