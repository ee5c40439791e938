// Runs a fuzz target without a fuzzer, on the same inputs every time:
//
//     fuzz_strep [-runs=N] [FILE or DIRECTORY]...
//
// first on the files, then on N inputs made of them by a few random changes each, and of random bytes. The input that
// ends the process is left in the file `crash-NAME` of the working directory; give it as FILE to see it again.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "Fuzz.h"

// There when the program is built with a sanitizer that ends the process without a signal.
extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*)());

namespace {

std::string input, crashFile;

void keepInput() {
  if (std::FILE* out = std::fopen(crashFile.c_str(), "wb")) {
    std::fwrite(input.data(), 1, input.size(), out);
    std::fclose(out);
    std::fprintf(stderr, "the input is in %s\n", crashFile.c_str());
  }
}

void onSignal(int) { keepInput(); }

void run(std::string text) {
  input = std::move(text);
  // A copy of exactly its size: reading past its end is seen.
  std::vector<std::uint8_t> const bytes(input.begin(), input.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

std::string contents(std::filesystem::path const& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> readAll(std::vector<std::filesystem::path> const& paths) {
  std::vector<std::filesystem::path> files;
  for (auto const& path : paths) {
    if (!std::filesystem::is_directory(path))
      files.push_back(path);
    else
      for (auto const& entry : std::filesystem::directory_iterator(path)) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  std::vector<std::string> texts;
  texts.reserve(files.size());
  for (auto const& file : files) texts.push_back(contents(file));
  return texts;
}

class Mutator {
 public:
  explicit Mutator(std::vector<std::string> const& seeds) : seeds_(seeds) {}

  std::string next() {
    if (seeds_.empty() || below(16) == 0) return randomBytes();
    std::string text = seeds_[below(seeds_.size())];
    for (std::size_t edits = 1 + below(4); edits > 0; --edits) edit(text);
    return text;
  }

 private:
  std::size_t below(std::size_t n) { return random_() % n; }
  std::string randomBytes() {
    std::string text;
    for (std::size_t n = below(64); n > 0; --n) text += static_cast<char>(random_());
    return text;
  }
  // A piece of some seed.
  std::string piece() {
    std::string const& from = seeds_[below(seeds_.size())];
    std::size_t const at = below(from.size() + 1);
    return from.substr(at, below(24));
  }
  void edit(std::string& text) {
    std::size_t const at = below(text.size() + 1), length = below(4) == 0 ? below(24) : below(3);
    switch (below(5)) {
      case 0: text.erase(at, length); return;
      case 1: text.insert(at, piece()); return;
      case 2: text.replace(at, length, piece()); return;
      case 3: text.insert(at, 1, static_cast<char>(random_())); return;
      default:
        if (at < text.size()) text[at] = static_cast<char>(text[at] ^ (1 << below(8)));
    }
  }

  std::vector<std::string> const& seeds_;
  std::mt19937 random_{20240229};
};

}  // namespace

int main(int argc, char** argv) {
  unsigned long runs = 0;
  std::vector<std::filesystem::path> paths;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "-runs=", 6) == 0)
      runs = std::strtoul(argv[i] + 6, nullptr, 10);
    else
      paths.emplace_back(argv[i]);
  }
  crashFile = "crash-" + std::filesystem::path(argv[0]).filename().string();
  struct sigaction action {};
  action.sa_handler = onSignal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGABRT, &action, nullptr);
  if (__sanitizer_set_death_callback) {
    __sanitizer_set_death_callback(keepInput);
  } else {
    sigaction(SIGSEGV, &action, nullptr);
  }

  std::vector<std::string> const seeds = readAll(paths);
  for (auto const& seed : seeds) run(seed);
  Mutator mutator(seeds);
  for (unsigned long n = 0; n < runs; ++n) run(mutator.next());
  std::printf("%zu files, %lu inputs made of them\n", seeds.size(), runs);
}
