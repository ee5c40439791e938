// What the fuzz targets share: laws, and an input as a source of choices and lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

}  // namespace Fuzz
