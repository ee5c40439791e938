// Completion of words.
#include <algorithm>
#include <set>

#include "service/ModelHooks.h"
#include "service/Targets.h"
#include "service/ValueText.h"
#include "service/WordReader.h"

namespace Cli::Service {

using Kel::KelAttr;
using Kel::KelType;
using Expects = WordReader::Expects;

// --- Targets ---

Kel::Entity::Ptr targetFromText(Kel::Dir::Ptr const& base, KelAttr const& attr, KelType const& wanted,
                                std::string_view text) {
  EntityHooks const& hooks = hooksOf(*attr.ownerType());
  if (hooks.isImplied && hooks.isImplied(attr, text)) return nullptr;
  Kel::Entity::Ptr there = targetAt(base, text);
  if (there && !pathOf(*there, *base)) throw InputError("'" + std::string(text) + "' leads out of the session");
  if (there && there->type()->isA(&wanted)) return there;
  TargetFinder finder(*base, wanted);
  std::vector<Kel::Entity*> const named = finder.named(text);
  if (named.size() == 1) return Kel::Entity::Ptr(named.front());
  std::string const type = wanted.name().str();
  if (named.size() > 1) {
    std::string paths;
    for (Kel::Entity const* e : named) paths += (paths.empty() ? "" : ", ") + targetText(*e, *base);
    throw InputError("'" + std::string(text) + "' may be " + paths);
  }
  if (there)
    throw InputError("'" + std::string(text) + "' is " + withArticle(*there->type()) + ", not " + withArticle(wanted));
  constexpr std::size_t most = 100000;
  std::vector<std::string> names;
  finder.each([&](Kel::Entity const& e) {
    names.push_back(e.name().str());
    return names.size() < most;
  });
  std::string const near = nearest(text, names);
  throw InputError("there is no " + type + " '" + std::string(text) + "'" +
                   (near.empty() ? "" : "; did you mean " + near + "?"));
}

namespace {

// Collects the candidates that begin with a word, and keeps the first ones in natural order.
class Gathering {
 public:
  Gathering(std::string_view begun, std::size_t limit) : begun_(begun), limit_(limit) {}

  bool fits(std::string_view word) const { return word.starts_with(begun_); }
  void add(std::string word, std::string explanation) {
    if (fits(word)) found_.list.push_back({std::move(word), std::move(explanation)});
  }
  // REQUIRES: the text outlives this object. The kept texts are a heap with the last one on top.
  void offer(std::string_view word) {
    if (!fits(word)) return;
    if (words_.size() < limit_) {
      words_.push_back(word);
      std::push_heap(words_.begin(), words_.end(), naturalLess);
      return;
    }
    found_.more = true;
    if (words_.empty() || !naturalLess(word, words_.front())) return;
    std::pop_heap(words_.begin(), words_.end(), naturalLess);
    words_.back() = word;
    std::push_heap(words_.begin(), words_.end(), naturalLess);
  }
  void keep(std::string const& explanation, std::string const& before = {}) {
    std::sort_heap(words_.begin(), words_.end(), naturalLess);
    for (std::string_view const word : words_) found_.list.push_back({before + std::string(word), explanation});
    words_.clear();
  }
  Candidates& found() { return found_; }

 private:
  std::string begun_;
  std::size_t limit_;
  std::vector<std::string_view> words_;
  Candidates found_;
};

class Completer {
 public:
  Completer(Kel::Dir::Ptr const& base, CompletionFor what, std::size_t limit)
      : base_(base), what_(what), limit_(limit) {}

