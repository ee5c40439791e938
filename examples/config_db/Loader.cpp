#include "examples/config_db/Loader.h"

#include <deque>
#include <unordered_map>
#include <utility>

#include "examples/config_db/Editing.h"
#include "examples/config_db/Fields.h"
#include "examples/config_db/Source.h"
#include "examples/config_db/TableMap.h"
#include "examples/config_db/Tree.h"
#include "examples/config_db/Values.h"

namespace ConfigDb {

namespace {

class Load {
 public:
  Load(Source const& source, Report& report)
      : source_(source),
        report_(report),
        complaints_(source.file, report.complaints),
        writer_(tree_, complaints_, report.dangling) {}

  void run(Kel::Dir::Ptr const& into) {
    report_.complaints = duplicateComplaints(source_);
    if (!source_.wrapper.empty())
      for (auto const& [name, value] : source_.document.value.members)
        if (name != source_.wrapper) complaints_.add(name, "beside \"" + source_.wrapper + "\", ignored");
    for (auto const& [name, table] : source_.tables().members) {
      if (Table const* const known = findTable(name))
        makeEntries(*known, table);
      else
        skipTable(name, table);
    }
    for (Pending const& pending : pending_) write(pending);
    tree_.attach(source_.file, into);
  }

 private:
  // An entity that is made and not yet written.
  struct Pending {
    Entry entry;
    std::vector<std::pair<std::string, std::string>> keyParts;  // attribute and text
    std::vector<JsonValue const*> fields;  // nothing: an interface of which the file has addresses only
  };

  void skipTable(std::string const& name, JsonValue const& table) {
    std::size_t const count = table.members.size();
    complaints_.add(name,
                    "not in the model, " + std::to_string(count) + (count == 1 ? " entry" : " entries") + " ignored");
  }

  void makeEntries(Table const& table, JsonValue const& entries) {
    made_.clear();
    std::vector<KeyPart> const parts = table.keyParts();
    unsigned& count = report_.entries[table.name];
    for (auto const& [key, fields] : entries.members) {
      std::string const label = std::string(table.name) + "|" + key;
      Pending* const pending = makeEntry(table, parts, key);
      if (!pending) {
        complaints_.add(label, "not a key of this table, entry ignored");
        continue;
      }
      if (pending->fields.empty())
        ++count;
      else
        complaints_.add(label, "a key that is there already, their fields taken together");
      pending->entry.label = label;
      pending->fields.push_back(&fields);
    }
  }

  // The entry, or child of one, that a key names. Makes it if it is missing. Null if the key is bad.
  Pending* makeEntry(Table const& table, std::vector<KeyPart> const& parts, std::string_view key) {
    if (table.isSingleton()) {
      std::string const name(trimmed(key));
      return pending(table, name, [&] { return tree_.entry(table, name); });
    }
    std::vector<std::string> const texts = splitKey(parts, key);
    if (texts.empty()) return nullptr;
    Kel::KelType const& type = tree_.entryType(table);
    KeyPart const& last = parts.back();
    std::size_t const own = last.child.empty() ? parts.size() : parts.size() - 1;
    std::string name;
    for (std::size_t i = 0; i < own; ++i)
      if (!texts[i].empty()) name += (name.empty() ? "" : "|") + canonicalPart(type, parts[i], texts[i]);
    Pending* const parent = pending(table, name, [&] { return tree_.entry(table, name); });
    if (!parent) return nullptr;
    if (parent->keyParts.empty()) addKeyParts(*parent, parts, texts, 0, own);
    if (own == parts.size() || texts.back().empty()) return parent;

    std::string const childName = canonicalPart(*type.getAttr(last.child)->type(), last, texts.back());
    Pending* const child = pending(table, name + "|" + childName,
                                   [&] { return Tree::child(parent->entry.entity, last.child, childName); });
    if (child && child->keyParts.empty()) addKeyParts(*child, parts, texts, own, parts.size());
    return child;
  }

  // The pending entry of that name in the table that is being made.
  template <class Make>
  Pending* pending(Table const& table, std::string const& name, Make const& make) {
    auto const [found, added] = made_.try_emplace(name, nullptr);
    if (!added) return found->second;
    Kel::GenericIf::Ptr const entity = make();
    if (!entity) return nullptr;
    return found->second =
               &pending_.emplace_back(Pending{{&table, std::string(table.name) + "|" + name, entity}, {}, {}});
  }

  static void addKeyParts(Pending& to, std::vector<KeyPart> const& parts, std::vector<std::string> const& texts,
                          std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i)
      if (!parts[i].attribute.empty() && !texts[i].empty()) to.keyParts.emplace_back(parts[i].attribute, texts[i]);
  }

  void write(Pending const& pending) {
    for (auto const& [attribute, text] : pending.keyParts) writer_.keyPart(pending.entry, attribute, text);
    for (JsonValue const* fields : pending.fields)
      for (auto const& [name, value] : fields->members) writer_.field(pending.entry, name, value);
  }

  Source const& source_;
  Report& report_;
  Complaints complaints_;
  Tree tree_;
  FieldWriter writer_;
  std::deque<Pending> pending_;
  std::unordered_map<std::string, Pending*> made_;  // of the table at hand, by name
};

}  // namespace

unsigned Report::entryCount() const {
  unsigned count = 0;
  for (auto const& [table, ofTable] : entries) count += ofTable;
  return count;
}

std::vector<SessionRoot> const& sessionRoots() {
  registerModel();
  static std::vector<SessionRoot> const all = [] {
    std::vector<SessionRoot> made;
    for (Root const& root : roots()) made.push_back({root.path, root.type});
    return made;
  }();
  return all;
}

namespace {

void load(Source const& source, Kel::Dir::Ptr const& into, Report& report) {
  registerModel();
  try {
    Report met;
    Load(source, met).run(into);
    report = std::move(met);
  } catch (Kel::Exception const& e) {
    throw LoadError(source.file + ": " + e.what());
  }
}

}  // namespace

void loadConfigDb(std::string const& file, Kel::Dir::Ptr const& into, Report& report) {
  load(readSource(file), into, report);
}

void loadConfigDbText(std::string const& text, std::string const& file, Kel::Dir::Ptr const& into, Report& report) {
  load(sourceOf(text, file), into, report);
}

}  // namespace ConfigDb
