#include "Grammar.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <set>

namespace Shell {

// --- Arguments ---

std::string Arguments::text(std::string const& name) const {
  auto const found = words_.find(name);
  return found == words_.end() ? std::string() : found->second.front();
}

std::vector<std::string> const& Arguments::words(std::string const& name) const {
  static std::vector<std::string> const none;
  auto const found = words_.find(name);
  return found == words_.end() ? none : found->second;
}

std::string Arguments::joined(std::string const& name) const {
  std::string out;
  for (std::string const& word : words(name)) out += (out.empty() ? "" : " ") + word;
  return out;
}

unsigned long long Arguments::number(std::string const& name) const {
  return std::strtoull(text(name).c_str(), nullptr, 10);
}

// --- Usage lines to states ---

class Grammar::Compiler {
 public:
  Compiler(std::vector<std::vector<Edge>>& states, std::string_view usage) : states_(states), rest_(usage) {}

  // The state after `from` and everything in the usage line.
  std::size_t run(std::size_t from) { return alternatives(from); }

 private:
  std::size_t newState() {
    states_.emplace_back();
    return states_.size() - 1;
  }
  void edge(std::size_t from, Edge::Kind kind, std::string word, std::size_t to) {
    states_[from].push_back({kind, std::move(word), to});
  }
  void skipBlanks() {
    while (!rest_.empty() && rest_.front() == ' ') rest_.remove_prefix(1);
  }
  bool take(std::string_view token) {
    skipBlanks();
    if (rest_.substr(0, token.size()) != token) return false;
    rest_.remove_prefix(token.size());
    return true;
  }

  std::size_t alternatives(std::size_t from) {
    std::size_t const end = newState();
    do edge(sequence(from), Edge::Kind::empty, "", end);
    while (take("|"));
    return end;
  }

  std::size_t sequence(std::size_t from) {
    for (;;) {
      skipBlanks();
      if (rest_.empty() || rest_.front() == '|' || rest_.front() == ']' || rest_.front() == ')') return from;
      from = item(from);
    }
  }

  std::size_t item(std::size_t from) {
    if (take("[")) {
      std::size_t const begin = newState();
      edge(from, Edge::Kind::empty, "", begin);
      std::size_t const end = alternatives(begin);
      take("]");
      edge(from, Edge::Kind::empty, "", end);
      return end;
    }
    if (take("(")) {
      std::size_t const begin = newState();
      edge(from, Edge::Kind::empty, "", begin);
      std::size_t const end = alternatives(begin);
      take(")");
      return end;
    }
    return word(from);
  }

  std::size_t word(std::size_t from) {
    std::size_t const length = std::min(rest_.find_first_of(" |[]()"), rest_.size());
    std::string text(rest_.substr(0, length));
    rest_.remove_prefix(length);
    bool repeated = text.size() > 3 && text.compare(text.size() - 3, 3, "...") == 0;
    if (repeated) text.erase(text.size() - 3);
    bool const argument = std::isupper(static_cast<unsigned char>(text.front())) != 0;
    if (text == "PATH") repeated = true;
    std::size_t const to = newState();
    auto const kind = argument ? Edge::Kind::argument : Edge::Kind::keyword;
    edge(from, kind, text, to);
    if (repeated) edge(to, kind, text, to);
    return to;
  }

