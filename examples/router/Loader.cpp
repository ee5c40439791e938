#include "examples/router/Loader.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "Kel/Exception.h"
#include "Kel/GenericIf.h"
#include "service/Json.h"
#include "service/Path.h"
#include "service/ValueText.h"

namespace Router {

namespace {

namespace Service = Cli::Service;
using Kel::GenericIf;
using Service::Json;

// --- Names ---

struct Root {
  char const* member;  // of the document
  char const* path;    // in the directory
  char const* type;
};
constexpr Root rootTable[] = {
    {"ieee802-dot1ab-lldp:lldp", "services/lldp", "Router::Service"},
    {"ietf-hardware:hardware", "hardware", "Router::Hardware"},
    {"ietf-interfaces:interfaces", "interfaces", "Router::Interfaces"},
    {"ietf-keystore:keystore", "keystore", "Router::Keystore"},
    {"ietf-netconf-acm:nacm", "nacm", "Router::Nacm"},
    {"ietf-netconf-server:netconf-server", "netconf", "Router::NetconfServer"},
    {"ietf-system:system", "system", "Router::System"},
    {"infix-dhcp-server:dhcp-server", "services/dhcp", "Router::DhcpServer"},
    {"infix-firewall:firewall", "firewall", "Router::Firewall"},
    {"infix-meta:meta", "meta", "Router::Meta"},
    {"infix-services:mdns", "services/mdns", "Router::Service"},
    {"infix-services:ssh", "services/ssh", "Router::Ssh"},
    {"infix-services:web", "services/web", "Router::Web"},
};

// A name without the prefix of its module: "infix-if-type:ethernet".
std::string_view local(std::string_view name) { return name.substr(name.rfind(':') + 1); }

// "admin-state": adminState.
std::string camelCase(std::string_view words) {
  std::string out;
  bool begins = false;
  for (char const c : words) {
    if (c != '-') out += begins && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    begins = c == '-';
  }
  return out;
}

// The attribute for a member. Some have other names than in the file.
Kel::KelAttr const* attributeOf(Kel::KelType const& type, std::string_view member) {
  static std::map<std::string, char const*, std::less<>> const renamed = {
      {"type", "kind"}, {"class", "kind"}, {"default", "fallback"}, {"id", "code"}};
  std::string_view const name = local(member);
  if (auto const found = renamed.find(name); found != renamed.end()) return type.findAttr(found->second);
  if (name == "name" && !type.findAttr("name")) return type.findAttr("label");
  return type.findAttr(camelCase(name));
}

// --- Values ---

std::optional<std::string> enumText(Kel::KelType const& type, std::string_view text) {
  std::string word(local(text));
  std::replace(word.begin(), word.end(), '-', '_');
  for (auto const& each : type.enumerators()) {
    std::string name = each.name.str();
    if (name.back() == '_') name.pop_back();
    if (name == word && name != "unset") return each.name.str();
  }
  return std::nullopt;
}

// The code of a DHCP option by its name.
std::optional<std::string> optionCode(std::string const& entity, std::string_view name) {
  bool const v6 = entity == "Dhcpv6Option";
  Kel::KelType const* const codes = Kel::KelType::find(v6 ? "Router::Dhcpv6Code" : "Router::DhcpCode");
  for (auto const& each : codes->enumerators()) {
    std::string word = each.name.str();
    std::replace(word.begin(), word.end(), '_', '-');
    if (word == name || (v6 && word == std::string(name) + "6")) return std::to_string(each.value);
  }
  return std::nullopt;
}

GenericIf::Ptr valueOf(Kel::KelType const& type, std::string const& text) {
  auto const spelt = type.isEnum() ? enumText(type, text) : text;
  if (!spelt) return nullptr;
  Kel::Expect const outOfRange(Kel::Exception::rangeId);
  try {
    return type.genericFromText(*spelt);
  } catch (Kel::RangeException const&) {
    return nullptr;
  }
}

std::string textOf(Json const& value) { return value.is_string() ? value.get<std::string>() : value.dump(); }

// --- The document ---

// "FILE:LINE: what is wrong", without the parser's own prefix.
Shell::ModelError errorOf(std::string const& file, std::string const& text, Json::parse_error const& e) {
  auto const end = text.begin() + static_cast<std::ptrdiff_t>(std::min(e.byte, text.size()));
  std::string what = e.what();
  if (std::size_t const column = what.find("column "); column != std::string::npos)
    if (std::size_t const colon = what.find(": ", column); colon != std::string::npos) what.erase(0, colon + 2);
  return Shell::ModelError(file + ":" + std::to_string(1 + std::count(text.begin(), end, '\n')) + ": " + what);
}

// Parses a text. Of a name that stands twice in one object the parser keeps the last value: such names are remarks.
Json parsed(std::string const& file, std::string const& text, Shell::LoadReport& report) {
  struct Object {
    std::set<std::string> names;
    std::string name;  // of the member that is being read
  };
  std::vector<Object> open;
  auto const note = [&](std::string const& name) {
    open.back().name = name;
    if (open.back().names.insert(name).second) return;
    std::string place;
    for (Object const& object : open) place += (place.empty() ? "" : "/") + object.name;
    std::string const what = "given again, the last one taken";
    report.remarks.push_back({place, what, what});
  };
  auto const follow = [&](int, Json::parse_event_t event, Json& value) {
    if (event == Json::parse_event_t::object_start) open.emplace_back();
    if (event == Json::parse_event_t::object_end) open.pop_back();
    if (event == Json::parse_event_t::key) note(value.get_ref<std::string const&>());
    return true;
  };
  try {
    return Json::parse(text, follow);
  } catch (Json::parse_error const& e) {
    throw errorOf(file, text, e);
  } catch (Json::exception const& e) {
    throw Shell::ModelError(file + ": " + e.what());
  }
}

// --- The load ---

class Load {
 public:
  Load(Shell::LoadReport& report, Service::PendingReferences& pending) : report_(report), pending_(pending) {}

