#include "ModelTest.h"

#include <unistd.h>

#include <fstream>
#include <iterator>

#include "compiler/Sema.h"

namespace kelc::test {

namespace fs = std::filesystem;

fs::path const& dataDir() {
  static fs::path const dir(KELC_TEST_DIR);
  return dir;
}

Compiled::Compiled(fs::path const& path) {
  readable = load(path, path.stem().string(), {dataDir() / "models"}, diagnostics, set);
  if (readable && diagnostics.empty()) check(set, diagnostics);
}

TemporaryDir::TemporaryDir() {
  std::string name = (fs::temp_directory_path() / "kelc-test-XXXXXX").string();
  if (!mkdtemp(name.data()))
    throw fs::filesystem_error("mkdtemp", name, std::error_code(errno, std::generic_category()));
  path_ = name;
}

TemporaryDir::~TemporaryDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

fs::path TemporaryDir::write(std::string const& name, std::string const& text) const {
  std::ofstream(path_ / name, std::ios::binary) << text;
  return path_ / name;
}

std::string readFile(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace kelc::test