  Candidates run(Path const& at, std::span<std::string const> words) {
    WordRules rules;
    rules.create = what_ == CompletionFor::set;
    WordReader reader(base_, at, rules);
    std::size_t used = 0;
    std::size_t const before = words.empty() ? 0 : words.size() - 1;
    std::string const begun = words.empty() ? std::string() : words.back();
    while (used < before && reader.expects() != Expects::nothing) {
      if (what_ == CompletionFor::insert && atQueue(reader) && !leadsBelow(reader, words.subspan(used, before - used)))
        return item(reader, words.subspan(used, before - used), begun);
      reader.take(words[used++]);
    }
    Candidates found;
    if (used == before && reader.expects() != Expects::nothing) {
      found = next(reader, begun, {});
      if (before == 0 && found.list.empty() && begun.find_first_of("/.") != std::string::npos) found = dotted(begun);
    } else if (used == before && what_ == CompletionFor::set) {
      found = value(*reader.path().steps.back().attr, begun);
    }
    found.mayEnd = mayEnd(reader, before - used);
    return found;
  }

 private:
  // Whether the command may end after the path that was read and `more` further words.
  bool mayEnd(WordReader const& reader, std::size_t more) const {
    if (what_ == CompletionFor::path) return true;
    PathStep const* const last = reader.path().empty() ? nullptr : &reader.path().steps.back();
    bool const attribute = last && last->attr;
    if (what_ == CompletionFor::insert) return false;
    if (what_ == CompletionFor::remove) return reader.expects() == Expects::key || attribute;
    if (more) return true;
    if (reader.expects() == Expects::nothing)  // a reference may be called as its target
      return attribute && last->attr->isPtr() && last->key && last->attr->keyType() == Kel::TypeOf<Kel::Name>::type();
    return reader.expects() == Expects::attribute && attribute && reader.missing() > 0;
  }

  // --- The item that is inserted into a queue ---

  static bool atQueue(WordReader const& reader) { return reader.expects() == Expects::key && reader.attr()->isQueue(); }
  // Whether the words after a queue lead to something in an item, and not to a position in the queue.
  static bool leadsBelow(WordReader const& reader, std::span<std::string const> words) {
    KelAttr const& attr = *reader.attr();
    KelAttr const* const held = attr.instantiating() && words.size() > 1 ? attr.type()->findAttr(words[1]) : nullptr;
    return words[0] != "end" && held && (held->isCollection() || held->instantiating());
  }
  // The words after a queue: `words[0]` is the position, then follow a value, or parameters and their values.
  Candidates item(WordReader const& reader, std::span<std::string const> words, std::string const& begun) const {
    KelAttr const& attr = *reader.attr();
    Candidates found;
    if (!attr.instantiating()) {
      if (words.size() == 1) found = value(attr, begun);
      found.mayEnd = words.size() == 2;
      return found;
    }
    found.mayEnd = words.size() % 2 == 1;
    if (!found.mayEnd) return found;
    Gathering gathering(begun, limit_);
    for (std::size_t n = 1; n < attr.type()->ctorArgs().size(); ++n)
      gathering.add(attr.type()->ctorArgs()[n].name.str(), "");
    found.list = std::move(gathering.found().list);
    return found;
  }

  // `head`: the part of the word before the completed part.
  Candidates next(WordReader const& reader, std::string const& begun, std::string const& head) {
    switch (reader.expects()) {
      case Expects::entry: return entries(reader, begun, head);
      case Expects::attribute: return attributes(reader, begun, head);
      case Expects::key: return keys(reader, begun, head);
      default: return {};
    }
  }

  Candidates entries(WordReader const& reader, std::string const& begun, std::string const& head) const {
    Gathering gathering(begun, limit_);
    if (Kel::Dir const* dir = asDir(reader.entity()))
      for (auto it = dir->entryStateIteratorConst(); it; ++it) {
        if (!gathering.fits(it->name().view())) continue;
        std::string const type = it->entityTypeName().str();
        gathering.found().list.push_back(
            {head + it->name().str(), type == "Kel::Dir" ? "directory" : type.substr(type.rfind(':') + 1)});
      }
    return std::move(gathering.found());
  }