  void run(Json const& document, Kel::Dir::Ptr const& into) {
    std::map<std::string, GenericIf::Ptr> made;
    for (Root const& root : rootTable) {
      std::string_view const path(root.path);
      Kel::Name const name(path.substr(path.rfind('/') + 1));
      GenericIf::Ptr const entity = GenericIf::ofEntity(Kel::KelType::find(root.type)->newEntity(name));
      made[root.path] = entity;
      index(entity);
      auto const found = document.find(root.member);
      if (found == document.end()) continue;
      ++moduleCount_;
      container(*found, entity, root.member);
    }
    for (auto const& member : document.items())
      if (std::none_of(std::begin(rootTable), std::end(rootTable),
                       [&](Root const& root) { return member.key() == root.member; }))
        remark(member.key(), "not in the model, ignored");
    for (auto const& [path, entity] : made) attach(path, entity->entity(), into);
    for (Reference const& reference : references_) resolve(reference, into);
    report_.summary = std::to_string(entityCount_) + " entities of " + std::to_string(moduleCount_) +
                      (moduleCount_ == 1 ? " module" : " modules");
  }

 private:
  struct Reference {
    GenericIf::Ptr entity;
    Kel::KelAttr const* attr;
    std::string target, place;
  };

  void remark(std::string const& place, std::string const& what) { report_.remarks.push_back({place, what, what}); }

  void index(GenericIf::Ptr const& entity) {
    entities_[{entity->type(), entity->entity()->name().str()}] = entity;
    ++entityCount_;
  }

