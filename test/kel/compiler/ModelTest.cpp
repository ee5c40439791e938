#include "ModelTest.h"

#include "compiler/Sema.h"

namespace kelc::test {

namespace fs = std::filesystem;

fs::path const& dataDir() {
  static fs::path const dir(KELC_TEST_DIR);
  return dir;
}

Compiled::Compiled(fs::path const& path) {
  readable = load(path, path.stem().string(), {dataDir() / "models", dataDir() / "sample"}, diagnostics, set);
  if (readable) check(set, diagnostics);
}

}  // namespace kelc::test
