// What every type declares, in one table, against the type records; and that all of it is reached by name.
//
// An attribute in the table is a value ("U32", with what it starts with unless that is nothing), a constant
// ("const"), a pointer ("ref"), what its owner makes ("own"), a collection ("V[K]"), a queue, or an operation with its
// arguments and its result. "param" is a constructor parameter; "inc" one that can be incremented; what is not said to
// be "readonly" or "nolog" is neither. Names of Cli::Session stand without their namespace.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "CliSession/World.h"

namespace {

using namespace Tests;
using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

char const table[] = R"(
enum SessionCommand noOp=0 clearConfig=1 update=2 commit=3 abort=4 remove=5
enum SessionState pending=0 preempted=1 completed=2 aborted=3 dead=4
enum AttributeEditType set=0 del=1
enum AttributeDebugAction actionNone=0 actionTrace=1 actionAssert=2

value CommandRequest
 cmd: SessionCommand; id: U32
value HandlerContext
 path: EntityPath; typeName: String
value AttributeEdit
 attributeName: String; attributeType: String; editType: AttributeEditType
value EntityPath
 value: String
value PtrTarget
 target: String; copiable: bool
value PostAttributeCopyMetadata
 head: U32; members: U32

entity CommandRequestDir
 id: U32 param; commandId: U32 inc; command: CommandRequest[U32]; response: String[U32]
entity PendingChangeConfig
 name: String param; immediate: bool param; automatic: bool param; global: bool param; startTime: F64 param;
 userString: String; target: bool[String]; commandDir: own CommandRequestDir[U32]; committed: bool;
 committedCount: U32; expirationTime: F64 = inf; temporary: bool; logAttributeEdits: bool
entity PendingChangeConfigDir
 name: String param; config: own PendingChangeConfig[String]
entity OpenSessionConfig
 name: String param; user: String; terminal: String; session: String
entity OpenSessionConfigDir
 name: String param; openSessionDir: ref Kel::Dir
entity CliConfig
 name: String param; defaultSessionProcessTimeout: const F64 = 3600; sessionProcessTimeout: F64 = 3600;
 defaultMaxSavedSessions: const U32 = 1; maxSavedSessions: U32 = 1; rollbackCommitsAutomatically: bool;
 defaultMaxOpenSessions: const U8 = 5; maxOpenSessions: U8 = 5; defaultProcessPollInterval: const F64 = 900;
 processPollInterval: F64 = 900; debugEntityCopy: own AttributeEditDebugConfigDir[String];
 debugPerTypeEntityCopy: own AttributeEditPerTypeDebugConfig[AttributeEdit]
entity Config
 name: String param; pendingChangeConfigDir: own PendingChangeConfigDir; userConfig: ref const CliConfig;
 initialize: op()

entity Status
 name: String param; pendingChangeStatusDir: own PendingChangeStatusDir; root: bool[String];
 rootTrie: own Zuk::PrefixTrie; rootsComplete: bool; sessionDir: ref Kel::Dir; ancestorDir: ref Kel::Dir;
 cleanConfig: ref Kel::Dir; cleanConfigStatus: ref CleanConfigStatus; cleanConfigComplete: bool;
 cleanConfigCompleted: F64; handlerTable: ref EntityCopyCustomHandlerTable;
 inHandlerTable: ref EntityCopyCustomHandlerTable; attributeEditBypassTable: ref AttributeEditBypassTable;
 commitInProgress: bool; numRestartAttempts: U16 inc; initialize: op();
 doCreateSessionRoot: op(src ref Kel::Dir, dest ref Kel::Dir, path String);
 doCreateSessionRoots: op(src ref Kel::Dir, dest ref Kel::Dir);
 doCreateCleanConfig: op(src ref Kel::Dir, dest ref Kel::Dir);
 doCreateSession: op(sessionName String, dir ref Kel::Dir);
 doReplaceConfig: op(src ref Kel::Dir, sessionName String) -> bool; doCleanConfig: op(sessionName String) -> bool
entity PendingChangeStatus
 name: String param; config: ref PendingChangeConfig param; startTime: F64 param; version: U32 param;
 local: ref Kel::Entity[String]; localPrefix: own Zuk::PrefixTrie; sessionRoots: bool; ancestorRoots: bool;
 error: String[String]; clears: U32 inc; cleared: bool; commandResponse: own CommandRequestDir[U32]; attempted: U32;
 completed: bool; success: bool; expirationTime: F64; state: SessionState; attributeEditLog: own AttributeEditLog
entity PendingChangeStatusDir
 name: String param; status: own PendingChangeStatus[String]; globalVersion: U32 inc;
 temporary: ref PendingChangeConfig
entity OpenSessionStatus
 processId: U32 param; session: ref PendingChangeConfig
entity OpenSessionStatusDir
 name: String param; openSession: own OpenSessionStatus[U32]
entity CleanConfigStatus
 name: String param; cleanConfigRoot: bool[String]; cleanConfigComplete: bool

entity EntityCopy
 dest: ref Kel::Entity; ancestor: ref const Kel::Entity; src: ref const Kel::Entity;
 srcCopyRoot: bool[ref Kel::Entity]; handler: ref EntityCopyHandler; attributeEditLog: ref AttributeEditLog;
 stopAtFirstDiff: bool; stop: op() -> bool; attributeEditBypassChecker: ref AttributeEditLogBypass;
 pendingAttr: bool[ref AttributeCopy]; handleCopyRoots: op();
 doCopyEntity: op(dest ref Kel::Entity, src ref Kel::Entity, path String) -> bool;
 doCopyEntityAttrs: op(dest ref Kel::Entity, src ref Kel::Entity, path String, filter ref AttributeFilter) -> bool;
 doCopyAttrByName: op(dest ref Kel::Entity, src ref Kel::Entity, path String, attrName String) -> bool;
 doCopyAttr: op(dest ref Kel::Entity, src ref Kel::Entity, path String, attr ref Kel::KelAttr) -> bool;
 doCopySingleton: op(dest ref Kel::Entity, src ref Kel::Entity, path String, attr ref Kel::KelAttr) -> bool;
 doCopyCollection: op(dest ref Kel::Entity, src ref Kel::Entity, path String, attr ref Kel::KelAttr) -> bool;
 doCopyCollectionMember: op(dest ref Kel::Entity, src ref Kel::Entity, path String, srcIndex ref Kel::GenericIf,
  index ref Kel::GenericIf, srcMember ref Kel::GenericIf, attr ref Kel::KelAttr) -> bool;
 doCopyQueue: op(dest ref Kel::Entity, src ref Kel::Entity, path String, attr ref Kel::KelAttr) -> bool;
 doCopyPtr: op(dest ref Kel::Entity, src ref Kel::Entity, path String, attr ref Kel::KelAttr,
  index ref Kel::GenericIf) -> bool;
 doCopyValue: op(dest ref Kel::Entity, src ref Kel::Entity, attr ref Kel::KelAttr) -> bool;
 doCopyPendingAttrs: op(force bool);
 resolvePtr: op(src ref Kel::Entity, srcTarget ref Kel::Entity, srcIndex ref Kel::GenericIf,
  srcMember ref Kel::GenericIf, dest ref Kel::Entity, indexValue ref Kel::GenericIf, path String,
  attr ref Kel::KelAttr) -> ref Kel::Entity;
 handleEntity: op(dest ref Kel::GenericIf, src ref Kel::GenericIf, attr ref Kel::KelAttr, path String) -> bool;
 attributeIs: op(dest ref Kel::Entity, attr ref Kel::KelAttr, index ref Kel::GenericIf, value ref Kel::GenericIf,
  result ref Kel::GenericIf) -> ref AttributeIsReturn;
 attributeDel: op(dest ref Kel::Entity, attr ref Kel::KelAttr, index ref Kel::GenericIf) -> bool;
 attributeAdd: op(dest ref Kel::Entity, attr ref Kel::KelAttr, value ref Kel::GenericIf) -> bool;
 attributeRemove: op(dest ref Kel::Entity, attr ref Kel::KelAttr) -> bool;
 addAttributeEditBypassEntry: op(attributeName String, typeName String, editType AttributeEditType, path String,
  value ref Kel::GenericIf)
entity AttributeFilter
 attributeName: bool[String]
entity AttributeOrder
 attributeName: String[ordered U16]
entity AttributeCopy
 attribute: ref const Kel::KelAttr param; dest: ref Kel::Entity param; path: String param; src: ref const Kel::Entity;
 srcIndex: ref const Kel::GenericIf nolog; srcMember: ref const Kel::GenericIf nolog;
 indexValue: ref const Kel::GenericIf nolog; srcValueFullName: String; destValueFullName: String;
 srcIndexFullName: String; destIndexFullName: String
entity AttributeIsReturn
 changed: bool param; gif: ref const Kel::GenericIf param

entity EntityCopyHandler
 handleEntity: op(ec ref EntityCopy, dest ref Kel::Entity, src ref Kel::Entity, path String) -> bool;
 resolveEntityPtr: op(ec ref EntityCopy, src ref Kel::Entity) -> PtrTarget
entity EntityCopyGlobalSessionHandler : EntityCopyHandler
 sessionStatus: ref Status; copied: own Zuk::PrefixTrie; handlerTable: ref EntityCopyCustomHandlerTable;
 externalDest: ref Kel::Entity; postAttributeCopyMetadata: PostAttributeCopyMetadata readonly;
 postAttributeCopy: own queue PostCopyAttribute[U32]
entity PostCopyAttribute
 idx: U32 param; dest: ref Kel::Entity param; src: ref const Kel::Entity param; path: String param;
 attrName: String param
entity EntityCopyDirHandler : EntityCopyGlobalSessionHandler
entity EntityCopyFilter : EntityCopyGlobalSessionHandler
 context: HandlerContext param; preAttribute: own AttributeOrder; filteredAttribute: own AttributeFilter;
 postAttribute: own AttributeOrder
entity EntityCopyFilterDir
 name: String param; ecf: own EntityCopyFilter[HandlerContext]; dirHandler: own EntityCopyDirHandler
entity EntityCopyHandlerMap
 typeName: String param; pathSpecific: ref EntityCopyGlobalSessionHandler[ordered EntityPath]
entity EntityCopyCustomHandlerTable
 name: String param; parentDir: ref Kel::Dir param; pathSpecificHandler: ref EntityCopyGlobalSessionHandler[String];
 typeSpecificHandlers: own EntityCopyHandlerMap[String];
 registerCustomCopyHandler: op(path EntityPath, typeName String, handler ref EntityCopyGlobalSessionHandler);
 findCustomCopyHandler: op(path String, typeName String) -> ref EntityCopyGlobalSessionHandler;
 registerEntityCopyFilter: op(filterDir ref EntityCopyFilterDir, path EntityPath, typeName String,
  attrs ref AttributeFilter)

entity AttributeEditEntry
 attributeEdit: AttributeEdit param; pathCounter: U8[String]
entity AttributeEditLog
 attributeEditEntry: own AttributeEditEntry[AttributeEdit];
 attributeEditDebugConfig: own AttributeEditDebugConfigDir[String];
 attributeEditDebugTypeConfig: own AttributeEditPerTypeDebugConfig[AttributeEdit]
entity AttributeEditLogBypass
 bypassAttributeEditLog: op(ec ref EntityCopy, edit AttributeEdit, path String, value ref Kel::GenericIf) -> bool
entity AttributeEditBypassTable : AttributeEditLogBypass
 name: String param; attributeEditBypassEntry: own AttributeEditBypassEntry[AttributeEdit];
 defaultEntityDir: own Kel::Dir
entity AttributeEditBypassEntry
 attributeEdit: AttributeEdit param; parentPath: bool[String]; defaultEnt: ref Kel::Entity
entity AttributeEditDebugConfigDir
 pathname: String param; debugConfig: own AttributeEditDebugConfig[AttributeEdit]
entity AttributeEditDebugConfig
 attributeEdit: AttributeEdit param; action: AttributeDebugAction
entity AttributeEditPerTypeDebugConfig
 attributeEdit: AttributeEdit param; action: AttributeDebugAction[String]

entity Zuk::PathTrie
 name: String param; child: ref Zuk::PathTrie[String]; pathChild: own Zuk::PathTrie[String];
 state: ref Zuk::PathTrieState; mountPoint: bool; present: bool; newStateIs: op() -> ref Zuk::PathTrieState;
 newChildIs: op(name String) -> ref Zuk::PathTrie; empty: op() -> bool;
 hasPrefixInternal: op(path String, proper bool) -> bool;
 enclosingPrefixInternal: op(path String, proper bool) -> String;
 prefixIs: op(path String, state ref Zuk::PathTrieState); prefixDel: op(path String);
 hasPrefix: op(path String) -> bool; hasProperPrefix: op(path String) -> bool;
 enclosingPrefix: op(path String) -> String; properEnclosingPrefix: op(path String) -> String;
 isPrefix: op(path String) -> bool; isLeaf: op(path String) -> bool;
 prefixState: op(path String) -> ref Zuk::PathTrieState;
 appendInternal: op(target ref Zuk::PathTrie, inheritedState ref Zuk::PathTrieState);
 append: op(target ref Zuk::PathTrie)
entity Zuk::PathTrieState
 upgradeState: op(newState ref Zuk::PathTrieState, inheritedOnly bool) -> bool; outputForm: op() -> String
entity Zuk::PrefixTrie : Zuk::PathTrie
 prefixChild: own Zuk::PrefixTrie[String]; prefixFlags: op(path String) -> String;
 prefixTypename: op(path String) -> String
entity Zuk::PrefixTrieState : Zuk::PathTrieState
 pTypename: String; flags: String; status: U8

entity Kel::Dir
 name: String param; subdir: bool[ordered String] readonly; entryState: own Kel::Dir::EntryState[ordered String]
entity Kel::Dir::EntryState
 name: String param; typeName: String param; entityPtr: ref Kel::Entity readonly nolog
)";