  void container(Json const& object, GenericIf::Ptr const& entity, std::string const& place) {
    if (!object.is_object()) return remark(place, "is no container, left empty");
    for (auto const& [name, value] : object.items()) {
      Kel::KelAttr const* const attr = attributeOf(*entity->type(), name);
      std::string const where = place + "/" + std::string(local(name));
      if (attr && attr->ctorParam()) continue;
      if (!attr || !attr->copiable() || attr->isFunction())
        remark(where, "not in the model, ignored");
      else
        member(entity, *attr, value, where);
    }
  }

  void member(GenericIf::Ptr const& entity, Kel::KelAttr const& attr, Json const& value, std::string const& place) {
    if (!attr.isCollection())
      return attr.instantiating() ? singleton(entity, attr, value, place) : leaf(entity, attr, value, place);
    if (!value.is_array()) return remark(place, "is no list, left empty");
    if (attr.isQueue() && attr.instantiating()) return queue(entity, attr, value, place);
    for (Json const& item : value)
      if (attr.instantiating())
        entry(entity, attr, item, place);
      else
        leaf(entity, attr, item, place);
  }

  void singleton(GenericIf::Ptr const& entity, Kel::KelAttr const& attr, Json const& value, std::string const& place) {
    entity->attributeIs(attr.id(), nullptr, GenericIf::List::genericIf(GenericIf::List::Ptr(new GenericIf::List)));
    GenericIf::Ptr const made = entity->attribute(attr.id());
    index(made);
    container(value, made, place);
  }

  // A list that is ordered by its user. The queue is new, so that the iterator goes from entry to entry.
  void queue(GenericIf::Ptr const& entity, Kel::KelAttr const& attr, Json const& list, std::string const& place) {
    std::optional<GenericIf::AttributeIterator> last;
    for (Json const& item : list) {
      if (!item.is_object()) {
        remark(place, "is no entry of a list, left out");
        continue;
      }
      entity->attributeSQEnq(attr.id(), GenericIf::List::genericIf(GenericIf::List::Ptr(new GenericIf::List)));
      if (last)
        ++*last;
      else
        last.emplace(entity->attributeIterator(attr.id()));
      ++entityCount_;
      GenericIf::Ptr const made = last->obj();
      container(item, made, place + "/" + made->entity()->name().str());
    }
  }

  // An entry of a list with a key.
  void entry(GenericIf::Ptr const& entity, Kel::KelAttr const& attr, Json const& item, std::string const& place) {
    if (!item.is_object()) return remark(place, "is no entry of a list, left out");
    std::string const keyName = attr.constraint().argPtr(0)->name.str();
    for (auto const& [name, value] : item.items()) {
      Kel::KelAttr const* const keyAttr = attributeOf(*attr.type(), name);
      if (!keyAttr || keyAttr->name().str() != keyName) continue;
      std::string text = textOf(value);
      if (keyName == "code")
        if (auto const code = optionCode(attr.type()->name().str(), text)) text = *code;
      GenericIf::Ptr const key = valueOf(*attr.keyType(), text);
      if (!key) return remark(place + "/" + text, "is no key of this list, entry left out");
      GenericIf::Ptr made = entity->attribute(attr.id(), key);
      if (made) {
        remark(place + "/" + text, "an entry that is there already, both taken together");
        return container(item, made, place + "/" + text);
      }
      entity->attributeIs(attr.id(), key, nullptr);
      made = entity->attribute(attr.id(), key);
      index(made);
      return container(item, made, place + "/" + text);
    }
    remark(place, "an entry without its key, left out");
  }

  // A value, or an element of a list of values.
  void leaf(GenericIf::Ptr const& entity, Kel::KelAttr const& attr, Json const& value, std::string const& place) {
    if (value.is_structured()) return remark(place, "is no single value, left unset");
    if (attr.isPtr()) return references_.push_back({entity, &attr, textOf(value), place});
    GenericIf::Ptr const typed = valueOf(*attr.type(), textOf(value));
    if (!typed) return remark(place, "'" + textOf(value) + "' is no " + attr.type()->name().str() + ", left unset");
    if (attr.isQueue())
      entity->attributeSQEnq(attr.id(), typed);
    else
      entity->attributeIs(attr.id(), nullptr, typed);
  }

