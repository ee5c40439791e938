// A device within the process: the running configuration, the service that owns its sessions, and the store.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Model.h"
#include "service/Service.h"

namespace Shell {

class Device {
 public:
  struct Settings {
    std::string file;      // the configuration; "-": standard input
    std::string stateDir;  // where commits are kept; empty: nowhere
    std::function<double()> clock;
    std::string text{};  // the configuration itself; if it is not empty, `file` is not read
  };
  // Loads the configuration. If the state directory has commits, the running configuration is that of the newest one,
  // and the file's is the clean configuration. Raises ModelError and Cli::Service::Error. REQUIRES: `model` outlives
  // it.
  Device(Model const& model, Settings const& settings);
  ~Device();

  Model const& model() const { return model_; }
  Cli::Service::Service& service() { return *service_; }
  LoadReport const& report() const { return report_; }
  bool keepsCommits() const { return store_ != nullptr; }
  // The references of the running configuration that lead nowhere. Set them after each commit.
  Cli::Service::PendingReferences const& pending() const { return pending_; }
  void pendingIs(Cli::Service::PendingReferences pending);
  // Call it before each command: if the commit that waited to be confirmed has been undone, `pending` is again as it
  // was before that commit. Answers the name of its session then.
  std::optional<std::string> followUndone();
  // Those of the clean configuration, and those of running after a commit; null: they are not known any more.
  Cli::Service::PendingReferences const& cleanPending() const { return cleanPending_; }
  Cli::Service::PendingReferences const* pendingAfter(Kel::U64 commit) const;

 private:
  Model const& model_;
  Kel::Dir::Ptr top_, running_;
  LoadReport report_;
  Cli::Service::PendingReferences pending_, cleanPending_;
  std::map<Kel::U64, Cli::Service::PendingReferences> pendingAfter_;  // commits that have changed them
  std::optional<Cli::Service::Service::Waiting> waiting_;             // as of the newest commit of the shell
  std::unique_ptr<Cli::Service::CommitStore> store_;
  std::unique_ptr<Cli::Service::Service> service_;
};

// The name of a file in messages; for "-", "standard input".
std::string fileTitle(std::string const& file);
// The text of a file; "-": standard input. Raises ModelError.
std::string readConfiguration(std::string const& file);
// Loads a configuration, in the model's form or as a JSON tree. Raises ModelError. REQUIRES: `into` has none of the
// roots.
LoadReport loadConfiguration(Model const& model, std::string const& text, std::string const& file,
                             Kel::Dir::Ptr const& into, Cli::Service::PendingReferences& pending);

}  // namespace Shell
