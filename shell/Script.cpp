#include "Script.h"

#include <fstream>
#include <stdexcept>
#include <utility>

namespace Shell {

namespace {

class Commands : public Script {
 public:
  explicit Commands(std::vector<std::string> commands) : commands_(std::move(commands)) {}
  bool next(std::string& line) override {
    if (at_ == commands_.size()) return false;
    line = commands_[at_++];
    return true;
  }
  std::string place() const override { return {}; }

 private:
  std::vector<std::string> commands_;
  std::size_t at_ = 0;
};

class Lines : public Script {
 public:
  Lines(std::istream& in, std::string name) : in_(in), name_(std::move(name)) {}
  bool next(std::string& line) override {
    line.clear();
    first_ = read_ + 1;
    bool any = false;
    for (std::string part; std::getline(in_, part);) {
      any = true;
      if (++read_ == 1 && part.compare(0, 3, "\xef\xbb\xbf") == 0) part.erase(0, 3);  // some editors write this mark
      if (!part.empty() && part.back() == '\r') part.pop_back();
      if (part.empty() || part.back() != '\\') {
        line += part;
        return true;
      }
      part.back() = ' ';
      line += part;
    }
    return any;
  }
  std::string place() const override { return name_ + ":" + std::to_string(first_) + ": "; }

 private:
  std::istream& in_;
  std::string const name_;
  std::size_t read_ = 0, first_ = 0;
};

class File : public Script {
 public:
  explicit File(std::string const& file) : in_(file, std::ios::binary), lines_(in_, file) {
    if (!in_ || in_.peek() == std::char_traits<char>::eof()) check(file);
  }
  bool next(std::string& line) override { return lines_.next(line); }
  std::string place() const override { return lines_.place(); }

 private:
  void check(std::string const& file) {
    if (!in_.is_open() || in_.bad() || (in_.fail() && !in_.eof())) throw std::runtime_error(file + ": cannot be read");
    in_.clear();
  }
  std::ifstream in_;
  Lines lines_;
};

}  // namespace

std::unique_ptr<Script> Script::ofCommands(std::vector<std::string> commands) {
  return std::make_unique<Commands>(std::move(commands));
}
std::unique_ptr<Script> Script::ofFile(std::string const& file) { return std::make_unique<File>(file); }
std::unique_ptr<Script> Script::ofStream(std::istream& in, std::string name) {
  return std::make_unique<Lines>(in, std::move(name));
}

}  // namespace Shell
