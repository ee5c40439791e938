#include "compiler/Loader.h"

#include <fstream>
#include <iterator>
#include <map>
#include <string_view>
#include <system_error>
#include <utility>

#include "compiler/Lexer.h"
#include "compiler/Parser.h"

namespace kelc {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t maxImportDepth = 64;
constexpr std::string_view extension = ".kel";

// One file whatever it is called.
std::string identity(fs::path const& path) {
  std::error_code error;
  fs::path const canonical = fs::weakly_canonical(path, error);
  return (error ? path : canonical).string();
}

// A path that means the same from every directory, and gives a header's path with another extension.
bool isImportPath(std::string const& text) {
  if (text.size() <= extension.size() || text.substr(text.size() - extension.size()) != extension) return false;
  if (text.find('\\') != std::string::npos || text[0] == '/' || text.find("//") != std::string::npos) return false;
  fs::path const path(text);
  for (fs::path const& part : path) {
    if (part == "." || part == "..") return false;
  }
  return path.filename() != extension;
}

class Loader {
 public:
  Loader(std::vector<fs::path> const& includeDirs, Diagnostics& diagnostics, ModelSet& set)
      : includeDirs_(includeDirs), diagnostics_(diagnostics), set_(set) {}

  // Null when the file cannot be read.
  Model* load(fs::path const& path, std::string const& includePath) {
    SourceFile* const file = read(path);
    if (!file) return nullptr;
    std::string const id = identity(path);
    known_[id] = nullptr;
    std::unique_ptr<Model> model = front(*file);
    model->includePath = includePath;
    for (Import& import : model->imports) {
      stack_.push_back({id, import.loc});
      import.model = follow(import);
      if (!import.model) model->incomplete = true;
      stack_.pop_back();
    }
    known_[id] = model.get();
    return set_.models.emplace_back(std::move(model)).get();
  }

 private:
  struct Step {
    std::string id;  // of the importing file
    Loc import;
  };

  SourceFile* read(fs::path const& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return nullptr;
    std::ifstream in(path, std::ios::binary);
    if (!in) return nullptr;
    auto file = std::make_unique<SourceFile>();
    file->path = path.string();
    file->text.assign(std::istreambuf_iterator<char>(in), {});
    file->order = set_.files.size();
    return set_.files.emplace_back(std::move(file)).get();
  }

  std::unique_ptr<Model> front(SourceFile const& file) {
    Diagnostics found;
    std::vector<Token> const tokens = lex(file, found);
    std::unique_ptr<Model> model = parse(tokens, found);
    diagnostics_.add(found);
    return model;
  }

  Model const* follow(Import const& import) {
    if (!isImportPath(import.path)) {
      diagnostics_.error(import.loc,
                         "'" + import.path + "' is not the path of a model: a relative one, ending in .kel");
      return nullptr;
    }
    fs::path const found = find(import.path);
    if (found.empty()) {
      diagnostics_.error(import.loc, "cannot find '" + import.path + "'");
      return nullptr;
    }
    auto const known = known_.find(identity(found));
    if (known != known_.end()) {
      if (!known->second) reportCycle(import, known->first);
      return known->second;
    }
    if (stack_.size() > maxImportDepth) {
      diagnostics_.error(import.loc, "imports nest more than 64 deep");
      return nullptr;
    }
    Model const* const model = load(found, import.path.substr(0, import.path.size() - extension.size()));
    if (!model) diagnostics_.error(import.loc, "cannot read '" + import.path + "'");
    return model;
  }

  fs::path find(std::string const& import) const {
    std::error_code error;
    for (fs::path const& dir : includeDirs_) {
      if (fs::exists(dir / import, error)) return dir / import;
    }
    return {};
  }

  void reportCycle(Import const& import, std::string const& id) {
    std::vector<Note> notes;
    for (Step const& step : stack_) {
      bool const inside = step.id == id || !notes.empty();
      bool const last = &step == &stack_.back();
      if (inside && !last) notes.push_back({step.import, "by way of this import"});
    }
    diagnostics_.error(import.loc, "cycle of imports: '" + import.path + "' imports this file", std::move(notes));
  }

  std::vector<fs::path> const& includeDirs_;
  Diagnostics& diagnostics_;
  ModelSet& set_;
  std::map<std::string, Model*> known_;  // null while the file's imports are being read
  std::vector<Step> stack_;
};

}  // namespace

bool load(fs::path const& path, std::string const& includePath, std::vector<fs::path> const& includeDirs,
          Diagnostics& diagnostics, ModelSet& set) {
  set.main = Loader(includeDirs, diagnostics, set).load(path, includePath);
  return set.main != nullptr;
}

}  // namespace kelc
