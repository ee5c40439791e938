#include "service/WordReader.h"

#include <algorithm>

#include "service/JsonKeys.h"
#include "service/Listed.h"
#include "service/ModelHooks.h"
#include "service/PendingReferences.h"
#include "service/ValueText.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

namespace {

constexpr std::size_t fewNames = 12;     // up to so many names are all listed
constexpr std::size_t manyNames = 2000;  // among more, no near ones are looked for, because the user waits

// What was expected in place of a word.
std::string insteadOf(std::string const& word, std::vector<std::string> const& names) {
  if (std::string const near = nearest(word, names); !near.empty()) return "; did you mean " + near + "?";
  if (names.empty() || names.size() > fewNames) return {};
  return "; there is " + listed(names);
}

// The word itself if it is a name, or the only name that begins with it. Empty if there is none.
std::string resolved(std::string const& word, std::vector<std::string> const& names) {
  std::vector<std::string> begun;
  for (std::string const& name : names) {
    if (name == word) return word;
    if (name.starts_with(word)) begun.push_back(name);
  }
  if (begun.size() > 1) {
    std::size_t const count = begun.size();
    begun.resize(std::min(count, fewNames));
    throw InputError("'" + word + "' may be " + listed(begun) + (count > fewNames ? ", …" : ""));
  }
  return begun.empty() || word.empty() ? std::string() : begun.front();
}

std::vector<std::string> attributeNames(KelType const& type) {
  std::vector<std::string> names;
  for (KelAttr const* attr : type.attributeQ())
    if (!attr->isFunction() && !attr->isConstant() && (attr->ctorParam() || attr->logging()))
      names.push_back(attr->name().str());
  return names;
}

}  // namespace

std::string withArticle(KelType const& type) {
  std::string const name = type.name().str();
  bool const vowel = !name.empty() && std::string_view("AEIOUaeiou").find(name.front()) != std::string_view::npos;
  return (vowel ? "an " : "a ") + name;
}

std::string explanationOf(KelAttr const& attr) {
  std::string const type = attr.type()->name().str();
  std::string what = attr.isPtr() ? "reference to " + type : attr.instantiating() ? type : expectation(*attr.type());
  if (attr.isQueue()) return "queue of " + what;
  if (!attr.isCollection()) return what;
  std::string const key = attr.keyType()->name().str();
  return "collection of " + what + " by " + (attr.keyType() == Kel::TypeOf<Kel::Name>::type() ? "name" : key);
}

WordReader::WordReader(Kel::Dir::Ptr base, Path const& at, WordRules const& rules)
    : base_(std::move(base)), rules_(rules) {
  goTo(at);
}

// Continues at a path that exists in the tree.
void WordReader::goTo(Path const& path) {
  Place const place = locate(base_, path);
  path_ = path;
  missing_ = place.missing;
  PathStep const* const last = path.empty() ? nullptr : &path.steps.back();
  if (!place.attr && place.there()) return enter(place.entity.ptr(), place.entity->type());
  if (!last || !last->attr) throw InputError("there is nothing at '" + path.text() + "'");
  attr_ = last->attr;
  entity_ = place.missing > 1 ? nullptr : place.entity;
  type_ = attr_->type();
  if (attr_->isCollection() && !last->key) {
    expects_ = Expects::key;
    path_.steps.pop_back();
  } else if (attr_->instantiating()) {
    enter(nullptr, type_);
  } else {
    expects_ = Expects::nothing;
  }
}

void WordReader::take(std::string const& word) {
  bool const first = std::exchange(first_, false);
  if (first && word.find_first_of("/.") != std::string::npos && expects_ != Expects::key && takeDotted(word)) return;
  switch (expects_) {
    case Expects::entry: return takeEntry(word);
    case Expects::attribute: return takeAttribute(word);
    case Expects::key: return takeKey(word);
    case Expects::nothing: break;
  }
  throw InputError("'" + word + "': nothing follows '" + path_.text() + "'");
}

void WordReader::enter(Kel::Entity* child, KelType const* type) {
  entity_ = Kel::Entity::Ptr(child);
  type_ = type;
  attr_ = nullptr;
  if (!child && !missing_) missing_ = 1;
  expects_ = isDirType(type) ? Expects::entry : Expects::attribute;
}

