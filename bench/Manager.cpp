#include "Manager.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Bench {

using namespace Cli::Session;

std::string editText(AttributeEdit const& edit, Kel::String const& path) {
  return edit.attributeType().str() + "::" + edit.attributeName().str() + " " + stringValue(edit.editType()).str() +
         " " + path.str();
}

std::map<std::string, unsigned> editsOf(AttributeEditLog const& log) {
  std::map<std::string, unsigned> edits;
  for (auto entry = log.attributeEditEntryIteratorConst(); entry; ++entry)
    for (auto path = entry->pathCounterIterator(); path; ++path)
      edits[editText(entry.key(), path.key())] = path.value();
  return edits;
}

Manager::Manager(std::vector<SessionRoot> roots)
    : roots_(std::move(roots)), top_(Kel::dirFactory("")), status_(statusFactory("status")) {
  sessions_ = Kel::Dir::Ptr(new Kel::Dir("session", top_.ptr()));
  ancestors_ = Kel::Dir::Ptr(new Kel::Dir("ancestor", top_.ptr()));
  status_->initialize();
  status_->sessionDirIs(sessions_);
  status_->ancestorDirIs(ancestors_);
  for (SessionRoot const& root : roots_) {
    Zuk::PrefixTrieState::Ptr const state = Zuk::prefixTrieStateFactory();
    state->pTypenameIs(root.typeName);
    status_->rootTrie()->prefixIs(root.path, state);
    status_->rootIs(root.path, true);
  }
}

// --- Rules ---

void Manager::bypassDefaults() {
  AttributeEditBypassTable::Ptr const table = attributeEditBypassTableFactory("bypass");
  Kel::Dir::Ptr const defaults = table->defaultEntityDirIs("default");
  std::vector<Kel::KelType const*> types;
  auto const add = [&](Kel::KelType const* type) {
    if (std::find(types.begin(), types.end(), type) != types.end()) return;
    types.push_back(type);
    defaults->newEntity(type->fullTypeName(), type->fullTypeName());
  };
  for (SessionRoot const& root : roots_) add(Kel::KelType::find(root.typeName));
  for (std::size_t i = 0; i < types.size(); ++i)
    for (Kel::KelAttr const* attr : types[i]->ownAttrs()) {
      add(attr->type());
      auto const entry = table->attributeEditBypassEntryIs(
          AttributeEdit(attr->name(), types[i]->fullTypeName(), AttributeEditType::del_));
      entry->parentPathIs("/", true);
      entry->defaultEntIs(defaults->entityRef(attr->type()->fullTypeName()));
    }
  status_->attributeEditBypassTableIs(table);
}

namespace {

struct CopiesAll : EntityCopyGlobalSessionHandler {
  bool handleEntity(EntityCopy::Ptr const& ec, Kel::Entity::Ptr const& dest, Kel::Entity::PtrConst const& src,
                    Kel::String path) override {
    return ec->doCopyEntityAttrs(dest, src, path, nullptr);
  }
};

}  // namespace

void Manager::handlerIs(Kel::String const& typeName) {
  if (!handlers_) handlers_ = entityCopyCustomHandlerTableFactory("handlers", top_);
  Kel::Ptr<CopiesAll> const handler(new CopiesAll);
  handler->sessionStatusIs(status_);
  handlers_->registerCustomCopyHandler(EntityPath(""), typeName, handler);
  status_->inHandlerTableIs(handlers_);
}

void Manager::addDebugActions(AttributeEditLog& log) const {
  for (AttributeEdit const& edit : debug_)
    log.attributeEditDebugTypeConfigIs(edit)->actionIs("", AttributeDebugAction::actionTrace);
}

// --- Copies ---

Kel::Dir& Manager::makeDir(Kel::Name const& name) {
  top_->entryDel(name);
  Kel::Dir::Ptr const made(new Kel::Dir(name, top_.ptr()));
  return *made;
}

Kel::Dir& Manager::makeRoots(Kel::Name const& name) {
  Kel::Dir& made = makeDir(name);
  for (SessionRoot const& root : roots_) {
    Kel::Dir::Ptr at(&made);
    std::size_t begin = 0;
    for (std::size_t end; (end = root.path.find('/', begin)) != std::string::npos; begin = end + 1) {
      Kel::Name const component(root.path.substr(begin, end - begin));
      if (!at->entry(component)) at->newEntity("Kel::Dir", component);
      at = Kel::ptrCast<Kel::Dir>(at->entityRef(component));
    }
    at->newEntity(root.typeName, root.path.substr(begin));
  }
  return made;
}

AttributeEditLog::Ptr Manager::copy(Kel::Dir& src, Kel::Dir& dest, bool compare) {
  EntityCopy::Ptr const ec = entityCopyFactory();
  EntityCopyGlobalSessionHandler::Ptr const handler = entityCopyGlobalSessionHandlerFactory();
  handler->sessionStatusIs(status_);
  handler->handlerTableIs(handlers_);
  ec->handlerIs(handler);
  ec->attributeEditBypassCheckerIs(status_->attributeEditBypassTable());
  AttributeEditLog::Ptr log = attributeEditLogFactory();
  addDebugActions(*log);
  ec->attributeEditLogIs(log);
  ec->stopAtFirstDiffIs(compare);
  for (SessionRoot const& root : roots_)
    if (auto const srcRoot = src.entity(Kel::String(root.path))) ec->srcCopyRootIs(srcRoot, true);
  ec->srcIs(Kel::Dir::Ptr(&src));
  ec->destIs(Kel::Dir::Ptr(&dest));
  return log;
}

// --- Sessions ---

void Manager::makeSession(Kel::Name const& name) {
  auto const& all = status_->pendingChangeStatusDir();
  all->statusDel(name);
  auto const config = pendingChangeConfigFactory(name, false, false, false, 0.0);
  config->logAttributeEditsIs(true);
  addDebugActions(*all->newStatus(name, config, 0.0, 1)->newAttributeEditLog());
  for (Kel::Dir::Ptr const& dir : {sessions_, ancestors_}) {
    dir->entryDel(name);
    dir->newEntity("Kel::Dir", name);
  }
}

void Manager::replace(Kel::Dir& src, Kel::Name const& sessionName) {
  if (!status_->doReplaceConfig(Kel::Dir::Ptr(&src), sessionName))
    throw std::logic_error("the session cannot be filled");
}

}  // namespace Bench