// --- The table ---

struct Row {
  std::string kind, name, base, head;
  std::vector<std::string> attributes;
  std::string text;  // all of it, one attribute a line
};

std::vector<Row> rows() {
  std::vector<Row> all;
  std::istringstream in(table);
  for (std::string line; std::getline(in, line);) {
    if (line.empty()) continue;
    if (line[0] == ' ') {
      all.back().text += line[1] == ' ' ? line.substr(1) : line;
    } else {
      Row row;
      std::string colon;
      std::istringstream(line) >> row.kind >> row.name >> colon >> row.base;
      row.head = line;
      all.push_back(row);
    }
  }
  for (Row& row : all) {
    std::istringstream attributes(std::exchange(row.text, row.head + "\n"));
    for (std::string attribute; std::getline(attributes >> std::ws, attribute, ';');) {
      row.attributes.push_back(attribute);
      row.text += " " + attribute + "\n";
    }
  }
  return all;
}

KelType const* typeNamed(std::string const& name) {
  KelType const* type = KelType::find(Kel::String8("Cli::Session::") + name);
  return type ? type : KelType::find(Kel::String8(name));
}

// --- What the records say, in the table's words ---

std::string nameOf(KelType const& type) {
  std::string const name = type.fullTypeName().str(), own = "Cli::Session::";
  if (name == "Kel::String8") return "String";
  return name.compare(0, own.size(), own) == 0 ? name.substr(own.size()) : name;
}
std::string nameOf(KelType const& type, bool pointer) { return (pointer ? "ref " : "") + nameOf(type); }

