// The rules for entities.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "compiler/Ast.h"
#include "compiler/Diagnostic.h"
#include "compiler/Scope.h"
#include "compiler/TypeRules.h"

namespace kelc {

class EntityRules {
 public:
  EntityRules(Scope const& scope, TypeRules const& types, Diagnostics& diagnostics)
      : scope_(scope), types_(types), diagnostics_(diagnostics) {}

  // Finds the base. REQUIRES: called for all entities in the order of their declaration, before any is checked.
  void resolveBase(Model const& model, EntityDecl& entity) const;

  // Checks the members, and gives every attribute its kind. REQUIRES: the base has been checked.
  void check(EntityDecl& entity);

 private:
  // The owner of a name in an entity's class.
  struct Member {
    std::string what;  // "attribute 'x'"
    Loc loc;
    Operation const* operation = nullptr;
  };
  struct Members {
    std::map<std::string, Member> accessors;
    std::map<std::string, Member> reactors;
    std::size_t attributes = 0;  // including inherited ones
  };
  using NameTable = std::map<std::string, Member> Members::*;

  void checkParam(Attribute& param) const;
  void checkNameOfEntity(EntityDecl const& entity) const;
  void checkAttribute(Attribute& attribute) const;
  void checkConstant(Attribute const& attribute) const;
  bool checkShape(Attribute& attribute) const;
  bool checkSingle(Attribute& attribute) const;
  bool checkKeyed(Attribute& attribute) const;
  bool checkQueue(Attribute& attribute) const;
  bool checkPlainValue(TypeRef const& type) const;
  EntityDecl const* checkOwned(TypeRef const& type) const;
  void checkArguments(TypeRef const& type, EntityDecl const& entity) const;
  void checkMemberKey(EntityDecl const& entity, TypeRef const& type, TypeRef const& key, char const* role) const;
  void checkModifiers(EntityDecl const& entity, Attribute const& attribute) const;
  char const* misplaced(Modifier::Kind kind, Attribute const& attribute) const;
  void checkOnChange(EntityDecl const& entity, Ident const& name) const;
  void checkOperation(EntityDecl const& entity, Operation const& op) const;
  void checkOverride(EntityDecl const& entity, Operation const& op) const;
  void checkAttributeCount(EntityDecl const& entity) const;

  void enterAttribute(EntityDecl const& entity, Attribute const& attribute);
  void enterOperation(EntityDecl const& entity, Operation const& op);
  bool enter(EntityDecl const& entity, NameTable table, std::string const& name, Member const& member, bool isAccessor);
  Member const* find(EntityDecl const* entity, NameTable table, std::string const& name) const;
  std::string nearestOperation(EntityDecl const* entity, std::string const& name) const;

  Scope const& scope_;
  TypeRules const& types_;
  Diagnostics& diagnostics_;
  std::map<EntityDecl const*, Members> members_;
};

}  // namespace kelc
