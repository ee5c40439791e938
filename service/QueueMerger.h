// Merges what two sides did to one queue. Not installed.
#pragma once

#include <functional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "service/Merge.h"
#include "service/MergeTree.h"
#include "service/QueueMerge.h"

namespace Cli::Service {

// The items of the ancestor are walked in order. Where only one side did something, its items are taken; where both
// did, a conflict decides. Every item of a queue is exported at most once for each tree.
class QueueMerger {
 public:
  // What belongs to the merge of the whole tree.
  struct Whole {
    std::function<Side(Conflict)> side;                 // decides a conflict, and lists it unless it is settled
    std::function<void(MergeNode&, Places&)> children;  // merges what lies below a node
    std::function<void(Difference)> emit;               // adds a change of the session
    // Whether an item of the ancestor stays as this side has it, because a pointer leads to it.
    std::function<bool(Path const& item, Side)> isPointedAt;
  };
  // Merges the queue `attr` of `owner`, which lies at `at`. REQUIRES: the arguments outlive the object.
  QueueMerger(MergeInput const& input, Whole const& whole, MergeNode const& owner, Kel::KelAttr const& attr,
              Places const& at);
  void run();

 private:
  // An item of the ancestor inside which a side made changes.
  struct Nested {
    std::size_t position;
    MergeNode* node;
  };
  // One item of the merged queue: one of the session's, or a new one.
  struct Item {
    std::optional<std::size_t> session;
    Json content;
  };
  // The items of one tree, exported when they are first asked for.
  struct Items {
    Tree const& tree;
    Path const path;  // of the queue's owner
    std::optional<Json> exported;
  };

  Json const& itemsOf(Items& items);
  std::size_t countOf(Items const& items) const;
  void settleRemoved(Nested const& item);
  void refuse(Difference const& change);
  void keepPointedAt();
  // Takes a removal by running, or by the session, back.
  void keep(std::size_t position);
  void restore(std::size_t position);
  void mergeItems();
  void mergeGap(std::size_t gap);
  void mergeClash(QueueClash const& clash);
  Conflict conflictOf(QueueClash const& clash);
  void takeSessionPart(QueueClash const& clash);
  void takeRunningPart(QueueClash const& clash);
  void takeSession(std::size_t item);
  void addSession(std::size_t gap);
  void addRunning(std::size_t gap, std::size_t from = 0);
  // The content of an item that stays, or is to stay, on one side.
  Json const& sessionItem(std::size_t item);
  Json const& runningItem(std::size_t item);
  void mergeInside(Nested const& item);
  void emitRuns();
  void emitRun(Difference::Run run, std::size_t end, std::size_t mergedEnd);

  MergeInput const& in_;
  Whole const& whole_;
  Kel::KelAttr const& attr_;
  Places const& at_;
  MergeNode const* runs_ = nullptr;  // the queue's own node; null: no side added or removed items
  std::vector<Nested> nested_;
  Items ancestorItems_, sessionItems_, runningItems_;
  std::size_t const count_;     // the ancestor's items
  QueueSide const session_;     // where the session's items stand
  QueueSide mine_, theirs_;     // without the removals that were decided against
  std::vector<Json> restored_;  // by the ancestor's items: the session removed it, running's content stays
  std::unordered_set<std::size_t> keptOnly_;  // items that running removed, and the session keeps
  std::vector<Item> merged_;
};

}  // namespace Cli::Service