  std::vector<std::vector<Edge>>& states_;
  std::string_view rest_;
};

Grammar::Grammar(std::vector<std::string> usages, Unknown unknown)
    : usages_(std::move(usages)), unknown_(std::move(unknown)) {
  for (std::string const& usage : usages_) {
    states_.emplace_back();
    starts_.push_back(states_.size() - 1);
    accepting_.push_back(Compiler(states_, usage).run(states_.size() - 1));
  }
}

// --- Running them ---

namespace {

bool isPrefix(std::string const& prefix, std::string const& of) { return of.compare(0, prefix.size(), prefix) == 0; }

}  // namespace

std::vector<Grammar::Thread> Grammar::start() const {
  std::vector<Thread> threads;
  for (std::size_t rule = 0; rule < starts_.size(); ++rule) threads.push_back({starts_[rule], rule, {}, {}, {}});
  follow(threads);
  return threads;
}

// Adds the states that are reached without a word.
void Grammar::follow(std::vector<Thread>& threads) const {
  std::set<std::size_t> seen;
  for (Thread const& thread : threads) seen.insert(thread.state);
  for (std::size_t i = 0; i < threads.size(); ++i)
    for (Edge const& edge : states_[threads[i].state]) {
      if (edge.kind != Edge::Kind::empty || !seen.insert(edge.to).second) continue;
      Thread reached = threads[i];
      reached.state = edge.to;
      threads.push_back(std::move(reached));
    }
}

void Grammar::refuse(std::vector<Thread> const& threads, Word const* word) const {
  std::set<std::string> wanted;
  std::vector<std::string> usages;
  for (Thread const& thread : threads)
    for (Edge const& edge : states_[thread.state])
      if (edge.kind != Edge::Kind::empty) {
        wanted.insert(edge.word);
        std::string const& usage = usages_[thread.rule];
        if (std::find(usages.begin(), usages.end(), usage) == usages.end()) usages.push_back(usage);
      }
  std::string list;
  for (std::string const& each : wanted) list += (list.empty() ? "" : ", ") + each;
  std::string text = word ? "'" + shown(word->text) + "': " : "incomplete: ";
  if (wanted.empty())
    text += "the command ends before this word";
  else
    text += (wanted.size() == 1 ? list : "one of " + list) + " expected";
  if (!usages.empty() && usages.size() <= 3)
    for (std::string const& usage : usages) text += "\nusage: " + usage;
  throw UsageError(text);
}

std::vector<Grammar::Thread> Grammar::step(std::vector<Thread> const& threads, Word const& word, std::size_t number,
                                           Accepts const& accepts) const {
  std::set<std::string> exact, abbreviated;
  bool taken = false;  // by an argument
  auto const before = [](Thread const& thread, Edge const& edge) {
    return thread.lastArgument == edge.word ? thread.last : std::vector<std::string>();
  };
  for (Thread const& thread : threads)
    for (Edge const& edge : states_[thread.state]) {
      if (edge.kind == Edge::Kind::argument && accepts(edge.word, before(thread, edge), word.text)) taken = true;
      if (edge.kind != Edge::Kind::keyword || word.quoted) continue;
      if (edge.word == word.text)
        exact.insert(edge.word);
      else if (isPrefix(word.text, edge.word))
        abbreviated.insert(edge.word);
    }
  std::set<std::string> const& keywords = exact.empty() ? abbreviated : exact;
  if (exact.empty() && !taken && abbreviated.size() > 1) {
    std::string list;
    for (std::string const& each : abbreviated) list += (list.empty() ? "" : ", ") + each;
    throw UsageError("'" + shown(word.text) + "' is ambiguous: " + list);
  }
  bool const byKeyword = !exact.empty() || (!taken && abbreviated.size() == 1);
  std::vector<Thread> out;
  for (Thread const& thread : threads)
    for (Edge const& edge : states_[thread.state]) {
      if (edge.kind == Edge::Kind::keyword && byKeyword && keywords.count(edge.word)) {
        Thread next{edge.to, thread.rule, thread.arguments, {}, {}};
        next.arguments.add(edge.word, word.text);
        out.push_back(std::move(next));
      } else if (edge.kind == Edge::Kind::argument) {
        // In the middle of a path, a word that is a keyword may also be the path's next word.
        bool const goesOn = thread.lastArgument == edge.word;
        if (byKeyword && !goesOn) continue;
        // A path that leads nowhere is accepted here, and refused later with the reason.
        bool const lenient = edge.word == "PATH" && !taken && !byKeyword;
        if (!lenient && !accepts(edge.word, before(thread, edge), word.text)) continue;
        Thread next{edge.to, thread.rule, thread.arguments, before(thread, edge), edge.word};
        next.last.push_back(word.text);
        next.arguments.add(edge.word, word.text);
        out.push_back(std::move(next));
      }
    }
  if (out.empty()) {
    if (number == 0 && unknown_) throw UsageError("'" + shown(word.text) + "': " + unknown_(word.text));
    refuse(threads, &word);
  }
  follow(out);
  return out;
}

std::vector<Grammar::Thread> Grammar::read(std::vector<Word> const& words, Accepts const& accepts) const {
  if (words.size() > maxWords) throw UsageError("a command has at most " + std::to_string(maxWords) + " words");
  std::vector<Thread> threads = start();
  for (std::size_t i = 0; i < words.size(); ++i) threads = step(threads, words[i], i, accepts);
  return threads;
}

Grammar::Match Grammar::match(std::vector<Word> const& words, Accepts const& accepts) const {
  std::vector<Thread> threads = read(words, accepts);
  for (Thread& thread : threads)
    if (thread.state == accepting_[thread.rule]) return {thread.rule, std::move(thread.arguments)};
  refuse(threads, nullptr);
}

Grammar::Next Grammar::next(std::vector<Word> const& words, Accepts const& accepts) const {
  std::vector<Thread> threads = read(words, accepts);
  std::sort(threads.begin(), threads.end(), [](Thread const& a, Thread const& b) { return a.rule < b.rule; });
  Next out;
  for (Thread const& thread : threads) {
    if (thread.state == accepting_[thread.rule]) out.ends.push_back(thread.rule);
    for (Edge const& edge : states_[thread.state]) {
      if (edge.kind == Edge::Kind::empty) continue;
      bool const keyword = edge.kind == Edge::Kind::keyword;
      auto const found = std::find_if(out.expected.begin(), out.expected.end(), [&](Expected const& e) {
        return keyword ? e.keyword == edge.word : e.argument == edge.word;
      });
      if (found != out.expected.end()) {
        found->rules.push_back(thread.rule);
        continue;
      }
      Expected expected;
      (keyword ? expected.keyword : expected.argument) = edge.word;
      if (thread.lastArgument == edge.word) expected.before = thread.last;
      expected.rules = {thread.rule};
      out.expected.push_back(std::move(expected));
    }
  }
  return out;
}

}  // namespace Shell
