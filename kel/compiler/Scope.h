// Finds the declarations that names mean.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "compiler/Ast.h"
#include "compiler/Diagnostic.h"
#include "compiler/Loader.h"

namespace kelc {

// The declarations of all models of a run and of the framework, by their full names.
class Scope {
 public:
  // Adds the framework's declarations, which the set then owns, and those of all models, which get their full names.
  // Reports names that are declared twice, and factories whose name is taken.
  void collect(ModelSet& set, Diagnostics& diagnostics);

  // The declaration that a name means in a model. Looks in the model's namespace and then in each enclosing one, among
  // the declarations of the model and its imports. Null if there is none.
  Decl const* find(Model const& model, std::string const& name) const;

  // The declaration that a name would mean if the model imported everything.
  Decl const* findNotImported(Model const& model, std::string const& name) const;
  // The name that was probably meant by a wrong one, as the model would write it: one of `others`, or a declaration
  // that the model sees; on request, only one that `ref` can name. Empty if no name is near.
  std::string nearest(Model const& model, std::string const& wrong, bool targets,
                      std::vector<std::string_view> const& others) const;

  // Whether all declarations of the model and its imports could be read. If not, a name that is not found may be right.
  bool isComplete(Model const& model) const;

 private:
  // The owner of a full name.
  struct Taken {
    std::string what;  // "'Port'", "the factory of 'Port'"
    Loc loc;
  };

  void enterFramework(ModelSet& set, std::unique_ptr<Decl> decl, char const* name, char const* header);
  void enter(Model const& model, Decl& decl, Diagnostics& diagnostics);
  void enterExtern(Model const& model, ExternDecl& decl, Diagnostics& diagnostics);
  void take(std::string const& qualified, Taken const& by, Diagnostics& diagnostics);
  bool sees(Model const& model, Decl const& decl) const;
  Decl const* findFull(Model const& model, std::string const& qualified) const;
  std::string shortestName(Model const& model, Decl const& decl) const;

  std::vector<Decl const*> all_;  // in the order in which they were added: of two names equally near, the first wins
  std::unordered_map<std::string, Decl const*> declared_;
  std::unordered_map<std::string, std::vector<ExternDecl const*>> externs_;
  std::unordered_map<std::string, Taken> taken_;
  std::map<Model const*, std::set<Model const*>> visible_;  // itself and its imports, transitively
};

}  // namespace kelc
