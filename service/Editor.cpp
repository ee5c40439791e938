// Commands as edits of a tree.
#include <algorithm>
#include <map>

#include "service/Commands.h"
#include "service/Importer.h"
#include "service/JsonKeys.h"
#include "service/JsonTree.h"
#include "service/ModelHooks.h"
#include "service/Prototypes.h"
#include "service/QueueEdit.h"
#include "service/References.h"
#include "service/ValueText.h"
#include "service/WordReader.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;
using Args = std::vector<GenericIf::PtrConst>;
using WordSpan = std::span<std::string const>;

namespace {

// Names a few paths for a line of text.
std::string some(std::vector<Path> const& paths) {
  constexpr std::size_t few = 3;
  std::string text;
  for (std::size_t i = 0; i < std::min(paths.size(), few); ++i) text += (i ? ", " : "") + paths[i].text();
  if (paths.size() > few) text += " and " + std::to_string(paths.size() - few) + " more";
  return text;
}

GenericIf::Ptr listOf(Args const& args) {
  GenericIf::List::Ptr const list(new GenericIf::List);
  for (auto const& arg : args) list->objectEnq(arg);
  return GenericIf::List::genericIf(list);
}

std::string shown(GenericIf const* value, Kel::Entity const& base) {
  if (!value) return "null";
  if (value->isEntity()) return targetText(*value->entityConst(), base);
  std::string const text = textOf(*value);
  return text.empty() ? "\"\"" : text;
}

}  // namespace

class Editor::Impl {
 public:
  Impl(Kel::Dir::Ptr base, PendingReferences& pending, Source source)
      : base_(std::move(base)), pending_(pending), person_(source == Source::person) {}

  Applied apply(WordSpan words, Path const& at) {
    return whole([&](Applied& applied) { command(applied, words, at); });
  }

  Applied remove(Path const& path) {
    return whole([&](Applied& applied) { removeAt(applied, path); });
  }

  void applyAll(WordSpan lines) {
    whole([&](Applied& all) {
      std::size_t number = 0;
      for (std::string const& line : lines) {
        ++number;
        auto const fail = [&](char const* reason) {
          throw InputError("line " + std::to_string(number) + ", '" + line + "': " + reason);
        };
        try {
          Applied applied;
          command(applied, splitWords(line), {});
          all.changed = all.changed || applied.changed;
        } catch (InputError const& e) {
          fail(e.what());
        } catch (Kel::Exception const& e) {
          fail(e.what());
        }
      }
    });
  }

 private:
  // Carries out an edit, and then sets the pointers that it concerns. If anything raises, takes all of it back.
  template <class Edit>
  Applied whole(Edit const& edit) {
    Applied applied;
    try {
      edit(applied);
      settle(applied);
    } catch (Kel::Exception const& e) {
      takeBack();
      throw InputError(e.what());
    } catch (...) {
      takeBack();
      throw;
    }
    change_ = Change();
    return applied;
  }
  void takeBack() {
    change_.undo.takeBack();
    change_ = Change();
  }

  void command(Applied& applied, WordSpan words, Path const& at) {
    if (words.empty()) throw InputError("a command expected: set, delete, insert or move");
    std::string const& verb = words[0];
    WordSpan const rest = words.subspan(1);
    if (verb == "set")
      set(applied, rest, at);
    else if (verb == "delete")
      removeAt(applied, read(rest, at, false).path);
    else if (verb == "insert")
      insert(applied, rest, at);
    else if (verb == "move")
      move(applied, rest, at);
    else if (verb == "create")
      create(applied, rest, at);
    else
      throw InputError("'" + verb + "' is no command; there is set, delete, insert, move");
  }