std::string operationText(KelAttr const& attr) {
  std::string args;
  for (Kel::KelArg const& arg : attr.args())
    args += (args.empty() ? "" : ", ") + arg.name.str() + " " + nameOf(*arg.type(), arg.pointer);
  return "op(" + args + ")" + (attr.type() ? " -> " + nameOf(*attr.type(), attr.type()->isEntity()) : "");
}

std::string kindText(KelAttr const& attr) {
  std::string text = attr.isConstant() ? "const " : attr.instantiating() ? "own " : attr.isPtr() ? "ref " : "";
  if (attr.isConstPtr()) text += "const ";
  if (attr.isQueue()) text += "queue ";
  text += nameOf(*attr.type());
  if (!attr.isCollection()) return text;
  bool const ordered = attr.collectionKind() == KelAttr::Collection::orderedMap;
  return text + (ordered ? "[ordered " : "[") + nameOf(*attr.keyType(), attr.keyIsPtr()) + "]";
}

// What an attribute of a new entity holds, where that is not nothing.
std::string initialText(KelAttr const& attr, GenericIf const& made) {
  if (attr.ctorParam()) return {};
  if (attr.isCollection()) return made.attributeCount(attr.id()) == 0 ? "" : " = members";
  GenericIf::PtrConst const value = made.attribute(attr.id());
  if (!attr.isValue()) return value ? " = something" : "";
  return value->valueEqual(*attr.type()->valueOps().initial()) ? "" : " = " + value->text().str();
}

