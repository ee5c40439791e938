#include "service/Path.h"

#include <algorithm>
#include <charconv>

#include "service/PathWords.h"
#include "service/ValueText.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

namespace {

template <class T>
std::strong_ordering compareNumbers(std::string_view a, std::string_view b) {
  T x{}, y{};
  std::from_chars(a.data(), a.data() + a.size(), x);
  std::from_chars(b.data(), b.data() + b.size(), y);
  return x <=> y;
}

bool isInteger(KelType const& type) {
  using B = KelType::Builtin;
  return type.isBuiltin() && type.builtin() >= B::s8 && type.builtin() <= B::u64;
}

std::strong_ordering compareKeys(GenericIf::PtrConst const& a, GenericIf::PtrConst const& b) {
  if (!a || !b) return static_cast<bool>(a) <=> static_cast<bool>(b);
  std::string const x = a->text().str(), y = b->text().str();
  if (a->type() == b->type() && isInteger(*a->type())) {
    bool const isUnsigned = a->type()->builtin() == KelType::Builtin::u64;
    auto const order = isUnsigned ? compareNumbers<Kel::U64>(x, y) : compareNumbers<Kel::S64>(x, y);
    if (order != std::strong_ordering::equal) return order;
  }
  return x <=> y;
}

}  // namespace

PathStep entryStep(Kel::Name name) { return {std::move(name), nullptr, nullptr}; }
PathStep attributeStep(KelAttr const& attr) { return {{}, &attr, nullptr}; }
PathStep memberStep(KelAttr const& attr, GenericIf::PtrConst key) { return {{}, &attr, std::move(key)}; }
PathStep queueStep(KelAttr const& attr, std::size_t position) {
  return memberStep(attr, GenericIf::of(static_cast<Kel::U32>(position)));
}

// Attributes are compared by name, because the two trees may have different types.
bool PathStep::operator==(PathStep const& other) const {
  if (!attr || !other.attr) return attr == other.attr && entry == other.entry;
  if (attr != other.attr && !(attr->name() == other.attr->name())) return false;
  return compareKeys(key, other.key) == std::strong_ordering::equal;
}

std::strong_ordering PathStep::operator<=>(PathStep const& other) const {
  if (!attr || !other.attr) {
    if (attr != other.attr) return static_cast<bool>(attr) <=> static_cast<bool>(other.attr);
    return entry.view() <=> other.entry.view();
  }
  if (attr != other.attr && !(attr->name() == other.attr->name())) {
    if (attr->id() != other.attr->id()) return attr->id() <=> other.attr->id();
    return attr->name().view() <=> other.attr->name().view();
  }
  return compareKeys(key, other.key);
}

std::strong_ordering Path::operator<=>(Path const& other) const {
  return std::lexicographical_compare_three_way(steps.begin(), steps.end(), other.steps.begin(), other.steps.end());
}

std::string Path::text() const {
  std::string text;
  for (PathStep const& step : steps) {
    if (!step.attr) {
      if (!text.empty()) text += '/';
      text += step.entry.str();
      continue;
    }
    if (!text.empty()) text += '.';
    text += step.attr->name().str();
    if (step.key) text += '/' + step.keyText();
  }
  return text;
}

std::vector<std::string> Path::words() const {
  std::vector<std::string> words;
  for (PathStep const& step : steps) {
    words.push_back(step.attr ? step.attr->name().str() : step.entry.str());
    if (step.key) words.push_back(textOf(*step.key));
  }
  return words;
}

std::string Path::line() const { return joinedWords(words()); }

std::size_t Path::position() const {
  if (steps.empty() || !steps.back().attr || !steps.back().attr->isQueue() || !steps.back().key)
    throw std::logic_error("the path '" + text() + "' leads to no item of a queue");
  return steps.back().key->attrVal<Kel::U32>();
}

Path Path::operator/(PathStep step) const {
  Path longer = *this;
  longer.steps.push_back(std::move(step));
  return longer;
}

Path Path::parent() const {
  Path shorter = *this;
  if (!shorter.steps.empty()) shorter.steps.pop_back();
  return shorter;
}

// An attribute as a whole contains its members.
bool Path::isWithin(Path const& top) const {
  if (steps.size() < top.steps.size()) return false;
  for (std::size_t i = 0; i < top.steps.size(); ++i) {
    bool const last = i + 1 == top.steps.size();
    if (steps[i] == top.steps[i]) continue;
    PathStep whole = steps[i];
    whole.key = nullptr;
    if (!last || !(whole == top.steps[i])) return false;
  }
  return true;
}