  // Sets the pointers to entities that were made or deleted.
  void settle(Applied& applied) {
    if (!change_.departed.empty()) {
      change_.undo.notePending(pending_);
      applied.dangling = change_.departed.repoint(base_, &pending_, &change_.undo);
    }
    if (!pending_.empty() && applied.changed) applied.revived = retry(pending_, base_, change_.undo);
    if (!applied.revived.empty()) applied.text += "; pointing at it again: " + some(applied.revived);
    if (!applied.dangling.empty()) applied.text += "; no longer lead anywhere: " + some(applied.dangling);
  }

  void forgetPending(Path const& place) {
    if (pending_.within(place).empty()) return;
    change_.undo.notePending(pending_);
    pending_.erase(place);
  }

  // --- Reading ---

  WordRules rules(bool create) const {
    WordRules rules;
    rules.create = create;
    rules.abbreviateKeys = false;
    rules.asWritten = !person_;
    if (!create) rules.pending = &pending_;
    return rules;
  }
  WordPath read(WordSpan words, Path const& at, bool create) const {
    WordPath found = readPath(base_, at, words, rules(create));
    if (!create && found.used < words.size())
      throw InputError("'" + words[found.used] + "': nothing follows '" + found.path.text() + "'");
    if (found.path.empty()) throw InputError("a path expected");
    return found;
  }

  GenericIf::PtrConst value(KelAttr const& attr, KelType const& type, bool pointer, std::string const& text) const {
    try {
      if (!pointer) return person_ ? valueFromText(type, text) : writtenValue(type, text);
      if (person_) return GenericIf::ofEntity(targetFromText(base_, attr, type, text));
    } catch (InputError const& e) {
      throw InputError(attr.name().str() + ": " + e.what());
    }
    Kel::Entity::Ptr const target = targetAt(base_, text);
    return target && target->type()->isA(&type) ? GenericIf::ofEntity(target) : nullptr;
  }

  // Constructor arguments from names and values. An argument that is not named is taken from `like`, or is the default.
  Args parameters(KelType const& type, KelAttr const& holder, GenericIf::PtrConst const& key, WordSpan words,
                  Kel::Entity const* like) const {
    std::map<std::size_t, GenericIf::PtrConst> given;
    std::size_t const first = holder.isCollection() ? 1 : 0;
    for (std::size_t i = 0; i < words.size(); i += 2) {
      std::size_t const n = parameterNamed(type, words[i], first);
      if (i + 1 == words.size()) throw InputError("'" + words[i] + "': a value is missing");
      Kel::KelArg const& arg = type.ctorArgs()[n];
      given[n] = value(*type.getAttr(arg.name), *arg.type(), arg.pointer, words[i + 1]);
    }
    Args args;
    for (std::size_t n = 0; n < type.ctorArgs().size(); ++n) {
      Kel::KelArg const& arg = type.ctorArgs()[n];
      if (n == 0 && holder.isQueue()) continue;
      if (n == 0 && key)
        args.push_back(key);
      else if (auto const found = given.find(n); found != given.end())
        args.push_back(found->second);
      else if (like && person_)
        args.push_back(valueOfAttr(*like, *type.getAttr(arg.name)));
      else
        args.push_back(initialArgument(arg, n == 0 ? &holder : nullptr));
    }
    return args;
  }
  static std::size_t parameterNamed(KelType const& type, std::string const& word, std::size_t first) {
    std::vector<std::string> names;
    for (std::size_t n = first; n < type.ctorArgs().size(); ++n) {
      if (type.ctorArgs()[n].name.view() == word) return n;
      names.push_back(type.ctorArgs()[n].name.str());
    }
    std::string const near = nearest(word, names);
    throw InputError("'" + word + "': " + withArticle(type) + " is made with no such parameter" +
                     (near.empty() ? "" : "; did you mean " + near + "?"));
  }
  // --- Making entities ---