  void resolve(Reference const& reference, Kel::Dir::Ptr const& into) {
    auto const& [entity, attr, target, place] = reference;
    auto const found = entities_.find({attr->type(), target});
    auto const key = attr->isCollection() ? GenericIf::of(Kel::Name(target)) : nullptr;
    if (found != entities_.end()) return entity->attributeIs(attr->id(), key, found->second);
    std::string const reason = "there is no such " + attr->type()->name().str();
    report_.remarks.push_back({place, "'" + target + "': " + reason + ", left null", reason + ", left null"});
    if (key) entity->attributeIs(attr->id(), key, nullptr);
    // The text is kept until such an entity is made.
    Service::Path at = *Service::pathOf(*entity->entityConst(), *into);
    at.steps.push_back(key ? Service::memberStep(*attr, key) : Service::attributeStep(*attr));
    std::string const path = collectionOf(*attr->type()) + "/" + target;
    pending_.add({at, path, path, reason});
  }

  // The collection of the entities of a type to which references lead.
  static std::string collectionOf(Kel::KelType const& type) {
    static std::map<std::string, char const*> const places = {
        {"Interface", "interfaces.interface"},
        {"Component", "hardware.component"},
        {"Zone", "firewall.zone"},
        {"SymmetricKey", "keystore.symmetricKeys.symmetricKey"},
        {"AsymmetricKey", "keystore.asymmetricKeys.asymmetricKey"},
    };
    return places.at(type.name().str());
  }

  static void attach(std::string const& path, Kel::Entity::Ptr const& root, Kel::Dir::Ptr dir) {
    for (std::size_t from = 0, end; (end = path.find('/', from)) != std::string::npos; from = end + 1) {
      Kel::Name const name(path.substr(from, end - from));
      Kel::Entity::Ptr const there = dir->entityRef(name);
      dir = Kel::ptrCast<Kel::Dir>(there ? there : dir->newEntity("Kel::Dir", name));
    }
    dir->entryIs(root);
  }

  Shell::LoadReport& report_;
  Service::PendingReferences& pending_;
  std::map<std::pair<Kel::KelType const*, std::string>, GenericIf::Ptr> entities_;
  std::vector<Reference> references_;
  std::size_t entityCount_ = 0, moduleCount_ = 0;
};

class RouterModel : public Shell::Model {
 public:
  std::string name() const override { return "router"; }

  std::vector<Shell::ModelRoot> roots() const override {
    std::vector<Shell::ModelRoot> roots;
    for (Root const& root : rootTable) roots.push_back({root.path, root.type});
    return roots;
  }

  Shell::LoadReport load(std::string const& text, std::string const& file, Kel::Dir::Ptr const& into,
                         Service::PendingReferences& pending) const override {
    Shell::LoadReport report;
    Json const document = parsed(file, text, report);
    bool const known = document.is_object() && std::any_of(std::begin(rootTable), std::end(rootTable),
                                                           [&](Root const& r) { return document.contains(r.member); });
    if (!known) throw Shell::ModelError(file + ": none of this model's containers is in it");
    Load(report, pending).run(document, into);
    return report;
  }
};

}  // namespace

Shell::Model const& model() {
  static RouterModel const only;
  // Users do not type "unset".
  static bool const told = [] {
    for (char const* type :
         {"ComponentClass", "AdminState", "InterfaceType", "ZoneAction", "KeyFormat", "NacmAction", "LoginShell"}) {
      Service::Spelling spelling;
      spelling.unset = {"unset"};
      Service::registerSpelling(std::string("Router::") + type, spelling);
    }
    return true;
  }();
  (void)told;
  return only;
}

}  // namespace Router

// How the shell finds the model when the library is loaded.
extern "C" __attribute__((visibility("default"))) Shell::Model const* cli_session_model() { return &Router::model(); }