// --- From entities to paths ---

namespace {

PathStep stepTo(Kel::Entity const& e, Kel::Entity const& owner, KelAttr const& attr) {
  if (!attr.isCollection()) return attributeStep(attr);
  if (attr.isQueue()) return queueStep(attr, attr.access().positionOf(owner, e));
  return memberStep(attr, valueOfAttr(e, *keyParam(*e.type())));
}

}  // namespace

std::optional<Path> pathOf(Kel::Entity const& entity, Kel::Entity const& base) {
  Path path;
  for (Kel::Entity const* at = &entity; at != &base; at = at->parent()) {
    Kel::Entity const* const owner = at->parent();
    if (!owner) return std::nullopt;
    if (asDir(owner)) {
      if (static_cast<Kel::Dir const*>(owner)->child(at->name()) != at) return std::nullopt;
      path.steps.push_back(entryStep(at->name()));
    } else {
      path.steps.push_back(stepTo(*at, *owner, *at->parentAttr()));
    }
  }
  std::reverse(path.steps.begin(), path.steps.end());
  return path;
}

std::string targetText(Kel::Entity const& target, Kel::Entity const& base) {
  if (auto const path = pathOf(target, base)) return path->empty() ? "." : path->text();
  if (target.root() != base.root()) return {};
  return target.parent() ? target.fullName().str() : "/";
}

// --- From paths to places ---

namespace {

// The member at a position of a queue: its index, and the entity if it is one.
GenericIf::PtrConst indexAt(Kel::Entity const& owner, KelAttr const& attr, Kel::U32 position, Kel::Entity** entity) {
  Kel::IteratorRoom room;
  Kel::AttrIterator const& it = attr.access().iterateAt(owner, position, room);
  if (!it.nonNull()) return nullptr;
  *entity = it.target();
  return it.key();
}

class Locator {
 public:
  Locator(Kel::Dir::Ptr const& base, Path const& path) : base_(base), path_(path) { place_.entity = base; }

  Place run() {
    for (std::size_t i = 0; i < path_.steps.size(); ++i) {
      if (step(path_.steps[i])) continue;
      place_.missing = path_.steps.size() - i;
      if (place_.missing > 1) place_ = Place{nullptr, nullptr, nullptr, false, place_.missing};
      break;
    }
    return place_;
  }

 private:
  bool step(PathStep const& step) {
    if (place_.attr) return false;  // nothing is below a value
    return step.attr ? attribute(step) : entry(step.entry);
  }

  bool entry(Kel::Name const& name) {
    Kel::Dir const* const dir = asDir(place_.entity.ptr());
    Kel::Entity* const child = dir ? const_cast<Kel::Entity*>(dir->child(name)) : nullptr;
    if (child) place_.entity = Kel::Entity::Ptr(child);
    return child;
  }

  bool attribute(PathStep const& step) {
    KelAttr const* const attr = place_.entity->type()->findAttr(step.attr->name());
    if (!attr || attr->isFunction()) return false;
    place_.attr = attr;
    if (step.key && attr->isCollection()) return member(*attr, step);
    if (attr->isCollection() || !attr->instantiating()) return !step.key;
    return enter(singleTarget(*place_.entity, *attr));
  }

  bool member(KelAttr const& attr, PathStep const& step) {
    place_.isMember = !attr.instantiating();
    Kel::Entity* child = nullptr;
    if (attr.isQueue()) {
      auto const* const position = step.key->attrValPtr<Kel::U32>();
      if (position) place_.key = indexAt(*place_.entity, attr, *position, &child);
      return attr.instantiating() ? enter(child) : place_.key != nullptr;
    }
    place_.key = step.key;
    if (attr.keyIsPtr()) {
      std::string const text = step.keyText();
      place_.key = text.empty() ? nullptr : GenericIf::ofEntity(targetAt(base_, text));
      if (!text.empty() && !place_.key) return false;
      if (place_.key && !place_.key->type()->isA(attr.keyType())) return false;
    } else if (step.key->type() != attr.keyType()) {
      return false;
    }
    if (!attr.instantiating()) return hasMember(*place_.entity, attr, place_.key.ptr());
    GenericIf::Ptr const found = attr.access().get(attr, place_.entity.ptr(), place_.key.ptr(), false);
    return enter(found ? found->entity().ptr() : nullptr);
  }

  bool enter(Kel::Entity* child) {
    if (!child) return false;
    place_ = Place{Kel::Entity::Ptr(child), nullptr, nullptr, false, 0};
    return true;
  }