bool increments(KelAttr const& attr, GenericIf const& made) {
  if (!attr.isValue() || attr.isCollection()) return false;
  try {
    made.attributeOp(Kel::AttributeOp::increment, attr.id());
    return true;
  } catch (Kel::OpNotSupportedException const&) {
    return false;
  }
}

std::string attributeText(KelAttr const& attr, GenericIf const& made) {
  bool const never = attr.isFunction() || attr.isConstant();
  std::string flags = attr.ctorParam() ? " param" : "";
  if (attr.writable() == (never || attr.ctorParam())) flags += attr.writable() ? " writable" : " readonly";
  if (attr.logging() == never) flags += attr.logging() ? " logging" : " nolog";
  if (attr.isFunction()) return attr.name().str() + ": " + operationText(attr) + flags;
  std::string const text = attr.name().str() + ": " + kindText(attr) + initialText(attr, made) + flags;
  return increments(attr, made) ? text + " inc" : text;
}

// --- Samples ---

GenericIf::PtrConst listOf(std::vector<GenericIf::PtrConst> const& objects) {
  GenericIf::List::Ptr const list(new GenericIf::List);
  for (auto const& object : objects) list->objectEnq(object);
  return GenericIf::List::genericIf(list);
}

// A value that no attribute starts with.
GenericIf::PtrConst sampleValue(KelType const& type) {
  if (type.fullTypeName() == "Kel::String8") return GenericIf::of(Kel::String8("x"));
  if (type.isBuiltin()) return type.genericFromText(type.builtin() == KelType::Builtin::boolT ? "True" : "3");
  if (type.isEnum()) return GenericIf::ofEnum(&type, type.enumerators().back().value);
  if (type.valAttr()) return type.genericFromText(sampleValue(*type.valAttr()->type())->text());
  std::string fields;
  for (KelAttr const* field : type.attributeQ())
    fields += (fields.empty() ? "'" : ", '") + field->name().str() + "': " + sampleValue(*field->type())->strep().str();
  return type.genericFromText("Value('" + type.fullTypeName().str() + "', ** {" + fields + "})");
}

