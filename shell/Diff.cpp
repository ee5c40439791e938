#include "Diff.h"

#include <unistd.h>

#include <iostream>

#include "Device.h"
#include "DiffView.h"

namespace Shell {

namespace Service = Cli::Service;

int runDiff(Model const& model, DiffOptions const& options) {
  std::vector<std::string> roots;
  for (ModelRoot const& root : model.roots()) roots.push_back(root.path);
  auto const load = [&](std::string const& file) {
    Kel::Dir::Ptr dir = Kel::dirFactory("configuration");
    Service::PendingReferences ignored;
    loadConfiguration(model, readConfiguration(file), fileTitle(file), dir, ignored);
    return dir;
  };
  Service::Tree const from{load(options.from), &roots}, to{load(options.to), &roots};
  auto const found = Service::differences(from, to);
  DiffForm const form = options.commands ? DiffForm::commands : options.json ? DiffForm::json : DiffForm::tree;
  std::cout << diffText(found, form, Paint(Paint::wanted(STDOUT_FILENO))) << std::flush;
  if (!std::cout) throw std::runtime_error("the output cannot be written");
  return found.empty() ? 0 : 1;
}

}  // namespace Shell
