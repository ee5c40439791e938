// Commands that show the configuration.
#include <algorithm>
#include <map>

#include "CommandTable.h"
#include "TextTable.h"
#include "TreeView.h"
#include "Words.h"
#include "service/PathWords.h"

namespace Shell {

namespace Service = Cli::Service;
using Service::Path;

Outcome show(Context& context, Arguments const& arguments) {
  Path const path = context.pathOrHere(arguments.words("PATH"));
  TreeViewOptions options;
  options.all = arguments.has("all");
  options.width = context.width;
  options.paint = context.paint;
  options.pending = &context.pending();
  context.out << TreeView(context.tree(), options).text(path);
  return Outcome::ok;
}

namespace {

void showDangling(Context& context) {
  auto const& dangling = context.pending().list();
  if (dangling.empty()) context.out << "every reference leads somewhere\n";
  for (Service::PendingReference const& reference : dangling)
    context.out << shown(reference.place.text()) << " -> " << shown(reference.target) << ": " << shown(reference.reason)
                << "\n";
}

}  // namespace

Outcome showReferences(Context& context, Arguments const& arguments) {
  context.session();
  if (arguments.words("PATH").empty() && context.at().empty()) {
    showDangling(context);
    return Outcome::ok;
  }
  Path const path = context.pathOrHere(arguments.words("PATH"));
  Kel::Entity::Ptr const entity = Service::entityAt(context.base(), path);
  if (!entity) throw CommandError(shown(path.text()) + " is no entity; nothing can point at it");
  std::vector<std::string> references;
  for (Path const& reference : Service::referencesTo(context.base(), *entity)) references.push_back(reference.text());
  std::sort(references.begin(), references.end(), Service::naturalLess);
  for (std::string const& reference : references) context.out << shown(reference) << "\n";
  if (references.empty()) context.out << "nothing points at " << shown(path.text()) << "\n";
  return Outcome::ok;
}

// --- The session's roots ---

namespace {

// Counts the entities from `top` down, and their contents: values, set pointers and members.
struct Counts {
  std::size_t entities = 0, attributes = 0;
};

Counts countBelow(Kel::Entity::PtrConst const& top) {
  Counts counts;
  std::vector<Kel::Entity::PtrConst> open{top};
  auto const hold = [&](Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& value) {
    if (attr.instantiating())
      open.push_back(value->entityConst());
    else
      ++counts.attributes;
  };
  while (!open.empty()) {
    Kel::GenericIf::PtrConst const gif = Kel::GenericIf::ofEntity(open.back());
    open.pop_back();
    ++counts.entities;
    for (Kel::KelAttr const* attr : gif->type()->attributeQ()) {
      if (!attr->copiable()) continue;
      if (attr->isCollection()) {
        for (auto it = gif->attributeIteratorConst(attr->id()); it; ++it) hold(*attr, it.obj());
      } else if (Kel::GenericIf::PtrConst const value = gif->attribute(attr->id())) {
        hold(*attr, value);
      }
    }
  }
  return counts;
}

}  // namespace

Outcome showRoots(Context& context, Arguments const&) {
  TextTable table({"root", "type", "entities", "attributes"});
  Counts total;
  for (auto const& root : context.service().roots()) {
    context.session();
    Kel::Entity::Ptr const entity = context.base()->entity(Kel::String(root.path));
    Counts const counts = entity ? countBelow(entity) : Counts();
    table.add({shown(root.path), root.typeName, std::to_string(counts.entities), std::to_string(counts.attributes)});
    total.entities += counts.entities;
    total.attributes += counts.attributes;
  }
  table.add({"total", "", std::to_string(total.entities), std::to_string(total.attributes)});
  context.out << table.text(context.paint, 0, 200).text;
  return Outcome::ok;
}

// --- Remarks on the file ---

std::string remarksText(LoadReport const& report, bool all) {
  std::string out;
  std::map<std::string, std::vector<Remark const*>> kinds;
  std::vector<std::string> order;
  for (Remark const& remark : report.remarks) {
    auto& of = kinds[remark.kind];
    if (of.empty()) order.push_back(remark.kind);
    of.push_back(&remark);
  }
  for (std::string const& kind : order) {
    std::vector<Remark const*> const& remarks = kinds[kind];
    bool const folded = !all && remarks.size() > 1;
    std::size_t const count = folded ? 1 : remarks.size();
    for (std::size_t i = 0; i < count; ++i) out += shown(remarks[i]->place) + ": " + shown(remarks[i]->what) + "\n";
    if (folded) out += "  and " + counted(remarks.size() - 1, "place", "places") + " more: " + shown(kind) + "\n";
  }
  return out;
}

Outcome showRemarks(Context& context, Arguments const& arguments) {
  std::string const text = remarksText(context.device.report(), arguments.has("all"));
  context.out << (text.empty() ? "everything was taken as it stands\n" : text);
  return Outcome::ok;
}

}  // namespace Shell
