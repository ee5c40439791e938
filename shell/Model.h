// What the shell wants to know of a model: its session roots, how a configuration is loaded, how values are spelt, and
// what belongs to an entity that is made by hand.
//
// A model library that has more to say than its types exports a function
//
//     extern "C" Shell::Model const* cli_session_model();
//
// and nothing of the shell needs to be linked to it. A library without that function is used by its types alone: roots
// are named on the command line, and configurations are JSON trees.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Dir.h"

namespace Shell {

struct SessionRoot {
  std::string path;      // relative to the configuration: "network/ports"
  std::string typeName;  // "ConfigDb::Ports"
};

// A configuration that cannot be loaded. The message names the file, and the line where there is one.
class ModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Something in a configuration that was not taken as it stands. Remarks of one kind are shown as one.
struct Remark {
  std::string place;  // "PORT|Ethernet0: mtu"
  std::string what;   // what is wrong and what was done
  std::string kind;   // the same without what differs from place to place
};

struct LoadReport {
  std::size_t entries = 0;
  std::string summary;  // "602 entries of 41 tables"
  std::vector<Remark> remarks;
};

class Model {
 public:
  virtual ~Model() = default;
  virtual std::string name() const = 0;
  virtual std::vector<SessionRoot> roots() const = 0;
  // Loads a configuration into a directory that has none of the roots; all of them are there afterwards. `file` is for
  // messages. Raises ModelError, and then has changed nothing.
  virtual LoadReport load(std::string const& text, std::string const& file, Kel::Dir::Ptr const& into) const = 0;
  // The one spelling of a value that is typed or loaded; nothing when the text is no value of the type. The text
  // itself where the model does not know better.
  virtual std::optional<std::string> spelling(Kel::KelType const&, std::string_view text) const {
    return std::string(text);
  }
  // Fills what follows from the key of an entity that was just made by hand. `dir` holds the roots.
  virtual void made(Kel::Entity::Ptr const&, Kel::Dir::Ptr const&) const {}
};

// The name of the function that a model library exports.
constexpr char const* modelFunction = "cli_session_model";

}  // namespace Shell
