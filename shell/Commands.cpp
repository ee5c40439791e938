#include "Commands.h"

#include <algorithm>
#include <cctype>
#include <iomanip>
#include <ostream>

#include "Kel/Exception.h"
#include "Reflect.h"

namespace Shell {

namespace {

// Words are separated by blanks; double quotes keep blanks together, a backslash takes the next character as it is.
std::vector<std::string> split(std::string const& line) {
  std::vector<std::string> words;
  std::string word;
  bool quoted = false, started = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    char const c = line[i];
    if (c == '\\' && i + 1 < line.size()) {
      word += line[++i];
      started = true;
    } else if (c == '"') {
      quoted = !quoted;
      started = true;
    } else if (!quoted && (c == ' ' || c == '\t')) {
      if (started) words.push_back(word);
      word.clear();
      started = false;
    } else {
      word += c;
      started = true;
    }
  }
  if (quoted) Kel::throwRangeException("a quote is not closed");
  if (started) words.push_back(word);
  return words;
}

}  // namespace

struct Commands::Command {
  char const* name;
  char const* usage;
  char const* help;
  std::size_t least, most;  // words after the name
  Outcome (Commands::*run)(Words const&);
};

std::vector<Commands::Command> const& Commands::table() {
  constexpr std::size_t any = 1000;
  static std::vector<Command> const commands = {
      {"session", "session open NAME", "open a session; a new one is filled from the running configuration", 2, 2,
       &Commands::session},
      {"roots", "roots", "the session's roots, with the entities and attributes in each", 0, 0, &Commands::roots},
      {"show", "show PATH", "an entity's attributes, or one attribute", 1, 1, &Commands::show},
      {"set", "set PATH VALUE...", "set an attribute or a member in the session; an owned member is created", 1, any,
       &Commands::set},
      {"delete", "delete PATH", "delete a member or an entity in the session, or reset an attribute", 1, 1,
       &Commands::del},
      {"compare", "compare", "the first difference between the session and the running configuration", 0, 0,
       &Commands::compare},
      {"replace", "replace", "fill the session from the running configuration again", 0, 0, &Commands::replace},
      {"log", "log [all]", "the edits that filling the session made, by attribute; 'all': by path", 0, 1,
       &Commands::log},
      {"bypass", "bypass on|off", "leave deletions of what holds only defaults out of the log, from now on", 1, 1,
       &Commands::bypass},
      {"debug", "debug [EDIT TYPE::ATTRIBUTE ACTION [PATH]]",
       "trace, assert or none, when filling makes that edit (set, del); alone: what is configured", 0, 4,
       &Commands::debug},
      {"help", "help", "this list", 0, 0, &Commands::help},
      {"exit", "exit", "leave", 0, 0, &Commands::quit},
  };
  return commands;
}

std::vector<std::string> Commands::names() {
  std::vector<std::string> names;
  for (Command const& command : table()) names.emplace_back(command.name);
  return names;
}

Outcome Commands::run(std::string const& line) {
  try {
    Words words = split(line);
    if (words.empty() || words.front().front() == '#') return Outcome::ok;
    for (Command const& command : table()) {
      if (words.front() != command.name) continue;
      words.erase(words.begin());
      if (words.size() < command.least || words.size() > command.most) {
        err_ << "usage: " << command.usage << "\n";
        return Outcome::failed;
      }
      return (this->*command.run)(words);
    }
    err_ << "'" << words.front() << "': no such command; 'help' lists them\n";
  } catch (Kel::Exception const& e) {
    err_ << e.what() << "\n";
  }
  return Outcome::failed;
}

Outcome Commands::help(Words const&) {
  std::size_t widest = 0;
  for (Command const& command : table()) widest = std::max(widest, std::string(command.usage).size());
  for (Command const& command : table())
    out_ << std::left << std::setw(static_cast<int>(widest) + 2) << command.usage << command.help << "\n";
  return Outcome::ok;
}

Outcome Commands::session(Words const& words) {
  if (words[0] != "open") {
    err_ << "usage: session open NAME\n";
    return Outcome::failed;
  }
  workspace_.sessionOpen(words[1]);
  out_ << "session " << words[1] << " is open, " << workspace_.sessionRoots().size() << " roots\n";
  return Outcome::ok;
}

Outcome Commands::roots(Words const&) {
  Kel::Dir::Ptr const dir = workspace_.sessionDir();
  Counts total;
  auto const line = [this](std::string const& path, std::string const& type, Counts const& counts) {
    out_ << std::left << std::setw(24) << path << std::setw(26) << type << std::right << std::setw(6) << counts.entities
         << " entities" << std::setw(8) << counts.attributes << " attributes\n";
  };
  for (std::string const& path : workspace_.sessionRoots()) {
    Kel::Entity::Ptr const root = dir->entity(Kel::String(path));
    if (!root) continue;
    Counts const counts = countBelow(root);
    line(path, root->typeName().str(), counts);
    total.entities += counts.entities;
    total.attributes += counts.attributes;
  }
  line("total", "", total);
  return Outcome::ok;
}

Outcome Commands::show(Words const& words) {
  Target const target = locateExisting(workspace_.sessionDir(), words[0]);
  if (!target.attr) {
    for (std::string const& line : describe(target.entity)) out_ << line << "\n";
    return Outcome::ok;
  }
  Kel::GenericIf::Ptr const gif = Kel::GenericIf::ofEntity(target.entity);
  if (target.key)
    out_ << Kel::GenericIf::PtrConst(gif->attribute(target.attr->id(), target.key)) << "\n";
  else
    out_ << gif->attributeString(target.attr->id()) << "\n";
  return Outcome::ok;
}

