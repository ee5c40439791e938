#include "compiler/Loader.h"

#include <fstream>
#include <iterator>
#include <map>
#include <set>
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

// Identifies a file, whatever path it was opened by.
std::string identity(fs::path const& path) {
  std::error_code error;
  fs::path const canonical = fs::weakly_canonical(path, error);
  return (error ? path : canonical).string();
}

// Whether a path can be the path of an import: relative, without `.` and `..`, so that it also names the header.
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

  // Null if the file cannot be read.
  Model* load(fs::path const& path, std::string const& includePath) {
    SourceFile* const file = read(path);
    if (!file) return nullptr;
    std::string const id = identity(path);
    known_[id] = nullptr;
    std::unique_ptr<Model> model = front(*file);
    model->includePath = includePath;
    for (Import& import : model->imports) {
      stack_.push_back({id, import.loc});
      import.model = follow(import, *model);
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

  Model const* follow(Import const& import, Model const& importer) {
    if (!isImportPath(import.path)) {
      diagnostics_.error(import.loc, inQuotes(import.path) +
                                         " cannot be imported: the path has to be relative, without '.' and '..', and "
                                         "end in '.kel'");
      return nullptr;
    }
    fs::path const folder = fs::path(importer.file->path).parent_path();
    fs::path const beside = existing(folder, import.path), found = beside.empty() ? find(import.path) : beside;
    if (found.empty()) {
      diagnostics_.error(import.loc, "cannot find " + inQuotes(import.path) + " in " + searched(folder));
      return nullptr;
    }
    auto const known = known_.find(identity(found));
    if (known != known_.end()) {
      if (!known->second) reportCycle(import, known->first);
      return known->second;
    }
    if (stack_.size() > maxImportDepth) {
      diagnostics_.error(import.loc, "imports are nested more than 64 deep");
      return nullptr;
    }
    Model const* const model = load(found, headerOf(import.path, found, importer));
    if (!model) diagnostics_.error(import.loc, "cannot read " + inQuotes(import.path));
    return model;
  }

  static fs::path existing(fs::path const& dir, std::string const& import) {
    std::error_code error;
    return fs::exists(dir / import, error) ? dir / import : fs::path();
  }

  // Looks in the include directories.
  fs::path find(std::string const& import) const {
    for (fs::path const& dir : includeDirs_) {
      if (fs::path path = existing(dir, import); !path.empty()) return path;
    }
    return {};
  }

  // The include path of an imported model's header: that of the import when an include directory leads to it. The
  // header of a model that is found beside the importing one stands beside that one's header.
  std::string headerOf(std::string const& import, fs::path const& found, Model const& importer) const {
    std::string path = import.substr(0, import.size() - extension.size());
    if (identity(find(import)) == identity(found)) return path;
    return (fs::path(importer.includePath).parent_path() / path).generic_string();
  }

  // The directories in which an import was looked for, without repetitions.
  std::string searched(fs::path const& folder) const {
    std::vector<fs::path> dirs = includeDirs_;
    dirs.insert(dirs.begin(), folder);
    std::set<std::string> seen;
    std::vector<std::string> names;
    for (fs::path const& dir : dirs) {
      fs::path const shown = dir.empty() ? fs::path(".") : dir;
      if (seen.insert(identity(shown)).second) names.push_back(inQuotes(shown.string()));
    }
    std::string list;
    for (std::string const& name : names) {
      list += (list.empty() ? "" : &name == &names.back() ? " or " : ", ") + name;
    }
    return list;
  }

  void reportCycle(Import const& import, std::string const& id) {
    std::vector<Note> notes;
    for (Step const& step : stack_) {
      bool const inside = step.id == id || !notes.empty();
      bool const last = &step == &stack_.back();
      if (inside && !last) notes.push_back({step.import, "through this import"});
    }
    diagnostics_.error(import.loc, "import cycle: " + inQuotes(import.path) + " imports this file", std::move(notes));
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
