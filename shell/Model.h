// What the shell wants to know of a model: its session roots, and how a configuration is loaded. How values are spelt
// and what follows from an entity's key are told to the service, by service/ValueText.h and service/ModelHooks.h.
//
// A model library that has more to say than its types exports a function
//
//     extern "C" Shell::Model const* cli_session_model();
//
// and nothing of the shell needs to be linked to it. A library without that function is used by its types alone: roots
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

// A configuration that cannot be loaded. The message names the file, and the line where there is one.
class ModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Something in a configuration that was not taken as it stands.
struct Remark {
  std::string place;  // "PORT|Ethernet0: mtu"
  std::string what;   // what is wrong and what was done
  std::string kind;   // the same without what differs from place to place: remarks of one kind are shown as one
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
  // Loads a configuration into a directory that has none of the roots; all of them are there afterwards. References
  // that lead nowhere are added to `pending`. `file` is for messages. Raises ModelError, and then has changed nothing.
  virtual LoadReport load(std::string const& text, std::string const& file, Kel::Dir::Ptr const& into,
                          Cli::Service::PendingReferences& pending) const = 0;
};

// The name of the function that a model library exports.
constexpr char const* modelFunction = "cli_session_model";

}  // namespace Shell