Outcome Commands::set(Words const& words) {
  Kel::Dir::Ptr const dir = workspace_.sessionDir();
  setFromText(dir, locate(dir, words[0]), {words.begin() + 1, words.end()});
  return Outcome::ok;
}

Outcome Commands::del(Words const& words) {
  deleteTarget(locateExisting(workspace_.sessionDir(), words[0]));
  return Outcome::ok;
}

Outcome Commands::compare(Words const&) {
  Workspace::Difference const difference = workspace_.compare();
  if (!difference.found) {
    out_ << "equal\n";
    return Outcome::ok;
  }
  out_ << "differs at " << (difference.path.empty() ? "." : difference.path) << ": " << difference.edit.editType()
       << " " << difference.edit.attributeName() << " of " << difference.edit.attributeType() << "\n";
  return Outcome::differs;
}

Outcome Commands::replace(Words const&) {
  workspace_.sessionReplace();
  out_ << "session " << workspace_.sessionName() << " is filled from the running configuration\n";
  return Outcome::ok;
}

Outcome Commands::log(Words const& words) {
  bool const all = !words.empty();
  if (all && words[0] != "all") {
    err_ << "usage: log [all]\n";
    return Outcome::failed;
  }
  auto const log = workspace_.sessionLog();
  std::vector<std::string> lines;
  std::size_t places = 0;
  if (log) {
    for (auto entry = log->attributeEditEntryIteratorConst(); entry; ++entry) {
      Cli::Session::AttributeEdit const& edit = entry->attributeEdit();
      std::string const name =
          (stringValue(edit.editType()) + " " + edit.attributeType() + "::" + edit.attributeName()).str();
      places += entry->pathCounters();
      if (!all) lines.push_back(name + " at " + std::to_string(entry->pathCounters()) + " paths");
      for (auto path = entry->pathCounterIterator(); all && path; ++path)
        lines.push_back(name + " at " + (path.key().empty() ? "." : path.key().str()) + " x" +
                        std::to_string(path.value()));
    }
  }
  std::sort(lines.begin(), lines.end());
  for (std::string const& line : lines) out_ << line << "\n";
  out_ << places << " edited attributes\n";
  return Outcome::ok;
}

namespace {

// An enumerator by its name, or by its name behind `prefix`.
template <class E>
E enumerator(std::string const& prefix, std::string const& name) {
  Kel::KelType const& type = *Kel::TypeOf<E>::type();
  for (Kel::KelType::Enumerator const& e : type.enumerators()) {
    std::string plain = e.name.str();
    if (plain.rfind(prefix, 0) == 0) plain.erase(0, prefix.size());
    std::transform(plain.begin(), plain.end(), plain.begin(), [](unsigned char c) { return std::tolower(c); });
    if (plain == name) return static_cast<E>(e.value);
  }
  Kel::throwRangeException("'" + name + "': no such " + type.name().str());
}

Cli::Session::AttributeEdit editOf(std::string const& edit, std::string const& attribute) {
  std::size_t const colon = attribute.rfind("::");
  Kel::String const typeName(attribute.substr(0, colon == std::string::npos ? 0 : colon));
  Kel::KelType const* type = Kel::KelType::find(typeName);
  if (!type || !type->isEntity()) Kel::throwRangeException("'" + attribute + "': TYPE::ATTRIBUTE expected");
  Kel::String const name = type->getAttr(attribute.substr(colon + 2))->name();
  return {name, typeName, enumerator<Cli::Session::AttributeEditType>("", edit)};
}

}  // namespace

Outcome Commands::bypass(Words const& words) {
  if (words[0] != "on" && words[0] != "off") {
    err_ << "usage: bypass on|off\n";
    return Outcome::failed;
  }
  workspace_.bypassIs(words[0] == "on");
  return Outcome::ok;
}

Outcome Commands::debug(Words const& words) {
  if (words.empty()) {
    showDebugging();
    return Outcome::ok;
  }
  if (words.size() < 3) {
    err_ << "usage: debug [EDIT TYPE::ATTRIBUTE ACTION [PATH]]\n";
    return Outcome::failed;
  }
  workspace_.debugActionIs(editOf(words[0], words[1]), words.size() > 3 ? words[3] : "",
                           enumerator<Cli::Session::AttributeDebugAction>("action", words[2]));
  return Outcome::ok;
}

void Commands::showDebugging() {
  auto const line = [this](Cli::Session::AttributeEdit const& edit, Cli::Session::AttributeDebugAction action,
                           std::string const& where) {
    if (action == Cli::Session::AttributeDebugAction::actionNone) return;
    out_ << action << ": " << edit.editType() << " " << edit.attributeType() << "::" << edit.attributeName() << where
         << "\n";
  };
  Cli::Session::CliConfig const& config = workspace_.userConfig();
  for (auto at = config.debugEntityCopyIteratorConst(); at; ++at)
    for (auto edit = at->debugConfigIteratorConst(); edit; ++edit)
      line(edit.key(), edit->action(), " at " + at.key().str());
  for (auto edit = config.debugPerTypeEntityCopyIteratorConst(); edit; ++edit)
    for (auto path = edit->actionIteratorConst(); path; ++path) line(edit.key(), path.value(), "");
}

Outcome Commands::quit(Words const&) { return Outcome::quit; }

}  // namespace Shell
