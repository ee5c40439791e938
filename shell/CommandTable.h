// The table of commands, used by parsing, completion and help.
#pragma once

#include <string>
#include <vector>

#include "Context.h"
#include "Grammar.h"

namespace Shell {

struct Command {
  char const* group;    // a heading of the help
  char const* usage;    // the grammar; see Grammar.h
  char const* summary;  // one line
  Outcome (*run)(Context& context, Arguments const& arguments);
};

// In the order of the help.
std::vector<Command> const& commandTable();
// The explanation of an argument in capitals: "the name of a session".
std::string argumentHelp(std::string const& argument);
// The explanation of a keyword: what the command does, or what the keyword adds to it. `before`: the words before it;
// `rules`: the commands to which it may belong.
std::string keywordHelp(std::string const& keyword, std::vector<std::string> const& before,
                        std::vector<std::size_t> const& rules);
// A hint for a command that other programs have: "'discard' takes edits back". Empty if there is nothing like it here.
std::string insteadOf(std::string const& command);
// The usages of output filters, which come after a bar: "include TEXT".
std::vector<std::string> const& filterUsages();
char const* filterSummary(std::size_t rule);

// The grammars of both tables.
Grammar const& commandGrammar();
Grammar const& filterGrammar();

// The commands whose usages begin with `words`; all commands for no words. Raises CommandError if there are none.
std::string helpText(std::vector<std::string> const& words, Paint const& paint);

// --- The commands, by file ---

using Run = Outcome(Context&, Arguments const&);

// SessionCommands.cpp
Run sessionOpen, sessionList, sessionClose, sessionResume, sessionLeave, quit;
// EditCommands.cpp
Run set, create, del, insert, move, rename, edit, up, top;
// ShowCommands.cpp
Run show, showReferences, showRoots, showRemarks;
std::string remarksText(LoadReport const& report, bool all);
// DiffCommands.cpp
Run compare, showDiff, showConflicts, resolve, showCommit, diffCommits;
std::string conflictsText(std::vector<Cli::Service::Conflict> const& conflicts, Paint const& paint);
// CommitCommands.cpp
Run commit, commitConfirmed, commitCancel, check, update, discard, clear, history, rollback, replace;
// FileCommands.cpp
Run load, save, exportTree;
// DebugCommands.cpp
Run showEdits, explain, trace, debugEdit, bypass;
// Help.cpp
Run help;

}  // namespace Shell