  Kel::Entity* make(Applied& applied, Kel::Entity& owner, Path const& path, Args const& args) {
    KelAttr const& attr = *path.steps.back().attr;
    if (attr.type()->isAbstract()) throw InputError(withArticle(*attr.type()) + " cannot be made");
    GenericIf::Ptr const gif = gifOf(owner);
    GenericIf::PtrConst const key = path.steps.back().key;
    change_.undo.note(owner, attr, key);
    gif->attributeIs(attr.id(), key, listOf(args));
    Kel::Entity* const made = key ? gif->attribute(attr.id(), key)->entity().ptr() : singleTarget(owner, attr);
    applied.changed = true;
    applied.created.push_back(path);
    callCreated(*made);
    return made;
  }
  void callCreated(Kel::Entity& made) {
    EntityHooks const& hooks = hooksOf(*made.type());
    if (!person_ || !hooks.created) return;
    change_.undo.notePending(pending_);
    hooks.created(base_, Kel::Entity::Ptr(&made), pending_);
  }

  // The entity at a path; makes what is missing on the way.
  Kel::Entity* ensure(Applied& applied, Path const& path) {
    Place const place = locate(base_, path);
    if (place.there()) return place.entity.ptr();
    Path const at = path.parent();
    Kel::Entity* const owner = ensure(applied, at);
    PathStep const& step = path.steps.back();
    if (!step.attr || step.attr->isQueue()) throw InputError("there is nothing at '" + path.text() + "'");
    return make(applied, *owner, path, parameters(*step.attr->type(), *step.attr, step.key, {}, nullptr));
  }

  static void creationText(Applied& applied) {
    if (!applied.created.empty()) applied.text = applied.created.back().text() + " created";
  }

  // --- set ---

  void set(Applied& applied, WordSpan words, Path const& at) {
    WordPath const found = read(words, at, true);
    PathStep const& last = found.path.steps.back();
    WordSpan const rest = words.subspan(found.used);
    applied.path = found.path;
    if (!last.attr) throw InputError("an attribute of '" + found.path.text() + "' expected");
    if (last.attr->ctorParam() && !found.path.parent().empty() && found.path.parent().steps.back().attr) {
      applied.path = found.path.parent();
      return setEntity(applied, applied.path, words.subspan(found.used - 1));
    }
    if (last.attr->isQueue() && !last.key)
      throw InputError("'" + found.path.text() + "' is a queue: 'insert' and a position make a new item");
    if (last.attr->isCollection() && !last.key)
      throw InputError("a key of '" + found.path.text() + "' expected: " + explanationOf(*last.attr));
    if (last.attr->instantiating()) return setEntity(applied, found.path, rest);
    setValue(applied, found.path, rest);
  }

