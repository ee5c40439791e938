// The help on commands.
#include <algorithm>
#include <map>
#include <set>

#include "CommandTable.h"
#include "service/PathWords.h"

namespace Shell {

std::string argumentHelp(std::string const& argument) {
  static std::map<std::string, char const*> const texts = {
      {"ACTION", "trace; assert, which ends the process there; or none"},
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

// The explanations of keywords after the first ones of a command. "COMMAND KEYWORD": of the keyword in that command.
std::map<std::string, char const*> const& optionHelps() {
  static std::map<std::string, char const*> const texts = {
      {"--commands", "as commands that make it"},
      {"--discard", "although it has edits"},
      {"--json", "as JSON, which is the default"},
      {"against", "what to compare with"},
      {"all", "everything"},
      {"ancestor", "running as it was when the session was opened or updated: its own edits, the default"},
      {"as", "the form of the output"},
      {"by", "one line a path"},
      {"clean", "the configuration that the program began with"},
      {"comment", "a comment, in the history"},
      {"commands", "as commands that lead there"},
      {"commit", "the configuration after a commit"},
      {"file", "the configuration of a file"},
      {"json", "as JSON"},
      {"load merge", "add the file's content to the session's"},
      {"load replace", "the file's content in place of the session's"},
      {"off", "they are among the edits"},
      {"on", "they stay out of the edits"},
      {"path", "one line a path"},
      {"persist", "a word by which any session may confirm or cancel"},
      {"prefer-candidate", "this session's side of each conflict"},
      {"prefer-running", "running's side of each conflict"},
      {"resolve running", "as running has it"},
      {"resolve session", "as this session has it"},
      {"revert-on-conflict", "nothing is changed where there are conflicts, the default"},
      {"running", "the running configuration"},
      {"session", "another session"},
      {"show all", "unset values as well"},
      {"tree", "as a tree, the default"},
  };
  return texts;
}

}  // namespace

std::string keywordHelp(std::string const& keyword, std::vector<std::string> const& before,
                        std::vector<std::size_t> const& rules) {
  std::string next;  // the next keywords, if no command ends here
  for (std::size_t const rule : rules) {
    Command const& command = commandTable()[rule];
    std::vector<std::string> const own = beginning(command.usage);
    if (before.size() >= own.size()) {
      auto const& helps = optionHelps();
      auto const found = helps.find(own.front() + " " + keyword), any = helps.find(keyword);
      return found != helps.end() ? found->second : any != helps.end() ? any->second : "";
    }
    if (before.size() + 1 == own.size()) return command.summary;
    next += (next.empty() ? "" : ", ") + own[before.size() + 1];
  }
  return rules.size() == 1 ? commandTable()[rules.front()].summary : next;
}

std::string insteadOf(std::string const& command) {
  static std::map<std::string, char const*> const others = {
      {"abort", "'discard' takes edits back, 'session close --discard' ends the session"},
      {"add", "'set' or 'create' makes what is not there"},
      {"configure", "'session open NAME' opens a session to edit"},
      {"get", "'show' shows the configuration"},
      {"ls", "'show' shows the configuration"},
      {"no", "'delete' deletes, or puts a value back to its default"},
      {"remove", "'delete' deletes, or puts a value back to its default"},
      {"revert", "'discard' takes edits back, 'rollback NUMBER' commits"},
      {"undo", "'discard' takes edits back, 'rollback NUMBER' commits; 'history' has their numbers"},
      {"write", "'commit' makes the edits the running configuration, 'save FILE' writes a file"},
  };
  if (auto const found = others.find(command); found != others.end()) return found->second;
  std::set<std::string> words;
  for (Command const& each : commandTable()) words.insert(beginning(each.usage).front());
  if (words.count(command)) return "commands stand without quotes";
  std::string const near = Cli::Service::nearest(command, {words.begin(), words.end()});
  return near.empty() ? near : "did you mean " + near + "?";
}

namespace {

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
    std::string const instead = insteadOf(words.front());
    throw CommandError("'" + text + "': no command begins so; " +
                       (instead.empty() ? "'help' lists all of them" : instead));
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
