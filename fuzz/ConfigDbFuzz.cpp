// The loader of configuration files: the content of a file.
//
// A file is loaded whole, or refused with its place and without a trace in the directory that it was to go to.
#include "Dump.h"
#include "Files.h"
#include "Fuzz.h"
#include "examples/config_db/Loader.h"

namespace {

// "FILE:LINE:COLUMN: what", with a place that is in the text.
void checkMessage(std::string const& message, std::string const& file, std::string_view text) {
  FUZZ_LAW(message.compare(0, file.size() + 1, file + ":") == 0, message);
  char* end = nullptr;
  unsigned long const line = std::strtoul(message.c_str() + file.size() + 1, &end, 10);
  FUZZ_LAW(line >= 1 && *end == ':', message);
  unsigned long const column = std::strtoul(end + 1, &end, 10);
  FUZZ_LAW(column >= 1 && end[0] == ':' && end[1] == ' ' && end[2] != '\0', message);
  Fuzz::Input lines(reinterpret_cast<std::uint8_t const*>(text.data()), text.size());
  for (unsigned long n = 1; n < line; ++n) {
    FUZZ_LAW(!lines.atEnd(), message);
    lines.line();
  }
  FUZZ_LAW(column <= lines.line().size() + 1, message);
}

bool load(std::string const& file, Kel::Dir::Ptr const& into, ConfigDb::Report& report, std::string& refusal) {
  try {
    ConfigDb::loadConfigDb(file, into, report);
    return true;
  } catch (ConfigDb::LoadError const& e) {
    refusal = e.what();
    return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Tests::TemporaryDir const directory;
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  std::string const file = directory.write("config.json", text).string();
  std::string refusal;
  ConfigDb::Report report, again;
  Kel::Dir::Ptr const into = Kel::dirFactory("");
  if (!load(file, into, report, refusal)) {
    checkMessage(refusal, file, text);
    FUZZ_LAW(into->entryStates() == 0 && report.complaints.empty() && report.entries.empty(), refusal);
    return 0;
  }
  for (auto const& root : ConfigDb::sessionRoots()) {
    Kel::Entity::Ptr const made = into->entity(Kel::String8(root.path));
    FUZZ_LAW(made && made->typeName() == Kel::String8(root.typeName), root.path);
  }
  for (std::string const& line : report.complaints) {
    FUZZ_LAW(line.compare(0, file.size() + 2, file + ": ") == 0, line);
    for (char c : line) FUZZ_LAW(static_cast<unsigned char>(c) >= ' ', line);
  }

  // The same again elsewhere; but not where it is already, or where something is in the way.
  Kel::Dir::Ptr const other = Kel::dirFactory("");
  FUZZ_LAW(load(file, other, again, refusal), refusal);
  std::string const before = Tests::dump(into);
  FUZZ_LAW(Tests::dump(other) == before && again.complaints == report.complaints, file);
  FUZZ_LAW(!load(file, into, again, refusal) && Tests::dump(into) == before, file);
  return 0;
}