std::vector<GenericIf::PtrConst> sampleArgs(KelType const& type) {
  std::vector<GenericIf::PtrConst> args;
  for (Kel::KelArg const& arg : type.ctorArgs()) args.push_back(arg.pointer ? nullptr : sampleValue(*arg.type()));
  return args;
}

EntityPtr fresh(KelType const& type) { return type.newEntity(sampleArgs(type)); }

// An entity that is an instance of a type, with what its operations assert is there.
EntityPtr sample(KelType const& wanted) {
  KelType const& type = &wanted == Kel::Entity::_fwkType()          ? *Kel::Dir::_fwkType()
                        : &wanted == Zuk::PathTrieState::_fwkType() ? *Zuk::PrefixTrieState::_fwkType()
                                                                    : wanted;
  EntityPtr made = fresh(type);
  if (auto const status = Kel::ptrCast<Cli::Session::Status>(made)) status->initialize();
  if (auto const handler = Kel::ptrCast<Cli::Session::EntityCopyGlobalSessionHandler>(made))
    handler->sessionStatusIs(Kel::ptrCast<Cli::Session::Status>(sample(*Cli::Session::Status::_fwkType())));
  if (auto const ec = Kel::ptrCast<EntityCopy>(made)) {
    ec->handlerIs(Kel::ptrCast<Cli::Session::EntityCopyHandler>(
        sample(*Cli::Session::EntityCopyGlobalSessionHandler::_fwkType())));
    ec->srcIs(sample(*Kel::Entity::_fwkType()));
    ec->destIs(sample(*Kel::Entity::_fwkType()));
  }
  return made;
}

