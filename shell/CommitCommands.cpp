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

// Lets the checks know the references that were typed and lead nowhere. Those to something that was deleted are not
// null, and the checks find them.
void reportPending(Context& context) {
  Service::PendingReferences& found = context.session().pending();
  found.clear();
  Service::PendingReferences const typed = context.typedPending();
  for (Service::PendingReference const& reference : typed.list()) {
    Service::Place const place = Service::locate(context.base(), reference.place);
    bool const pointer = place.there() && place.attr && place.attr->isPtr();
    if (pointer && Kel::GenericIf::ofEntity(place.entity)->attribute(place.attr->id(), place.key)) continue;
    found.add(reference);
  }
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
  context.pending().retry(context.base());
  context.device.pending = context.pending();
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
  committed(context);
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
    context.pending().retry(context.base());
    context.out << (came == 0 ? "running has nothing new" : changes(came) + " came from running") << "\n";
  });
}

namespace {

// Whether a pointer that led nowhere still does.
bool stillNowhere(Context& context, Service::PendingReference const& reference) {
  Service::Place const place = Service::locate(context.base(), reference.place);
  bool const pointer = place.there() && place.attr && place.attr->isPtr() && !place.attr->isCollection();
  return pointer && Service::exportAttribute(*place.entity, *place.attr, *context.base()).is_null();
}

}  // namespace

Outcome discard(Context& context, Arguments const& arguments) {
  bool const all = arguments.words("PATH").empty() && (context.session(), context.at().empty());
  std::size_t gone = 0;
  if (all) {
    gone = context.session().discard();
    context.refreshPending(context.device.pending);
  } else {
    Service::Path const path =
        arguments.words("PATH").empty() ? context.at() : context.path(arguments.words("PATH"), true);
    gone = context.session().discard(path);
    Service::PendingReferences pending = context.pending();
    pending.erase(path);
    auto const before = context.pending().within(path);
    for (auto const& reference : std::vector<Service::PendingReference>(before.begin(), before.end()))
      if (stillNowhere(context, reference)) pending.add(reference);
    for (auto const& reference : context.device.pending.list())
      if (reference.place.isWithin(path)) pending.add(reference);
    context.refreshPending(pending);
  }
  context.out << counted(gone, "edit", "edits") << " taken back\n";
  return Outcome::ok;
}

Outcome replace(Context& context, Arguments const&) {
  std::size_t const gone = context.session().discard();
  context.session().update(Service::UpdateMode::preferRunning);
  context.refreshPending(context.device.pending);
  context.out << "session " << shown(context.session().name()) << " is filled from running again"
              << (gone ? ", " + counted(gone, "edit is", "edits are") + " lost" : "") << "\n";
  return Outcome::ok;
}

namespace {

// The references of running that lead nowhere in the session either.
Service::PendingReferences stillPending(Context& context) {
  Service::PendingReferences still;
  for (auto const& reference : context.device.pending.list())
    if (stillNowhere(context, reference)) still.add(reference);
  return still;
}

Outcome tellReview(Context& context, std::string const& what, std::size_t dropped) {
  context.refreshPending(stillPending(context));
  std::size_t const edits = context.session().differences().size();
  if (dropped) context.out << counted(dropped, "earlier edit is", "earlier edits are") << " dropped\n";
  context.out << "the session is as " << what;
  if (edits)
    context.out << ": " << changes(edits) << " to review with 'show diff' and to commit\n";
  else
    context.out << ", and so is running\n";
  return Outcome::ok;
}

}  // namespace

Outcome rollback(Context& context, Arguments const& arguments) {
  Kel::U64 const number = arguments.number("NUMBER");
  std::size_t const dropped = context.session().rollback(number);
  return tellReview(context, "after commit " + std::to_string(number), dropped);
}

Outcome clear(Context& context, Arguments const&) {
  std::size_t const dropped = context.session().clear();
  return tellReview(context, "the clean configuration", dropped);
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
