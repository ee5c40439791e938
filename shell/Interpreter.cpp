#include "Interpreter.h"

#include <algorithm>
#include <cctype>

#include "Kel/Exception.h"
#include "OutputFilter.h"
#include "service/PathWords.h"
#include "service/ValueText.h"

namespace Shell {

namespace Service = Cli::Service;

namespace {

bool isNumber(std::string const& word) {
  return !word.empty() && word.size() < 19 &&
         std::all_of(word.begin(), word.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

bool leadsOn(Context& context, std::vector<std::string> words, std::string const& word) {
  if (!context.hasSession()) return true;  // the command says that there is no session
  words.push_back(word);
  // Keys are taken as new ones, because only a reading that fails looks at every key.
  Service::WordRules rules;
  rules.create = true;
  try {
    return Service::readPath(context.base(), context.at(), words, rules).used == words.size();
  } catch (Service::InputError const&) {
  }
  return !Service::complete(context.base(), context.at(), words, Service::CompletionFor::path, 1).list.empty();
}

// An error as it is printed. Control characters are escaped, and a long line is cut, since it repeats a word of the
// input.
std::string readable(std::string const& error) {
  constexpr std::size_t longest = 1000;
  std::string out;
  for (std::size_t from = 0; from < error.size();) {
    std::size_t const end = std::min(error.find('\n', from), error.size());
    out += Service::shortened(shown(std::string_view(error).substr(from, end - from)), longest);
    if (end < error.size()) out += '\n';
    from = end + 1;
  }
  return out;
}

}  // namespace

Grammar::Accepts acceptsIn(Context& context) {
  return [&context](std::string const& argument, std::vector<std::string> const& before, std::string const& word) {
    if (argument == "PATH") return leadsOn(context, before, word);
    bool const number = argument == "NUMBER" || argument == "NUMBER2" || argument == "COUNT" || argument == "FROM" ||
                        argument == "TO" || argument == "SECONDS";
    return !number || isNumber(word);
  };
}

Outcome Interpreter::dispatch(std::vector<Word> const& words) {
  Grammar::Match const match = commandGrammar().match(words, acceptsIn(context_));
  return commandTable()[match.rule].run(context_, match.arguments);
}

Interpreter::Answer Interpreter::run(std::string const& text) {
  Answer answer;
  context_.out.str("");
  try {
    Line line = splitLine(text);
    if (line.words.empty() || line.isComment()) return answer;
    if (line.openQuote) throw CommandError("a quote is not closed");
    OutputFilter filter(line.words);  // takes its words away
    context_.followUndone();
    answer.outcome = dispatch(line.words);
    answer.output = filter.filtered(context_.out.str());
    answer.paged = filter.paged();
    return answer;
  } catch (Kel::Exception const& e) {
    answer.error = e.what();
  } catch (std::exception const& e) {
    answer.error = e.what();
  }
  answer.outcome = Outcome::failed;
  answer.error = answer.error.empty() ? "failed\n" : readable(answer.error) + "\n";
  return answer;
}

}  // namespace Shell