  Candidates attributes(WordReader const& reader, std::string const& begun, std::string const& head) const {
    Gathering gathering(begun, limit_);
    for (KelAttr const* attr : reader.type()->attributeQ()) {
      if (attr->isFunction() || attr->isConstant() || !gathering.fits(attr->name().view())) continue;
      bool const shown =
          what_ == CompletionFor::path ? attr->copiable() || attr->ctorParam()
          : what_ == CompletionFor::remove
              ? attr->copiable()
              : attr->copiable() || (attr->ctorParam() && reader.missing() && attr != keyParam(*reader.type()));
      if (shown) gathering.found().list.push_back({head + attr->name().str(), explanationOf(*attr)});
    }
    return std::move(gathering.found());
  }

  Candidates keys(WordReader const& reader, std::string const& begun, std::string const& head) const {
    KelAttr const& attr = *reader.attr();
    Gathering gathering(begun, limit_);
    if (reader.entity()) gatherKeys(*reader.entity(), attr, gathering, head);
    if (what_ == CompletionFor::insert && attr.isQueue()) gathering.add("end", "behind the last");
    if (what_ != CompletionFor::set || attr.isQueue()) return std::move(gathering.found());
    gathering.found().hint = attr.keyIsPtr() ? withArticle(*attr.keyType()) : "a new key: " + keyHint(attr);
    addKeyParts(attr, begun, gathering.found());
    if (attr.keyIsPtr()) addTargets(*attr.keyType(), begun, gathering.found());
    // A reference may be called as its target.
    if (attr.isPtr() && attr.keyType() == Kel::TypeOf<Kel::Name>::type())
      addTargets(*attr.type(), begun, gathering.found());
    if (attr.keyType()->isEnum())
      for (std::string const& word : valueWords(*attr.keyType())) addOnce(gathering, word);
    return std::move(gathering.found());
  }
  static KeyForm keyForm(KelAttr const& attr) {
    EntityHooks const& hooks = hooksOf(*attr.type());
    return attr.instantiating() && hooks.keyForm ? hooks.keyForm(attr) : KeyForm();
  }
  static std::string keyHint(KelAttr const& attr) {
    if (KeyForm const form = keyForm(attr); form.parts.size() > 1) return form.text;
    return attr.keyType() == Kel::TypeOf<Kel::Name>::type() ? "a name" : expectation(*attr.keyType());
  }
  // The completions of a part of a new key. For the first part, existing keys take precedence as long as one fits.
  void addKeyParts(KelAttr const& attr, std::string const& begun, Candidates& found) const {
    KeyForm const form = keyForm(attr);
    auto const part = static_cast<std::size_t>(std::count(begun.begin(), begun.end(), form.separator));
    bool const last = part + 1 == form.parts.size();
    if (part >= form.parts.size() || !form.parts[part] || (part == 0 && !found.list.empty())) return;
    std::size_t const at = begun.rfind(form.separator);
    std::string const head = at == std::string::npos ? std::string() : begun.substr(0, at + 1);
    Candidates const parts = value(*form.parts[part], begun.substr(head.size()));
    found.more = found.more || parts.more;
    for (Candidate const& each : parts.list) {
      if (found.list.size() >= limit_) return;
      std::string const word = head + each.word + (last ? "" : std::string(1, form.separator));
      if (std::none_of(found.list.begin(), found.list.end(), [&](Candidate const& c) { return c.word == word; }))
        found.list.push_back({word, each.explanation, !last});
    }
  }
  static void addOnce(Gathering& gathering, std::string const& word) {
    for (Candidate const& known : gathering.found().list)
      if (known.word == word) return;
    gathering.add(word, "");
  }

  void gatherKeys(Kel::Entity const& e, KelAttr const& attr, Gathering& gathering, std::string const& head) const {
    if (attr.isQueue()) {
      Kel::U32 const count = attr.access().count(attr, e);
      for (Kel::U32 i = 0; i < std::min<std::size_t>(count, limit_); ++i) gathering.add(std::to_string(i), "position");
      gathering.found().more = count > limit_;
    } else if (attr.instantiating()) {
      attr.access().eachChild(
          e, [](Kel::Entity* child, void* to) { static_cast<Gathering*>(to)->offer(child->name().view()); },
          &gathering);
      gathering.keep(attr.type()->name().str(), head);
    } else {
      std::vector<std::string> texts;
      eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t) {
        if (!attr.keyIsPtr())
          texts.push_back(textOf(*it.key()));
        else if (it.keyTarget())
          texts.push_back(targetText(*it.keyTarget(), *base_));
        if (!gathering.fits(texts.empty() ? std::string_view() : texts.back())) texts.pop_back();
        return true;
      });
      for (std::string const& text : texts) gathering.offer(text);
      gathering.keep(explanationOf(attr), head);
    }
  }

