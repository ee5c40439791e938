// What a model tells the shell: its session roots, and how to load a configuration. The model registers the spelling of
// values and the hooks of its types with the service (service/ValueText.h, service/ModelHooks.h).
//
// A model library may export the function
//
//     extern "C" Shell::Model const* cli_session_model();
//
// It need not link anything of the shell. From a library without that function, the shell takes the types only: roots
// are named on the command line, and configurations are JSON trees.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Dir.h"
#include "service/PendingReferences.h"

namespace Shell {

struct ModelRoot {
  std::string path;      // relative to the configuration: "network/ports"
  std::string typeName;  // "ConfigDb::Ports"
};

// A configuration or model that cannot be loaded. The message names the file, and the line if it is known.
class ModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Something in a configuration that was left out or changed.
struct Remark {
  std::string place;  // "PORT|Ethernet0: mtu"
  std::string what;   // what is wrong and what was done
  std::string kind;   // `what` without the parts that differ from place to place; remarks of one kind are shown as one
};

struct LoadReport {
  std::string summary;  // "602 entries of 41 tables"
  std::vector<Remark> remarks;
};

class Model {
 public:
  virtual ~Model() = default;
  virtual std::string name() const = 0;
  virtual std::vector<ModelRoot> roots() const = 0;
  // Loads a configuration; makes all roots. Adds references that lead nowhere to `pending`. `file` is for messages. If
  // it raises ModelError, it has changed nothing. REQUIRES: `into` has none of the roots.
  virtual LoadReport load(std::string const& text, std::string const& file, Kel::Dir::Ptr const& into,
                          Cli::Service::PendingReferences& pending) const = 0;
};

// The name of the function that a model library exports.
constexpr char const* modelFunction = "cli_session_model";

}  // namespace Shell
