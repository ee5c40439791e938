// Commands that show what the copy engine did and will do.
#include <algorithm>

#include "CommandTable.h"
#include "EditPolicy.h"
#include "Kel/Trace.h"
#include "Words.h"

namespace Shell {

namespace Service = Cli::Service;
namespace Session = Cli::Session;

namespace {

std::string editText(Session::AttributeEdit const& edit) {
  return (stringValue(edit.editType()) + " " + edit.attributeType() + "::" + edit.attributeName()).str();
}

}  // namespace

Outcome showEdits(Context& context, Arguments const& arguments) {
  bool const byPath = arguments.has("path");
  auto const log = context.session().status().attributeEditLog();
  std::vector<std::string> lines;
  std::size_t places = 0;
  if (log) {
    for (auto entry = log->attributeEditEntryIteratorConst(); entry; ++entry) {
      std::string const name = editText(entry->attributeEdit());
      places += entry->pathCounters();
      if (!byPath) lines.push_back(name + " at " + counted(entry->pathCounters(), "path", "paths"));
      for (auto path = entry->pathCounterIterator(); byPath && path; ++path)
        lines.push_back((path.key().empty() ? "." : shown(path.key().view())) + ": " + name + " x" +
                        std::to_string(path.value()));
    }
  }
  std::sort(lines.begin(), lines.end());
  for (std::string const& line : lines) context.out << line << "\n";
  context.out << counted(places, "edited attribute", "edited attributes") << "\n";
  return Outcome::ok;
}

// --- explain ---

namespace {

// The root that a path is below, and its type.
Service::SessionRoot const* rootOf(Context& context, std::string const& path) {
  for (auto const& root : context.service().roots()) {
    bool const below = path.compare(0, root.path.size(), root.path) == 0;
    if (below && (path.size() == root.path.size() || path[root.path.size()] == '.')) return &root;
  }
  return nullptr;
}

std::string attributeKind(Kel::KelAttr const& attr) {
  std::string text = attr.isCollection() ? attr.isQueue() ? "a queue of " : "a collection of " : "";
  text += attr.instantiating() ? "entities that it owns: " : attr.isPtr() ? "references to " : "";
  text += attr.type() ? attr.type()->fullTypeName().str() : "";
  if (attr.isCollection() && !attr.isQueue())
    text += ", by " + std::string(attr.keyIsPtr() ? "references to " : "") + attr.keyType()->fullTypeName().str();
  if (!attr.logging()) text += "; not copied";
  if (!attr.writable() && !attr.ctorParam()) text += "; not written";
  if (attr.ctorParam()) text += "; fixed when the entity is made";
  return text;
}

void explainHandler(Context& context, std::string const& path, Kel::KelType const& type) {
  auto const table = context.service().manager().inHandlerTable();
  auto const handler = table ? table->findCustomCopyHandler(path, type.fullTypeName()) : nullptr;
  context.out << "handler    "
              << (handler ? handler->typeName().str() + ", registered for this path or type" : "the session's own")
              << "\n";
  if (!handler || !handler->type()->isA(Session::EntityCopyFilter::_fwkType())) return;
  auto const& filter = static_cast<Session::EntityCopyFilter const&>(*handler);
  if (!filter.filteredAttribute()) return;
  std::vector<std::string> names;
  for (auto it = filter.filteredAttribute()->attributeNameIteratorConst(); it; ++it) names.push_back(it.key().str());
  context.out << "filtered   " << (names.empty() ? "nothing" : listed(names, 10)) << "\n";
}

void explainBypass(Context& context, Kel::KelAttr const& attr) {
  auto const table = context.service().manager().attributeEditBypassTable();
  if (!table) return;
  for (auto it = table->attributeEditBypassEntryIteratorConst(); it; ++it)
    if (it->attributeEdit().attributeName() == attr.name() &&
        it->attributeEdit().attributeType() == attr.ownerType()->fullTypeName())
      context.out << "bypass     " << editText(it->attributeEdit()) << " may stay out of the log\n";
}

}  // namespace

Outcome explain(Context& context, Arguments const& arguments) {
  Service::Path const path = context.path(arguments.words("PATH"));
  Service::Place const place = Service::locate(context.base(), path);
  std::string const text = path.text();
  context.out << "place      " << shown(text) << "\n";
  if (Service::SessionRoot const* const root = rootOf(context, text))
    context.out << "root       " << shown(root->path) << ", " << root->typeName << "\n";
  else
    context.out << "root       none: above the session's roots\n";
  Kel::KelType const& type = *place.entity->type();
  context.out << "type       " << type.fullTypeName().str() << "\n";
  if (place.attr)
    context.out << "attribute  " << place.attr->name().str() << ", " << attributeKind(*place.attr) << "\n";
  explainHandler(context, place.attr ? path.parent().text() : text, type);
  if (place.attr) explainBypass(context, *place.attr);
  auto const* const waiting = context.pending().find(path);
  if (waiting) context.out << "waits for  " << shown(waiting->target) << ": " << shown(waiting->reason) << "\n";
  return Outcome::ok;
}

// --- Settings ---

Outcome bypass(Context& context, Arguments const& arguments) {
  bool const on = arguments.has("on");
  bypassDefaultsIs(context.service(), on);
  context.out << "deletions of what holds only defaults " << (on ? "stay out of" : "are among") << " the edits\n";
  return Outcome::ok;
}

Outcome trace(Context& context, Arguments const& arguments) {
  std::string const setting = arguments.text("SETTING");
  if (setting.empty()) {
    context.out << "trace NAME/LEVELS, as in EntityCopy/0-4 or CliSession; 'trace off' ends all\n";
    return Outcome::ok;
  }
  if (setting == "off") {
    Kel::TraceHandle::settingsIs("");
    for (char const* name : {"EntityCopy", "EntityCopyHandler", "CliSession", "Zuk"})
      Kel::TraceHandle::get(name).levelsIs(0);
    context.out << "no traces\n";
    return Outcome::ok;
  }
  Kel::TraceHandle::settingsIs(setting);
  context.out << "traces: " << shown(setting) << "\n";
  return Outcome::ok;
}

namespace {

// An enumerator by its name, or by its name without `prefix`.
template <class E>
E enumerator(std::string const& prefix, std::string const& name) {
  std::string choices;
  for (auto const& each : Kel::TypeOf<E>::type()->enumerators()) {
    std::string text = each.name.str();
    if (!text.empty() && text.back() == '_') text.pop_back();
    std::string word = text.compare(0, prefix.size(), prefix) == 0 ? text.substr(prefix.size()) : text;
    std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::tolower(c); });
    if (name == word || name == text) return static_cast<E>(each.value);
    choices += (choices.empty() ? "" : ", ") + word;
  }
  throw CommandError("'" + shown(name) + "' is none of " + choices);
}

