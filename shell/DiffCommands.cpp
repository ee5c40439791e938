// Differences and conflicts.
#include "CommandTable.h"
#include "DiffView.h"
#include "JsonText.h"
#include "ModelLibrary.h"
#include "PendingDiff.h"
#include "Words.h"
#include "service/ValueText.h"

namespace Shell {

namespace Service = Cli::Service;
using Service::Difference;

namespace {

DiffForm formOf(Arguments const& arguments) {
  if (arguments.has("commands")) return DiffForm::commands;
  return arguments.has("json") ? DiffForm::json : DiffForm::tree;
}

Outcome print(Context& context, std::vector<Difference> const& differences, DiffForm form, std::string const& none,
              Service::PendingReferences const* waiting = nullptr) {
  if (differences.empty() && form == DiffForm::tree)
    context.out << none << "\n";
  else
    context.out << diffText(differences, form, context.paint, waiting);
  return differences.empty() ? Outcome::ok : Outcome::differs;
}

// A temporary tree for comparisons.
class Scratch {
 public:
  Scratch(Context& context) : roots_(context.tree().roots), dir_(Kel::dirFactory("scratch")) {}
  Service::Tree tree() const { return {dir_, roots_}; }
  Kel::Dir::Ptr const& dir() const { return dir_; }

