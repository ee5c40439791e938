#include <iostream>

#include "compiler/Diagnostic.h"
#include "compiler/Loader.h"
#include "compiler/Options.h"
#include "compiler/Output.h"
#include "compiler/Sema.h"

namespace {

// Exit statuses, beside 0.
constexpr int failed = 1;
constexpr int misused = 2;

int report(std::string const& what) {
  std::cerr << "kelc: " << what << '\n';
  return failed;
}

// The phases, with a stop behind each that found something.
bool readModel(kelc::Options const& options, kelc::ModelSet& set, kelc::Diagnostics& diagnostics) {
  if (!kelc::load(options.input, options.name, options.includeDirs, diagnostics, set)) {
    report("cannot read '" + options.input.string() + "'");
    return false;
  }
  if (diagnostics.empty()) kelc::check(set, diagnostics);
  diagnostics.print(std::cerr);
  return diagnostics.empty();
}

int compile(kelc::Options const& options) {
  kelc::ModelSet set;
  kelc::Diagnostics diagnostics;
  return readModel(options, set, diagnostics) ? 0 : failed;
}

}  // namespace

int main(int argc, char** argv) {
  kelc::Options options;
  std::string const wrong = kelc::parseOptions(std::vector<std::string>(argv + 1, argv + argc), options);
  if (!wrong.empty()) {
    std::cerr << "kelc: " << wrong << '\n' << kelc::usage;
    return misused;
  }
  if (options.help) {
    std::cout << kelc::usage;
    return 0;
  }
  return compile(options);
}
