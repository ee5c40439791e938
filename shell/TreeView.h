// Prints the configuration as a readable tree.
#pragma once

#include <string>
#include <vector>

#include "Paint.h"
#include "service/Difference.h"
#include "service/Path.h"
#include "service/PendingReferences.h"

namespace Shell {

struct TreeViewOptions {
  bool all = false;  // unset values as well, and no tables
  std::size_t width = 100;
  Paint paint;
  Cli::Service::PendingReferences const* pending = nullptr;  // of the tree
};

class TreeView {
 public:
  TreeView(Cli::Service::Tree const& tree, TreeViewOptions options) : tree_(tree), options_(options) {}

  // The text of what is at a path; for the empty path, of the roots. REQUIRES: the path exists.
  std::string text(Cli::Service::Path const& path) const;

 private:
  void summary(std::string const& root, Kel::Entity::PtrConst const& entity, std::string& out) const;
  void entityText(Kel::Entity::PtrConst const& entity, Cli::Service::Path const& path, std::size_t indent,
                  std::string& out) const;
  void ownedText(Kel::Entity::PtrConst const& entity, Kel::KelAttr const& attr, Cli::Service::Path const& path,
                 std::size_t indent, std::string& out) const;
  void membersText(Kel::Entity::PtrConst const& entity, Kel::KelAttr const& attr, Cli::Service::Path const& path,
                   std::size_t indent, std::string& out) const;
  void tableText(Kel::Entity::PtrConst const& entity, Kel::KelAttr const& attr, std::size_t indent,
                 std::string& out) const;
  std::string leaf(Kel::Entity::PtrConst const& entity, Kel::KelAttr const& attr, Cli::Service::Path const& path) const;
  std::string cell(Kel::Entity const& entity, Kel::KelAttr const& attr) const;
  std::string waitingText(Cli::Service::PendingReference const& reference) const;
  Cli::Service::PendingReference const* waitingMember(Cli::Service::Path const& collection,
                                                      std::string const& key) const;
  void line(std::size_t indent, std::string const& name, std::size_t width, std::string const& value,
            std::string& out) const;

  Cli::Service::Tree tree_;
  TreeViewOptions options_;
};

// The attributes that make up an entity's content: parameters except the key, and what a user can set.
std::vector<Kel::KelAttr const*> contentAttrs(Kel::KelType const& type);

}  // namespace Shell
