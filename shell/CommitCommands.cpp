// Commands between the session and the running configuration: commit, update, history.
#include "CommandTable.h"
#include "TextTable.h"
#include "Words.h"
#include "service/JsonTree.h"

namespace Shell {

namespace Service = Cli::Service;

namespace {

std::string changes(std::size_t count) { return counted(count, "change", "changes"); }

std::string findingsText(std::string const& what, Service::CheckError const& e) {
  std::string text = what + " refused:";
  for (auto const& finding : e.findings)
    text += "\n  " + (finding.path.empty() ? "" : shown(finding.path.text()) + ": ") + shown(finding.reason);
  return text;
}

// Whether the pointer of a pending reference still leads to an entity that has left the tree. The checks find these.
bool leadsOut(Context& context, Service::PendingReference const& reference) {
  Service::Place const owner = Service::locate(context.base(), reference.place.parent());
  Kel::KelAttr const& attr = *reference.place.steps.back().attr;
  if (!owner.there()) return false;
  auto const gif = Kel::GenericIf::ofEntity(owner.entity);
  if (attr.keyIsPtr()) {
    for (auto it = gif->attributeIteratorConst(attr.id()); it; ++it)
      if (it.key() && it.key()->entityConst()->root() != context.base()->root()) return true;
    return false;
  }
  Service::Place const place = Service::locate(context.base(), reference.place);
  return place.there() && attr.isPtr() && gif->attribute(attr.id(), place.key);
}

// Lets the checks know the references that were typed and lead nowhere.
void reportPending(Context& context) {
  Service::PendingReferences& found = context.session().pending();
  found.clear();
  Service::PendingReferences const typed = context.typedPending();
  for (Service::PendingReference const& reference : typed.list())
    if (!leadsOut(context, reference)) found.add(reference);
}

// Runs an operation that may be refused. Conflicts are shown; a refusal by the checks is an error.
template <class Action>
Outcome refusable(Context& context, char const* what, Action const& action) {
  reportPending(context);
  try {
    action();
    return Outcome::ok;
  } catch (Service::ConflictError const& e) {
    context.out << what << " refused: " << counted(e.conflicts.size(), "conflict", "conflicts") << " with running\n"
                << conflictsText(e.conflicts, context.paint)
                << "'resolve PATH session' or 'resolve PATH running' settles each, or edit it again\n";
    return Outcome::differs;
  } catch (Service::CheckError const& e) {
    throw CommandError(findingsText(what, e));
  }
}

void tellReports(Context& context, Service::CommitResult const& result) {
  for (std::string const& report : result.reports) context.out << shown(report) << "\n";
}

void tellCommit(Context& context, Service::CommitResult const& result) {
  if (result.confirms) context.out << "the commit that waited is confirmed\n";
  if (result.number) {
    context.out << "commit " << *result.number << ": " << changes(result.differences.size()) << "\n";
    if (!context.device.keepsCommits() && *result.number == 1)
      context.out << "commits are not kept beyond this process; --state DIR keeps them\n";
  } else if (!result.confirms) {
    context.out << "nothing to commit\n";
  }
  tellReports(context, result);
}

void committed(Context& context) {
  context.mergePending();
  context.device.pendingIs(context.pending());
  context.ancestorPending() = context.pending();
}

}  // namespace

Outcome commit(Context& context, Arguments const& arguments) {
  Service::Session& session = context.session();
  return refusable(context, "commit", [&] {
    std::string const comment = arguments.joined("COMMENT");
    Service::CommitResult const result =
        arguments.has("ID") ? session.commitPersistent(arguments.text("ID"), comment) : session.commit(comment);
    committed(context);
    tellCommit(context, result);
  });
}

Outcome commitConfirmed(Context& context, Arguments const& arguments) {
  Service::Session& session = context.session();
  return refusable(context, "commit", [&] {
    auto const seconds = static_cast<double>(arguments.number("SECONDS"));
    auto const result = session.commitConfirmed(seconds, arguments.text("ID"), arguments.joined("COMMENT"));
    committed(context);
    tellCommit(context, result);
    if (result.number || context.service().waiting())
      context.out << "it is undone in " << arguments.text("SECONDS") << " s unless 'commit' confirms it\n";
  });
}

Outcome commitCancel(Context& context, Arguments const& arguments) {
  Service::CommitResult const result = context.session().commitCancel(arguments.text("ID"));
  context.out << "the commit that waited is undone; what it changed is back in its session, as edits\n";
  tellReports(context, result);
  return Outcome::ok;
}

Outcome check(Context& context, Arguments const&) {
  Service::Session const& session = context.session();
  try {
    return refusable(context, "commit would be", [&] {
      session.check();
      context.out << "a commit would be taken\n";
    });
  } catch (CommandError const& e) {  // a finding is an answer here
    context.out << e.what() << "\n";
    return Outcome::differs;
  }
}

Outcome update(Context& context, Arguments const& arguments) {
  Service::Session& session = context.session();
  Service::UpdateMode const mode = arguments.has("prefer-candidate") ? Service::UpdateMode::preferCandidate
                                   : arguments.has("prefer-running") ? Service::UpdateMode::preferRunning
                                                                     : Service::UpdateMode::revertOnConflict;
  return refusable(context, "update", [&] {
    std::size_t const came = session.update(mode).size();
    context.mergePending();
    context.out << (came == 0 ? "running has nothing new" : changes(came) + " came from running") << "\n";
  });
}

namespace {

// The references from elsewhere to what is at or below a path, as they are pending when their targets are gone.
std::vector<Service::PendingReference> referencesInto(Context& context, Service::Path const& path) {
  std::vector<Service::PendingReference> found;
  for (Service::Path const& pointer : Service::referencesTo(context.base(), path)) {
    Service::Place const place = Service::locate(context.base(), pointer);
    auto const value = Kel::GenericIf::ofEntity(place.entity)->attribute(place.attr->id(), place.key);
    Service::Json const content = Service::exportValue(value.ptr(), *context.base());
    std::string const target = place.attr->isPtr() && content.is_string() ? content.get<std::string>() : std::string();
    found.push_back({pointer, content, target, "it was discarded"});
  }
  return found;
}

// Whether such a reference has lost its target; sets the text that leads nowhere.
bool isLost(Context& context, Service::PendingReference& reference) {
  if (isNull(context.base(), reference)) return !reference.target.empty();
  Service::PathStep const& step = reference.place.steps.back();
  if (!step.attr->keyIsPtr() || !Service::locate(context.base(), reference.place.parent()).there()) return false;
  reference.target = step.keyText();
  return !Service::targetAt(context.base(), reference.target);
}

std::size_t discardBelow(Context& context, Service::Path const& path) {
  std::vector<Service::PendingReference> into = referencesInto(context, path);
  std::size_t const gone = context.session().discard(path);
  Service::PendingReferences const before = context.pending();
  Service::PendingReferences pending = before;
  pending.erase(path);
  for (Service::PendingReference const& reference : before.within(path))
    if (isNull(context.base(), reference)) pending.add(reference);
  for (Service::PendingReference const& reference : context.ancestorPending().within(path)) pending.add(reference);
  for (Service::PendingReference& reference : into)
    if (isLost(context, reference)) pending.add(std::move(reference));
  context.refreshPending(pending);
  return gone;
}

}  // namespace

Outcome discard(Context& context, Arguments const& arguments) {
  bool const all = arguments.words("PATH").empty() && (context.session(), context.at().empty());
  std::size_t gone = 0;
  if (all) {
    gone = context.session().discard();
    context.refreshPending(context.ancestorPending());
  } else {
    gone = discardBelow(context,
                        arguments.words("PATH").empty() ? context.at() : context.path(arguments.words("PATH"), true));
  }
  context.out << counted(gone, "edit", "edits") << " taken back\n";
  return Outcome::ok;
}

Outcome replace(Context& context, Arguments const&) {
  std::size_t const gone = context.session().discard();
  context.session().update(Service::UpdateMode::preferRunning);
  context.ancestorPending() = context.device.pending();
  context.refreshPending(context.ancestorPending());
  context.out << "session " << shown(context.session().name()) << " is filled from running again"
              << (gone ? ", " + counted(gone, "edit is", "edits are") + " lost" : "") << "\n";
  return Outcome::ok;
}

namespace {

// `pending`: the references to nowhere of the configuration that the session has now.
Outcome tellReview(Context& context, std::string const& what, std::size_t dropped,
                   Service::PendingReferences const& pending) {
  context.ancestorPending() = context.device.pending();
  context.refreshPending(pending);
  context.loaded() = context.pending();
  std::size_t const edits = context.session().differences().size();
  if (dropped) context.out << counted(dropped, "earlier edit is", "earlier edits are") << " dropped\n";
  context.out << "the session is as " << what;
  if (edits)
    context.out << ": " << changes(edits) << " to review with 'show diff' and to commit\n";
  else
    context.out << ", and so is running\n";
  return Outcome::ok;
}

// Those of running that are null in the session, too.
Service::PendingReferences stillNull(Context& context) {
  Service::PendingReferences still;
  for (auto const& reference : context.device.pending().list())
    if (isNull(context.base(), reference)) still.add(reference);
  return still;
}

}  // namespace

Outcome rollback(Context& context, Arguments const& arguments) {
  Kel::U64 const number = arguments.number("NUMBER");
  std::size_t const dropped = context.session().rollback(number);
  Service::PendingReferences const* const known = context.device.pendingAfter(number);
  return tellReview(context, "after commit " + std::to_string(number), dropped, known ? *known : stillNull(context));
}

Outcome clear(Context& context, Arguments const&) {
  std::size_t const dropped = context.session().clear();
  return tellReview(context, "the clean configuration", dropped, context.device.cleanPending());
}

Outcome history(Context& context, Arguments const&) {
  std::vector<Service::CommitRecord> const records = context.service().history();
  if (records.empty()) {
    context.out << "no commits\n";
    return Outcome::ok;
  }
  TextTable table({"commit", "time", "user", "session", "kind", "comment"});
  for (auto record = records.rbegin(); record != records.rend(); ++record)
    table.add({std::to_string(record->number), timeText(record->time), shown(record->user), shown(record->session),
               Service::text(record->kind), shown(record->comment)});
  context.out << table.text(context.paint, 0, 1000).text;
  return Outcome::ok;
}

}  // namespace Shell