void WordReader::leaf(bool there) {
  if (!there) ++missing_;
  expects_ = Expects::nothing;
}

// Reads a path in the dotted form. A word that is the name of an entry is taken as that.
bool WordReader::takeDotted(std::string const& word) {
  if (Kel::Dir const* dir = asDir(entity_.ptr()); dir && dir->entry(Kel::Name(word))) return false;
  Path const path = parsePath(base_, word);
  Place const place = locate(base_, path);
  if (!place.there() && !rules_.create) {
    Path known = path;
    known.steps.resize(path.steps.size() - place.missing);
    PathStep const& step = path.steps[known.steps.size()];
    std::string const name = step.key ? step.keyText() : step.attr ? step.attr->name().str() : step.entry.str();
    throw InputError("'" + word + "': '" + known.text() + "' has no '" + name + "'");
  }
  goTo(path);
  return true;
}

void WordReader::takeEntry(std::string const& word) {
  Kel::Dir const* const dir = asDir(entity_.ptr());
  if (!dir) throw InputError("'" + word + "': there is nothing below '" + path_.text() + "' yet");
  std::vector<std::string> names;
  for (auto it = dir->entryStateIteratorConst(); it; ++it) names.push_back(it->name().str());
  std::string const name = resolved(word, names);
  if (name.empty()) {
    std::string const where = path_.empty() ? "there" : "in '" + path_.text() + "' there";
    throw InputError("'" + word + "': " + where + " is no such entry" + insteadOf(word, names));
  }
  path_.steps.push_back(entryStep(Kel::Name(name)));
  Kel::Entity* const child = const_cast<Kel::Entity*>(dir->child(name));
  if (!child) throw InputError("'" + word + "': the entity of '" + path_.text() + "' is not there yet");
  enter(child, child->type());
}

void WordReader::takeAttribute(std::string const& word) {
  std::vector<std::string> const names = attributeNames(*type_);
  std::string const name = resolved(word, names);
  if (name.empty())
    throw InputError("'" + word + "': " + withArticle(*type_) + " has no such attribute" + insteadOf(word, names));
  KelAttr const* const attr = type_->findAttr(name);
  attr_ = attr;
  if (attr->isCollection()) {
    expects_ = Expects::key;
    return;
  }
  path_.steps.push_back(attributeStep(*attr));
  if (!attr->instantiating()) {
    if (missing_) ++missing_;
    type_ = attr->type();
    expects_ = Expects::nothing;
    return;
  }
  Kel::Entity* const child = entity_ ? singleTarget(*entity_, *attr) : nullptr;
  if (!child && missing_) ++missing_;
  enter(child, child ? child->type() : attr->type());
}

void WordReader::takeKey(std::string const& word) {
  if (attr_->isQueue()) return takePosition(word);
  if (attr_->instantiating()) return takeOwnedKey(word);
  takeValueKey(word);
}

void WordReader::takePosition(std::string const& word) {
  Kel::U32 const count = entity_ ? attr_->access().count(*attr_, *entity_) : 0;
  auto const position = unsignedNumber(word);
  if (!position || *position >= count) {
    std::string const range = count == 0 ? "is empty" : "has the positions 0 to " + std::to_string(count - 1);
    throw InputError("'" + word + "': the queue '" + (path_ / attributeStep(*attr_)).text() + "' " + range);
  }
  path_.steps.push_back(queueStep(*attr_, *position));
  type_ = attr_->type();
  if (!attr_->instantiating()) return leaf(true);
  Place const place = locate(base_, path_);
  enter(place.entity.ptr(), place.entity->type());
}

// The key in the model's spelling.
GenericIf::PtrConst WordReader::keyFrom(std::string const& word) const {
  if (rules_.asWritten) return writtenValue(*attr_->keyType(), word);
  EntityHooks const& hooks = hooksOf(*attr_->type());
  if (attr_->instantiating() && hooks.key) return valueFromText(*attr_->keyType(), hooks.key(*attr_, word));
  return valueFromText(*attr_->keyType(), word);
}

