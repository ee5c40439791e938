#include "DiffView.h"

#include <algorithm>
#include <map>

#include "Context.h"
#include "JsonText.h"
#include "PendingDiff.h"
#include "Words.h"
#include "service/Commands.h"

namespace Shell {

namespace Service = Cli::Service;
using Service::Difference;
using Service::DifferenceKind;
using Service::Json;

namespace {

class Lines {
 public:
  Lines(Paint const& paint, Service::PendingReferences const* waiting) : paint_(paint), waiting_(waiting) {
    if (!waiting) return;
    for (Service::PendingReference const& reference : waiting->list()) byTarget_.emplace(reference.target, &reference);
  }

  void add(Difference const& difference) {
    std::vector<std::string> path = pieces(difference.path);
    std::string const name = path.empty() ? "." : nameOf(difference, path.back());
    if (!path.empty()) path.pop_back();
    above(path);
    std::size_t const depth = path.size();
    if (difference.run) return run(difference, name, depth);
    switch (difference.kind) {
      case DifferenceKind::created: return whole('+', name, filled(difference.after, difference.path), depth);
      case DifferenceKind::deleted: return whole('-', name + pointersTo(difference), difference.before, depth);
      default: break;
    }
    auto const isEntity = [](Json const& content) { return content.is_object() && !isBytes(content); };
    if (isEntity(difference.before) || isEntity(difference.after)) {
      whole('-', name, difference.before, depth);
      whole('+', name, filled(difference.after, difference.path), depth);
      return;
    }
    auto const* const nowhere = waiting_ ? waiting_->find(difference.path) : nullptr;
    if (nowhere && (difference.after.is_null() || difference.after == Json(nowhere->target))) {
      bool const same = difference.before == Json(nowhere->target);
      return line('~', depth, name + ": " + (same ? "" : oneLine(difference.before) + " -> ") + waitingText(*nowhere));
    }
    line('~', depth, name + ": " + oneLine(difference.before) + " -> " + oneLine(difference.after));
  }

  std::string const& text() const { return text_; }

 private:
  // The content of an entity, with its references that lead nowhere.
  Json filled(Json content, Service::Path const& place) const {
    if (waiting_ && content.is_object())
      for (Service::PendingReference const& reference : waiting_->within(place))
        fillPending(content, place, reference, waitingText(reference));
    return content;
  }

  // A member whose key has left the tree is named by what its key led to.
  std::string nameOf(Difference const& difference, std::string const& piece) const {
    Service::PathStep const& step = difference.path.steps.back();
    bool const keyIsGone = step.attr && step.attr->keyIsPtr() && step.key && step.keyText().empty();
    if (!waiting_ || !keyIsGone) return piece;
    Service::Path const whole = difference.path.parent() / Service::attributeStep(*step.attr);
    for (Service::PendingReference const& reference : waiting_->within(whole))
      if (reference.value == difference.after) return step.attr->name().str() + " " + waitingText(reference);
    return piece;
  }

  // What still points at something that was deleted.
  std::string pointersTo(Difference const& difference) const {
    if (!waiting_ || !difference.before.is_object()) return {};
    std::string const gone = difference.path.text();
    std::vector<std::string> names;
    for (auto at = byTarget_.lower_bound(gone); at != byTarget_.end(); ++at) {
      std::string_view const target = at->first;
      if (target.substr(0, gone.size()) != gone) break;
      if (target.size() == gone.size() || target[gone.size()] == '.') names.push_back(shown(at->second->place.text()));
    }
    return names.empty() ? "" : "  (still pointed at by " + listed(names) + ")";
  }

  // Prints the part of the path that differs from the previous line's.
  void above(std::vector<std::string> const& path) {
    std::size_t const common = static_cast<std::size_t>(
        std::mismatch(path.begin(), path.end(), last_.begin(), last_.end()).first - path.begin());
    for (std::size_t i = common; i < path.size(); ++i) line(' ', i, path[i]);
    last_ = path;
  }

  void line(char mark, std::size_t depth, std::string const& text) {
    Style const style = mark == '+'   ? Style::added
                        : mark == '-' ? Style::removed
                        : mark == ' ' ? Style::heading
                                      : Style::changed;
    text_ += paint_(style, std::string(1, mark) + " " + std::string(depth * 2, ' ') + text) + "\n";
  }

  void whole(char mark, std::string const& name, Json const& content, std::size_t depth) {
    if (!content.is_structured() || isBytes(content))
      return line(mark, depth, name + (content.is_null() ? "" : ": " + oneLine(content)));
    line(mark, depth, name);
    for (std::string const& each : contentLines(content)) line(mark, depth + 1, each);
  }

  void run(Difference const& difference, std::string const& name, std::size_t depth) {
    bool const gone = difference.kind == DifferenceKind::deleted;
    Json const& items = gone ? difference.before : difference.after;
    std::size_t at = gone ? difference.run->from : difference.run->to;
    char const mark = gone ? '-' : difference.kind == DifferenceKind::created ? '+' : '*';
    std::size_t from = difference.run->from;
    for (Json const& item : items) {
      Service::Path const place = difference.path.parent() / Service::queueStep(*difference.attr, at);
      std::string label = name + " [" + std::to_string(at++) + "]";
      if (mark == '*') label += " (was [" + std::to_string(from++) + "])";
      whole(mark, label, gone ? item : filled(item, place), depth);
    }
  }

  Paint const& paint_;
  Service::PendingReferences const* waiting_;
  std::multimap<std::string_view, Service::PendingReference const*> byTarget_;
  std::vector<std::string> last_;
  std::string text_;
};

Json asJson(Difference const& difference) {
  Json out = Json::object();
  out["kind"] = Service::text(difference.kind);
  out["path"] = difference.path.text();
  if (!difference.before.is_null()) out["before"] = difference.before;
  if (!difference.after.is_null()) out["after"] = difference.after;
  if (difference.run) out["run"] = Json{{"from", difference.run->from}, {"to", difference.run->to}};
  return out;
}

}  // namespace

std::string waitingText(Service::PendingReference const& reference) {
  return shown(reference.target) + " (" + shown(reference.reason) + ")";
}

std::string diffText(std::vector<Difference> const& differences, DiffForm form, Paint const& paint,
                     Service::PendingReferences const* waiting) {
  std::string out;
  if (form == DiffForm::commands) {
    for (std::string const& command : Service::commands(differences)) out += command + "\n";
    return out;
  }
  if (form == DiffForm::json) {
    Json all = Json::array();
    for (Difference const& difference : differences) all.push_back(asJson(difference));
    return all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  }
  Lines lines(paint, waiting);
  for (Difference const& difference : differences) lines.add(difference);
  return lines.text();
}

}  // namespace Shell
