// The model as the shell knows it.
#include "examples/config_db/Model.h"

#include "examples/config_db/Editing.h"
#include "examples/config_db/Loader.h"
#include "service/Path.h"

namespace ConfigDb {

namespace {

namespace Service = Cli::Service;

// "file: TABLE|key: field: what" in its parts; the kind of a remark has no name from the file in it.
Shell::Remark remarkOf(std::string const& complaint, std::string const& file) {
  std::string const rest =
      complaint.compare(0, file.size() + 2, file + ": ") == 0 ? complaint.substr(file.size() + 2) : complaint;
  std::size_t const cut = rest.rfind(": ");
  if (cut == std::string::npos) return {"", rest, rest};
  Shell::Remark remark{rest.substr(0, cut), rest.substr(cut + 2), {}};
  bool quoted = false;
  for (char const c : remark.what) {
    if (c == '"') quoted = !quoted;
    if (c == '"' && quoted) remark.kind += "...";
    if (c != '"' && !quoted) remark.kind += c;
  }
  return remark;
}

class ConfigDbModel : public Shell::Model {
 public:
  std::string name() const override { return "config_db"; }

  std::vector<Shell::ModelRoot> roots() const override {
    std::vector<Shell::ModelRoot> roots;
    for (SessionRoot const& root : sessionRoots()) roots.push_back({root.path, root.typeName});
    return roots;
  }

  Shell::LoadReport load(std::string const& text, std::string const& file, Kel::Dir::Ptr const& into,
                         Service::PendingReferences& pending) const override {
    Report report;
    try {
      loadConfigDbText(text, file, into, report);
    } catch (LoadError const& e) {
      throw Shell::ModelError(e.what());
    }
    for (Service::PendingReference const& reference : report.dangling) pending.add(reference);
    Shell::LoadReport out;
    auto const counted = [](std::size_t count, char const* one, char const* many) {
      return std::to_string(count) + (count == 1 ? one : many);
    };
    out.summary = counted(report.entryCount(), " entry of ", " entries of ") +
                  counted(report.entries.size(), " table", " tables");
    for (std::string const& complaint : report.complaints) out.remarks.push_back(remarkOf(complaint, file));
    return out;
  }
};

}  // namespace

Shell::Model const& model() {
  static ConfigDbModel const only;
  static bool const told = (registerModel(), true);
  (void)told;
  return only;
}

}  // namespace ConfigDb

extern "C" __attribute__((visibility("default"))) Shell::Model const* cli_session_model() { return &ConfigDb::model(); }
