// The walk that finds differences. Not installed.
#pragma once

#include <deque>
#include <optional>
#include <unordered_map>

#include "service/Align.h"
#include "service/Checkpoint.h"
#include "service/Difference.h"

namespace Cli::Service {

class Differ {
 public:
  // Only what is in `changed` is compared; null: everything is compared.
  Differ(Tree const& from, Tree const& to, Kel::ChangedEntities const* changed)
      : from_(from), to_(to), changed_(changed) {}
  std::vector<Difference> run();

  // Whether the targets of two pointers, one in each tree, have the same path there.
  bool sameTarget(Kel::Entity const& from, Kel::Entity const& to);

 private:
  // How an entity was reached, for its path.
  struct Frame {
    Frame const* up;
    PathStep const* fixed;               // the step itself; null: it is made from what follows
    Kel::KelAttr const* attr = nullptr;  // the attribute through which it is held
    Kel::Entity const* member = nullptr;
    std::size_t position = 0;  // in a queue, of `from`
  };
  struct Plan {
    std::vector<Kel::KelAttr const*> all, further, owned;  // copiable; those beside the plain ones; owning
  };
  void walk();
  Plan const& planOf(Kel::KelType const& type);
  void entity(Frame const& at, Kel::Entity const& from, Kel::Entity const& to);
  void directory(Frame const& at, Kel::Dir const& from, Kel::Dir const& to);
  void changedOnly(Frame const& at, Kel::Entity const& from, Kel::Entity const& to, Kel::ChangedEntity const& changed);
  void attribute(Frame const& at, Kel::Entity const& from, Kel::Entity const& to, Kel::KelAttr const& attr);
  void value(Frame const& at, Kel::Entity const& from, Kel::Entity const& to, Kel::KelAttr const& attr);
  void pointer(Frame const& at, Kel::Entity const& from, Kel::Entity const& to, Kel::KelAttr const& attr);
  void collection(Frame const& at, Kel::Entity const& from, Kel::Entity const& to, Kel::KelAttr const& attr);
  void pointerKeys(Frame const& at, Kel::Entity const& from, Kel::Entity const& to, Kel::KelAttr const& attr);
  void singleton(Frame const& at, Kel::Entity const& from, Kel::Entity const& to, Kel::KelAttr const& attr);
  void members(Frame const& at, Kel::Entity const& from, Kel::Entity const& to, Kel::KelAttr const& attr);
  void changedMembers(Frame const& at, Kel::Entity const& to, Kel::KelAttr const& attr,
                      Kel::ChangedEntity const& changed);
  void queue(Frame const& at, Kel::Entity const& from, Kel::Entity const& to, Kel::KelAttr const& attr);
  void owned(Frame const& at, Kel::Entity const* from, Kel::Entity const* to);

  // The entity of `from` at the position of one of `to`; null if there is none, or one of another type.
  Kel::Entity const* counterpart(Kel::Entity const& to);
  Kel::Entity const* partner(Kel::Entity const& from, Kel::Entity const& to, Kel::Entity const& item);

  Path pathOf(Frame const& at) const;
  void emit(DifferenceKind kind, Path path, Kel::KelType const* type, Kel::KelAttr const* attr, Json before,
            Json after);
  Json content(Kel::Entity const* e, Tree const& tree) const;
  Json text(Kel::Entity const* target, Tree const& tree) const;

  Tree from_, to_;
  Kel::ChangedEntities const* changed_;
  bool whole_ = false;          // below here everything is compared, changed or not
  bool strayPointers_ = false;  // something points at items that are not aligned
  std::vector<Difference> found_;
  std::unordered_map<Kel::KelType const*, Plan> plans_;
  // The items of owned queues of `to`, by their owners, with the items of `from` that they are aligned with.
  using Partners = std::unordered_map<Kel::Entity const*, Kel::Entity const*>;
  std::unordered_map<Kel::KelAttr const*, std::unordered_map<Kel::Entity const*, Partners>> partners_;
  // The owners of the last target whose counterpart was found.
  Kel::Entity const *fromOwner_ = nullptr, *toOwner_ = nullptr;
};

// Whether two entities of an owned queue may be aligned: they have one type, and the same constructor parameters after
// the index. Empty if there are no such parameters: then the contents decide.
std::optional<bool> sameItem(Kel::Entity const& from, Kel::Entity const& to);
// True if two entities have the same type and equal constructor parameters. Unlike for the copy engine, a NaN equals
// itself: the engine makes such an entity anew in each run, and that is no difference to a user.
bool madeAlike(Kel::Entity const& from, Kel::Entity const& to);

}  // namespace Cli::Service