GenericIf::PtrConst sampleMember(KelAttr const& attr) {
  if (attr.isPtr() && !attr.type()->isEntity()) return GenericIf::of(Kel::U32(7));
  if (attr.isPtr()) return GenericIf::ofEntity(sample(*attr.type()));
  return attr.instantiating() ? listOf(sampleArgs(*attr.type())) : sampleValue(*attr.type());
}

bool same(GenericIf::PtrConst const& a, GenericIf::PtrConst const& b) {
  return a->isEntity() ? a->entityConst() == b->entityConst() : a->valueEqual(*b);
}

// --- By name ---

// The copy operations want an attribute of the kind that they copy.
struct Subject {
  char const *operation, *type, *attribute;
};
constexpr Subject subjects[] = {
    {"doCopyAttr", "Status", "rootsComplete"},
    {"doCopyAttrByName", "Status", "rootsComplete"},
    {"doCopySingleton", "Status", "rootTrie"},
    {"doCopyCollection", "Status", "root"},
    {"doCopyCollectionMember", "Status", "root"},
    {"doCopyPtr", "Status", "sessionDir"},
    {"doCopyValue", "Status", "rootsComplete"},
    {"resolvePtr", "Status", "sessionDir"},
    {"handleEntity", "Status", "rootTrie"},
    {"attributeIs", "Status", "rootsComplete"},
    {"attributeDel", "Status", "rootsComplete"},
    {"doCopyQueue", "EntityCopyGlobalSessionHandler", "postAttributeCopy"},
    {"attributeAdd", "EntityCopyGlobalSessionHandler", "postAttributeCopy"},
    {"attributeRemove", "EntityCopyGlobalSessionHandler", "postAttributeCopy"},
};

// What must be overridden before it may be called.
constexpr char const* uncallable[] = {"Zuk::PathTrieState::upgradeState", "Zuk::PathTrieState::outputForm",
                                      "Zuk::PathTrie::newStateIs", "Zuk::PathTrie::prefixIs"};

// The arguments of an operation, by the names and types in its line.
GenericIf::Args argsOf(std::string const& operation, std::string const& line) {
  auto const* subject = std::find_if(std::begin(subjects), std::end(subjects),
                                     [&](Subject const& s) { return s.operation == operation; });
  KelType const* of = subject == std::end(subjects) ? nullptr : typeNamed(subject->type);
  GenericIf::Args args;
  std::string const list = line.substr(line.find('(') + 1, line.find(')') - line.find('(') - 1);
  std::istringstream in(list);
  for (std::string arg; std::getline(in >> std::ws, arg, ',');) {
    std::string name, type;
    std::istringstream(arg) >> name >> type;
    bool const pointer = type == "ref";
    if (pointer) type = arg.substr(arg.rfind(' ') + 1);
    if (name == "attrName" && of)
      args.push_back({name, GenericIf::of(Kel::String8(subject->attribute))});
    else if (type == "Kel::KelAttr")
      args.push_back({name, GenericIf::ofObject(typeNamed(type), KelAttr::PtrConst(of->getAttr(subject->attribute)))});
    else if (type == "Kel::GenericIf" && name != "dest" && name != "src")
      args.push_back({name, nullptr});
    else if (pointer)
      args.push_back({name, GenericIf::ofEntity(sample(of && type != "EntityCopy" ? *of : *typeNamed(type)))});
    else
      args.push_back({name, sampleValue(type == "String" ? *Kel::TypeOf<Kel::String8>::type() : *typeNamed(type))});
  }
  return args;
}

