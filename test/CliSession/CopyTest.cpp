// Copies and comparisons, as a transcript that holds with traces on and off:
//
//     new                  a world anew: "src" and "dest" with empty roots "hall" and "sys/annex", and what lies
//     outside PATH TEXT...         sets an attribute or a member from texts ('' is an empty one)
//     make PATH TYPE       makes an entity in a directory
//     - PATH               deletes one
//     ? PATH               shows an attribute
//     copy                 the edits, how many pointers wait, whether the two are equal then
//     compare              the edits, whether there is a difference
//     trace LEVELS PATH    what the copy of one entity traces; several lines in a row that were shown before are only
//                          counted ("... 9")
//     root PATH TYPE       one root more
//     dirs                 directories are reconciled entry by entry
//     filter PATH TYPE WHEN ATTRIBUTE
//                          copies the attribute "before" or "after" the others, or goes "without" it
//     bypass EDIT PREFIX TYPE ATTRIBUTE DEFAULT
//                          keeps edits ("set" or "del") out of the log, from now on ('' is any, or none); without
//                          anything: no more
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <sstream>

#include "CliSession/World.h"
#include "Golden.h"

namespace {

using namespace Tests;
using Kel::GenericIf;

// --- Paths ---

// What a path names: an entity, one of its attributes, or a member of a collection, which need not be there.
struct Target {
  EntityPtr entity;                    // the entity, or the owner of the attribute
  Kel::KelAttr const* attr = nullptr;  // null: the entity itself
  GenericIf::PtrConst key;             // null: no member
};

// Keys hold dots themselves: the longest path that leads to an entity with such an attribute counts.
Target locate(Kel::Dir::Ptr const& dir, std::string const& path) {
  if (EntityPtr const entity = dir->entity(Kel::String(path))) return {entity, nullptr, nullptr};
  for (std::size_t dot = path.rfind('.'); dot != std::string::npos && dot > 0; dot = path.rfind('.', dot - 1)) {
    EntityPtr const owner = dir->entity(Kel::String(path.substr(0, dot)));
    if (!owner) continue;
    std::string const rest = path.substr(dot + 1);
    std::size_t const slash = rest.find('/');
    Kel::KelAttr const* const attr = owner->type()->findAttr(rest.substr(0, slash));
    if (attr && slash == std::string::npos) return {owner, attr, nullptr};
    if (attr && attr->isCollection()) return {owner, attr, attr->keyType()->genericFromText(rest.substr(slash + 1))};
  }
  Kel::throwRangeException(Kel::String("'") + path + "': no such entity, attribute or member");
}

GenericIf::PtrConst valueFromText(Kel::Dir::Ptr const& dir, Kel::KelAttr const& attr, std::string const& text) {
  if (!attr.isPtr()) return attr.type()->genericFromText(text);
  return GenericIf::ofEntity(locate(dir, text).entity);
}

// The constructor arguments of an owned entity: its key, then what the texts give.
GenericIf::Ptr argumentsFromText(Target const& target, std::vector<std::string> const& texts) {
  GenericIf::List::Ptr const args(new GenericIf::List);
  bool const keyed = target.key && !target.attr->isQueue();
  if (keyed) args->objectEnq(target.key);
  unsigned at = keyed || target.attr->isQueue() ? 1 : 0;
  for (std::string const& text : texts)
    args->objectEnq(target.attr->constraint().argPtr(at++)->type()->genericFromText(text));
  return GenericIf::List::genericIf(args);
}

void setFromText(Kel::Dir::Ptr const& dir, Target const& target, std::vector<std::string> const& texts) {
  if (!target.attr) Kel::throwRangeException(target.entity->fullName() + " is there already");
  GenericIf::Ptr const gif = GenericIf::ofEntity(target.entity);
  GenericIf::PtrConst const value = target.attr->instantiating() ? GenericIf::PtrConst(argumentsFromText(target, texts))
                                                                 : valueFromText(dir, *target.attr, texts.at(0));
  if (target.attr->isQueue())
    gif->attributeSQEnq(target.attr->id(), value);
  else
    gif->attributeIs(target.attr->id(), target.key, value);
}

void deleteTarget(Target const& target) {
  if (!target.attr) return erase(*target.entity);
  GenericIf::ofEntity(target.entity)->attributeDel(target.attr->id(), target.key);
}

// --- The transcript ---

class Script {
 public:
  Script() { begin(); }

  std::string answer(std::string const& line) try {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word == "''" ? "" : word);
    std::string const verb = words[0];
    if (verb == "new") return begin(), "";
    if (verb == "make") return make(words[1], words[2]), "";
    if (verb == "root") return world_->rootIs(words[1].c_str(), words[2].c_str()), "";
    if (verb == "dirs") return dirs(), "";
    if (verb == "filter")
      return filter(Cli::Session::EntityPath(Kel::String8(words[1])), words[2], words[3], words[4]), "";
    if (verb == "bypass") return bypass(words), "";
    if (verb == "copy") return copied();
    if (verb == "compare") return compared();
    if (verb == "trace") return traced(static_cast<Kel::U16>(std::stoi(words[1], nullptr, 16)), words[2]);
    if (verb == "-") return deleteTarget(locate(world_->root, words[1])), "";
    if (verb == "?") return shown(locate(world_->root, words[1]));
    words.erase(words.begin());
    return setFromText(world_->root, locate(world_->root, verb), words), "";
  } catch (Kel::Exception const& e) {
    return e.message().str() + "\n";
  }

