// The shell: lines of commands, in one or two sessions on a small configuration that has one of everything.
//
// A command that fails says why and has changed nothing; help and completion take every line; what differs is never
// wrong about the trees: a session without differences equals running, and one that is filled from running has none.
#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CommandTable.h"
#include "Completer.h"
#include "Fuzz.h"
#include "Interpreter.h"
#include "ModelLibrary.h"
#include "Plant.h"
#include "service/JsonTree.h"

namespace {

using namespace Shell;

char const* const content = R"({
  "hall": {
    "u8": 3, "text": "it's", "texts": {"a.b/c": "x"}, "history": ["first"],
    "bolt": {"b1": {"torque": 1.5}}, "gear": {"g1": {"teeth": 7, "size": {"width": 1, "height": 3}, "grade": "pure"}},
    "axle": {"name": "main"}, "annex": {"a.b": {"bolt": {"c/d": {}}}}, "slot": {"-3": {}},
    "job": [{"title": "paint", "step": [{}, {"text": "again"}]}], "favourite": "hall.bolt/b1"
  },
  "sys": {"annex": {"neighbour": "hall", "chosen": {"k": "hall.annex/a.b.bolt/c/d"}}}
})";

Model const& plant() {
  static std::unique_ptr<Model> const model = [] {
    Plant::Hall::_fwkType();
    return modelOfTypes("plant", {"hall=Plant::Hall", "sys/annex=Plant::Hall"});
  }();
  return *model;
}

struct World {
  Device device;
  Context context{device};
  Interpreter interpreter{context};
  Completer completer{context};
  std::optional<std::vector<Cli::Service::Json>> known;  // the trees, if no command has succeeded since

  World() : device(plant(), settings()) {}

  static Device::Settings settings() {
    Device::Settings settings;
    settings.file = "plant.json";
    settings.text = content;
    settings.clock = [] { return 1.7e9; };
    return settings;
  }

  // What all sessions and the running configuration hold. Most of the time goes here: as JSON it is a fifth of what the
  // full text of every attribute costs.
  using Trees = std::vector<Cli::Service::Json>;
  Trees trees() {
    Trees out{held(*device.service().running().dir)};
    for (auto const& listed : device.service().list()) {
      out.emplace_back(listed.name);
      out.push_back(held(*device.service().session(listed.name)->tree().dir));
    }
    return out;
  }
  static Cli::Service::Json held(Kel::Dir const& dir) {
    return Cli::Service::exportEntity(const_cast<Kel::Dir&>(dir), dir);
  }

  Outcome run(std::string const& line) {
    if (!known) known = trees();
    Interpreter::Answer const answer = interpreter.run(line);
    FUZZ_LAW(answer.error.empty() == (answer.outcome != Outcome::failed), line + ": " + answer.error);
    bool const control = std::any_of(answer.output.begin(), answer.output.end(),
                                     [](unsigned char c) { return (c < ' ' && c != '\n') || c == 0x7f; });
    FUZZ_LAW(!control, line + ": " + answer.output);
    if (answer.outcome == Outcome::failed)
      FUZZ_LAW(trees() == known, line + ": " + answer.error);
    else
      known.reset();
    return answer.outcome;
  }

  // Whether a line writes or reads files, traces, or asks for the end of the process.
  bool isBarred(std::string const& line) {
    std::vector<Word> const words = splitLine(line).words;
    if (std::any_of(words.begin(), words.end(), [](Word const& w) { return w.text == "|"; })) return true;
    try {
      Context other(device);
      Grammar::Match const match = commandGrammar().match(words, acceptsIn(other));
      Run* const command = commandTable()[match.rule].run;
      return command == load || command == save || command == trace || command == debugEdit ||
             match.arguments.has("FILE");
    } catch (UsageError const&) {
      return false;
    }
  }
};

void laws(World& world) {
  if (!world.context.hasSession()) return;
  auto& session = world.context.session();
  if (session.differencesFromRunning().empty())
    FUZZ_LAW(world.run("compare") == Outcome::ok, "no differences, and not equal");
  if (world.device.service().waiting()) return;
  FUZZ_LAW(world.run("replace") == Outcome::ok, "replace");
  FUZZ_LAW(world.run("compare") == Outcome::ok, world.context.out.str());
  FUZZ_LAW(session.differences().empty() && session.differencesInRunning().empty(), "filled from running");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > 1000) return 0;
  Fuzz::Input input(data, size);
  World world;
  while (!input.atEnd()) {
    std::string const line(input.line());
    std::size_t begin = 0;
    for (Candidate const& candidate : world.completer.complete(line, begin))
      FUZZ_LAW(candidate.word.find('\n') == std::string::npos && begin <= line.size(), line);
    world.completer.help(line);
    if (world.isBarred(line)) continue;
    if (world.run(line) == Outcome::quit) break;
  }
  laws(world);
  return 0;
}