// Expects a refusal that says which operation and which argument.
template <class Exception>
void expectRefusal(GenericIf const& gif, std::string const& where, std::string const& name, GenericIf::Args const& args,
                   std::string const& arg) {
  try {
    gif.attributeCall(gif.attributeId(name), args);
    ADD_FAILURE() << where << " takes any '" << arg << "'";
  } catch (Exception const& e) {
    EXPECT_NE(e.message().str().find(where), std::string::npos) << e.message();
    EXPECT_NE(e.message().str().find(arg), std::string::npos) << e.message();
  }
}

void tryOperation(GenericIf const& gif, std::string const& owner, std::string const& name, std::string const& line) {
  std::string const where = owner + "::" + name;
  GenericIf::Args const args = argsOf(name, line);
  std::string const type = nameOf(*gif.type());
  if (std::find(std::begin(uncallable), std::end(uncallable), type + "::" + name) == std::end(uncallable)) {
    try {
      GenericIf::Ptr const result = gif.attributeCall(gif.attributeId(name), args);
      KelType const* const wanted = gif.attr(gif.attributeId(name))->type();
      EXPECT_TRUE(result ? wanted && result->type()->isA(wanted) : !wanted || wanted->isEntity()) << where;
    } catch (Kel::Exception const& e) {  // the arguments may lead nowhere, but they are of the right types
      EXPECT_EQ(e.message().str().find(where), std::string::npos) << e.message();
    }
  }
  GenericIf::Args more = args;
  more.push_back({"none", nullptr});
  expectRefusal<Kel::UnknownArgException>(gif, where, name, more, "'none'");
  for (std::size_t i = 0; i < args.size(); ++i) {
    GenericIf::Args fewer = args, wrong = args;
    fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
    expectRefusal<Kel::UnknownArgException>(gif, where, name, fewer, "'" + args[i].first.str() + "'");
    if (gif.attr(gif.attributeId(name))->args()[i].type() == Kel::TypeOf<GenericIf>::type()) continue;  // takes all
    wrong[i].second = GenericIf::of(Kel::F32(1));
    expectRefusal<Kel::TypeException>(gif, where, name, wrong, args[i].first.str());
  }
}

void tryCollection(GenericIf const& gif, KelAttr const& attr) {
  GenericIf::PtrConst const member = sampleMember(attr);
  Kel::AttributeId const id = attr.id();
  if (attr.isQueue()) {
    auto params = sampleArgs(*attr.type());
    gif.attributeSQEnq(id, listOf({params.begin() + 1, params.end()}));
    EXPECT_EQ(gif.attributeCount(id), 1u) << attr.fullName();
    return gif.attributeSQDeq(id);
  }
  GenericIf::PtrConst const key =
      attr.keyIsPtr() ? GenericIf::ofEntity(sample(*attr.keyType())) : sampleValue(*attr.keyType());
  if (!attr.writable()) {
    EXPECT_THROW(gif.attributeIs(id, key, member), Kel::OpNotSupportedException) << attr.fullName();
    return;
  }
  gif.attributeIs(id, key, member);
  auto const it = gif.attributeIteratorConst(id);
  ASSERT_TRUE(it) << attr.fullName();
  EXPECT_TRUE(same(it.key(), key)) << attr.fullName();
  if (attr.instantiating())
    EXPECT_EQ(gif.attribute(id, key)->type(), attr.type()) << attr.fullName();
  else
    EXPECT_TRUE(same(gif.attribute(id, key), member)) << attr.fullName();
  gif.attributeDel(id, key);
  EXPECT_EQ(gif.attributeCount(id), 0u) << attr.fullName();
}

