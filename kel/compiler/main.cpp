#include <iostream>

#include "compiler/Diagnostic.h"
#include "compiler/Emit.h"
#include "compiler/Loader.h"
#include "compiler/Options.h"
#include "compiler/Output.h"
#include "compiler/Sema.h"

namespace {

// Exit statuses other than 0.
constexpr int failed = 1;
constexpr int misused = 2;

int report(std::string const& what) {
  std::cerr << "kelc: " << what << '\n';
  return failed;
}

// A model with a syntax error is checked, too, so that one run shows all mistakes.
bool readModel(kelc::Options const& options, kelc::ModelSet& set, kelc::Diagnostics& diagnostics) {
  if (!kelc::load(options.input, options.name, options.includeDirs, diagnostics, set)) {
    report("cannot read '" + options.input.string() + "'");
    return false;
  }
  kelc::check(set, diagnostics);
  diagnostics.print(std::cerr);
  return diagnostics.empty();
}

std::vector<kelc::OutputFile> outputs(kelc::Options const& options, kelc::ModelSet const& set) {
  kelc::Generated const generated = kelc::emit(set, {options.exported, options.anchor, options.parts});
  std::string const stem = (options.outDir / options.name).string();
  std::vector<kelc::OutputFile> files = {{stem + ".h", generated.header}, {stem + ".cpp", generated.source}};
  for (std::size_t i = 0; i < generated.furtherSources.size(); ++i)
    files.push_back({stem + "." + std::to_string(i + 2) + ".cpp", generated.furtherSources[i]});
  if (!options.depfile.empty()) {
    std::vector<std::string> sources;
    for (auto const& file : set.files) sources.push_back(file->path);
    std::string const target = options.depTarget.empty() ? stem + ".h" : options.depTarget;
    files.push_back({options.depfile, kelc::dependencyRule(target, sources)});
  }
  return files;
}

int compile(kelc::Options const& options) {
  kelc::ModelSet set;
  kelc::Diagnostics diagnostics;
  if (!readModel(options, set, diagnostics)) return failed;
  if (options.stubs) {
    std::cout << kelc::emitStubs(set);
    return 0;
  }
  std::string const wrong = kelc::writeFiles(outputs(options, set));
  return wrong.empty() ? 0 : report(wrong);
}

}  // namespace

int main(int argc, char** argv) {
  kelc::Options options;
  std::string const wrong = kelc::parseOptions(std::vector<std::string>(argv + 1, argv + argc), options);
  if (!wrong.empty()) {
    std::cerr << "kelc: " << wrong << (wrong.back() == '?' ? "\n" : "; see 'kelc --help'\n");
    return misused;
  }
  if (options.help) {
    std::cout << kelc::usage;
    return 0;
  }
  return compile(options);
}