Session::AttributeEdit editOf(std::string const& edit, std::string const& attribute) {
  std::size_t const colon = attribute.rfind("::");
  Kel::String const typeName(attribute.substr(0, colon == std::string::npos ? 0 : colon));
  Kel::KelType const* const type = Kel::KelType::find(typeName);
  if (!type || !type->isEntity()) throw CommandError("'" + shown(attribute) + "': TYPE::ATTRIBUTE expected");
  Kel::KelAttr const* const attr = type->findAttr(attribute.substr(colon + 2));
  if (!attr) throw CommandError("'" + shown(attribute) + "': the type has no such attribute");
  return {attr->name(), typeName, enumerator<Session::AttributeEditType>("", edit)};
}

void showDebugging(Context& context) {
  bool any = false;
  auto const line = [&](Session::AttributeEdit const& edit, Session::AttributeDebugAction action,
                        std::string const& where) {
    if (action == Session::AttributeDebugAction::actionNone) return;
    context.out << stringValue(action).str() << ": " << editText(edit) << shown(where) << "\n";
    any = true;
  };
  Session::CliConfig const& config = context.service().tunables();
  for (auto at = config.debugEntityCopyIteratorConst(); at; ++at)
    for (auto edit = at->debugConfigIteratorConst(); edit; ++edit)
      line(edit.key(), edit->action(), " at " + at.key().str());
  for (auto edit = config.debugPerTypeEntityCopyIteratorConst(); edit; ++edit)
    for (auto path = edit->actionIteratorConst(); path; ++path) line(edit.key(), path.value(), "");
  if (!any) context.out << "no edit is debugged\n";
}

}  // namespace

Outcome debugEdit(Context& context, Arguments const& arguments) {
  if (!arguments.has("EDIT")) {
    showDebugging(context);
    return Outcome::ok;
  }
  Session::AttributeEdit const edit = editOf(arguments.text("EDIT"), arguments.text("ATTRIBUTE"));
  auto const action = enumerator<Session::AttributeDebugAction>("action", arguments.text("ACTION"));
  Session::CliConfig& config = context.service().tunables();
  if (std::string const place = arguments.text("PLACE"); !place.empty())
    config.debugEntityCopyIs(Kel::String(place))->debugConfigIs(edit)->actionIs(action);
  else
    config.debugPerTypeEntityCopyIs(edit)->actionIs("", action);
  if (context.hasSession())
    if (auto const log = context.session().status().attributeEditLog()) debugActionsIs(*log, config);
  context.out << "debugged from now on: " << editText(edit) << "\n";
  return Outcome::ok;
}

}  // namespace Shell
