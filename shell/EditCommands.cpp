// Edits of the session's configuration.
#include "CommandTable.h"
#include "Words.h"
#include "service/JsonTree.h"
#include "service/PathWords.h"
#include "service/ValueText.h"

namespace Shell {

namespace Service = Cli::Service;
using Service::Path;

namespace {

std::vector<std::string> commandWords(std::string const& command, Arguments const& arguments) {
  std::vector<std::string> words{command};
  for (char const* name : {"PATH", "VALUE", "FROM", "TO"})
    for (std::string const& word : arguments.words(name)) words.push_back(word);
  return words;
}

// What was made and leads nowhere: a key may name something that is not there.
std::string nowhereText(Context& context, Service::Applied const& applied) {
  std::vector<std::string> names;
  if (!applied.created.empty())
    for (Service::PendingReference const& reference : context.pending().within(applied.created.front()))
      names.push_back(shown(reference.target));
  return names.empty() ? "" : "; not there yet: " + listed(names);
}

Outcome applyWords(Context& context, std::vector<std::string> const& words) {
  Service::Session& session = context.session();
  Service::Editor editor(context.base(), context.pending());
  Service::Applied const applied = editor.apply(words, context.at());
  session.edited(applied.path);
  context.forgetLoaded();
  context.out << shown(applied.text) << nowhereText(context, applied) << "\n";
  return Outcome::ok;
}

bool isEntityPlace(Service::WordPath const& place) { return place.type && place.type->isEntity(); }

}  // namespace

Outcome set(Context& context, Arguments const& arguments) {
  return applyWords(context, commandWords("set", arguments));
}

Outcome del(Context& context, Arguments const& arguments) {
  return applyWords(context, commandWords("delete", arguments));
}

Outcome insert(Context& context, Arguments const& arguments) {
  return applyWords(context, commandWords("insert", arguments));
}

Outcome move(Context& context, Arguments const& arguments) {
  return applyWords(context, commandWords("move", arguments));
}

Outcome create(Context& context, Arguments const& arguments) {
  std::vector<std::string> words = commandWords("set", arguments);
  std::vector<std::string> const typed(words.begin() + 1, words.end());
  Service::WordRules rules;
  rules.create = true;
  auto const place = (context.session(), Service::readPath(context.base(), context.at(), typed, rules));
  std::string const path = shown(place.path.text());
  if (!isEntityPlace(place)) throw CommandError(path + " is no entity; 'set' gives it a value");
  if (place.missing == 0) throw CommandError(path + " is there already");
  return applyWords(context, words);
}

namespace {

// Edits that make what points at one entity, or below it, point at another one.
class Redirection {
 public:
  Redirection(Service::Tree const& tree, Path const& from, Path const& to)
      : tree_(tree), from_(from.text()), to_(to.text()) {}

  void note(Path const& pointer) {
    Service::Place const place = Service::locate(tree_.dir, pointer);
    Kel::KelAttr const& attr = *place.attr;
    auto const value = Kel::GenericIf::ofEntity(place.entity)->attribute(attr.id(), place.key);
    Path at = pointer;
    Service::PathStep& last = at.steps.back();
    if (attr.keyIsPtr()) last.key = Kel::GenericIf::of(Kel::String8(moved(last.keyText())));
    // A member whose key and value are pointers is found twice.
    if (!(at == pointer) && (gone_.empty() || !(gone_.back() == pointer))) gone_.push_back(pointer);
    std::vector<std::string> words = at.words();
    words.insert(words.begin(), "set");
    words.push_back(!value              ? "null"
                    : value->isEntity() ? moved(Service::targetText(*value->entityConst(), *tree_.dir))
                                        : Service::textOf(*value));
    if (sets_.empty() || sets_.back() != words) sets_.push_back(std::move(words));
  }

  void carryOut(Service::Editor& editor) const {
    for (Path const& member : gone_) editor.remove(member);
    for (std::vector<std::string> const& words : sets_) editor.apply(words);
  }

 private:
  std::string moved(std::string const& text) const {
    bool const below =
        text.compare(0, from_.size(), from_) == 0 && (text.size() == from_.size() || text[from_.size()] == '.');
    return below ? to_ + text.substr(from_.size()) : text;
  }

  Service::Tree const& tree_;
  std::string const from_, to_;
  std::vector<Path> gone_;  // members under pointer keys, which get other keys
  std::vector<std::vector<std::string>> sets_;
};

// Copies an entity to another key: its content, and the pointers to it and below it.
void carryOver(Service::Tree const& tree, Path const& from, Path const& to, Service::PendingReferences& pending) {
  Kel::Entity::Ptr const entity = Service::entityAt(tree.dir, from);
  Service::ExportOptions all;
  all.pending = &pending;
  Service::ImportOptions options;
  options.pending = &pending;
  Service::importJson(tree.dir, to, Service::exportEntity(*entity, *tree.dir, all), options);
  // The copy is there now, and where the entity pointed at itself, the copy points at the entity: that is changed too.
  Redirection redirection(tree, from, to);
  for (Path const& pointer : Service::referencesTo(tree.dir, *entity)) redirection.note(pointer);
  Service::Editor editor(tree.dir, pending);
  redirection.carryOut(editor);
  editor.remove(from);
}

}  // namespace

Outcome rename(Context& context, Arguments const& arguments) {
  Path const from = context.path(arguments.words("PATH"));
  Kel::KelAttr const* const attr = from.empty() ? nullptr : from.steps.back().attr;
  bool const member = attr && attr->instantiating() && attr->isCollection() && !attr->isQueue();
  if (!member || !from.steps.back().key) throw CommandError(shown(from.text()) + " has no key that could change");
  std::vector<std::string> words = from.parent().words();
  words.push_back(attr->name().str());
  words.push_back(arguments.text("NAME"));
  Service::WordRules rules;
  rules.create = true;
  auto const target = Service::readPath(context.base(), {}, words, rules);
  std::string const to = shown(target.path.text());
  if (target.missing == 0) throw CommandError(to + " is there already");
  if (target.path.steps.size() != from.steps.size()) throw CommandError("'" + shown(words.back()) + "' is no key here");
  Service::PendingReferences pending = context.pending();
  context.session().loadMerge([&](Service::Tree const& tree) { carryOver(tree, from, target.path, pending); });
  pending.retry(context.base());
  context.pending() = std::move(pending);
  context.forgetLoaded();
  context.session().edited(from);
  context.session().edited(target.path);
  context.out << shown(from.text()) << " is now " << to << "\n";
  return Outcome::ok;
}

// --- The path of `edit` ---

Outcome edit(Context& context, Arguments const& arguments) {
  Path const path = context.path(arguments.words("PATH"));
  Service::Place const place = Service::locate(context.base(), path);
  bool const leaf = place.attr && !place.attr->instantiating();
  if (leaf) throw CommandError(shown(path.text()) + " is a value; nothing is below it");
  context.at() = path;
  return Outcome::ok;
}

Outcome up(Context& context, Arguments const&) {
  context.session();
  context.at() = context.at().parent();
  return Outcome::ok;
}

Outcome top(Context& context, Arguments const&) {
  context.session();
  context.at() = Path();
  return Outcome::ok;
}

}  // namespace Shell
