#include "Diff.h"

#include <unistd.h>

#include <iostream>

#include "Device.h"
#include "DiffView.h"
#include "PendingDiff.h"

namespace Shell {

namespace Service = Cli::Service;

int runDiff(Model const& model, DiffOptions const& options) {
  std::vector<std::string> roots;
  for (ModelRoot const& root : model.roots()) roots.push_back(root.path);
  auto const load = [&](std::string const& file, Service::PendingReferences& pending) {
    Kel::Dir::Ptr dir = Kel::dirFactory("configuration");
    loadConfiguration(model, readConfiguration(file), fileTitle(file), dir, pending);
    return dir;
  };
  Service::PendingReferences before, after;
  Service::Tree const from{load(options.from, before), &roots}, to{load(options.to, after), &roots};
  auto const found = withPending(Service::differences(from, to), before, after);
  DiffForm const form = options.commands ? DiffForm::commands : options.json ? DiffForm::json : DiffForm::tree;
  std::cout << diffText(found, form, Paint(Paint::wanted(STDOUT_FILENO)), &after) << std::flush;
  if (!std::cout) throw std::runtime_error("the output cannot be written");
  return found.empty() ? 0 : 1;
}

}  // namespace Shell