  Candidates value(KelAttr const& attr, std::string const& begun) const {
    Candidates found;
    if (attr.isPtr()) {
      addTargets(*attr.type(), begun, found);
      found.hint = withArticle(*attr.type());
      return found;
    }
    if (attr.instantiating()) return found;
    Gathering gathering(begun, limit_);
    for (std::string const& word : valueWords(*attr.type())) gathering.add(word, "");
    gathering.found().hint = expectation(*attr.type());
    return std::move(gathering.found());
  }

  // Targets are offered by their names; those that share a name, by their paths.
  void addTargets(KelType const& wanted, std::string const& begun, Candidates& found) const {
    struct Target {
      std::string_view name;
      Kel::Entity const* entity;
    };
    std::vector<Target> targets;
    auto const less = [](Target const& a, Target const& b) { return naturalLess(a.name, b.name); };
    TargetFinder(*base_, wanted).each([&](Kel::Entity const& e) {
      Target const target{e.name().view(), &e};
      if (!target.name.starts_with(begun)) return true;
      if (targets.size() == limit_) {
        found.more = true;
        if (targets.empty() || !less(target, targets.front())) return true;
        std::pop_heap(targets.begin(), targets.end(), less);
        targets.pop_back();
      }
      targets.push_back(target);
      std::push_heap(targets.begin(), targets.end(), less);
      return true;
    });
    std::sort_heap(targets.begin(), targets.end(), less);
    std::size_t const count = targets.size();
    std::set<std::string> known;  // members that are there
    for (Candidate const& each : found.list) known.insert(each.word);
    for (std::size_t i = 0; i < count; ++i) {
      bool const shared = (i > 0 && targets[i - 1].name == targets[i].name) ||
                          (i + 1 < count && targets[i + 1].name == targets[i].name) || targets[i].name.empty();
      std::string const path = targetText(*targets[i].entity, *base_);
      std::string const word = shared ? path : std::string(targets[i].name);
      if (!known.count(word)) found.list.push_back({word, shared ? "" : path});
    }
    if (count == 0 && begun.find_first_of("/.") != std::string::npos)
      for (Candidate& candidate : dotted(begun).list) found.list.push_back(std::move(candidate));
  }

  // Completes the last component of a path in the dotted form.
  Candidates dotted(std::string const& begun) const {
    for (std::size_t at = begun.find_last_of("/."); at != std::string::npos && at > 0;
         at = begun.find_last_of("/.", at - 1)) {
      std::string const head = begun.substr(0, at), tail = begun.substr(at + 1);
      try {
        WordReader const reader(base_, parsePath(base_, head), {});
        bool const slash = begun[at] == '/';
        if (reader.missing() || (reader.expects() == Expects::attribute) == slash) continue;
        Candidates found = Completer(*this).next(reader, tail, head + begun[at]);
        if (!found.list.empty()) return found;
      } catch (InputError const&) {
        continue;
      }
    }
    return {};
  }

  Kel::Dir::Ptr base_;
  CompletionFor what_;
  std::size_t limit_;
};

}  // namespace

Candidates complete(Kel::Dir::Ptr const& base, Path const& at, std::span<std::string const> words, CompletionFor what,
                    std::size_t limit) {
  try {
    return Completer(base, what, limit).run(at, words);
  } catch (InputError const& e) {  // the words before lead nowhere
    Candidates none;
    none.mayEnd = false;
    none.refusal = e.what();
    return none;
  }
}

}  // namespace Cli::Service
