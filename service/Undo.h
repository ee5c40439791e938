// Takes writes to a tree back. Not installed.
#pragma once

#include <set>
#include <utility>
#include <vector>

#include "service/PendingReferences.h"

namespace Cli::Service {

// Call a `note` operation before each write. `takeBack` restores what was noted; entities that have left the tree come
// back as the same objects, with their pointers.
class Undo {
 public:
  // Notes an attribute that is not a collection, or the member under a key of this tree.
  void note(Kel::Entity& owner, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key = nullptr);
  // Notes a whole collection or queue.
  void noteAll(Kel::Entity& owner, Kel::KelAttr const& attr);
  // Notes the content of an entity, without the entities that it owns.
  void noteContent(Kel::Entity& entity);
  void noteEntry(Kel::Dir& dir, Kel::Name const& name);
  void notePending(PendingReferences& pending);

  // Restores everything that was noted. A step that fails is tried again, a few times. Answers whether every step
  // succeeded.
  bool takeBack() noexcept;

 private:
  struct Member {
    bool there = false;
    Kel::GenericIf::PtrConst key, value;  // null: no key, or a null pointer
    Kel::Entity::Ptr owned;
    Kel::U64 sequence = 0;  // in a queue
  };
  struct Record {
    Kel::Entity::Ptr owner;
    Kel::KelAttr const* attr;  // null: an entry
    std::vector<Member> members;
    bool whole = false;
    Kel::Name entry;
    Kel::String8 entryType;  // empty: there was none
  };

  static Member memberAt(Kel::Entity const& owner, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key);
  static std::vector<Member> membersOf(Kel::Entity const& owner, Kel::KelAttr const& attr);
  static bool same(Member const& a, Member const& b);
  void notePointersBelow(Kel::Entity& leaving);

  static void back(Record const& record);
  static void backEntry(Record const& record);
  static void backAttribute(Kel::Entity& owner, Kel::KelAttr const& attr, Member const& was);
  static void backMember(Kel::Entity& owner, Kel::KelAttr const& attr, Member const& was);
  static void backCollection(Record const& record);
  static void backQueue(Record const& record);
  static void attach(Kel::Entity& owner, Kel::KelAttr const& attr, Member const& was);

  std::vector<Record> records_;
  std::set<std::pair<Kel::Entity const*, Kel::KelAttr const*>> whole_;
  PendingReferences* pending_ = nullptr;
  PendingReferences pendingBefore_;
};

}  // namespace Cli::Service
