// Puts JSON into a tree. Not installed.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <variant>
#include <vector>

#include "service/JsonText.h"
#include "service/JsonTree.h"
#include "service/OwnedMaker.h"
#include "service/References.h"
#include "service/Undo.h"

namespace Cli::Service {

// The document, to find the lines of errors.
struct Source {
  std::string file;
  std::string_view text;
};

// Walks the JSON twice: first to check it, then to write it.
class Importer {
 public:
  // `undo` notes how to take the import back; null: nothing is noted.
  Importer(Kel::Dir::Ptr const& base, ImportOptions const& options, Source source, Undo* undo)
      : base_(base), options_(options), source_(std::move(source)), undo_(undo) {}

  ImportReport run(Path const& at, Json const& json);

 private:
  [[noreturn]] void fail(std::string const& what) const;
  // Goes one step down in the tree, and in the document to a member or an item.
  template <class Visit>
  void below(PathStep step, std::variant<std::string, std::size_t> in, Visit const& visit) {
    at_.steps.push_back(std::move(step));
    in_.steps.push_back(std::move(in));
    visit();
    in_.steps.pop_back();
    at_.steps.pop_back();
  }

  void top(Kel::Entity& owner, Path const& at, Json const& json);

  // --- Entities ---

  Kel::KelType const& typeIn(Json const& json, Kel::KelType const& otherwise) const;

  // `e` is null for an entity that does not exist yet.
  void content(Kel::Entity* e, Kel::KelType const& type, Json const& json);

  static std::string near(Kel::KelType const& type, std::string const& name);

  // Checks only: the parameters were given when the entity was made, and an entity that is kept has the same ones.
  void parameter(Kel::Entity* e, Kel::KelAttr const& attr, std::string const& name, Json const& value);

  void resetOthers(Kel::Entity& e, Json const& json);

  void reset(Kel::Entity& e, Kel::KelAttr const& attr);
  void noteOwned(Kel::Entity& e, Kel::KelAttr const& attr);
  void noteGone(Kel::Entity* child);

  // --- Directories ---

  void directory(Kel::Entity* e, Json const& json);

  void removeEntry(Kel::Dir& dir, Kel::Name const& name);
  bool isRoot(std::string const& path) const;

  // `dir` is null for a directory that does not exist yet.
  void entry(Kel::Dir* dir, Kel::Name const& name, Json const& json);

  // --- Attributes ---

  void attribute(Kel::Entity* e, Kel::KelAttr const& attr, Json const& json);

  Kel::GenericIf::Ptr converted(Kel::KelType const& type, Json const& json) const;

  void setValue(Kel::Entity* e, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key,
                Kel::GenericIf::PtrConst const& value);

  // Notes a reference, which is resolved last.
  void pointer(Json const& json);

  // The constructor arguments of a new entity; for a queue's item, without the index.
  std::vector<Kel::GenericIf::PtrConst> arguments(Kel::KelType const& type, Kel::KelAttr const* holder,
                                                  Kel::GenericIf::PtrConst const& key, Json const& json);

  // Whether an entity has the type and the parameters that the JSON says.
  bool matches(Kel::Entity const& e, Kel::KelType const& type, Json const& json, Kel::KelAttr const* holder);

  // Whether a constructor parameter points to an entity that is yet to be made. Then the attribute is imported later.
  bool waitsForParameter(Kel::KelAttr const& attr, Json const& json) const;

  // An owned entity. It is kept if it has these parameters, else made.
  void owned(Kel::Entity* owner, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key, Json const& json,
             Kel::Entity* existing);

  Kel::Entity* make(Kel::Entity& owner, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key,
                    Kel::KelType const& type, std::vector<Kel::GenericIf::PtrConst> const& args);

  // --- Keyed collections ---

  Kel::GenericIf::PtrConst keyOf(Kel::KelAttr const& attr, std::string const& name) const;
  // The step to a member: its key, or the text of its pointer key.
  PathStep stepTo(Kel::KelAttr const& attr, Json const* key, std::string const& name) const;

  void collection(Kel::Entity* e, Kel::KelAttr const& attr, Json const& json);

  void removeOthers(Kel::Entity& e, Kel::KelAttr const& attr, std::unordered_set<std::string> const& named);

  // `key`: as in a PathStep.
  void member(Kel::Entity* e, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key, Json const& json);

  // Asks the collection itself whether it takes the member: the key may have to be the value's own, or null be refused.
  void tryMember(Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key,
                 Kel::GenericIf::PtrConst const& value) const;

  // --- Queues ---

  void queue(Kel::Entity* e, Kel::KelAttr const& attr, Json const& json);

  // How many items at the head are kept; their contents may change.
  std::size_t keptItems(std::vector<Kel::Entity*> const& items, Kel::KelAttr const& attr, Json const& json);

  void writeValues(Kel::Entity& e, Kel::KelAttr const& attr, std::vector<Kel::GenericIf::PtrConst> const& values);

  // Removes the items from a position on.
  void cutQueue(Kel::Entity& e, Kel::KelAttr const& attr, std::size_t from);

  // Imports into an existing item.
  void item(Kel::KelAttr const& attr, Json const& json);

  // --- References ---

  struct Late {
    Kel::Entity::Ptr owner;
    Kel::KelAttr const* attr;
    Json const* json;
    Path at;
    JsonPlace in;
    bool fresh;
  };
  struct Waiting {
    PendingReference reference;
    bool fresh;
  };

  void finish();

  void resolve(PendingReference& reference);
  // Call one of these before a write; they note it in `undo`.
  void before(Kel::Entity& owner, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key = nullptr);
  void beforeAll(Kel::Entity& owner, Kel::KelAttr const& attr);
  void beforePending();
  void forgetPending(Path const& place);

  Kel::Dir::Ptr base_;
  ImportOptions options_;
  Source source_;
  ImportReport report_;
  Undo* undo_;
  bool fresh_ = false;  // in an entity that this import made, and that is taken back as a whole
  bool write_ = false, lastCall_ = false;
  OwnedMaker maker_;  // of the queue that is being imported
  Path at_;
  JsonPlace in_;
  std::vector<Waiting> references_;
  std::vector<Late> late_;
  Departed departed_;
};

// importJson as a part of a change that the caller takes back. `undo` notes how; null: the caller has noted it.
ImportReport importPart(Kel::Dir::Ptr const& base, Path const& at, Json const& json, ImportOptions const& options,
                        Undo* undo);

}  // namespace Cli::Service
