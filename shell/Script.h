// Sources of commands that are not typed.
#pragma once

#include <istream>
#include <memory>
#include <string>
#include <vector>

namespace Shell {

// A sequence of commands, each with a place for messages.
class Script {
 public:
  virtual ~Script() = default;
  // The next command; false at the end.
  virtual bool next(std::string& line) = 0;
  // The place of the last command, "FILE:3: "; may be empty.
  virtual std::string place() const = 0;

  // The commands of the command line.
  static std::unique_ptr<Script> ofCommands(std::vector<std::string> commands);
  // The lines of a file; raises std::runtime_error if it cannot be read. A line that ends with a backslash continues on
  // the next line.
  static std::unique_ptr<Script> ofFile(std::string const& file);
  static std::unique_ptr<Script> ofStream(std::istream& in, std::string name);
};

}  // namespace Shell
