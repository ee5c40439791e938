// Commands that read and write files.
#include <algorithm>
#include <span>
#include <sstream>

#include "CommandTable.h"
#include "ModelLibrary.h"
#include "OutputFilter.h"
#include "PendingDiff.h"
#include "Words.h"
#include "service/JsonTree.h"
#include "service/PathWords.h"

namespace Shell {

namespace Service = Cli::Service;
using Service::Path;
using Service::Tree;

namespace {

bool isJson(std::string const& text) {
  std::size_t const start = text.starts_with("\xef\xbb\xbf") ? 3 : 0;  // some editors write this mark
  std::size_t const first = text.find_first_not_of(" \t\r\n", start);
  return first != std::string::npos && (text[first] == '{' || text[first] == '[' || text[first] == '"');
}

std::vector<std::string> lines(std::string const& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

// Puts a file's content into a tree: commands, a JSON tree, or the model's form.
class FileContent {
 public:
  FileContent(Context& context, std::string const& file)
      : context_(context), file_(fileTitle(file)), text_(readConfiguration(file)) {
    if (text_.find_first_not_of(" \t\r\n") == std::string::npos) throw CommandError(shown(file_) + ": is empty");
  }

  void into(Tree const& tree, Path const& path, bool merge, Service::PendingReferences& pending) const {
    if (!isJson(text_)) return commands(tree, path, pending);
    Service::ImportOptions options;
    options.merge = merge;
    options.pending = &pending;
    if (!path.empty()) {
      Service::importText(tree.dir, path, file_, text_, options);
      return;
    }
    // The model's form is loaded as a separate configuration, which is then copied into the tree.
    Kel::Dir::Ptr const dir = Kel::dirFactory("file");
    Service::PendingReferences waiting;
    loadConfiguration(context_.device.model(), text_, file_, dir, waiting);
    Service::ExportOptions exported;
    exported.pending = &waiting;
    Service::importJson(tree.dir, {}, Service::exportEntity(*dir, *dir, exported), options);
  }

 private:
  void commands(Tree const& tree, Path const& path, Service::PendingReferences& pending) const {
    Service::Editor editor(tree.dir, pending, Service::Editor::Source::rendering);
    std::size_t number = 0;
    for (std::string const& line : lines(text_)) {
      ++number;
      Line const split = splitLine(line);
      if (split.words.empty() || split.isComment()) continue;
      try {
        editor.apply(line, path);
      } catch (Service::InputError const& e) {
        throw CommandError(shown(file_) + ":" + std::to_string(number) + ": " + e.what());
      }
    }
    pending.retry(tree.dir);
  }

  Context& context_;
  std::string file_, text_;
};

}  // namespace

Outcome load(Context& context, Arguments const& arguments) {
  Service::Session& session = context.session();
  FileContent const content(context, arguments.text("FILE"));
  std::vector<std::string> const& words = arguments.words("PATH");
  Path const path = words.empty() ? context.at() : context.path(words, true);
  bool const merge = arguments.has("merge");
  std::size_t const before = session.differences().size();
  Service::PendingReferences const typed = context.typedPending();
  Service::PendingReferences pending = merge || !path.empty() ? context.pending() : Service::PendingReferences();
  auto const fill = [&](Tree const& tree) { content.into(tree, path, merge, pending); };
  if (merge) {
    session.loadMerge(fill);
  } else if (path.empty()) {
    session.loadReplace(fill);
    context.ancestorPending() = context.device.pending();
    if (before) context.out << counted(before, "earlier edit is", "earlier edits are") << " dropped\n";
  } else {
    pending.erase(path);
    session.loadReplace(fill, path);
  }
  context.refreshPending(pending);
  for (Service::PendingReference const& reference : context.pending().list())
    if (!typed.find(reference.place)) context.loaded().add(reference);
  std::size_t const edits = session.differences().size();
  context.out << shown(fileTitle(arguments.text("FILE"))) << " is loaded: " << counted(edits, "edit", "edits")
              << " to commit";
  std::size_t const waiting = context.pending().list().size();
  if (waiting) context.out << ", " << counted(waiting, "reference", "references") << " to nowhere";
  context.out << "\n";
  return Outcome::ok;
}

namespace {

Service::Json content(Context& context, Path const& path) {
  Service::ExportOptions options;
  options.pending = &context.pending();
  Service::Place const place = Service::locate(context.base(), path);
  if (!place.there()) throw CommandError(shown(path.text()) + " is not there");
  if (!place.attr) return Service::exportEntity(*place.entity, *context.base(), options);
  if (!place.isMember) return Service::exportAttribute(*place.entity, *place.attr, *context.base(), options);
  auto const member = Kel::GenericIf::ofEntity(place.entity)->attribute(place.attr->id(), place.key);
  return Service::exportValue(member.ptr(), *context.base());
}

std::string jsonText(Context& context, Path const& path) {
  return content(context, path).dump(2, ' ', false, Service::Json::error_handler_t::replace) + "\n";
}

// The roots at and below a path; empty for a path in a root.
std::vector<Path> rootsBelow(Context& context, Path const& path) {
  std::vector<Path> out;
  for (auto const& root : context.service().roots()) {
    Path const at = Service::parsePath(context.base(), root.path);
    if (at.isWithin(path)) out.push_back(at);
  }
  return out;
}

// The commands that make the content of roots in empty ones. All roots go together, because pointers lead from one to
// another.
std::vector<std::string> commandsFor(Context& context, std::vector<Path> const& roots) {
  Tree const empty{Kel::dirFactory("empty"), context.tree().roots};
  makeRoots(context.device.model().roots(), empty.dir);
  std::vector<Service::Difference> wanted;
  for (Service::Difference& difference :
       withPending(Service::differences(empty, context.tree()), {}, context.pending()))
    if (std::any_of(roots.begin(), roots.end(), [&](Path const& root) { return difference.path.isWithin(root); }))
      wanted.push_back(std::move(difference));
  return Service::commands(wanted);
}

// The outermost queue that an 'insert' puts an item into, or below an item of.
Path queueOf(Context& context, std::vector<std::string> const& insert) {
  for (std::size_t count = 1; count < insert.size(); ++count) {
    Path path = Service::readPath(context.base(), {}, std::span(insert).subspan(1, count)).path;
    if (!path.empty() && path.steps.back().attr && path.steps.back().attr->isQueue()) return path;
  }
  return {};
}

bool concerns(std::string const& command, std::string const& place) {
  std::size_t const verb = command.find(' ') + 1;
  return command.compare(verb, place.size(), place) == 0 && command.substr(verb + place.size()).starts_with(" ");
}

// Puts commands that empty a queue before the first one that fills it: where the queue has items already, they would
// double.
std::vector<std::string> withEmptiedQueues(Context& context, std::vector<std::string> const& commands) {
  std::vector<std::string> out;
  std::string queue;  // the last one
  for (std::string const& command : commands) {
    if (command.starts_with("insert ") && (queue.empty() || !concerns(command, queue))) {
      Path const path = queueOf(context, Service::splitWords(command));
      Path const owner = path.parent();
      std::string const ownerWords = Service::joinedWords(owner.words());
      queue = Service::joinedWords(path.words());
      bool const isRoot = owner.empty() || !owner.steps.back().attr;
      if (!isRoot && (out.empty() || !concerns(out.back(), ownerWords))) out.push_back("set " + ownerWords);
      out.push_back("delete " + queue);
    }
    out.push_back(command);
  }
  return out;
}

std::string commandText(Context& context, Path const& path) {
  std::vector<Path> const roots = rootsBelow(context, path);
  std::string out;
  for (std::string const& command : withEmptiedQueues(
           context, roots.empty() ? Service::commands(path, content(context, path)) : commandsFor(context, roots)))
    out += command + "\n";
  return out;
}

}  // namespace

Outcome save(Context& context, Arguments const& arguments) {
  context.session();
  bool const commands = arguments.has("commands");
  std::string const text = commands ? commandText(context, {}) : jsonText(context, {});
  writeFile(arguments.text("FILE"), text);
  context.out << "written to " << shown(arguments.text("FILE")) << "\n";
  return Outcome::ok;
}

Outcome exportTree(Context& context, Arguments const& arguments) {
  Path const path = context.pathOrHere(arguments.words("PATH"));
  context.out << (arguments.has("--commands") ? commandText(context, path) : jsonText(context, path));
  return Outcome::ok;
}

}  // namespace Shell
