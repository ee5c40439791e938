#include "service/Difference.h"

#include <map>

#include "Kel/Exception.h"
#include "service/JsonText.h"
#include "service/JsonTree.h"
#include "service/Positions.h"

namespace Cli::Service {

char const* text(DifferenceKind kind) {
  switch (kind) {
    case DifferenceKind::created: return "created";
    case DifferenceKind::deleted: return "deleted";
    case DifferenceKind::changed: return "changed";
    case DifferenceKind::reordered: return "reordered";
  }
  return "?";
}

namespace {

std::string contentText(Json const& content) { return shortText(content, 200); }

}  // namespace

std::string text(Difference const& d) {
  std::string line = std::string(text(d.kind)) + " " + d.path.text();
  if (d.run) line += " at " + std::to_string(d.kind == DifferenceKind::created ? d.run->to : d.run->from);
  if (d.kind == DifferenceKind::reordered) return line + " to " + std::to_string(d.run->to);
  if (d.isEntity()) return line;
  switch (d.kind) {
    case DifferenceKind::created: return line + ": " + contentText(d.after);
    case DifferenceKind::deleted: return line + ": " + contentText(d.before);
    default: return line + ": " + contentText(d.before) + " -> " + contentText(d.after);
  }
}

// --- Inverse ---

std::vector<Difference> inverse(std::vector<Difference> const& differences) {
  Positions const positions(differences);
  std::vector<Difference> other = differences;
  for (Difference& d : other) {
    std::swap(d.before, d.after);
    if (d.kind == DifferenceKind::created)
      d.kind = DifferenceKind::deleted;
    else if (d.kind == DifferenceKind::deleted)
      d.kind = DifferenceKind::created;
    if (d.run) std::swap(d.run->from, d.run->to);
    if (auto path = positions(d.path)) d.path = std::move(*path);
  }
  return other;
}

// --- Bytes ---

namespace {

constexpr int version = 1;

// A table of names at the front of the bytes. The rest refers to them by number.
class Names {
 public:
  std::size_t of(std::string const& name) {
    auto const [found, isNew] = numbers_.try_emplace(name, list_.size());
    if (isNew) list_.push_back(name);
    return found->second;
  }
  Json const& list() const { return list_; }

 private:
  std::map<std::string, std::size_t> numbers_;
  Json list_ = Json::array();
};

std::string nameOf(Kel::KelAttr const& attr) {
  return attr.ownerType()->fullTypeName().str() + "." + attr.name().str();
}

Json jsonOf(Path const& path, Names& names) {
  Json steps = Json::array();
  for (PathStep const& step : path.steps) {
    if (!step.attr) {
      steps.push_back(step.entry.str());
      continue;
    }
    Json item = Json::array({names.of(nameOf(*step.attr))});
    if (step.key) {
      if (step.attr->isQueue() || !step.attr->keyIsPtr())
        item.push_back(step.key->type()->isValue() ? exportValue(step.key.ptr(), *Kel::dirFactory("")) : Json());
      else
        item.push_back(step.keyText());
    }
    steps.push_back(std::move(item));
  }
  return steps;
}

[[noreturn]] void malformed(std::string const& what) { Kel::throwRangeException(Kel::String8("differences: " + what)); }

Kel::KelAttr const& attrOf(Json const& names, Json const& number) {
  std::string const name = names.at(number.get<std::size_t>()).get<std::string>();
  std::size_t const dot = name.rfind('.');
  Kel::KelType const* const type = dot == std::string::npos ? nullptr : Kel::KelType::find(name.substr(0, dot));
  Kel::KelAttr const* const attr = type ? type->findAttr(name.substr(dot + 1)) : nullptr;
  if (!attr) malformed("there is no attribute '" + name + "'");
  return *attr;
}

Kel::GenericIf::PtrConst keyOf(Kel::KelAttr const& attr, Json const& json) {
  if (attr.isQueue()) return Kel::GenericIf::of(json.get<Kel::U32>());
  if (attr.keyIsPtr()) return Kel::GenericIf::of(Kel::String8(json.get<std::string>()));
  if (!attr.keyType()) malformed("'" + nameOf(attr) + "' has no keys");
  return valueFromJson(*attr.keyType(), json, ValueRule::asWritten);
}

Path pathFrom(Json const& steps, Json const& names) {
  Path path;
  for (Json const& step : steps) {
    if (step.is_string()) {
      path.steps.push_back(entryStep(Kel::Name(step.get<std::string>())));
      continue;
    }
    Kel::KelAttr const& attr = attrOf(names, step.at(0));
    path.steps.push_back(step.size() > 1 ? memberStep(attr, keyOf(attr, step.at(1))) : attributeStep(attr));
  }
  return path;
}

}  // namespace

std::string bytesOf(std::vector<Difference> const& differences) {
  Names attrs, types;
  Json list = Json::array();
  for (Difference const& d : differences) {
    Json item = Json::array({static_cast<int>(d.kind), jsonOf(d.path, attrs), d.before, d.after,
                             d.type ? Json(types.of(d.type->fullTypeName().str())) : Json(),
                             d.attr ? Json(attrs.of(nameOf(*d.attr))) : Json()});
    if (d.run) {
      item.push_back(d.run->from);
      item.push_back(d.run->to);
    }
    list.push_back(std::move(item));
  }
  Json whole = Json::object();
  whole["version"] = version;
  whole["types"] = types.list();
  whole["attributes"] = attrs.list();
  whole["differences"] = std::move(list);
  std::string bytes;
  Json::to_cbor(whole, nlohmann::detail::output_adapter<char>(bytes));
  return bytes;
}

std::vector<Difference> differencesOf(std::string_view bytes) {
  try {
    Json const whole = Json::from_cbor(bytes.begin(), bytes.end());
    if (whole.at("version") != version) malformed("of another version");
    std::vector<Difference> list;
    for (Json const& item : whole.at("differences")) {
      Difference d;
      int const kind = item.at(0).get<int>();
      if (kind < 0 || kind > static_cast<int>(DifferenceKind::reordered)) malformed("of an unknown kind");
      d.kind = static_cast<DifferenceKind>(kind);
      d.path = pathFrom(item.at(1), whole.at("attributes"));
      d.before = item.at(2);
      d.after = item.at(3);
      if (!item.at(4).is_null()) {
        std::string const type = whole.at("types").at(item.at(4).get<std::size_t>()).get<std::string>();
        if (!(d.type = Kel::KelType::find(type))) malformed("there is no type '" + type + "'");
      }
      if (!item.at(5).is_null()) d.attr = &attrOf(whole.at("attributes"), item.at(5));
      if (item.size() > 6) d.run = {item.at(6).get<Kel::U32>(), item.at(7).get<Kel::U32>()};
      list.push_back(std::move(d));
    }
    return list;
  } catch (Json::exception const& e) {
    malformed(e.what());
  } catch (InputError const& e) {
    malformed(e.what());
  }
}

}  // namespace Cli::Service