void trySingle(GenericIf& gif, KelAttr const& attr) {
  Kel::AttributeId const id = attr.id();
  GenericIf::PtrConst const before = gif.attribute(id);
  if (!attr.writable()) {
    GenericIf::PtrConst const value = attr.isValue() ? sampleValue(*attr.type()) : nullptr;
    EXPECT_THROW(gif.attributeIs(id, nullptr, value), Kel::OpNotSupportedException) << attr.fullName();
    return;
  }
  GenericIf::PtrConst const value = sampleMember(attr);
  if (attr.instantiating()) gif.attributeDel(id);
  gif.attributeIs(id, nullptr, value);
  GenericIf::PtrConst const after = gif.attribute(id);
  ASSERT_TRUE(after) << attr.fullName();
  if (attr.instantiating()) {
    EXPECT_EQ(after->type(), attr.type()) << attr.fullName();
    return;
  }
  EXPECT_TRUE(same(after, value)) << attr.fullName();
  gif.attributeIs(id, nullptr, before);
}

// --- Tests ---

TEST(TypeTable, IsWhatTheRecordsSay) {
  for (Row const& row : rows()) {
    KelType const* type = typeNamed(row.name);
    ASSERT_TRUE(type) << row.name;
    std::string head = row.kind + ' ' + nameOf(*type), attributes;
    std::vector<KelAttr const*> inherited;
    EXPECT_EQ(type->isEntity(), row.kind == "entity") << row.name;
    EXPECT_EQ(type->isEnum(), row.kind == "enum") << row.name;
    for (auto const& [name, value] : type->enumerators()) head += " " + name.str() + "=" + std::to_string(value);
    if (type->isEntity() && type->base() != Kel::Entity::_fwkType()) {
      head += " : " + nameOf(*type->base());
      inherited = type->base()->attributeQ();
    }
    GenericIf::Ptr const made = type->isEntity() ? GenericIf::ofEntity(fresh(*type)) : nullptr;
    for (KelAttr const* attr : type->attributeQ()) {
      if (attr->ownerType() != type) {
        inherited.erase(std::find(inherited.begin(), inherited.end(), attr));
        continue;
      }
      attributes += ' ';
      attributes += made ? attributeText(*attr, *made) : attr->name().str() + ": " + nameOf(*attr->type());
      attributes += '\n';
    }
    head += '\n';
    EXPECT_EQ(head.append(attributes), row.text);
    EXPECT_TRUE(inherited.empty()) << row.name;
  }
}

// Whatever an attribute, a key, an argument or a base leads to.
TEST(TypeTable, LacksNoTypeThatIsReached) {
  std::vector<KelType const*> listed, reached;
  for (Row const& row : rows()) listed.push_back(typeNamed(row.name));
  for (KelType const* type : listed)
    for (KelAttr const* attr : type->attributeQ()) {
      for (KelType const* next : {attr->type(), attr->keyType(), type->base()}) reached.push_back(next);
      for (Kel::KelArg const& arg : attr->args()) reached.push_back(arg.type());
    }
  for (KelType const* type : reached)
    EXPECT_TRUE(!type || type->isBuiltin() || type->kind() == KelType::Kind::object ||
                type == Kel::Entity::_fwkType() || std::find(listed.begin(), listed.end(), type) != listed.end())
        << *type;
}

TEST(TypeTable, IsReachedByName) {
  testing::internal::CaptureStderr();  // roots that are missing are warned of
  std::vector<Row> const all = rows();
  for (Row const& made : all) {
    if (made.kind != "entity") continue;
    EntityPtr const entity =
        made.name == "Zuk::PathTrieState" ? fresh(*typeNamed(made.name)) : sample(*typeNamed(made.name));
    GenericIf::Ptr const gif = GenericIf::ofEntity(entity);
    for (std::string declaring = made.name; !declaring.empty();) {
      Row const& row = *std::find_if(all.begin(), all.end(), [&](Row const& r) { return r.name == declaring; });
      for (std::string const& line : row.attributes) {
        std::string const name = line.substr(0, line.find(':'));
        KelAttr const& attr = *gif->attr(gif->attributeId(name));
        if (attr.isFunction())
          tryOperation(*gif, attr.ownerType()->fullTypeName().str(), name, line);
        else if (attr.isCollection())
          tryCollection(*gif, attr);
        else
          trySingle(*gif, attr);
      }
      declaring = row.base;
    }
    EXPECT_THROW(gif->attributeId("none"), Kel::UnknownAttrException);
  }
  testing::internal::GetCapturedStderr();
}

}  // namespace