  Kel::Dir::Ptr base_;
  Path const& path_;
  Place place_;
};

bool isBelowQueue(Kel::Entity const* e) {
  for (; e && e->parent(); e = e->parent())
    if (e->parentAttr() && e->parentAttr()->isQueue()) return true;
  return false;
}

}  // namespace

Place locate(Kel::Dir::Ptr const& base, Path const& path) { return Locator(base, path).run(); }

Kel::Entity::Ptr entityAt(Kel::Dir::Ptr const& base, Path const& path) {
  Place const place = locate(base, path);
  return place.there() && !place.attr ? place.entity : nullptr;
}

Kel::Entity::Ptr targetAt(Kel::Dir::Ptr const& base, std::string_view text) {
  if (text.empty()) return nullptr;
  if (text == ".") return base;
  if (text == "/") return Kel::Entity::Ptr(const_cast<Kel::Entity*>(base->root()));
  if (text.front() == '/') return base->entity(Kel::String8(text));
  // The framework's look-up is tried first. It names members of queues by their indices.
  Kel::Entity::Ptr quick = base->entity(Kel::String8(text));
  if (quick && !isBelowQueue(quick.ptr())) return quick;
  try {
    return entityAt(base, parsePath(base, text));
  } catch (InputError const&) {
    return nullptr;
  }
}

// --- From texts to paths ---

namespace {

class PathParser {
 public:
  explicit PathParser(Kel::Dir::Ptr const& base, std::string_view text) : base_(base), text_(text) {}

  Path run() {
    if (text_.empty() || text_ == ".") return {};
    if (entries(*base_, 0)) return std::move(path_);
    throw InputError("'" + std::string(text_) + "': " + problem_);
  }

 private:
  static constexpr unsigned maxTries = 20000;  // then a path with very many separators is refused

  // The next end of a name after `at`.
  std::size_t nextEnd(std::size_t at) const { return std::min(text_.find_first_of("./", at), text_.size()); }
  std::string_view part(std::size_t from, std::size_t to) const { return text_.substr(from, to - from); }
  bool fail(std::size_t at, std::string const& what) {
    if (problem_.empty() || at > deepest_) {
      deepest_ = at;
      problem_ = what;
    }
    return false;
  }
  std::string ledTo(std::size_t at) const { return "'" + std::string(text_.substr(0, at - 1)) + "'"; }
  // Takes a step and goes on after it. Takes it back if that leads nowhere.
  template <class Rest>
  bool with(PathStep step, Rest const& rest) {
    path_.steps.push_back(std::move(step));
    if (rest()) return true;
    path_.steps.pop_back();
    return false;
  }

  bool entries(Kel::Dir const& dir, std::size_t at) {
    for (std::size_t end = nextEnd(at);; end = nextEnd(end + 1)) {
      if (++tries_ > maxTries) return fail(at, "is no path");
      Kel::Name const name(part(at, end));
      if (dir.entry(name) && with(entryStep(name), [&] { return behindEntry(dir, name, end); })) return true;
      if (end == text_.size()) break;
    }
    return fail(at, (at ? ledTo(at) + " has" : std::string("there is")) + " no entry '" +
                        std::string(part(at, nextEnd(at))) + "'" + nearEntries(dir, at));
  }

  bool behindEntry(Kel::Dir const& dir, Kel::Name const& name, std::size_t end) {
    if (end == text_.size()) return true;
    Kel::Entity const* const child = dir.child(name);
    if (!child) return fail(end + 1, ledTo(end + 1) + " has no entity yet");
    return behindEntity(child, child->type(), end);
  }

  bool behindEntity(Kel::Entity const* e, KelType const* type, std::size_t end) {
    if (end == text_.size()) return true;
    if (!isDirType(type)) {
      if (text_[end] == '.') return attribute(e, *type, end + 1);
      return fail(end, ledTo(end + 1) + " is no directory");
    }
    if (text_[end] != '/' || !e) return fail(end, ledTo(end + 1) + " is a directory");
    return entries(static_cast<Kel::Dir const&>(*e), end + 1);
  }

