// Differences as commands.
#include "service/Commands.h"

#include <algorithm>
#include <map>

#include "service/Difference.h"
#include "service/JsonKeys.h"
#include "service/JsonTree.h"
#include "service/Prototypes.h"
#include "service/ValueText.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

namespace {

Words operator+(Words words, Words const& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

// The positions of a queue's items after the edits, and the commands that bring them there.
class QueuePlan {
 public:
  void add(Difference const& difference) {
    Difference::Run const run = difference.run.value_or(Difference::Run());
    bool const moved = difference.kind == DifferenceKind::reordered;
    std::size_t const gone = difference.before.size(), come = difference.after.size();
    for (std::size_t i = 0; i < gone; ++i) taken_[run.from + i] = moved;
    for (std::size_t i = 0; i < come; ++i) placed_[run.to + i] = {moved ? nullptr : &difference.after[i], run.from + i};
    size_ = std::max(size_, std::max(run.from + gone, run.to + come));
    total_ += gone + come;
  }

  // The position after all edits of the item that was at `from` before.
  std::size_t after(std::size_t from) {
    plan();
    auto const found = positions_.find(from);
    return found == positions_.end() ? final_.size() + from - length() : found->second;
  }

  // Deletions from the end, then insertions and moves from the front.
  template <class Delete, class Insert, class Move>
  void run(Delete const& drop, Insert const& insert, Move const& move) {
    plan();
    std::vector<Slot> now;
    for (std::size_t i = 0; i < length(); ++i) now.push_back({nullptr, i});
    for (std::size_t i = length(); i-- > 0;) {
      auto const found = taken_.find(i);
      if (found == taken_.end() || found->second) continue;
      drop(i);
      now.erase(now.begin() + static_cast<std::ptrdiff_t>(i));
    }
    for (std::size_t p = 0; p < final_.size(); ++p) {
      Slot const& wanted = final_[p];
      if (wanted.item) {
        insert(p, *wanted.item);
        now.insert(now.begin() + static_cast<std::ptrdiff_t>(p), wanted);
        continue;
      }
      while (p < now.size() && !(now[p].id == wanted.id && !now[p].item)) {
        std::size_t const here = now[p].item ? 0 : now[p].id;
        bool const moves = !now[p].item && taken_.count(here) && !moved_[here];
        std::size_t const to = moves ? before(now, positions_[here]) : 0;
        if (moves && to > p) {  // it is on its way to a place further behind
          moved_[here] = true;
          shift(now, p, to, move);
        } else {
          shift(now, indexOf(now, wanted.id), p, move);
        }
      }
    }
  }

 private:
  struct Slot {
    Json const* item;  // a new one; null: the one that was at position `id`
    std::size_t id;
  };

  std::size_t length() const { return size_ + total_; }
  void plan() {
    if (!final_.empty()) return;
    std::size_t old = 0;
    auto const nextOld = [&] {
      while (taken_.count(old)) ++old;
      return old++;
    };
    std::size_t const end = length();
    while (true) {
      auto const placed = placed_.find(final_.size());
      if (placed != placed_.end()) {
        if (!placed->second.item) positions_[placed->second.id] = final_.size();
        final_.push_back(placed->second);
        continue;
      }
      std::size_t const id = nextOld();
      if (id >= end) break;
      positions_[id] = final_.size();
      final_.push_back({nullptr, id});
    }
  }
  // How many of the present items belong before a position.
  std::size_t before(std::vector<Slot> const& slots, std::size_t position) {
    return static_cast<std::size_t>(std::count_if(
        slots.begin(), slots.end(), [&](Slot const& slot) { return slot.item || positions_[slot.id] < position; }));
  }
  static std::size_t indexOf(std::vector<Slot> const& slots, std::size_t id) {
    for (std::size_t i = 0; i < slots.size(); ++i)
      if (!slots[i].item && slots[i].id == id) return i;
    return slots.size() - 1;
  }
  template <class Move>
  static void shift(std::vector<Slot>& slots, std::size_t from, std::size_t to, Move const& move) {
    move(from, to);
    Slot const slot = slots[from];
    slots.erase(slots.begin() + static_cast<std::ptrdiff_t>(from));
    slots.insert(slots.begin() + static_cast<std::ptrdiff_t>(to), slot);
  }

  std::map<std::size_t, bool> taken_;   // by position before the edits: whether it is moved
  std::map<std::size_t, Slot> placed_;  // by position after the edits
  std::map<std::size_t, std::size_t> positions_;
  std::map<std::size_t, bool> moved_;
  std::vector<Slot> final_;
  std::size_t size_ = 0, total_ = 0;
};

class Renderer {
 public:
  void add(Difference const& difference) {
    if (difference.run) {
      queues_[difference.path].add(difference);
      return;
    }
    others_.push_back(&difference);
  }

  void content(Path const& path, Json const& json) {
    PathStep const& last = path.steps.back();
    if (!last.attr)
      entry(path, json);
    else if (last.key || !last.attr->isCollection())
      node(path, *last.attr, json);
    else
      collection(path.parent(), *last.attr, json);
  }

  std::vector<std::string> run() {
    for (Difference const* difference : others_) node(*difference);
    structure();
    std::vector<std::string> lines;
    for (auto* part : {&keyDeletions_, &deletions_, &made_, &madeLate_, &queueEdits_})
      lines.insert(lines.end(), part->begin(), part->end());
    for (auto const& [path, value] : pointers_) lines.push_back(joinedWords(Words{"set"} + path.words() + value));
    return lines;
  }

 private:
  static void put(std::vector<std::string>& lines, Words const& words) { lines.push_back(joinedWords(words)); }

  void node(Difference const& difference) {
    PathStep const& last = difference.path.steps.back();
    if (difference.after.is_null()) {
      bool const keyed = last.attr && last.attr->keyIsPtr();
      bool const member = last.attr && last.key && last.attr->isPtr() && difference.kind != DifferenceKind::deleted;
      if (member) {
        pointers_.push_back({difference.path, {"null"}});
        return;
      }
      return put(keyed ? keyDeletions_ : deletions_, Words{"delete"} + difference.path.words());
    }
    if (!last.attr) {
      if (!difference.before.is_null()) put(deletions_, Words{"delete"} + difference.path.words());
      return entry(difference.path, difference.after);
    }
    node(difference.path, *last.attr, difference.after);
  }

  // A value, a pointer or an entity, single or a member of a keyed collection.
  void node(Path const& path, KelAttr const& attr, Json const& json) {
    if (attr.instantiating()) return entity(path, attr, json);
    if (attr.isPtr() || attr.keyIsPtr()) {
      Words value;
      if (!attr.isPtr())
        value = {text(*attr.type(), json)};
      else if (json.is_array())
        value = json.get<Words>();
      else
        value = {json.is_string() ? json.get<std::string>() : "null"};
      pointers_.push_back({path, value});
      return;
    }
    GenericIf::Ptr const value = valueFromJson(*attr.type(), json, ValueRule::asWritten);
    std::string const spelt = textOf(*value);
    bool const typed = valueOf(*attr.type(), spelt) != nullptr;
    if (!typed && !attr.isCollection() && isInitial(attr, *value))
      put(*made(), Words{"delete"} + path.words());
    else
      put(*made(), Words{"set"} + path.words() + Words{spelt});
  }

  // An enumerator for "not set" cannot be typed; a deletion sets it, too.
  static bool isInitial(KelAttr const& attr, GenericIf const& value) {
    KelType const& owner = *attr.ownerType();
    GenericIf::PtrConst const initial =
        owner.isAbstract() ? attr.type()->valueOps().initial() : valueOfAttr(*prototypeOf(owner), attr);
    return initial && initial->strep() == value.strep();
  }

  static std::string text(KelType const& type, Json const& json) {
    return textOf(*valueFromJson(type, json, ValueRule::asWritten));
  }
  static KelType const& typeIn(Json const& json, KelType const& otherwise) {
    auto const given = json.find("$type");
    KelType const* const type = given == json.end() ? nullptr : KelType::find(Kel::String8(given->get<std::string>()));
    return type ? *type : otherwise;
  }

  // The constructor parameters that the content gives, with their names.
  static Words parameters(KelType const& type, Json const& json, bool& pointers) {
    Words words;
    for (Kel::KelArg const& arg : type.ctorArgs()) {
      auto const given = json.find(arg.name.str());
      if (given == json.end() || given->is_null()) continue;
      pointers = pointers || arg.pointer;
      words.push_back(arg.name.str());
      words.push_back(arg.pointer ? given->get<std::string>() : text(*arg.type(), *given));
    }
    return words;
  }

  void entity(Path const& path, KelAttr const& attr, Json const& json) {
    KelType const& type = typeIn(json, *attr.type());
    bool pointers = false;
    Words const params = parameters(type, json, pointers);
    std::vector<std::string>* const before = late_;
    if (pointers && !late_) late_ = &madeLate_;
    if (&type != attr.type()) {
      Path const whole = path.parent() / attributeStep(attr);
      std::string const name = path.steps.back().key ? textOf(*path.steps.back().key) : "-";
      put(*made(), Words{"create", type.fullTypeName().str(), name} + params + Words{"in"} + whole.words());
    } else {
      put(*made(), Words{"set"} + path.words() + params);
    }
    std::size_t const lines = made()->size();
    attributes(path, type, json);
    // Whether a later line makes the entity, too.
    bool const impliedBelow =
        made()->size() > lines && params.empty() && &type == attr.type() && (*made())[lines].starts_with("set ");
    if (impliedBelow) made()->erase(made()->begin() + static_cast<std::ptrdiff_t>(lines) - 1);
    late_ = before;
  }

  void attributes(Path const& path, KelType const& type, Json const& json) {
    if (isDirType(&type)) return entries(path, json);
    for (auto const& [name, value] : json.get_ref<Json::object_t const&>()) {
      KelAttr const* const attr = type.findAttr(name);
      if (!attr || attr->ctorParam() || (value.is_null() && !attr->isCollection())) continue;
      if (attr->isCollection())
        collection(path, *attr, value);
      else
        node(path / attributeStep(*attr), *attr, value);
    }
  }

  void collection(Path const& owner, KelAttr const& attr, Json const& json) {
    if (attr.isQueue()) {
      for (std::size_t i = 0; i < json.size(); ++i) item(owner / attributeStep(attr), attr, i, "end", json[i]);
      return;
    }
    if (json.is_object()) {
      for (auto const& [name, value] : json.get_ref<Json::object_t const&>()) {
        GenericIf::PtrConst const key = attr.keyIsPtr() ? GenericIf::PtrConst(GenericIf::of(Kel::String8(name)))
                                                        : keyFromName(*attr.keyType(), name);
        node(owner / memberStep(attr, key), attr, value);
      }
      return;
    }
    for (Json const& one : json) {
      Json const& key = one["$key"];
      GenericIf::PtrConst boxed;
      if (!attr.keyIsPtr())
        boxed = valueFromJson(*attr.keyType(), key, ValueRule::asWritten);
      else
        boxed = GenericIf::of(Kel::String8(key.is_string() ? key.get<std::string>() : ""));
      node(owner / memberStep(attr, boxed), attr, one["$value"]);
    }
  }

  void item(Path const& queue, KelAttr const& attr, std::size_t position, std::string const& where, Json const& json) {
    Words const head = Words{"insert"} + queue.words() + Words{where};
    if (!attr.instantiating()) return put(*made(), head + Words{text(*attr.type(), json)});
    bool pointers = false;
    put(*made(), head + parameters(*attr.type(), json, pointers));
    attributes(queue.parent() / queueStep(attr, position), *attr.type(), json);
  }

  void entry(Path const& path, Json const& json) {
    KelType const& type = typeIn(json, *Kel::Dir::_fwkType());
    bool pointers = false;
    Words words{"create", type.fullTypeName().str(), path.steps.back().entry.str()};
    words = words + parameters(type, json, pointers);
    if (json.contains("$absent")) words.push_back("absent");
    words.push_back("in");
    put(*made(), words + path.parent().words());
    if (!json.contains("$absent")) attributes(path, type, json);
  }
  void entries(Path const& path, Json const& json) {
    for (auto const& [key, value] : json.get_ref<Json::object_t const&>())
      if (key != "$type") entry(path / entryStep(Kel::Name(key.starts_with("$$") ? key.substr(1) : key)), value);
  }

  // Queues from the innermost to the outermost, because the positions in paths are those before the edits.
  void structure() {
    std::vector<Path const*> order;
    for (auto const& [path, plan] : queues_) order.push_back(&path);
    std::stable_sort(order.begin(), order.end(),
                     [](Path const* a, Path const* b) { return a->steps.size() > b->steps.size(); });
    for (auto& [path, value] : pointers_) path = behind(path);
    late_ = &queueEdits_;
    for (Path const* queue : order) {
      KelAttr const& attr = *queue->steps.back().attr;
      Words const words = queue->words();
      auto const drop = [&](std::size_t at) { put(queueEdits_, Words{"delete"} + words + Words{std::to_string(at)}); };
      auto const move = [&](std::size_t from, std::size_t to) {
        put(queueEdits_, Words{"move"} + words + Words{std::to_string(from), std::to_string(to)});
      };
      auto const insert = [&](std::size_t at, Json const& json) {
        std::size_t const first = pointers_.size();
        item(*queue, attr, at, std::to_string(at), json);
        // The content of the item is set after all queues around it have been edited.
        for (std::size_t i = first; i < pointers_.size(); ++i) pointers_[i].first = behind(pointers_[i].first, queue);
      };
      queues_[*queue].run(drop, insert, move);
    }
    late_ = nullptr;
  }

  // A path with the positions that items have after all edits of queues. With `within`, only those above it are
  // changed.
  Path behind(Path const& path, Path const* within = nullptr) {
    Path now = path;
    Path before;
    std::size_t const steps = within ? within->steps.size() - 1 : path.steps.size();
    for (std::size_t i = 0; i < steps; ++i) {
      PathStep const& step = path.steps[i];
      if (step.attr && step.attr->isQueue() && step.key) {
        auto const plan = queues_.find(before / attributeStep(*step.attr));
        if (plan != queues_.end())
          now.steps[i] = queueStep(*step.attr, plan->second.after(step.key->attrVal<Kel::U32>()));
      }
      before.steps.push_back(step);
    }
    return now;
  }

  std::vector<std::string>* made() { return late_ ? late_ : &made_; }

  std::vector<Difference const*> others_;
  std::map<Path, QueuePlan> queues_;
  std::vector<std::string> keyDeletions_, deletions_, made_, madeLate_, queueEdits_;
  std::vector<std::string>* late_ = nullptr;  // where creations go while it is set
  std::vector<std::pair<Path, Words>> pointers_;
};

}  // namespace

std::vector<std::string> commands(std::vector<Difference> const& differences) {
  Renderer renderer;
  for (Difference const& difference : differences) renderer.add(difference);
  return renderer.run();
}

std::vector<std::string> commands(Path const& at, Json const& content) {
  Renderer renderer;
  renderer.content(at, content);
  return renderer.run();
}

}  // namespace Cli::Service
