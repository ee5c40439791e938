#include "Completer.h"

#include <algorithm>
#include <filesystem>

#include "CommandTable.h"
#include "Interpreter.h"
#include "service/PathWords.h"

namespace Shell {

namespace Service = Cli::Service;

struct Completer::Options {
  std::size_t wordBegin = 0;
  std::vector<Candidate> candidates;
  std::vector<Candidate> arguments;  // arguments that cannot be listed: the name in capitals, and its explanation
  bool mayEnd = false;
  std::string refusal;  // why the path that was typed leads nowhere
  bool more = false;    // there are more candidates than these
};

namespace {

bool begins(std::string const& word, std::string const& with) { return word.compare(0, with.size(), with) == 0; }

void addFiles(std::vector<Candidate>& candidates, std::string const& partial) {
  namespace fs = std::filesystem;
  std::size_t const slash = partial.rfind('/');
  std::string const dir = slash == std::string::npos ? "" : partial.substr(0, slash + 1);
  std::string const name = slash == std::string::npos ? partial : partial.substr(slash + 1);
  std::error_code error;
  for (auto const& entry : fs::directory_iterator(dir.empty() ? "." : dir, error)) {
    std::string const found = entry.path().filename().string();
    if (!begins(found, name) || (name.empty() && found.front() == '.')) continue;
    bool const isDir = entry.is_directory(error);
    candidates.push_back({asWord(dir + found + (isDir ? "/" : "")), "", !isDir});
  }
  std::sort(candidates.begin(), candidates.end(), [](auto const& a, auto const& b) { return a.word < b.word; });
}

std::string summaryOf(Grammar::Expected const& expected, std::vector<Word> const& before, bool filter) {
  if (filter) return filterSummary(expected.rules.front());
  return keywordHelp(expected.keyword, texts(before), expected.rules);
}

Service::CompletionFor purpose(std::vector<std::size_t> const& rules) {
  Run* const run = commandTable()[rules.front()].run;
  if (run == set || run == create) return Service::CompletionFor::set;
  if (run == insert) return Service::CompletionFor::insert;
  if (run == del) return Service::CompletionFor::remove;
  return Service::CompletionFor::path;
}

}  // namespace

void Completer::addPath(Options& options, std::vector<std::string> const& words,
                        std::vector<std::size_t> const& rules) {
  if (!context_.hasSession()) {
    options.arguments.push_back({"PATH", "a place in a session; 'session open NAME' first"});
    return;
  }
  Service::Candidates const found = Service::complete(context_.base(), context_.at(), words, purpose(rules));
  for (Service::Candidate const& each : found.list)
    options.candidates.push_back({asWord(each.word), each.explanation, !each.goesOn});
  if (!found.hint.empty()) options.arguments.push_back({"VALUE", found.hint});
  options.refusal = found.refusal;
  options.mayEnd = options.mayEnd && found.mayEnd;
  options.more = options.more || found.more;
}

void Completer::addArgument(Options& options, std::string const& argument, std::string const& partial) const {
  if (argument == "SESSION") {
    for (auto const& session : context_.service().list())
      if (begins(session.name, partial)) options.candidates.push_back({asWord(session.name), session.user});
  } else if (argument == "FILE") {
    addFiles(options.candidates, partial);
  } else if (argument == "NUMBER" || argument == "NUMBER2") {
    for (auto const& record : context_.service().history())
      if (begins(std::to_string(record.number), partial))
        options.candidates.push_back(
            {std::to_string(record.number), timeText(record.time) + "  " + shown(record.comment)});
    if (begins("0", partial)) options.candidates.push_back({"0", "before the first commit"});
  } else if (argument == "WORD") {
    for (Command const& command : commandTable()) {
      std::string const word = texts(splitLine(command.usage).words).front();
      bool const there = std::any_of(options.candidates.begin(), options.candidates.end(),
                                     [&](Candidate const& each) { return each.word == word; });
      if (begins(word, partial) && !there) options.candidates.push_back({word, ""});
    }
    return;
  }
  options.arguments.push_back({argument, argumentHelp(argument)});
}

Completer::Options Completer::options(std::string const& text) {
  Line const line = splitLine(text);
  std::vector<Word> words = line.words;
  Options out;
  out.wordBegin = text.size();
  std::string partial;
  bool quoted = false;
  if (!line.endsInBlank) {
    out.wordBegin = words.back().begin;
    partial = words.back().text;
    quoted = words.back().quoted;
    words.pop_back();
  }
  auto const isBar = [](Word const& word) { return word.text == "|" && !word.quoted; };
  auto const bar = std::find_if(words.rbegin(), words.rend(), isBar);
  bool const filter = bar != words.rend();
  words.erase(words.begin(), bar.base());
  Grammar const& grammar = filter ? filterGrammar() : commandGrammar();
  Grammar::Next const next = grammar.next(words, acceptsIn(context_));
  out.mayEnd = !next.ends.empty();
  bool pathDone = false;
  for (Grammar::Expected const& expected : next.expected) {
    if (expected.isKeyword()) {
      if (!quoted && begins(expected.keyword, partial))
        out.candidates.push_back({expected.keyword, summaryOf(expected, words, filter)});
      continue;
    }
    bool const place = expected.argument == "PATH" || expected.argument == "VALUE";
    if (!place) {
      addArgument(out, expected.argument, partial);
      continue;
    }
    if (pathDone) continue;
    pathDone = true;
    // What a value may be depends on the path before it, so both are completed together.
    auto const what = purpose(expected.rules);
    bool const whole = what == Service::CompletionFor::set || what == Service::CompletionFor::insert;
    std::vector<std::string> before = expected.before;
    if (whole) {
      before = texts(words);
      before.erase(before.begin());
    }
    before.push_back(partial);
    addPath(out, before, expected.rules);
  }
  return out;
}

std::vector<Candidate> Completer::complete(std::string const& line, std::size_t& wordBegin) {
  try {
    Options const found = options(line);
    wordBegin = found.wordBegin;
    return found.candidates;
  } catch (std::exception const&) {
    return {};  // not a beginning of a command: nothing completes it
  }
}

std::string Completer::help(std::string const& line) {
  constexpr std::size_t most = 60;
  try {
    Options const found = options(line);
    std::vector<Candidate> rows = found.candidates;
    std::size_t const listed = std::min(rows.size(), most);
    bool const cut = found.more || listed < rows.size();
    rows.resize(listed);
    if (found.candidates.empty() || found.arguments.size() != 1 || found.arguments.front().word != "PATH")
      rows.insert(rows.end(), found.arguments.begin(), found.arguments.end());
    std::size_t widest = 8;
    for (Candidate const& row : rows) widest = std::max(widest, columns(row.word));
    widest = std::min<std::size_t>(widest, 32);
    std::string out;
    for (Candidate const& row : rows) {
      std::size_t const used = columns(row.word);
      out += "  " + context_.paint(Style::name, row.word) + std::string(used < widest ? widest - used : 0, ' ') + "  " +
             shown(row.help) + "\n";
    }
    if (cut) out += "  ...\n";
    if (found.mayEnd) out += "  <return>\n";
    if (out.empty()) out = "  " + (found.refusal.empty() ? "nothing can follow" : shown(found.refusal)) + "\n";
    return out;
  } catch (std::exception const& e) {
    return "  " + shown(e.what()) + "\n";
  }
}

}  // namespace Shell
