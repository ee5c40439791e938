// The commands: one table, which parsing, completion and help read.
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
// An argument in capitals, for people: "the name of a session".
std::string argumentHelp(std::string const& argument);
// A keyword, for people: what the command does, or what the keyword adds to it. `before`: the words in front of it;
// `rules`: the commands that it may belong to.
std::string keywordHelp(std::string const& keyword, std::vector<std::string> const& before,
                        std::vector<std::size_t> const& rules);
// What to do in place of a command that is not there, in the words of other programs: "'discard' takes edits back";
// empty: there is nothing like it.
std::string insteadOf(std::string const& command);
// What filters the output of a command: "include TEXT", behind a bar.
std::vector<std::string> const& filterUsages();
char const* filterSummary(std::size_t rule);

// The grammars of both tables.
Grammar const& commandGrammar();
Grammar const& filterGrammar();

// The list of commands; all usages that begin with some words; raises CommandError when there is none.
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