  bool attribute(Kel::Entity const* e, KelType const& type, std::size_t at) {
    std::size_t const end = nextEnd(at);
    std::string const name(part(at, end));
    KelAttr const* const attr = type.findAttr(name);
    if (!attr || attr->isFunction())
      return fail(
          at, ledTo(at) + " (" + type.name().str() + ") has no attribute '" + name + "'" + nearAttributes(type, name));
    if (attr->isCollection()) {
      if (end == text_.size()) return with(attributeStep(*attr), [] { return true; });
      if (text_[end] == '/') return key(e, *attr, end + 1);
      return fail(end, ledTo(end + 1) + " is a collection, and a key follows behind '/'");
    }
    return with(attributeStep(*attr), [&] {
      if (end == text_.size()) return true;
      if (!attr->instantiating()) return fail(end, ledTo(end + 1) + " is a value, and nothing is below it");
      Kel::Entity const* const child = e ? singleTarget(*e, *attr) : nullptr;
      return behindEntity(child, child ? child->type() : attr->type(), end);
    });
  }

  bool key(Kel::Entity const* e, KelAttr const& attr, std::size_t at) {
    if (attr.isQueue()) return position(e, attr, at);
    if (!attr.instantiating()) {
      auto const boxed = keyOf(attr, part(at, text_.size()), at);
      return boxed && with(memberStep(attr, boxed), [] { return true; });
    }
    bool found = false;
    for (std::size_t end = nextEnd(at); e; end = nextEnd(end + 1)) {
      if (++tries_ > maxTries) return fail(at, "is no path");
      if (Kel::Entity const* const child = attr.access().child(*e, part(at, end))) {
        found = true;
        auto const boxed = valueOfAttr(*child, *keyParam(*child->type()));
        if (with(memberStep(attr, boxed), [&] { return behindEntity(child, child->type(), end); })) return true;
      }
      if (end == text_.size()) break;
    }
    return !found && missingMember(attr, at);
  }

  // A member that does not exist. Its key is the shortest one after which the rest is a path of the model, or all of
  // it.
  bool missingMember(KelAttr const& attr, std::size_t at) {
    for (std::size_t end = nextEnd(at);; end = nextEnd(end + 1)) {
      if (++tries_ > maxTries) return fail(at, "is no path");
      auto const boxed = keyOf(attr, part(at, end), at);
      if (boxed && with(memberStep(attr, boxed), [&] { return behindEntity(nullptr, attr.type(), end); })) return true;
      if (end == text_.size()) return false;
    }
  }

  bool position(Kel::Entity const* e, KelAttr const& attr, std::size_t at) {
    std::size_t const end = nextEnd(at);
    Kel::U32 number = 0;
    auto const [stop, error] = std::from_chars(text_.data() + at, text_.data() + end, number);
    if (error != std::errc() || stop != text_.data() + end)
      return fail(at, "'" + std::string(part(at, end)) + "' is no position in the queue " + ledTo(at));
    Kel::Entity* child = nullptr;
    if (e) indexAt(*e, attr, number, &child);
    return with(queueStep(attr, number), [&] {
      if (end == text_.size()) return true;
      if (!attr.instantiating()) return fail(end, ledTo(end + 1) + " is a value, and nothing is below it");
      return behindEntity(child, child ? child->type() : attr.type(), end);
    });
  }

  GenericIf::PtrConst keyOf(KelAttr const& attr, std::string_view text, std::size_t at) {
    if (attr.keyIsPtr()) return GenericIf::of(Kel::String8(text));
    Kel::Expect const wrong(Kel::Exception::rangeId);
    try {
      return attr.keyType()->genericFromText(text);
    } catch (Kel::RangeException const& e) {
      fail(at, "'" + std::string(text) + "' is no key of " + ledTo(at) + ": " + e.what());
      return nullptr;
    }
  }

  std::string suggestion(std::string const& near) const {
    return near.empty() ? std::string() : "; did you mean " + near + "?";
  }
  std::string nearEntries(Kel::Dir const& dir, std::size_t at) const {
    std::vector<std::string> names;
    for (auto it = dir.entryStateIteratorConst(); it; ++it) names.push_back(it->name().str());
    return suggestion(nearest(part(at, nextEnd(at)), names));
  }
  std::string nearAttributes(KelType const& type, std::string const& name) const {
    std::vector<std::string> names;
    for (KelAttr const* attr : type.attributeQ())
      if (!attr->isFunction()) names.push_back(attr->name().str());
    return suggestion(nearest(name, names));
  }

  Kel::Dir::Ptr base_;
  std::string_view text_;
  Path path_;
  std::string problem_;
  std::size_t deepest_ = 0;
  unsigned tries_ = 0;
};

}  // namespace

Path parsePath(Kel::Dir::Ptr const& base, std::string_view text) { return PathParser(base, text).run(); }

}  // namespace Cli::Service
