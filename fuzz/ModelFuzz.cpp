// The model compiler: the text of a model; lines "--- NAME" begin files that it can import as NAME.kel.
//
// What it takes means the same however its tokens are spaced, and everything that it reads lies in its include folder.
#include <algorithm>
#include <sstream>

#include "Files.h"
#include "Fuzz.h"
#include "compiler/Emit.h"
#include "compiler/Lexer.h"
#include "compiler/Loader.h"
#include "compiler/Output.h"
#include "compiler/Sema.h"

namespace {

namespace fs = std::filesystem;

// `in` is the include folder; a model beside it must stay out of reach.
struct Folders {
  Tests::TemporaryDir top;
  fs::path in = top.path() / "in", out = top.path() / "out";
  Folders() { top.write("Secret.kel", "namespace Secret; value Key { a : U8; }"); }
};

Folders& folders() {
  static Folders all;
  return all;
}

std::string writeModels(std::string_view text) {
  std::error_code ignored;
  fs::remove_all(folders().in, ignored);
  fs::path at = "in/Model.kel";
  std::string model, all;
  auto const flush = [&] {
    if (at == "in/Model.kel") model = all;
    folders().top.write(at, all);
    all.clear();
  };
  Fuzz::Input input(reinterpret_cast<std::uint8_t const*>(text.data()), text.size());
  while (!input.atEnd()) {
    std::string_view const line = input.line();
    if (line.substr(0, 4) == "--- ") {
      flush();
      std::string name;
      for (char c : line.substr(4, 20))
        if (std::isalnum(static_cast<unsigned char>(c))) name += c;
      at = fs::path("in") / (name.empty() || name == "Model" ? "Other.kel" : name + ".kel");
    } else {
      all += std::string(line) + "\n";
    }
  }
  flush();
  return model;
}

void checkPlace(kelc::Loc const& loc, std::string const& what) {
  FUZZ_LAW(loc.file && !what.empty(), what);
  std::string const& text = loc.file->text;
  auto const lines = static_cast<unsigned>(std::count(text.begin(), text.end(), '\n')) + 1;
  FUZZ_LAW(loc.line >= 1 && loc.line <= lines, what);
  std::istringstream in(text);
  std::string line;
  for (unsigned n = 0; n < loc.line; ++n) std::getline(in, line);
  FUZZ_LAW(loc.column >= 1 && loc.column <= line.size() + 1, what);
}

void checkErrors(kelc::Diagnostics const& diagnostics) {
  for (kelc::Diagnostic const& d : diagnostics.sorted()) {
    checkPlace(d.loc, d.text);
    for (kelc::Note const& note : d.notes) checkPlace(note.loc, note.text);
  }
  std::ostringstream out;
  diagnostics.print(out);
  std::string const printed = out.str();
  FUZZ_LAW(printed.empty() == diagnostics.empty(), printed);
  auto const isControl = [](char c) { return c != '\n' && std::iscntrl(static_cast<unsigned char>(c)); };
  FUZZ_LAW(std::none_of(printed.begin(), printed.end(), isControl), printed);
}

// What could not be read has been reported.
void checkComplete(kelc::ModelSet const& set) {
  auto const whole = [](auto const& decl) { return !decl->incomplete; };
  for (auto const& model : set.models) {
    FUZZ_LAW(!model->incomplete, model->file->text);
    FUZZ_LAW(std::all_of(model->enums.begin(), model->enums.end(), whole), model->file->text);
    FUZZ_LAW(std::all_of(model->values.begin(), model->values.end(), whole), model->file->text);
    FUZZ_LAW(std::all_of(model->entities.begin(), model->entities.end(), whole), model->file->text);
  }
}

// Whether a model has no mistakes; then `generated` is what is made of it.
bool compile(fs::path const& model, kelc::Generated& generated) {
  kelc::ModelSet set;
  kelc::Diagnostics diagnostics;
  FUZZ_LAW(kelc::load(model, "Model", {folders().in}, diagnostics, set), model.string());
  for (auto const& file : set.files) {
    std::string const path = fs::canonical(file->path).string(), in = fs::canonical(folders().in).string();
    FUZZ_LAW(path.compare(0, in.size(), in) == 0, path);
  }
  kelc::check(set, diagnostics);
  checkErrors(diagnostics);
  if (!diagnostics.empty()) return false;
  checkComplete(set);
  generated = kelc::emit(set);
  kelc::emitStubs(set);
  return true;
}

// The tokens of a model, each on a line of its own.
std::string respaced(std::string const& model) {
  kelc::SourceFile file;
  file.text = model;
  kelc::Diagnostics none;
  std::string text;
  for (kelc::Token const& token : kelc::lex(file, none)) text += std::string(token.text) + "\n";
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > 8000) return 0;
  std::string const model = writeModels({reinterpret_cast<char const*>(data), size});
  kelc::Generated generated, again;
  if (!compile(folders().in / "Model.kel", generated)) return 0;
  FUZZ_LAW(!generated.header.empty() && !generated.source.empty(), model);
  for (int times = 0; times < 2; ++times)
    FUZZ_LAW(kelc::writeFiles({{folders().out / "Model.h", generated.header}}).empty(), model);
  FUZZ_LAW(fs::file_size(folders().out / "Model.h") == generated.header.size(), model);
  folders().top.write("in/Model.kel", respaced(model));
  FUZZ_LAW(compile(folders().in / "Model.kel", again), model);
  FUZZ_LAW(again.header == generated.header && again.source == generated.source, model);
  return 0;
}
