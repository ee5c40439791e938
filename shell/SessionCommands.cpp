// Commands that open, leave, resume and close sessions.
#include "CommandTable.h"
#include "EditPolicy.h"
#include "TextTable.h"
#include "Words.h"

namespace Shell {

namespace Service = Cli::Service;

namespace {

std::string editsText(std::size_t edits) { return edits == 0 ? "" : ", " + counted(edits, "edit", "edits"); }

char const* stateName(Cli::Session::SessionState state) {
  using S = Cli::Session::SessionState;
  switch (state) {
    case S::pending: return "open";
    case S::preempted: return "preempted";
    case S::completed: return "closed";
    case S::aborted: return "aborted";
    case S::dead: return "dead";
  }
  return "";
}

// Makes an existing session the current one. Attaches it if it was left.
void goTo(Context& context, std::string const& name) {
  Service::Session* session = context.service().session(name);
  if (!session) throw CommandError("there is no session '" + shown(name) + "'; 'session list' has all of them");
  for (auto const& listed : context.service().list())
    if (listed.name == name && !listed.attached) session = &context.service().resume(name, context.user());
  context.sessionIs(session);
}

void openNew(Context& context, std::string const& name) {
  Service::Session& session = context.service().open(name, context.user());
  session.config().logAttributeEditsIs(true);  // for 'show edits'
  auto const log = session.status().attributeEditLogIs();
  if (log) debugActionsIs(*log, context.service().tunables());
  context.sessionIs(&session);
}

}  // namespace

Outcome sessionOpen(Context& context, Arguments const& arguments) {
  std::string const name = arguments.text("NAME");
  if (name.empty()) throw CommandError("a session needs a name");
  bool const there = context.service().session(name) != nullptr;
  if (there)
    goTo(context, name);
  else
    openNew(context, name);
  context.out << "session " << shown(name) << (there ? " is open again" : " is open, equal to running")
              << editsText(there ? context.session().differences().size() : 0) << "\n";
  return Outcome::ok;
}

Outcome sessionResume(Context& context, Arguments const& arguments) {
  goTo(context, arguments.text("SESSION"));
  context.out << "session " << shown(context.session().name()) << " is open"
              << editsText(context.session().differences().size()) << "\n";
  return Outcome::ok;
}

Outcome sessionLeave(Context& context, Arguments const&) {
  Service::Session& session = context.session();
  std::string const name = session.name();
  context.service().leave(session);
  context.sessionIs(nullptr);
  context.out << "session " << shown(name) << " is left; 'session resume " << asWord(name) << "' goes on with it\n";
  return Outcome::ok;
}

Outcome sessionList(Context& context, Arguments const&) {
  TextTable table({"session", "user", "state", "edits", "commits", "opened"});
  for (auto const& listed : context.service().list()) {
    Service::Session const* const session = context.service().session(listed.name);
    bool const here = context.hasSession() && session == &context.session();
    std::string const state = listed.attached ? stateName(listed.state) : "left";
    table.add({shown(listed.name) + (here ? " *" : ""), shown(listed.user), state,
               session ? std::to_string(session->differences().size()) : "", std::to_string(listed.committedCount),
               timeText(listed.startTime)});
  }
  if (table.rows() == 0) {
    context.out << "no session is open\n";
    return Outcome::ok;
  }
  context.out << table.text(context.paint, 0, context.width).text;
  return Outcome::ok;
}

Outcome sessionClose(Context& context, Arguments const& arguments) {
  Service::Session& session = context.session();
  std::string const name = session.name();
  std::size_t const edits = session.differences().size();
  bool discard = arguments.has("--discard");
  if (edits > 0 && !discard) {
    std::string const what = "session " + shown(name) + " has " + counted(edits, "edit", "edits");
    if (!context.confirm) throw CommandError(what + ": commit them, or 'session close --discard'");
    if (!context.confirm(what + ", which will be lost. Close it?")) {
      context.out << "session " << shown(name) << " stays open\n";
      return Outcome::ok;
    }
    discard = true;
  }
  context.service().close(session, discard);
  context.forget(name);
  context.out << "session " << shown(name) << " is closed";
  if (edits > 0) context.out << ", " << counted(edits, "edit is", "edits are") << " lost";
  context.out << "\n";
  return Outcome::ok;
}

Outcome quit(Context&, Arguments const&) { return Outcome::quit; }

}  // namespace Shell
