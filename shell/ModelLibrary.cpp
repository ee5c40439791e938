#include "ModelLibrary.h"

#include <dlfcn.h>

#include <algorithm>
#include <cctype>

#include "service/Json.h"
#include "service/JsonTree.h"

namespace Shell {

namespace Service = Cli::Service;

namespace {

std::string plural(std::size_t count, char const* one, char const* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

class TypesModel : public Model {
 public:
  TypesModel(std::string name, std::vector<ModelRoot> roots) : name_(std::move(name)), roots_(std::move(roots)) {}
  std::string name() const override { return name_; }
  std::vector<ModelRoot> roots() const override { return roots_; }
  LoadReport load(std::string const& text, std::string const& file, Kel::Dir::Ptr const& into,
                  Service::PendingReferences& pending) const override {
    return loadTree(roots_, text, file, into, pending);
  }

 private:
  std::string name_;
  std::vector<ModelRoot> roots_;
};

ModelRoot rootOf(std::string const& text) {
  std::size_t const equals = text.find('=');
  std::string const typeName = equals == std::string::npos ? text : text.substr(equals + 1);
  Kel::KelType const* const type = Kel::KelType::find(typeName);
  if (!type) throw ModelError("'" + typeName + "': no such type; --root takes its full name, as in Acme::Switch");
  if (!type->isEntity() || !type->isMadeByName())
    throw ModelError("'" + typeName + "' cannot be a root: it is not made by a name alone");
  if (equals != std::string::npos) return {text.substr(0, equals), typeName};
  std::string path = type->name().str();
  path.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(path.front())));
  return {path, typeName};
}

}  // namespace

Model const* openModelLibrary(std::string const& library) {
  // Without a slash, the name would be looked for among the system's libraries instead of in the working directory.
  std::string const path = library.find('/') == std::string::npos ? "./" + library : library;
  void* const handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL | RTLD_NODELETE);
  if (!handle) throw ModelError(std::string("the model cannot be loaded: ") + ::dlerror());
  void* const function = ::dlsym(handle, modelFunction);
  if (!function) return nullptr;
  Model const* const model = reinterpret_cast<Model const* (*)()>(function)();
  if (!model) throw ModelError(library + ": its " + modelFunction + "() answers null");
  return model;
}

std::unique_ptr<Model> modelOfTypes(std::string const& name, std::vector<std::string> const& roots) {
  if (roots.empty()) throw ModelError(name + " has types alone: name its roots, as in --root Acme::Switch");
  std::vector<ModelRoot> made;
  made.reserve(roots.size());
  for (std::string const& root : roots) made.push_back(rootOf(root));
  return std::make_unique<TypesModel>(name, std::move(made));
}

void makeRoots(std::vector<ModelRoot> const& roots, Kel::Dir::Ptr const& into) {
  for (ModelRoot const& root : roots) {
    Kel::Dir::Ptr dir = into;
    std::size_t from = 0;
    for (std::size_t end; (end = root.path.find('/', from)) != std::string::npos; from = end + 1) {
      Kel::Name const name(root.path.substr(from, end - from));
      Kel::Entity::Ptr const there = dir->entityRef(name);
      dir = Kel::ptrCast<Kel::Dir>(there ? there : dir->newEntity("Kel::Dir", name));
    }
    dir->newEntity(root.typeName, Kel::Name(root.path.substr(from)));
  }
}

LoadReport loadTree(std::vector<ModelRoot> const& roots, std::string const& text, std::string const& file,
                    Kel::Dir::Ptr const& into, Service::PendingReferences& pending) {
  bool const blank = text.find_first_not_of(" \t\r\n") == std::string::npos;
  auto const first = text.find_first_not_of(" \t\r\n");
  // A text that is not JSON goes on to the import, which says where it is wrong.
  if (blank || (nlohmann::json::accept(text) && !looksLikeTree(roots, text)) || text[first] != '{')
    throw ModelError(file + ": no configuration of this model: a JSON object of " + roots.front().path +
                     (roots.size() > 1 ? ", ..." : "") + " expected");
  // Loads into a separate directory first, so that a refused tree leaves nothing behind.
  auto const load = [&](Kel::Dir::Ptr const& dir) {
    makeRoots(roots, dir);
    Service::ImportOptions options;
    options.merge = true;
    options.pending = &pending;
    return Service::importText(dir, {}, file, text, options);
  };
  try {
    load(Kel::dirFactory("trial"));
    pending.clear();
    Service::ImportReport const done = load(into);
    LoadReport report;
    report.summary = plural(done.entities, "entity", "entities") + " and " + plural(done.values, "value", "values");
    for (Service::PendingReference const& dangling : done.dangling)
      report.remarks.push_back({dangling.place.text(), "'" + dangling.target + "': " + dangling.reason + ", left null",
                                dangling.reason + ", left null"});
    return report;
  } catch (Service::InputError const& e) {
    throw ModelError(e.what());
  }
}

bool looksLikeTree(std::vector<ModelRoot> const& roots, std::string const& text) {
  // Keeps only the names of the top-level members, because a configuration is long.
  std::vector<std::string> names;
  auto const keep = [&](int depth, nlohmann::json::parse_event_t event, nlohmann::json& value) {
    if (depth == 1 && event == nlohmann::json::parse_event_t::key) names.push_back(value.get<std::string>());
    return depth < 1;
  };
  auto const document = nlohmann::json::parse(text, keep, false);
  if (document.is_discarded() || !document.is_object() || names.empty()) return false;
  return std::all_of(names.begin(), names.end(), [&](std::string const& name) {
    return std::any_of(roots.begin(), roots.end(), [&](ModelRoot const& root) {
      return root.path == name || root.path.compare(0, name.size() + 1, name + "/") == 0;
    });
  });
}

}  // namespace Shell
