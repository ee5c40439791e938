#include "CommandTable.h"

namespace Shell {

#define CLI_AGAINST \
  "[against] [ancestor | running | clean | session SESSION | commit NUMBER | file FILE] [as (tree | commands | json)]"

std::vector<Command> const& commandTable() {
  constexpr char const* sessions = "Sessions";
  constexpr char const* looking = "Looking";
  constexpr char const* editing = "Editing";
  constexpr char const* changes = "Changes";
  constexpr char const* running = "Running configuration";
  constexpr char const* files = "Files";
  constexpr char const* engine = "Behind the scenes";
  constexpr char const* other = "Help";
  static std::vector<Command> const table = {
      {sessions, "session open NAME", "open a session, a private copy to edit; a new one equals running", sessionOpen},
      {sessions, "session list", "all sessions", sessionList},
      {sessions, "session leave", "leave this session, to be resumed", sessionLeave},
      {sessions, "session resume SESSION", "go on with a session that was left", sessionResume},
      {sessions, "session close [--discard]", "end this session; its edits are lost", sessionClose},

      {looking, "show [all] [PATH]", "the configuration, or what is below a path; 'all': unset values as well", show},
      {looking, "show references [PATH]", "what points at an entity; without a path: references that lead nowhere",
       showReferences},
      {looking, "show remarks [all]", "what could not be taken from the file as it stands there", showRemarks},
      {looking, "roots", "the session's roots, with the entities and attributes in each", showRoots},

      {editing, "set PATH [VALUE...]", "set an attribute or a member; keys that are not there are made", set},
      {editing, "create PATH [VALUE...]", "make an entity; fails if it exists", create},
      {editing, "delete PATH", "delete a member or an entity, or put a value back to its default", del},
      {editing, "insert PATH [VALUE...]", "put an item into a queue, before a position or at the 'end'", insert},
      {editing, "move PATH FROM TO", "move an item of a queue to another position", move},
      {editing, "rename PATH NAME", "give an entity another key; references to it follow", rename},
      {editing, "edit PATH", "work below a path", edit},
      {editing, "up", "work one level higher", up},
      {editing, "top", "work at the top again", top},

      {changes, "show diff " CLI_AGAINST, "the edits of this session; or what differs from something else", showDiff},
      {changes, "compare", "whether the session differs from running, and where first", compare},
      {changes, "discard [PATH]", "undo edits, all or those below a path", discard},
      {changes, "clear", "make the session equal to the configuration that the program began with", clear},
      {changes, "update [prefer-candidate | prefer-running | revert-on-conflict]",
       "take over what others have committed", update},
      {changes, "show conflicts", "where this session and running were changed differently", showConflicts},
      {changes, "resolve PATH (session | running)", "settle a conflict for one side", resolve},
      {changes, "check", "whether a commit would be refused, and why", check},

      {running, "commit [COMMENT...]", "make the session's edits the running configuration", commit},
      {running, "commit confirmed SECONDS [persist ID] [comment COMMENT...]",
       "commit; undone unless 'commit' confirms it in time", commitConfirmed},
      {running, "commit persist ID [comment COMMENT...]", "confirm a commit of another session by its word", commit},
      {running, "commit cancel [persist ID]", "undo a commit that waits to be confirmed", commitCancel},
      {running, "history", "all commits", history},
      {running, "show commit NUMBER [as (tree | commands | json)]", "what a commit changed", showCommit},
      {running, "diff NUMBER (NUMBER2 | running) [as (tree | commands | json)]", "what differs between two commits",
       diffCommits},
      {running, "rollback NUMBER", "make the session as running was after commit NUMBER, to be committed", rollback},

      {files, "load (merge | replace) FILE [PATH]", "take a file's configuration into the session", load},
      {files, "save FILE [as (json | commands)]", "write the session's configuration to a file", save},
      {files, "export [PATH] [--json | --commands]", "print the configuration as JSON or commands", exportTree},

      {engine, "explain PATH", "root, type, handler and filter of a place", explain},
      {engine, "show edits [by path]", "what the session's commits wrote into running, by attribute or by path",
       showEdits},
      {engine, "replace", "fill the session from running again; its edits are lost", replace},
      {engine, "bypass (on | off)", "leave deletions of entities that have only defaults out of 'show edits'", bypass},
      {engine, "debug edit [EDIT ATTRIBUTE ACTION [PLACE]]", "trace an edit when it is made; alone: what is traced",
       debugEdit},
      {engine, "trace [SETTING]", "switch traces on: NAME/LEVELS, or off", trace},

      {other, "help [WORD...]", "this list, or the commands that begin so", help},
      {other, "quit", "leave", quit},
      {other, "exit", "leave", quit},
  };
  return table;
}

std::vector<std::string> const& filterUsages() {
  static std::vector<std::string> const usages = {"include TEXT", "exclude TEXT", "begin TEXT",
                                                  "first COUNT",  "last COUNT",   "count",
                                                  "more",         "no-more",      "save FILE"};
  return usages;
}

char const* filterSummary(std::size_t rule) {
  static char const* const texts[] = {"lines with the text",
                                      "lines without the text",
                                      "from the first line with the text on",
                                      "the first lines",
                                      "the last lines",
                                      "how many lines there are",
                                      "a screen at a time",
                                      "all at once",
                                      "into a file"};
  return texts[rule];
}

Grammar const& commandGrammar() {
  static Grammar const grammar = [] {
    std::vector<std::string> usages;
    for (Command const& command : commandTable()) usages.emplace_back(command.usage);
    return Grammar(std::move(usages), [](std::string const& word) {
      std::string const instead = insteadOf(word);
      return "no such command; " + (instead.empty() ? "'help' lists them" : instead);
    });
  }();
  return grammar;
}

Grammar const& filterGrammar() {
  static Grammar const grammar(filterUsages());
  return grammar;
}

}  // namespace Shell
