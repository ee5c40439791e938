#include "CommandTable.h"

#include <algorithm>
#include <map>

namespace Shell {

namespace {

constexpr char const* sessions = "Sessions";
constexpr char const* looking = "Looking";
constexpr char const* editing = "Editing";
constexpr char const* changes = "Changes";
constexpr char const* running = "Running configuration";
constexpr char const* files = "Files";
constexpr char const* engine = "Behind the scenes";
constexpr char const* other = "Help";

#define CLI_AGAINST \
  "[against] [ancestor | running | clean | session SESSION | commit NUMBER | file FILE] [as (tree | commands | json)]"

}  // namespace

std::vector<Command> const& commandTable() {
  static std::vector<Command> const table = {
      {sessions, "session open NAME", "open a session, a private copy to edit; a new one equals running", sessionOpen},
      {sessions, "session list", "all sessions", sessionList},
      {sessions, "session leave", "leave this session, to be resumed", sessionLeave},
      {sessions, "session resume SESSION", "go on with a session that was left", sessionResume},
      {sessions, "session close [--discard]", "end this session; its edits are lost", sessionClose},

      {looking, "show [all] [PATH]", "the configuration, or what is below a path; 'all': unset values as well", show},
      {looking, "show references [PATH]", "who points at a place; without a path: what points nowhere", showReferences},
      {looking, "show remarks [all]", "what was not taken as it stands in the file", showRemarks},
      {looking, "roots", "the session's roots, with the entities and attributes in each", showRoots},

      {editing, "set PATH [VALUE...]", "set an attribute or a member; keys that are not there are made", set},
      {editing, "create PATH [VALUE...]", "make an entity; fails when it is there", create},
      {editing, "delete PATH", "delete a member or an entity, or put a value back to its default", del},
      {editing, "insert PATH [VALUE...]", "put an item into a queue, before a position or at the 'end'", insert},
      {editing, "move PATH FROM TO", "move an item of a queue to another position", move},
      {editing, "rename PATH NAME", "give an entity another key; what points at it follows", rename},
      {editing, "edit PATH", "work below a path", edit},
      {editing, "up", "work one level higher", up},
      {editing, "top", "work at the top again", top},

      {changes, "show diff " CLI_AGAINST, "the edits of this session; or what differs from something else", showDiff},
      {changes, "compare", "whether the session differs from running, and where first", compare},
      {changes, "discard [PATH]", "take edits back, all or those below a path", discard},
      {changes, "clear", "edit towards the clean configuration", clear},
      {changes, "update [prefer-candidate | prefer-running | revert-on-conflict]",
       "take over what others have committed", update},
      {changes, "show conflicts", "where this session and running were changed differently", showConflicts},
      {changes, "resolve PATH (session | running)", "settle a conflict for one side", resolve},
      {changes, "check", "whether a commit would be refused, and why", check},

      {running, "commit [COMMENT...]", "make the session's edits the running configuration", commit},
      {running, "commit confirmed SECONDS [persist ID] [comment COMMENT...]",
       "commit, and undo it unless 'commit' follows in time", commitConfirmed},
      {running, "commit persist ID [comment COMMENT...]", "confirm a commit of another session by its word", commit},
      {running, "commit cancel [persist ID]", "undo a commit that waits to be confirmed", commitCancel},
      {running, "history", "all commits", history},
      {running, "show commit NUMBER [as (tree | commands | json)]", "what a commit changed", showCommit},
      {running, "diff NUMBER (NUMBER2 | running) [as (tree | commands | json)]", "what differs between two commits",
       diffCommits},
      {running, "rollback NUMBER", "edit towards the configuration of a commit", rollback},

      {files, "load (merge | replace) FILE [PATH]", "take a file's configuration into the session", load},
      {files, "save FILE [as (json | commands)]", "write the session's configuration to a file", save},
      {files, "export [PATH] [--json | --commands]", "print the configuration as JSON or commands", exportTree},

      {engine, "explain PATH", "root, type, handler and filter of a place", explain},
      {engine, "show edits [by path]", "the edits that filling the session made, by attribute or by path", showEdits},
      {engine, "replace", "fill the session from running again; its edits are lost", replace},
      {engine, "bypass (on | off)", "keep deletions of what holds only defaults out of the edits", bypass},
      {engine, "debug edit [EDIT ATTRIBUTE ACTION [PLACE]]", "trace an edit when it is made; alone: what is traced",
       debugEdit},
      {engine, "trace [SETTING]", "switch traces on: NAME/LEVELS, or off", trace},

      {other, "help [WORD...]", "this list, or the commands that begin so", help},
      {other, "quit", "leave", quit},
      {other, "exit", "leave", quit},
  };
  return table;
}

std::string argumentHelp(std::string const& argument) {
  static std::map<std::string, char const*> const texts = {
      {"ACTION", "trace, assert or none"},
      {"ATTRIBUTE", "TYPE::ATTRIBUTE, as in Acme::Port::mtu"},
      {"COMMENT", "a comment, in the history"},
      {"EDIT", "set or del"},
      {"FILE", "a file"},
      {"FROM", "the item's position; 0 is the first"},
      {"ID", "a word by which any session may confirm"},
      {"NAME", "a name"},
      {"NUMBER", "the number of a commit; 0 is the configuration before the first"},
      {"NUMBER2", "the number of another commit"},
      {"PATH", "a place, word by word or dotted: network ports, network/ports.port"},
      {"PLACE", "a path in the session, in the dotted form"},
      {"SECONDS", "how long to wait, in seconds"},
      {"SESSION", "the name of a session"},
      {"SETTING", "NAME/LEVELS, as in EntityCopy/0-4; off"},
      {"TEXT", "a text to look for"},
      {"TO", "the position that it gets"},
      {"VALUE", "a value"},
      {"WORD", "the beginning of a command"},
      {"COUNT", "a number of lines"},
  };
  auto const found = texts.find(argument);
  return found == texts.end() ? "" : found->second;
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
    return Grammar(std::move(usages));
  }();
  return grammar;
}

