// What names stand for.
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
  // Enters the framework's declarations, which the set owns then like all others, and those of all models, which get
  // their full names. Reports names declared twice and factories that take the name of something else.
  void collect(ModelSet& set, Diagnostics& diagnostics);

  // What a name means in a model: looked up in its namespace and then in each enclosing one, among what the model and
  // its imports declare. Null when it means nothing.
  Decl const* find(Model const& model, std::string const& name) const;

  // What a name would mean if the model imported everything.
  Decl const* findNotImported(Model const& model, std::string const& name) const;
  // What a wrong name was probably meant to be, as the model would write it: one of `others` or a declaration that the
  // model sees, if asked one that `ref` can point at. Empty when none is near.
  std::string nearest(Model const& model, std::string const& wrong, bool targets,
                      std::vector<std::string_view> const& others) const;

  // Whether all that the model and its imports declare could be read. Otherwise a name that is not found may be right.
  bool isComplete(Model const& model) const;

 private:
  // Who took a full name.
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

  std::vector<Decl const*> all_;  // in the order in which they were entered, so that of two near names the first wins
  std::unordered_map<std::string, Decl const*> declared_;
  std::unordered_map<std::string, std::vector<ExternDecl const*>> externs_;
  std::unordered_map<std::string, Taken> taken_;
  std::map<Model const*, std::set<Model const*>> visible_;  // itself and its imports, transitively
};

}  // namespace kelc