  void setEntity(Applied& applied, Path const& path, WordSpan words) {
    KelAttr const& attr = *path.steps.back().attr;
    Place const place = locate(base_, path);
    Kel::Entity* const old = place.there() ? place.entity.ptr() : nullptr;
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): every entity has a type
    KelType const& type = old ? *old->type() : *attr.type();
    Args const args = parameters(type, attr, path.steps.back().key, words, old);
    if (old && same(*old, type, attr, args)) {
      applied.text = path.text() + " is there already";
      return;
    }
    if (attr.isQueue()) throw InputError("the parameters of an item are given when it is inserted");
    Kel::Entity* const owner = ensure(applied, path.parent());
    Json kept;
    if (old) {
      if (person_) kept = exportEntity(*old, *base_, {false, &pending_});
      change_.departed.note(*old, path);
      if (!person_) forgetPending(path);
    }
    Kel::Entity* const made = make(applied, *owner, path, args);
    if (kept.is_object()) keepContent(*made, path, kept);
    if (old) applied.created.pop_back();
    applied.text = path.text() + (old ? " made again with other parameters" : " created");
  }
  void keepContent(Kel::Entity& made, Path const& path, Json content) {
    for (KelAttr const* param : furtherParams(*made.type(), false))
      if (content.contains(param->name().str())) content.erase(param->name().str());
    ImportOptions options;
    options.merge = true;
    options.values = ValueRule::asWritten;
    options.pending = &pending_;
    importPart(base_, path, content, options, &change_.undo);
  }
  static bool same(Kel::Entity const& old, KelType const& type, KelAttr const& attr, Args const& args) {
    std::size_t n = 0;
    for (Kel::KelArg const& arg : type.ctorArgs()) {
      if (&arg == &type.ctorArgs().front() && attr.isQueue()) continue;
      GenericIf::PtrConst const mine = valueOfAttr(old, *type.getAttr(arg.name)), &wanted = args[n++];
      if (!mine || !wanted) {
        if (mine || wanted) return false;
      } else if (arg.pointer ? !(mine->entityConst() == wanted->entityConst()) : mine->strep() != wanted->strep()) {
        return false;
      }
    }
    return true;
  }

  void setValue(Applied& applied, Path const& path, WordSpan words) {
    PathStep const& last = path.steps.back();
    KelAttr const& attr = *last.attr;
    if (!attr.copiable()) throw InputError("'" + path.text() + "' cannot be set");
    // A member of a collection of references may be named by its target.
    std::string const name = last.key ? last.keyText() : std::string();
    bool const byName = attr.isPtr() && last.key && attr.keyType() == Kel::TypeOf<Kel::Name>::type();
    if (words.empty() && byName) return setValue(applied, path, {&name, 1});
    if (attr.isPtr() && !attr.keyIsPtr() && !person_ && !words.empty()) return setRendered(applied, path, words);
    if (words.size() != 1) {
      bool const isText = attr.isValue() && attr.type()->builtin() == KelType::Builtin::string;
      throw InputError("'" + path.text() + "' takes one value, " + explanationOf(attr) +
                       (isText && words.size() > 1 ? "; text with blanks stands in quotes" : ""));
    }
    if (last.key && attr.isQueue()) return replaceItem(applied, path, words[0]);
    if (attr.keyIsPtr() && !person_) return setRendered(applied, path, words);
    GenericIf::PtrConst const given = value(attr, *attr.type(), attr.isPtr(), words[0]);
    GenericIf::Ptr const owner = gifOf(*ensure(applied, path.parent()));
    GenericIf::PtrConst key = last.key;
    if (attr.keyIsPtr()) key = GenericIf::ofEntity(targetAt(base_, last.keyText()));
    GenericIf::Ptr const before = owner->attribute(attr.id(), key);
    std::string const was = shown(before.ptr(), *base_);
    change_.undo.note(*owner->entity(), attr, key);
    owner->attributeIs(attr.id(), key, given);
    forgetPending(path);
    callChanged(*owner->entity(), attr, true);
    std::string const is = shown(given.ptr(), *base_);
    bool const alike = was == is && (before || !attr.isCollection());
    applied.changed = applied.changed || !alike;
    creationText(applied);
    if (!applied.created.empty())
      applied.text += ", " + attr.name().str() + " set to " + is;
    else if (alike)
      applied.text = path.text() + " is " + is + " already";
    else
      applied.text = path.text() + " set to " + is + (before || attr.isPtr() ? ", was " + was : "");
  }

  // Sets a reference from a rendering. If it leads nowhere yet, it becomes pending.
  void setRendered(Applied& applied, Path const& path, WordSpan words) {
    KelAttr const& attr = *path.steps.back().attr;
    ensure(applied, path.parent());
    std::string const& text = words.front();
    PendingReference reference{path, Json(text), text, {}, {words.begin() + 1, words.end()}};
    if (attr.keyIsPtr() && !attr.isPtr()) {
      reference.value = exportValue(writtenValue(*attr.type(), text).ptr(), *base_);
      reference.target = path.steps.back().keyText();
    } else if (text == "null") {
      reference.value = nullptr;
      if (attr.keyIsPtr()) reference.target = path.steps.back().keyText();
    }
    forgetPending(path);
    noteBefore(change_.undo, base_, reference);
    reference.reason = setToAny(base_, reference);
    applied.changed = true;
    applied.text = path.text() + " set to " + text;
    if (reference.reason.empty()) return;
    applied.dangling.push_back(path);
    clearReference(base_, reference);
    change_.undo.notePending(pending_);
    pending_.add(std::move(reference));
  }

  void callChanged(Kel::Entity& owner, KelAttr const& attr, bool given) {
    EntityHooks const& hooks = hooksOf(*owner.type());
    if (!person_ || !hooks.changed) return;
    change_.undo.noteContent(owner);
    hooks.changed(owner, attr, given);
  }

  // --- delete ---

  void removeAt(Applied& applied, Path const& path) {
    applied.path = path;
    Place const place = locate(base_, path);
    PathStep const& last = path.steps.back();
    if (!place.there() && last.key && pending_.find(path)) {  // a member that waits for the target of its key
      forgetPending(path);
      applied.changed = true;
      applied.text = path.text() + " deleted";
      return;
    }
    if (!place.there()) {
      bool const absent = !last.attr && place.entity && asDir(place.entity.ptr());
      if (!absent || person_) throw InputError("there is nothing at '" + path.text() + "'");
    }
    applied.changed = true;
    if (!last.attr) return removeEntry(applied, path);
    KelAttr const& attr = *last.attr;
    if (attr.ctorParam() || !attr.copiable()) throw InputError("'" + path.text() + "' cannot be deleted");
    Path const ownerPath = path.parent();
    Kel::Entity::Ptr const owner = entityAt(base_, ownerPath);
    if (attr.isQueue() && last.key) {
      QueueEdit edit(base_, pending_, change_.undo, *owner, path.parent() / attributeStep(attr));
      // No successor: another item will have its position.
      if (attr.instantiating()) change_.departed.note(*place.entity, std::nullopt);
      edit.erase(path.position());
      applied.text = path.text() + " deleted";
      return;
    }
    if (attr.instantiating()) noteOwned(*owner, attr, path);
    forgetPending(path);
    GenericIf::Ptr const gif = gifOf(*owner);
    GenericIf::PtrConst const key = attr.keyIsPtr() ? place.key : last.key;
    attr.isCollection() && !last.key ? change_.undo.noteAll(*owner, attr) : change_.undo.note(*owner, attr, key);
    if (attr.isCollection() && !last.key) {
      applied.changed = attr.access().count(attr, *owner) > 0;
      applied.text = path.text() + " emptied";
      gif->attributeOp(Kel::AttributeOp::deleteAll, attr.id());
    } else if (attr.isCollection() || attr.instantiating()) {
      applied.text = path.text() + " deleted";
      gif->attributeDel(attr.id(), key);
    } else {
      applied.changed = !hasDefault(*owner, attr);
      gif->attributeDel(attr.id());
      applied.text = path.text() + " back to " + shown(gif->attribute(attr.id()).ptr(), *base_);
    }
    if (!attr.instantiating()) callChanged(*owner, attr, false);
  }

  void removeEntry(Applied& applied, Path const& path) {
    if (person_) throw InputError("'" + path.text() + "' itself cannot be deleted, but what is in it");
    Kel::Entity::Ptr const owner = entityAt(base_, path.parent());
    auto& dir = static_cast<Kel::Dir&>(*owner);
    Kel::Name const& name = path.steps.back().entry;
    if (Kel::Entity const* const child = dir.child(name)) change_.departed.note(const_cast<Kel::Entity&>(*child), path);
    forgetPending(path);
    change_.undo.noteEntry(dir, name);
    dir.entryDel(name);
    applied.text = path.text() + " deleted";
  }

  // Notes what is about to leave: one entity, or all of an attribute.
  void noteOwned(Kel::Entity& owner, KelAttr const& attr, Path const& path) {
    if (path.steps.back().key || !attr.isCollection()) {
      if (Kel::Entity::Ptr const e = entityAt(base_, path)) change_.departed.note(*e, path);
      return;
    }
    eachMember(owner, attr, [&](Kel::AttrIterator const& it, std::size_t position) {
      Path const ownerPath = path.parent();
      change_.departed.note(*it.target(), attr.isQueue() ? ownerPath / queueStep(attr, position)
                                                         : ownerPath / memberStep(attr, it.key()));
      return true;
    });
  }

  // --- Queues ---

  // The queue to which the words lead, and how many words that takes. After an item of an outer queue, a word belongs
  // to the path only if it names an attribute of the item, not a parameter of a new one.
  std::pair<Path, std::size_t> readQueue(WordSpan words, Path const& at, bool create) const {
    WordReader reader(base_, at, rules(create));
    std::size_t used = 0;
    while (used < words.size()) {
      if (reader.expects() == WordReader::Expects::nothing) break;
      if (reader.expects() == WordReader::Expects::key && reader.attr()->isQueue() && !goesOn(reader, words, used))
        break;
      reader.take(words[used++]);
    }
    if (reader.expects() != WordReader::Expects::key || !reader.attr()->isQueue())
      throw InputError("'" + reader.path().text() + "' is no queue");
    if (!reader.entity() && !create) throw InputError("there is nothing at '" + reader.path().text() + "'");
    return {reader.path() / attributeStep(*reader.attr()), used};
  }
  static bool goesOn(WordReader const& reader, WordSpan words, std::size_t used) {
    KelAttr const& attr = *reader.attr();
    if (!attr.instantiating() || !reader.entity() || used + 1 >= words.size()) return false;
    auto const position = unsignedNumber(words[used]);
    if (!position || *position >= attr.access().count(attr, *reader.entity())) return false;
    KelAttr const* const next = attr.type()->findAttr(words[used + 1]);
    return next && (next->isCollection() || next->instantiating());
  }
  static std::size_t position(std::string const& word, std::size_t end) {
    auto const number = unsignedNumber(word);
    if (word == "end") return end;
    if (!number || *number > end)
      throw InputError("'" + word + "' is no position in the queue, " +
                       (end ? "which are 0 to " + std::to_string(end) : std::string("which is empty")));
    return *number;
  }

  void insert(Applied& applied, WordSpan words, Path const& at) {
    auto const [path, used] = readQueue(words, at, true);
    KelAttr const& attr = *path.steps.back().attr;
    if (!attr.copiable()) throw InputError("'" + path.text() + "' cannot be changed");
    if (used == words.size()) throw InputError("a position in '" + path.text() + "' expected, or 'end'");
    Kel::Entity::Ptr const owner(ensure(applied, path.parent()));
    std::size_t const to = position(words[used], attr.access().count(attr, *owner));
    WordSpan const rest = words.subspan(used + 1);
    applied.path = path.parent() / queueStep(attr, to);
    QueueEdit edit(base_, pending_, change_.undo, *owner, path);
    if (attr.instantiating()) {
      Args const args = parameters(*attr.type(), attr, nullptr, rest, nullptr);
      edit.insert(to, listOf(args));
      callCreated(*entityAt(base_, applied.path));
    } else {
      if (rest.size() != 1) throw InputError("one value expected: " + expectation(*attr.type()));
      edit.insert(to, value(attr, *attr.type(), false, rest[0]));
      callChanged(*owner, attr, true);
    }
    applied.changed = true;
    creationText(applied);
    applied.text += (applied.text.empty() ? "" : ", ") + applied.path.text() + " inserted";
  }

  void replaceItem(Applied& applied, Path const& path, std::string const& text) {
    KelAttr const& attr = *path.steps.back().attr;
    GenericIf::PtrConst const given = value(attr, *attr.type(), false, text);
    Kel::Entity::Ptr const owner = entityAt(base_, path.parent());
    QueueEdit edit(base_, pending_, change_.undo, *owner, path.parent() / attributeStep(attr));
    edit.replace(path.position(), given);
    applied.changed = true;
    applied.text = path.text() + " set to " + shown(given.ptr(), *base_);
  }

  void move(Applied& applied, WordSpan words, Path const& at) {
    if (words.size() < 3) throw InputError("a queue expected, the position of an item, and the one that it gets");
    auto const [path, used] = readQueue(words.first(words.size() - 2), at, false);
    KelAttr const& attr = *path.steps.back().attr;
    Kel::Entity::Ptr const owner = entityAt(base_, path.parent());
    std::size_t const count = attr.access().count(attr, *owner);
    if (used != words.size() - 2) throw InputError("'" + words[used] + "': two positions expected behind the queue");
    if (!attr.copiable() || count == 0) throw InputError("'" + path.text() + "' cannot be changed, or is empty");
    std::size_t const from = position(words[used], count - 1), to = position(words[used + 1], count - 1);
    applied.path = path.parent() / queueStep(attr, to);
    applied.changed = from != to;
    applied.text = path.text() + ": item " + std::to_string(from) + " moved to " + std::to_string(to);
    QueueEdit(base_, pending_, change_.undo, *owner, path).move(from, to);
  }

  // --- create ---

  void create(Applied& applied, WordSpan words, Path const& at) {
    if (person_) throw InputError("'create' is no command; there is set, delete, insert, move");
    if (words.size() < 3) throw InputError("create TYPE NAME [PARAMETER VALUE]… in PATH");
    KelType const* const type = KelType::find(Kel::String8(words[0]));
    if (!type || !type->isEntity() || type->isAbstract()) throw InputError("'" + words[0] + "' is no type to make");
    std::size_t used = 2;
    Json content = Json::object();
    content["$type"] = words[0];
    while (used + 1 < words.size() && isParameter(*type, words[used])) {
      Kel::KelArg const& arg = *std::find_if(type->ctorArgs().begin(), type->ctorArgs().end(),
                                             [&](Kel::KelArg const& a) { return a.name.view() == words[used]; });
      content[words[used]] =
          arg.pointer ? Json(words[used + 1]) : exportValue(writtenValue(*arg.type(), words[used + 1]).ptr(), *base_);
      used += 2;
    }
    if (used < words.size() && words[used] == "absent") {
      content["$absent"] = true;
      ++used;
    }
    if (used == words.size() || words[used] != "in") throw InputError("'in' and a path expected");
    WordSpan const where = words.subspan(used + 1);
    WordPath const in = readPath(base_, at, where, rules(true));
    Path path = in.path;
    if (path.empty() || !path.steps.back().attr || !path.steps.back().attr->instantiating() || path.steps.back().key)
      path = path / entryStep(Kel::Name(words[1]));
    else if (path.steps.back().attr->isCollection())
      path.steps.back().key = writtenValue(*path.steps.back().attr->keyType(), words[1]);
    if (path.steps.back().attr) ensure(applied, path.parent());
    ImportOptions options;
    options.values = ValueRule::asWritten;
    options.pending = &pending_;
    importPart(base_, path, content, options, &change_.undo);
    applied.path = path;
    applied.changed = true;
    applied.text = path.text() + " created";
  }
  static bool isParameter(KelType const& type, std::string const& word) {
    return std::any_of(type.ctorArgs().begin(), type.ctorArgs().end(),
                       [&](Kel::KelArg const& arg) { return arg.name.view() == word; });
  }

  Kel::Dir::Ptr base_;
  PendingReferences& pending_;
  bool const person_;
  // The edit under way.
  struct Change {
    Undo undo;
    Departed departed;
  } change_;
};

Editor::Editor(Kel::Dir::Ptr base, PendingReferences& pending, Source source)
    : impl_(std::make_unique<Impl>(std::move(base), pending, source)) {}
Editor::~Editor() = default;

Applied Editor::apply(std::span<std::string const> words, Path const& at) { return impl_->apply(words, at); }
Applied Editor::apply(std::string_view line, Path const& at) { return impl_->apply(splitWords(line), at); }
void Editor::applyAll(std::span<std::string const> lines) { impl_->applyAll(lines); }
Applied Editor::remove(Path const& path) { return impl_->remove(path); }

}  // namespace Cli::Service
