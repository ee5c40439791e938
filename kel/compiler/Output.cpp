#include "compiler/Output.h"

#include <fstream>
#include <iterator>
#include <system_error>

namespace kelc {

namespace fs = std::filesystem;

namespace {

bool holds(fs::path const& path, std::string const& text) {
  std::ifstream in(path, std::ios::binary);
  return in && std::string(std::istreambuf_iterator<char>(in), {}) == text;
}

// The temporary files that wait to be moved into place. The destructor deletes the rest.
class Staging {
 public:
  ~Staging() {
    std::error_code ignored;
    for (OutputFile const* file : staged_) fs::remove(beside(file->path), ignored);
  }

  bool add(OutputFile const& file) {
    std::error_code error;
    if (file.path.has_parent_path()) fs::create_directories(file.path.parent_path(), error);
    if (error) return false;
    staged_.push_back(&file);
    std::ofstream out(beside(file.path), std::ios::binary | std::ios::trunc);
    out << file.text;
    out.close();
    return !out.fail();
  }

  // If a file cannot be replaced, those before it have been.
  OutputFile const* commit() {
    for (OutputFile const* file : staged_) {
      std::error_code error;
      fs::rename(beside(file->path), file->path, error);
      if (error) return file;
    }
    staged_.clear();
    return nullptr;
  }

 private:
  static fs::path beside(fs::path path) { return path += ".new"; }

  std::vector<OutputFile const*> staged_;
};

std::string cannotWrite(OutputFile const& file) { return "cannot write '" + file.path.string() + "'"; }

void appendEscaped(std::string& rule, std::string const& path) {
  for (char c : path) {
    if (c == ' ' || c == '#') rule += '\\';
    if (c == '$') rule += '$';
    rule += c;
  }
}

}  // namespace

std::string writeFiles(std::vector<OutputFile> const& files) {
  Staging staging;
  for (OutputFile const& file : files) {
    if (holds(file.path, file.text)) continue;
    if (!staging.add(file)) return cannotWrite(file);
  }
  OutputFile const* const failed = staging.commit();
  return failed ? cannotWrite(*failed) : std::string();
}

std::string dependencyRule(std::string const& target, std::vector<std::string> const& sources) {
  std::string rule;
  appendEscaped(rule, target);
  rule += ':';
  for (std::string const& source : sources) {
    rule += " \\\n  ";
    appendEscaped(rule, source);
  }
  return rule + "\n";
}

}  // namespace kelc
