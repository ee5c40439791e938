// Where commands come from when nobody types them.
#pragma once

#include <istream>
#include <memory>
#include <string>
#include <vector>

namespace Shell {

// Commands, one after the other, each with a place for messages.
class Script {
 public:
  virtual ~Script() = default;
  virtual bool next(std::string& line) = 0;
  // "FILE:3: " of the command that `next` gave last; empty where there is nothing to say.
  virtual std::string place() const = 0;

  // The commands of the command line.
  static std::unique_ptr<Script> ofCommands(std::vector<std::string> commands);
  // The lines of a file; raises std::runtime_error when it cannot be read. A line that ends with a backslash goes on in
  // the next.
  static std::unique_ptr<Script> ofFile(std::string const& file);
  static std::unique_ptr<Script> ofStream(std::istream& in, std::string name);
};

}  // namespace Shell
