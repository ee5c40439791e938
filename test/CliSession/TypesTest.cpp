// Every operation of the libraries' types is called by name, and refuses other arguments than its own.
#include <gtest/gtest.h>

#include <algorithm>

#include "CliSession/World.h"

namespace {

using namespace Tests;
using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

KelType const* typeNamed(std::string const& name) {
  KelType const* type = KelType::find(Kel::String8("Cli::Session::") + name);
  return type ? type : KelType::find(Kel::String8(name));
}

std::string nameOf(KelType const& type) {
  std::string const name = type.fullTypeName().str(), own = "Cli::Session::";
  return name.compare(0, own.size(), own) == 0 ? name.substr(own.size()) : name;
}

// The entity types that some lead to, by attributes, keys, arguments, bases and derived types.
std::vector<KelType const*> entityTypes() {
  std::vector<KelType const*> all;
  auto const reach = [&](KelType const* type) {
    if (type && type->isEntity() && type != Kel::Entity::_fwkType() &&
        std::find(all.begin(), all.end(), type) == all.end())
      all.push_back(type);
  };
  for (char const* name : {"Config", "Status", "OpenSessionConfig", "OpenSessionConfigDir", "OpenSessionStatusDir"})
    reach(typeNamed(name));
  for (std::size_t i = 0; i < all.size(); ++i) {
    reach(all[i]->base());
    for (KelType const* derived = all[i]->firstDerived(); derived; derived = derived->nextDerived()) reach(derived);
    for (KelAttr const* attr : all[i]->attributeQ()) {
      reach(attr->type());
      reach(attr->keyType());
      for (Kel::KelArg const& arg : attr->args()) reach(arg.type());
    }
  }
  return all;
}

// --- Samples ---

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

// The arguments of an operation, by their names and types.
GenericIf::Args argsOf(KelAttr const& operation) {
  auto const* subject = std::find_if(std::begin(subjects), std::end(subjects),
                                     [&](Subject const& s) { return operation.name() == s.operation; });
  KelType const* of = subject == std::end(subjects) ? nullptr : typeNamed(subject->type);
  GenericIf::Args args;
  for (Kel::KelArg const& arg : operation.args()) {
    KelType const& type = *arg.type();
    GenericIf::PtrConst value;
    if (arg.name == "attrName" && of)
      value = GenericIf::of(Kel::String8(subject->attribute));
    else if (&type == Kel::TypeOf<KelAttr>::type())
      value = GenericIf::ofObject(&type, KelAttr::PtrConst(of->getAttr(subject->attribute)));
    else if (!arg.pointer)
      value = sampleValue(type);
    else if (&type != Kel::TypeOf<GenericIf>::type() || arg.name == "dest" || arg.name == "src")
      value = GenericIf::ofEntity(sample(of && &type != EntityCopy::_fwkType() ? *of : type));
    args.push_back({arg.name, value});
  }
  return args;
}

// Expects a refusal that says which operation and which argument.
template <class Exception>
void expectRefusal(GenericIf const& gif, std::string const& where, std::string const& name, GenericIf::Args const& args,
                   std::string const& arg) {
  std::string const message = messageOf<Exception>([&] { gif.attributeCall(gif.attributeId(name), args); });
  EXPECT_NE(message.find(where), std::string::npos) << where << ", '" << arg << "': " << message;
  EXPECT_NE(message.find(arg), std::string::npos) << message;
}

void tryOperation(GenericIf const& gif, KelAttr const& operation) {
  std::string const where = operation.fullName().str(), name = operation.name().str();
  GenericIf::Args const args = argsOf(operation);
  std::string const type = nameOf(*gif.type());
  if (std::find(std::begin(uncallable), std::end(uncallable), type + "::" + name) == std::end(uncallable)) {
    try {
      GenericIf::Ptr const result = gif.attributeCall(gif.attributeId(name), args);
      KelType const* const wanted = operation.type();
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
    if (operation.args()[i].type() == Kel::TypeOf<GenericIf>::type()) continue;  // takes all
    wrong[i].second = GenericIf::of(Kel::F32(1));
    expectRefusal<Kel::TypeException>(gif, where, name, wrong, args[i].first.str());
  }
}

// --- Tests ---

TEST(Types, OperationsAreCalledByName) {
  testing::internal::CaptureStderr();  // roots that are missing are warned of
  std::vector<KelType const*> const types = entityTypes();
  EXPECT_GE(types.size(), 40u);
  for (KelType const* type : types) {
    GenericIf::Ptr const gif =
        GenericIf::ofEntity(type == Zuk::PathTrieState::_fwkType() ? fresh(*type) : sample(*type));
    for (KelAttr const* attr : type->attributeQ()) {
      EXPECT_EQ(gif->attributeId(attr->name()), attr->id());
      if (attr->isFunction()) tryOperation(*gif, *attr);
    }
    EXPECT_THROW(gif->attributeId("none"), Kel::UnknownAttrException);
  }
  testing::internal::GetCapturedStderr();
}

}  // namespace