 private:
  void begin() {
    world_ = std::make_unique<World>();
    world_->table = Cli::Session::entityCopyCustomHandlerTableFactory("table", world_->root);
    filters_ = Cli::Session::entityCopyFilterDirFactory("filters");
    bypass_ = nullptr;
  }
  void make(std::string const& path, std::string const& type) const {
    std::size_t const slash = path.rfind('/');
    Kel::ptrCast<Kel::Dir>(world_->root->entity(Kel::String8(path.substr(0, slash))))
        ->newEntity(Kel::String8(type), Kel::String8(path.substr(slash + 1)));
  }
  void dirs() {
    auto const handler = filters_->newDirHandler();
    handler->sessionStatusIs(world_->status);
    world_->table->registerCustomCopyHandler(Cli::Session::EntityPath(""), "Kel::Dir", handler);
  }
  void filter(Cli::Session::EntityPath const& path, Kel::String8 const& type, std::string const& when,
              Kel::String8 const& name) {
    auto const names = Cli::Session::attributeFilterFactory();
    if (when == "without") names->attributeNameIs(name, true);
    world_->table->registerEntityCopyFilter(filters_, path, type, names);
    auto const made = filters_->ecf(Cli::Session::HandlerContext(path, type));
    if (when == "before") made->preAttributeIs()->attributeNameIs(++order_, name);
    if (when == "after") made->postAttributeIs()->attributeNameIs(++order_, name);
  }
  void bypass(std::vector<std::string> words) {
    words.resize(6);
    if (!bypass_ || words[1].empty()) bypass_ = Cli::Session::attributeEditBypassTableFactory("bypass");
    if (words[1].empty()) return;
    auto const type = words[1] == "set" ? Cli::Session::AttributeEditType::set_ : Cli::Session::AttributeEditType::del_;
    Cli::Session::AttributeEdit const edit{Kel::String8(words[4]), Kel::String8(words[3]), type};
    auto const entry = bypass_->attributeEditBypassEntryIs(edit);
    entry->parentPathIs(Kel::String8(words[2]), true);
    entry->defaultEntIs(words[5].empty() ? nullptr : world_->root->entity(Kel::String8(words[5])));
  }
  EntityCopy::Ptr copy(bool compare) const {
    EntityCopy::Ptr ec = world_->copyFrom(world_->src, compare);
    ec->attributeEditBypassCheckerIs(bypass_);
    return ec;
  }
  Outcome run(bool compare) const {
    EntityCopy::Ptr const ec = copy(compare);
    ec->destIs(world_->dest);
    return {editsOf(*ec->attributeEditLog()), ec->stop(), ec->pendingAttrs()};
  }
  std::string copied() const {
    Outcome const outcome = run(false);
    std::string const pending = outcome.pending ? std::to_string(outcome.pending) + " wait\n" : "";
    bool const equal = world_->dump(world_->dest) == world_->dump(world_->src);
    return textOf(outcome.edits) + pending + (equal ? "equal\n" : "not equal\n");
  }
  std::string compared() const {
    std::string const before = world_->dump(world_->dest);
    Outcome const outcome = run(true);
    EXPECT_EQ(world_->dump(world_->dest), before);
    return textOf(outcome.edits) + (outcome.stopped ? "differs\n" : "equal\n");
  }
  std::string traced(Kel::U16 levels, std::string const& path) {
    EntityCopy::Ptr const ec = copy(false);
    ec->srcCopyRootDelAll();
    ec->srcCopyRootIs(world_->src->entity(Kel::String8(path)), true);
    Traces const handler("CliSession", levels), engine("EntityCopy", levels);
    ec->destIs(world_->dest);
    std::string text, known;
    std::size_t count = 0;
    auto const passOver = [&] {
      text += count > 1 ? "... " + std::to_string(count) + "\n" : known;
      known.clear();
      count = 0;
    };
    for (std::size_t i = 0; i < engine.lines.size(); ++i) {
      if (engine.lines[i].find("EntityCopyUtils/") == 0) continue;
      std::string const line = withoutAddresses(engine.functions[i] + " " + engine.lines[i] + "\n");
      if (traced_.insert(line).second) {
        passOver();
        text += line;
      } else {
        known += line;
        ++count;
      }
    }
    passOver();
    return text;
  }
  // Addresses are others every time.
  static std::string withoutAddresses(std::string text) {
    for (std::size_t at = 0; (at = text.find("0x", at)) != std::string::npos; ++at)
      text.erase(at + 2, text.find_first_not_of("0123456789abcdef", at + 2) - at - 2);
    return text;
  }
  static std::string shown(Target const& target) {
    if (!target.key) return target.entity->attributeString(target.attr->id()).str() + "\n";
    auto const member = Kel::GenericIf::ofEntity(target.entity)->attribute(target.attr->id(), target.key);
    return (member ? member->text().str() : "<null>") + "\n";
  }

  std::unique_ptr<World> world_;
  Cli::Session::EntityCopyFilterDir::Ptr filters_;
  Cli::Session::AttributeEditBypassTable::Ptr bypass_;
  Kel::U16 order_ = 0;
  std::set<std::string> traced_;
};

TEST(Copies, AreWhatTheTranscriptSaysTracedOrNot) {
  std::string const path = SOURCE_DIR "/test/CliSession/copies.golden";
  for (bool traced : {false, true}) {
    SCOPED_TRACE(traced ? "traced" : "untraced");
    std::unique_ptr<TracedRun> const tracing = traced ? std::make_unique<TracedRun>() : nullptr;
    Script script;
    std::string const said = answered(path, [&](std::string const& line) { return script.answer(line); });
    expectGolden(path, said);
  }
}

}  // namespace