Grammar const& filterGrammar() {
  static Grammar const grammar(filterUsages());
  return grammar;
}

namespace {

// The keywords that a usage begins with.
std::vector<std::string> beginning(std::string const& usage) {
  std::vector<std::string> words = texts(splitLine(usage).words);
  auto const end = std::find_if(words.begin(), words.end(), [](std::string const& word) {
    return word.front() == '[' || word.front() == '(' || (word.front() >= 'A' && word.front() <= 'Z');
  });
  words.erase(end, words.end());
  return words;
}

bool beginsWith(Command const& command, std::vector<std::string> const& words) {
  std::vector<std::string> const own = beginning(command.usage);
  if (words.size() > own.size()) return false;
  for (std::size_t i = 0; i < words.size(); ++i)
    if (own[i].compare(0, words[i].size(), words[i]) != 0) return false;
  return true;
}

std::string oneLine(Command const& command, Paint const& paint) {
  constexpr std::size_t wide = 44;
  std::string const usage = command.usage;
  std::string const gap =
      usage.size() < wide ? std::string(wide - usage.size(), ' ') : "\n" + std::string(wide + 2, ' ');
  return "  " + paint(Style::name, usage) + gap + command.summary + "\n";
}

}  // namespace

std::string helpText(std::vector<std::string> const& words, Paint const& paint) {
  std::string out, group;
  for (Command const& command : commandTable()) {
    if (!beginsWith(command, words)) continue;
    if (group != command.group) {
      out += (out.empty() ? "" : "\n") + paint(Style::heading, command.group) + "\n";
      group = command.group;
    }
    out += oneLine(command, paint);
  }
  if (out.empty()) {
    std::string text;
    for (std::string const& word : words) text += (text.empty() ? "" : " ") + shown(word);
    throw CommandError("'" + text + "': no command begins so; 'help' lists all of them");
  }
  if (!words.empty()) return out;
  out +=
      "\nKeywords and paths may be abbreviated; a path is typed word by word (network ports port Ethernet0 mtu) or\n"
      "dotted (network/ports.port/Ethernet0.mtu). Tab completes, '?' says what may come next. Any output can be\n"
      "filtered: show network ports | include up\n";
  return out;
}

Outcome help(Context& context, Arguments const& arguments) {
  context.out << helpText(arguments.words("WORD"), context.paint);
  return Outcome::ok;
}

}  // namespace Shell
