#include "service/Importer.h"

namespace Cli::Service {

namespace {

std::string refusalText(std::string const& file, std::size_t line, std::string const& path, std::string const& what) {
  std::string text = file;
  if (line > 0) text += (text.empty() ? "line " : ":") + std::to_string(line);
  if (!path.empty()) text += (text.empty() ? "" : ": ") + path;
  return text + (text.empty() ? "" : ": ") + what;
}

ImportReport imported(Kel::Dir::Ptr const& base, Path const& at, Json const& json, ImportOptions const& options,
                      Source source) {
  Undo undo;
  try {
    return Importer(base, options, std::move(source), &undo).run(at, json);
  } catch (...) {
    undo.takeBack();
    throw;
  }
}

}  // namespace

ImportError::ImportError(std::string const& file, std::size_t line, std::string const& path, std::string const& what)
    : InputError(refusalText(file, line, path, what)), line_(line), path_(path) {}
ImportError::~ImportError() = default;

ImportReport importJson(Kel::Dir::Ptr const& base, Path const& at, Json const& json, ImportOptions const& options) {
  return imported(base, at, json, options, {});
}

ImportReport importText(Kel::Dir::Ptr const& base, Path const& at, std::string const& file, std::string_view text,
                        ImportOptions const& options) {
  Json const json = parseJson(file, text);
  return imported(base, at, json, options, {file, text});
}

ImportReport importPart(Kel::Dir::Ptr const& base, Path const& at, Json const& json, ImportOptions const& options,
                        Undo* undo) {
  return Importer(base, options, {}, undo).run(at, json);
}

}  // namespace Cli::Service
