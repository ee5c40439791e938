#include "TreeView.h"

#include <algorithm>

#include "Context.h"
#include "JsonText.h"
#include "TextTable.h"
#include "Words.h"
#include "service/JsonTree.h"
#include "service/ValueText.h"

namespace Shell {

namespace Service = Cli::Service;
using Kel::GenericIf;
using Service::Path;

namespace {

constexpr std::size_t fewMembers = 3;  // are shown one by one, more as a table

bool isKey(Kel::KelType const& type, Kel::KelAttr const& attr) {
  return attr.ctorParam() && attr.id() == type.attributeQ(0)->id();
}

bool isDir(Kel::Entity const& entity) { return entity.type()->isA(Kel::Dir::_fwkType()); }

std::string keyName(Kel::KelAttr const& attr) {
  auto const* const key = attr.constraint().argPtr(0);
  return attr.isQueue() || !key ? "#" : key->name.str();
}

}  // namespace

std::vector<Kel::KelAttr const*> contentAttrs(Kel::KelType const& type) {
  std::vector<Kel::KelAttr const*> attrs;
  for (Kel::KelAttr const* attr : type.attributeQ())
    if (!attr->isFunction() && !attr->isConstant() && attr->logging() && !isKey(type, *attr) &&
        (attr->writable() || attr->ctorParam()))
      attrs.push_back(attr);
  return attrs;
}

std::string TreeView::text(Path const& path) const {
  std::string out;
  Service::Place const place = Service::locate(tree_.dir, path);
  if (!place.there() || !place.entity) throw CommandError(shown(path.text()) + " is not there");
  Kel::Entity::PtrConst const entity(place.entity);
  if (place.attr && (place.isMember || (!place.attr->isCollection() && !place.attr->instantiating())))
    return leaf(entity, *place.attr, path) + "\n";
  if (place.attr) {
    ownedText(entity, *place.attr, path.parent(), 0, out);
    return out.empty() ? "empty\n" : out;
  }
  if (!isDir(*entity)) {
    entityText(entity, path, 0, out);
    return out.empty() ? "nothing is set\n" : out;
  }
  std::string const above = path.text();
  for (std::string const& root : *tree_.roots) {
    bool const below = above.empty() || root == above || root.compare(0, above.size() + 1, above + "/") == 0;
    if (Kel::Entity::PtrConst const found = below ? tree_.dir->entity(Kel::String(root)) : nullptr)
      summary(root, found, out);
  }
  return out;
}

// One line for a root, with the numbers of what it contains.
void TreeView::summary(std::string const& root, Kel::Entity::PtrConst const& entity, std::string& out) const {
  std::string held;
  auto const add = [&](std::string const& what) { held += (held.empty() ? "" : ", ") + what; };
  auto const gif = GenericIf::ofEntity(entity);
  std::size_t values = 0;
  for (Kel::KelAttr const* attr : contentAttrs(*entity->type())) {
    if (Service::hasDefault(*entity, *attr)) continue;
    if (attr->isCollection())
      add(attr->name().str() + " " + std::to_string(gif->attributeCount(attr->id())));
    else if (attr->instantiating())
      add(attr->name().str());
    else
      ++values;
  }
  if (values) add(counted(values, "value", "values"));
  std::size_t widest = 0;
  for (std::string const& each : *tree_.roots) widest = std::max(widest, each.size());
  line(0, root, widest, held.empty() ? options_.paint(Style::note, "empty") : held, out);
}

void TreeView::line(std::size_t indent, std::string const& name, std::size_t width, std::string const& value,
                    std::string& out) const {
  std::size_t const used = columns(name);
  out += std::string(indent, ' ') + options_.paint(Style::name, name) +
         std::string(used < width ? width - used : 0, ' ') + "  " + value + "\n";
}

std::string TreeView::waitingText(Service::PendingReference const& reference) const {
  return shown(reference.target) + " " + options_.paint(Style::removed, "(" + shown(reference.reason) + ")");
}

// The pending reference of a member of a collection, or null.
Service::PendingReference const* TreeView::waitingMember(Path const& collection, std::string const& key) const {
  if (!options_.pending || collection.empty()) return nullptr;
  for (Service::PendingReference const& reference : options_.pending->within(collection))
    if (Service::PathStep const& step = reference.place.steps.back(); step.key && step.keyText() == key)
      return &reference;
  return nullptr;
}

// The text of a value, a pointer, or a collection of these.
std::string TreeView::leaf(Kel::Entity::PtrConst const& entity, Kel::KelAttr const& attr, Path const& path) const {
  Path const& last = path;
  Service::Json content;
  bool const member = !last.steps.empty() && last.steps.back().attr == &attr && last.steps.back().key;
  if (member) {
    Service::Place const place = Service::locate(tree_.dir, path);
    auto const gif = GenericIf::ofEntity(entity);
    content = Service::exportValue(gif->attribute(attr.id(), place.key).ptr(), *tree_.dir);
  } else {
    content = Service::exportAttribute(*entity, attr, *tree_.dir);
  }
  if (content.is_null() && options_.pending)
    if (auto const* const waiting = options_.pending->find(path)) return waitingText(*waiting);
  if (!content.is_object() || !attr.isCollection()) return oneLine(content);
  std::string out;
  for (auto const& [key, value] : content.items()) {
    std::string const name = shown(std::string(key));
    auto const* const waiting = value.is_null() ? waitingMember(path, key) : nullptr;
    std::string const text = waiting ? waitingText(*waiting) : oneLine(value);
    // A reference that is keyed by its target's name: the name is printed once.
    bool const sameName = attr.isPtr() && text.size() > name.size() &&
                          text.compare(text.size() - name.size() - 1, std::string::npos, "/" + name) == 0;
    out += (out.empty() ? "" : " ") + (sameName || text == "true" ? name : name + "=" + text);
  }
  return out.empty() ? "-" : out;
}

void TreeView::entityText(Kel::Entity::PtrConst const& entity, Path const& path, std::size_t indent,
                          std::string& out) const {
  std::vector<std::pair<std::string, std::string>> leaves;
  std::vector<Kel::KelAttr const*> owned;
  std::size_t widest = 0;
  for (Kel::KelAttr const* attr : contentAttrs(*entity->type())) {
    Path const at = path / Service::attributeStep(*attr);
    bool const waiting = options_.pending && options_.pending->find(at);
    if (!options_.all && !waiting && Service::hasDefault(*entity, *attr)) continue;
    if (attr->instantiating()) {
      owned.push_back(attr);
      continue;
    }
    leaves.emplace_back(attr->name().str(), leaf(entity, *attr, at));
    widest = std::max(widest, leaves.back().first.size());
  }
  for (auto const& [name, value] : leaves) line(indent, name, widest, value, out);
  for (Kel::KelAttr const* attr : owned) ownedText(entity, *attr, path, indent, out);
}

// A singleton, or a collection of entities.
void TreeView::ownedText(Kel::Entity::PtrConst const& entity, Kel::KelAttr const& attr, Path const& path,
                         std::size_t indent, std::string& out) const {
  std::string const name = std::string(indent, ' ') + options_.paint(Style::heading, attr.name().str());
  auto const gif = GenericIf::ofEntity(entity);
  if (attr.isCollection()) {
    if (!attr.instantiating()) {
      out += leaf(entity, attr, path / Service::attributeStep(attr)) + "\n";
      return;
    }
    std::size_t const count = gif->attributeCount(attr.id());
    out += name + " (" + std::to_string(count) + ")\n";
    if (count > fewMembers && !options_.all)
      tableText(entity, attr, indent + 2, out);
    else
      membersText(entity, attr, path, indent, out);
    return;
  }
  auto const held = gif->attribute(attr.id());
  if (!held) {
    if (options_.all) out += name + "  -\n";
    return;
  }
  out += name + "\n";
  entityText(held->entityConst(), path / Service::attributeStep(attr), indent + 2, out);
}

void TreeView::membersText(Kel::Entity::PtrConst const& entity, Kel::KelAttr const& attr, Path const& path,
                           std::size_t indent, std::string& out) const {
  auto const gif = GenericIf::ofEntity(entity);
  std::size_t position = 0;
  for (auto it = gif->attributeIteratorConst(attr.id()); it; ++it, ++position) {
    auto const step = attr.isQueue() ? Service::queueStep(attr, position) : Service::memberStep(attr, it.key());
    out += std::string(indent + 2, ' ') + attr.name().str() + " " + options_.paint(Style::name, shown(step.keyText())) +
           "\n";
    entityText(it.obj()->entityConst(), path / step, indent + 4, out);
  }
}

std::string TreeView::cell(Kel::Entity const& entity, Kel::KelAttr const& attr) const {
  constexpr std::size_t longest = 40;
  if (Service::hasDefault(entity, attr)) return {};
  auto const gif = GenericIf::ofEntity(Kel::Entity::PtrConst(&entity));
  std::string text;
  if (attr.instantiating()) {
    if (attr.isCollection()) return "(" + std::to_string(gif->attributeCount(attr.id())) + ")";
    return "yes";
  }
  if (attr.isPtr() && !attr.isCollection()) {
    auto const target = gif->attribute(attr.id());
    text = target ? shown(target->entityConst()->name().view()) : "-";
  } else {
    text = leaf(Kel::Entity::PtrConst(&entity), attr, {});
  }
  return columns(text) > longest ? Service::shortened(std::move(text), longest - 3) : text;
}

void TreeView::tableText(Kel::Entity::PtrConst const& entity, Kel::KelAttr const& attr, std::size_t indent,
                         std::string& out) const {
  // Members may be of derived types, with attributes of their own.
  std::vector<Kel::KelAttr const*> attrs;
  auto const gif = GenericIf::ofEntity(entity);
  for (auto it = gif->attributeIteratorConst(attr.id()); it; ++it)
    for (Kel::KelAttr const* each : contentAttrs(*it.obj()->entityConst()->type()))
      if (std::find(attrs.begin(), attrs.end(), each) == attrs.end()) attrs.push_back(each);
  // Attributes with one value come first.
  std::stable_partition(attrs.begin(), attrs.end(), [](Kel::KelAttr const* each) { return !each->isCollection(); });
  std::vector<std::string> heads{keyName(attr)};
  for (Kel::KelAttr const* each : attrs) heads.push_back(each->name().str());
  TextTable table(heads);
  std::size_t position = 0;
  for (auto it = gif->attributeIteratorConst(attr.id()); it; ++it, ++position) {
    auto const member = it.obj()->entityConst();
    std::vector<std::string> cells{attr.isQueue() ? std::to_string(position) : shown(it.key()->text().view())};
    for (Kel::KelAttr const* each : attrs) {
      bool const own = member->type()->attr(each->id()) == each;
      cells.push_back(own ? cell(*member, *each) : "");
    }
    table.add(std::move(cells));
  }
  auto const text = table.text(options_.paint, indent, options_.width);
  out += text.text;
  if (!text.leftOut.empty())
    out += std::string(indent, ' ') +
           options_.paint(Style::note, "(also set: " + listed(text.leftOut, 8) + "; 'show all' has them)") + "\n";
}

}  // namespace Shell
