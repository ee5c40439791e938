// Inserts, deletes and moves items of a queue, at any position. Not installed.
#pragma once

#include <optional>
#include <vector>

#include "service/PendingReferences.h"
#include "service/References.h"
#include "service/Undo.h"
#include "service/Walk.h"

namespace Cli::Service {

// A queue only appends, so the items after the edited position are taken out and appended again. Entities are made
// again with their content, and the pointers to them, from them and among them are set again.
class QueueEdit {
 public:
  // `undo` notes how to take the edit back.
  QueueEdit(Kel::Dir::Ptr base, PendingReferences& pending, Undo& undo, Kel::Entity& owner, Path queue);

  // `item` is a value, or a List of the constructor arguments after the index.
  void insert(std::size_t position, Kel::GenericIf::PtrConst const& item);
  void replace(std::size_t position, Kel::GenericIf::PtrConst const& value);
  void erase(std::size_t position);
  void move(std::size_t from, std::size_t to);

 private:
  static constexpr std::size_t made = ~std::size_t(0);
  // `order`: for every position after the edit, the position before it, or `made`.
  void note();
  void arrange(std::vector<std::size_t> const& order, Kel::GenericIf::PtrConst const& item);
  void arrangeEntities(std::vector<std::size_t> const& order, std::size_t kept, Kel::GenericIf::PtrConst const& item);
  std::vector<std::size_t> order() const;
  void remap(Path& path, std::vector<std::size_t> const& positions) const;
  std::string targetBehind(Kel::Entity const* target, std::vector<std::size_t> const& positions) const;
  void noteReference(Reference const& reference, std::vector<std::size_t> const& positions,
                     std::vector<PendingReference>& to) const;
  void remapPending(std::vector<std::size_t> const& positions);

  Kel::Dir::Ptr base_;
  PendingReferences& pending_;
  Undo& undo_;
  Kel::Entity& owner_;
  Path queue_;
  Kel::KelAttr const& attr_;
};

}  // namespace Cli::Service