 private:
  std::vector<std::string> const* roots_;
  Kel::Dir::Ptr dir_;
};

// From another configuration, with its references that lead nowhere, to the session's.
std::vector<Difference> fromTree(Context& context, Service::Tree const& from,
                                 Service::PendingReferences const& pending) {
  return withPending(Service::differences(from, context.tree()), pending, context.pending());
}

std::vector<Difference> fromCommit(Context& context, Kel::U64 number) {
  Scratch scratch(context);
  makeRoots(context.device.model().roots(), scratch.dir());
  Service::carryOut(Service::differences(scratch.tree(), context.service().running()), scratch.tree());
  Service::carryOut(Service::inverse(context.service().differencesFromRunning(number)), scratch.tree());
  Service::PendingReferences const* const pending = context.device.pendingAfter(number);
  return fromTree(context, scratch.tree(), pending ? *pending : context.device.pending());
}

std::vector<Difference> fromFile(Context& context, std::string const& file) {
  Scratch scratch(context);
  Service::PendingReferences pending;
  loadConfiguration(context.device.model(), readConfiguration(file), fileTitle(file), scratch.dir(), pending);
  return fromTree(context, scratch.tree(), pending);
}

std::vector<Difference> fromClean(Context& context) {
  Kel::Dir::Ptr const clean = context.service().manager().cleanConfig();
  if (!clean) throw CommandError("there is no clean configuration");
  return fromTree(context, {clean, context.tree().roots}, context.device.cleanPending());
}

std::vector<Difference> fromSession(Context& context, std::string const& name) {
  Service::Session const* const other = context.service().session(name);
  if (!other) throw CommandError("there is no session '" + shown(name) + "'");
  return fromTree(context, other->tree(), context.pendingOf(name));
}

}  // namespace

Outcome showDiff(Context& context, Arguments const& arguments) {
  Service::Session const& session = context.session();
  auto const answer = [&](std::vector<Difference> const& differences, std::string const& none) {
    return print(context, differences, formOf(arguments), none, &context.pending());
  };
  if (arguments.has("running")) return answer(session.differencesFromRunning(), "equal to running");
  if (arguments.has("clean")) return answer(fromClean(context), "equal to the clean configuration");
  if (arguments.has("SESSION"))
    return answer(fromSession(context, arguments.text("SESSION")), "both sessions are equal");
  if (arguments.has("NUMBER")) return answer(fromCommit(context, arguments.number("NUMBER")), "equal");
  if (arguments.has("FILE")) return answer(fromFile(context, arguments.text("FILE")), "equal");
  return answer(session.differences(), "no edits");
}

namespace {

// "network/ports.port/Ethernet0.mtu: 9100 -> 1500", "network/vlans.vlan/Vlan9: created".
std::string whereAndHow(Difference const& difference, Service::PendingReferences const& waiting) {
  if (auto const* const nowhere = difference.after.is_null() ? waiting.find(difference.path) : nullptr)
    return shown(difference.path.text()) + ": " + waitingText(*nowhere);
  std::string text = shown(Service::text(difference));
  std::string const kind = Service::text(difference.kind);
  if (text.compare(0, kind.size() + 1, kind + " ") != 0) return text;
  std::string const rest = text.substr(kind.size() + 1);
  return difference.kind == Service::DifferenceKind::changed ? rest : rest + ": " + kind;
}

}  // namespace

Outcome compare(Context& context, Arguments const&) {
  std::vector<Difference> const differences = context.session().differencesFromRunning();
  if (differences.empty()) {
    context.out << "equal\n";
    return Outcome::ok;
  }
  context.out << "differs at " << whereAndHow(differences.front(), context.pending());
  if (differences.size() > 1)
    context.out << ", and at " << counted(differences.size() - 1, "place", "places") << " more";
  context.out << "\n";
  return Outcome::differs;
}

Outcome showCommit(Context& context, Arguments const& arguments) {
  Kel::U64 const number = arguments.number("NUMBER");
  Service::CommitRecord const record = context.service().commitRecord(number);
  DiffForm const form = formOf(arguments);
  if (form == DiffForm::tree) {
    context.out << Service::text(record.kind) << " " << record.number << ", " << timeText(record.time) << ", session "
                << shown(record.session) << " of " << shown(record.user) << "\n";
    if (!record.comment.empty()) context.out << shown(record.comment) << "\n";
  }
  print(context, context.service().differencesOfCommit(number), form, "no differences");
  return Outcome::ok;
}

Outcome diffCommits(Context& context, Arguments const& arguments) {
  Kel::U64 const from = arguments.number("NUMBER");
  auto const found = arguments.has("running")
                         ? context.service().differencesBetween(from, context.service().lastCommit())
                         : context.service().differencesBetween(from, arguments.number("NUMBER2"));
  return print(context, found, formOf(arguments), "equal");
}

// --- Conflicts ---

namespace {

std::string sideText(Service::Conflict const& conflict, Service::Json const& content) {
  bool const pointer = conflict.attr && !conflict.attr->instantiating() && !conflict.attr->isCollection();
  if (content.is_null()) return pointer ? "null" : "not there";
  if (content.is_object() && (!conflict.attr || conflict.attr->instantiating())) return "there";
  constexpr std::size_t longest = 100;
  return Service::shortened(oneLine(content), longest);
}

}  // namespace

std::string conflictsText(std::vector<Service::Conflict> const& conflicts, Paint const& paint) {
  std::string out;
  for (Service::Conflict const& conflict : conflicts) {
    out += paint(Style::changed, shown(conflict.path.text())) + " (" + Service::text(conflict.kind) + ")\n";
    out += "  ancestor  " + sideText(conflict, conflict.ancestor) + "\n";
    out += "  session   " + sideText(conflict, conflict.session) + "\n";
    out += "  running   " + sideText(conflict, conflict.running) + "\n";
    if (conflict.target) out += "  points at " + shown(conflict.target->text()) + "\n";
    for (Service::Path const& node : conflict.nodes)
      if (!(node == conflict.path)) out += "  changed   " + shown(node.text()) + "\n";
  }
  return out;
}

Outcome showConflicts(Context& context, Arguments const&) {
  std::vector<Service::Conflict> const conflicts = context.session().conflicts();
  if (conflicts.empty()) {
    context.out << "no conflicts\n";
    return Outcome::ok;
  }
  context.out << conflictsText(conflicts, context.paint);
  return Outcome::differs;
}

namespace {

// The node of a conflict may not exist in the session, so its path is also compared with the typed text.
Service::Path conflictPath(Context& context, std::vector<std::string> const& words) {
  for (Service::Conflict const& conflict : context.session().conflicts())
    if (words == conflict.path.words() || (words.size() == 1 && words.front() == conflict.path.text()))
      return conflict.path;
  return context.path(words, true);
}

}  // namespace

Outcome resolve(Context& context, Arguments const& arguments) {
  Service::Session& session = context.session();
  Service::Path const path = conflictPath(context, arguments.words("PATH"));
  bool const forRunning = arguments.has("running");
  session.resolve(path, forRunning ? Service::Side::running : Service::Side::session);
  std::size_t const left = session.conflicts().size();
  context.out << shown(path.text()) << " is settled for " << (forRunning ? "running" : "the session") << "; "
              << (left == 0 ? "no conflicts are left" : counted(left, "conflict is left", "conflicts are left"))
              << "\n";
  return Outcome::ok;
}

}  // namespace Shell