void WordReader::noKey(std::string const& word) const {
  std::vector<std::string> names;
  if (entity_)
    eachMember(*entity_, *attr_, [&](Kel::AttrIterator const& it, std::size_t) {
      if (attr_->instantiating())
        names.push_back(it.target()->name().str());
      else
        names.push_back(attr_->keyIsPtr() ? it.keyTarget() ? it.keyTarget()->name().str() : "" : textOf(*it.key()));
      return names.size() < manyNames;
    });
  throw InputError("'" + word + "': there is no such " + attr_->name().str() + insteadOf(word, names));
}

void WordReader::takeOwnedKey(std::string const& word) {
  Kel::Entity* child = entity_ ? attr_->access().child(*entity_, word) : nullptr;
  GenericIf::PtrConst key;
  if (!child) {
    try {
      key = keyFrom(word);
    } catch (InputError const&) {
      if (rules_.create) throw;
    }
    GenericIf::Ptr const found = entity_ && key ? gifOf(*entity_)->attribute(attr_->id(), key) : nullptr;
    child = found ? found->entity().ptr() : nullptr;
  }
  if (!child && !rules_.create) {
    std::vector<std::string> begun;
    if (entity_ && rules_.abbreviateKeys && !word.empty())
      eachMember(*entity_, *attr_, [&](Kel::AttrIterator const& it, std::size_t) {
        if (it.target()->name().view().starts_with(word)) begun.push_back(it.target()->name().str());
        return begun.size() <= fewNames;
      });
    std::string const name = resolved(word, begun);
    if (name.empty()) noKey(word);
    child = attr_->access().child(*entity_, name);
  }
  if (child) key = valueOfAttr(*child, *keyParam(*child->type()));
  path_.steps.push_back(memberStep(*attr_, key));
  if (!child && missing_) ++missing_;
  enter(child, child ? child->type() : attr_->type());
}

// Takes a word as the key of a member that waits for its target.
bool WordReader::takePendingKey(std::string const& word) {
  if (!rules_.pending || !attr_->keyIsPtr()) return false;
  PathStep const member = memberStep(*attr_, GenericIf::of(Kel::String8(word)));
  if (!rules_.pending->find(path_ / member)) return false;
  path_.steps.push_back(member);
  type_ = attr_->type();
  leaf(false);
  return true;
}

void WordReader::takeValueKey(std::string const& word) {
  if (takePendingKey(word)) return;
  GenericIf::PtrConst key;
  GenericIf::PtrConst own;  // as in this tree
  if (attr_->keyIsPtr() && (rules_.asWritten || word.empty())) {
    own = GenericIf::ofEntity(targetAt(base_, word));
    key = GenericIf::of(Kel::String8(word));
  } else if (attr_->keyIsPtr()) {
    Kel::Entity::Ptr const target = targetFromText(base_, *attr_, *attr_->keyType(), word);
    own = GenericIf::ofEntity(target);
    key = GenericIf::of(Kel::String8(target ? targetText(*target, *base_) : ""));
  } else {
    own = key = keyFrom(word);
  }
  bool const waits = attr_->keyIsPtr() && !own && !key->text().empty();  // for its target
  bool const there = entity_ && !waits && hasMember(*entity_, *attr_, own.ptr());
  if (!there && !rules_.create) noKey(word);
  path_.steps.push_back(memberStep(*attr_, key));
  type_ = attr_->type();
  leaf(there);
}

// --- Whole paths ---

WordPath readPath(Kel::Dir::Ptr const& base, Path const& at, std::span<std::string const> words,
                  WordRules const& rules) {
  WordReader reader(base, at, rules);
  std::size_t used = 0;
  while (used < words.size() && reader.expects() != WordReader::Expects::nothing) reader.take(words[used++]);
  WordPath read{reader.path(), used, reader.missing(), reader.type()};
  if (reader.expects() == WordReader::Expects::key) {
    read.path.steps.push_back(attributeStep(*reader.attr()));
    read.type = reader.attr()->type();
    if (read.missing) ++read.missing;
  }
  return read;
}

}  // namespace Cli::Service
