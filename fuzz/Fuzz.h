// What the fuzz targets share: laws, an input as a source of choices and lines, files to hand to what reads files.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace Fuzz {

[[noreturn]] inline void broken(char const* law, char const* file, int line, std::string const& about) {
  std::fprintf(stderr, "%s:%d: the law '%s' does not hold: %s\n", file, line, law, about.c_str());
  std::abort();
}

// What must hold for every input; where it does not, says so with what it is about, and ends the process.
#define FUZZ_LAW(law, about) ((law) ? void() : Fuzz::broken(#law, __FILE__, __LINE__, about))

// Reads an input from its begin. At its end bytes are 0 and lines are empty.
class Input {
 public:
  Input(std::uint8_t const* data, std::size_t size) : rest_(reinterpret_cast<char const*>(data), size) {}

  bool atEnd() const { return rest_.empty(); }
  std::string_view rest() const { return rest_; }
  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    auto const first = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return first;
  }
  std::size_t below(std::size_t n) { return byte() % n; }
  // Up to the next of `separator`, which is left out.
  std::string_view until(char separator) {
    std::size_t const end = rest_.find(separator);
    std::string_view const text = rest_.substr(0, end);
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    return text;
  }
  std::string_view line() { return until('\n'); }

 private:
  std::string_view rest_;
};

// A directory for the files of this process, gone at its end.
class Directory {
 public:
  Directory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "fuzz.XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    path_ = pattern;
  }
  ~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Directory(Directory const&) = delete;
  Directory& operator=(Directory const&) = delete;

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

}  // namespace Fuzz
