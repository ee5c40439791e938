// Files of tests: temporary ones, and those that say what is expected.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Tests {

inline std::string readFile(std::filesystem::path const& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// A directory that goes with the object.
class TemporaryDir {
 public:
  TemporaryDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "test.XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error(pattern);
    path_ = pattern;
  }
  ~TemporaryDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDir(TemporaryDir const&) = delete;
  TemporaryDir& operator=(TemporaryDir const&) = delete;

  std::filesystem::path const& path() const { return path_; }
  // Writes a file, with the directories that it needs.
  std::filesystem::path write(std::filesystem::path const& name, std::string_view text) const {
    std::filesystem::path file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
    return file;
  }

 private:
  std::filesystem::path path_;
};

// What is in a file of what is expected. After a deliberate change: the test with UPDATE_GOLDEN=1, which writes `said`
// there first, and a look at the difference.
inline std::string golden(std::filesystem::path const& path, std::string const& said) {
  if (std::getenv("UPDATE_GOLDEN")) std::ofstream(path, std::ios::binary) << said;
  return readFile(path);
}

// A transcript with fresh answers: behind each line "> QUESTION" stands what is answered to it, in lines of their own.
// Comments ("#") and empty lines stay.
inline std::string answered(std::filesystem::path const& transcript,
                            std::function<std::string(std::string const&)> const& answer) {
  std::string said;
  std::ifstream in(transcript, std::ios::binary);
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') said += line + "\n";
    if (line.rfind("> ", 0) == 0) said += line + "\n" + answer(line.substr(2));
  }
  return said;
}

}  // namespace Tests
