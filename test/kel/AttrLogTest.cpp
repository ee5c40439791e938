// Attribute logs: their bytes, what they keep, and what a reader refuses. Laws on random trees are the copy engine's
// tests'.
#include "Kel/AttrLog.h"

#include "Support.h"

namespace {

using namespace Gadgets;

std::string u32(U32 v) {
  return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}
std::string text(std::string const& s) { return u32(static_cast<U32>(s.size())) + s; }
std::string record(char kind, std::string const& payload) { return kind + text(payload); }
std::string const alone = u32(0xffffffff);  // no owner
// A whole log of records: the header before, the end behind.
std::string logOf(std::string const& records, U32 entities) {
  std::string const log = std::string("KELA\0\1", 6) + records + '\3' + u32(8) + u32(entities);
  return log + u32(attrLogChecksum(log));
}

std::string const numberedType =
    record(1, text("Gadgets::Numbered") + '\3' + u32(2) +  //
                  text("id") + '\x20' + text("U32") + text("") + text("note") + '\0' + text("Kel::String8") + text(""));

TEST(AttrLog, IsWhatItsDescriptionSays) {
  EXPECT_EQ(attrLogChecksum("123456789"), 0xcbf43926u);
  auto const numbered = numberedFactory(7);
  numbered->noteIs("hi");
  EXPECT_EQ(writeAttrLog(*numbered), logOf(numberedType + record(2, u32(0) + alone + u32(7) + text("hi")), 1));
}

TEST(AttrLog, KeepsWhatStandsBetweenEntities) {
  auto const dir = dirFactory("top");
  dir->newEntryState("later", "Gadgets::Part");  // its entity was never asked for
  auto const owner = ptrCast<Owner>(dir->newEntity("Gadgets::Owner", "owner"));
  owner->newFolder("f")->newEntity("Gadgets::Part", "a/b");
  owner->newPartsOrdered("x")->peerIs(ptrCast<Part>(owner->folder()->entityRef("a/b")));
  auto const binder = ptrCast<Binder>(dir->newEntity("Gadgets::Binder", "binder"));
  binder->newBounds("up", binder, "to its owner");
  binder->newBounds("on", Entity::Ptr(binder->newOnly("only", owner, "")), "to one that comes later");
  auto const queues = ptrCast<Queues>(dir->newEntity("Gadgets::Queues", "queues"));
  for (char const* note : {"a", "b", "c"}) queues->queuedEnq(note), queues->tinyEnq(note);
  queues->queuedDeq(), queues->tinyDel(1);

  std::string const log = writeAttrLog(*dir);
  auto const again = ptrCast<Dir>(readAttrLog(log));
  EXPECT_EQ(writeAttrLog(*again), log);
  EXPECT_EQ(again->entryState("later")->entityPtr(), nullptr);
  auto const b = ptrCast<Binder>(again->entityRef("binder"));
  EXPECT_EQ(b->bounds("up")->to(), b);
  EXPECT_EQ(b->bounds("on")->to(), b->only());
  EXPECT_EQ(b->only()->to(), again->entityRef("owner"));
  EXPECT_EQ(again->entity(".entryState/later"), again->entryState("later"));
  EXPECT_EQ(again->entity("owner.partsOrdered/x")->fullName(), "/owner.partsOrdered/x");
  EXPECT_EQ(ptrCast<Part>(again->entity("owner.partsOrdered/x"))->peer(), again->entity("owner.folder/a/b"));
  auto const q = ptrCast<Queues>(again->entityRef("queues"));
  EXPECT_EQ(q->queued(1)->note(), "b");
  EXPECT_EQ(q->tiny(2), "c");
  q->queuedEnq("d");
  EXPECT_EQ(q->queued(3)->note(), "d");
  binder->boundsDelAll(), b->boundsDelAll();  // they hold their owner
}

// An index that a member keeps is passed over when the others wrap round to it.
TEST(AttrLog, KeepsQueuesThatHaveWrappedRound) {
  auto const queues = queuesFactory("queues");
  queues->queuedEnq("stays"), queues->tinyEnq("stays");
  for (int i = 0; i < 300; ++i) {
    queues->tinyDel(queues->tinyEnq(std::to_string(i)));
    auto const member = queues->queuedEnq(std::to_string(i));
    EXPECT_EQ(queues->entity(member->fullName()), member);
    if (i < 299) queues->queuedDel(member->index());
  }
  EXPECT_EQ(queues->queued(45)->fullName(), ".queued/45") << "301 members: the 256th was passed over";
  EXPECT_EQ(queues->queued(45)->note(), "299");
  std::string const log = writeAttrLog(*queues);
  auto const again = ptrCast<Queues>(readAttrLog(log));
  EXPECT_EQ(writeAttrLog(*again), log);
  for (auto const& q : {queues, again}) {
    std::string order;
    for (auto it = q->queuedIterator(); it; ++it) order += it.value()->note().str() + ";";
    EXPECT_EQ(order, "stays;299;");
    EXPECT_EQ(q->queuedEnq("next")->fullName(), ".queued/46");
    EXPECT_EQ(q->tinyEnq("next"), 46);
    EXPECT_EQ(q->tiny(0), "stays");
  }
}

TEST(AttrLog, ReferencesLeadOutByPath) {
  auto const root = dirFactory("");
  auto const part = ptrCast<Part>(root->newEntity("Gadgets::Part", "part"));
  auto const pointers = ptrCast<Pointers>(root->newEntity("Gadgets::Pointers", "pointers"));
  pointers->partIs(part);
  pointers->anyIs(root);
  pointers->byPartIs(part, 3);
  auto const again = ptrCast<Pointers>(readAttrLog(writeAttrLog(*pointers), root.ptr()));
  EXPECT_EQ(again->part(), part);
  EXPECT_EQ(again->any(), root);
  EXPECT_EQ(again->byPart(part), 3u);
  EXPECT_EQ(again->parent(), nullptr);
  EXPECT_THROW(readAttrLog(writeAttrLog(*pointers)), AttrLogEntityException) << "no context";

  // What was read before a fault, here a pointer to itself, is let go.
  std::string const type = record(1, text("Gadgets::Pointers") + '\3' + u32(4) +                    //
                                         text("name") + '\x20' + text("Kel::String8") + text("") +  //
                                         text("part") + '\1' + text("Gadgets::Part") + text("") +   //
                                         text("any") + '\1' + text("Kel::Entity") + text("") +      //
                                         text("byName") + '\5' + text("Gadgets::Part") + text("Kel::String8"));
  std::string const contents = '\2' + text("/part") + '\1' + u32(0) + u32(1) + text("k") + '\0';
  U32 const refs = part->refs();
  EXPECT_THROW(readAttrLog(logOf(type + record(2, u32(0) + alone + text("p") + contents), 1), root.ptr()),
               AttrLogRecordException);
  EXPECT_EQ(part->refs(), refs);

  // What nobody owns comes along where it cannot hold anything, once.
  auto const loose = coloredFactory(Color::red);
  pointers->anyIs(loose);
  std::string const log = writeAttrLog(*pointers);
  auto const held = ptrCast<Colored>(ptrCast<Pointers>(readAttrLog(log, root.ptr()))->any());
  EXPECT_EQ(held->color(), Color::red);
  EXPECT_EQ(held->refs(), 1u);
  pointers->anyIs(nullptr);

  auto const stranger = partFactory("stranger");
  auto const refused = [&](Ptr<Kel::Entity const> const& e, char const* what) {
    EXPECT_EQ(messageOf<EntityIdUnavailableException>([&] { writeAttrLog(*e); }), what);
  };
  pointers->partIs(stranger);
  refused(pointers, "Gadgets::Part '' cannot be referred to: it is neither in the attribute log nor in its tree");
  pointers->partIs(nullptr);
  // Two that one path could mean: the shorter reading wins, the other has no path.
  auto const folder = ptrCast<Dir>(root->newEntity("Kel::Dir", "a"));
  folder->newEntity("Gadgets::Part", "b");
  pointers->partIs(ptrCast<Part>(root->newEntity("Gadgets::Part", "a/b")));
  refused(pointers, "Gadgets::Part '/a/b' cannot be referred to: it is neither in the attribute log nor in its tree");
  pointers->anyIs(nullptr);
}

// What a reader says of a log, without the words that all have.
template <class Refusal>
void refused(std::string const& log, std::size_t offset, std::string const& what) {
  EXPECT_EQ(messageOf<Refusal>([&] { readAttrLog(log); }),
            "attribute log, offset " + std::to_string(offset) + ": " + what);
}
void badRecord(std::string const& log, std::size_t offset, std::string const& what) {
  refused<AttrLogRecordException>(log, offset, what);
}
void badEntity(std::string const& log, std::size_t offset, std::string const& what) {
  refused<AttrLogEntityException>(log, offset, what);
}

TEST(AttrLog, BytesThatAreNoLogAreRefused) {
  std::string const good = logOf(numberedType + record(2, u32(0) + alone + u32(7) + text("hi")), 1);
  std::size_t const entityAt = 6 + numberedType.size();
  badRecord("", 0, "no attribute log: 'KELA' expected");
  badRecord("KELB\0\1", 0, "no attribute log: 'KELA' expected");
  badRecord("KELA", 4, "2 bytes expected, 0 left");
  badRecord(std::string("KELA\0\2", 6), 4, "version 1 expected, 2 given");
  badRecord(good.substr(0, 6), 6, "1 bytes expected, 0 left");
  badRecord(good.substr(0, good.size() - 1), entityAt + 23 + 1, "a record of 8 bytes, 7 left");
  badRecord(good + "x", good.size(), "1 bytes after the end");
  badRecord(std::string("KELA\0\1\7\0\0\0\0", 11), 6, "unknown kind of record 7");
  for (std::size_t at = entityAt + 13; at < good.size() - 13; ++at) {  // what no structure betrays, the checksum does
    std::string bent = good;
    bent[at] = static_cast<char>(bent[at] ^ 1);
    badRecord(bent, good.size() - 4, "the checksum is wrong");
  }
  badRecord(logOf("", 0), 11, "the log holds 0 entities, another number than it says");
  badRecord(logOf(record(1, text("No::Such")), 0), 11, "unknown type 'No::Such'");
  badRecord(logOf(record(1, text("Gadgets::Numbered") + '\2' + u32(0)), 0), 32,
            "Gadgets::Numbered is of another kind here");
  auto const numbered = [](std::string const& attributes) {
    return logOf(record(1, text("Gadgets::Numbered") + '\3' + attributes), 0);
  };
  std::string const id = text("id") + '\x20' + text("U32") + text("");
  badRecord(numbered(u32(1) + text("mote")), 37, "Gadgets::Numbered has no attribute 'mote'");
  badRecord(numbered(u32(1) + text("id") + '\0'), 43, "Gadgets::Numbered::id is of another kind here");
  badRecord(numbered(u32(1) + text("id") + '\x20' + text("U64")), 44, "Gadgets::Numbered::id is of another type here");
  badRecord(numbered(u32(2) + id + id), 69, "Gadgets::Numbered: an attribute is described twice");
  badRecord(numbered(u32(0)), 33, "Gadgets::Numbered has other fields or constructor parameters here");
  badRecord(logOf(record(1, text("Gadgets::Color") + '\1' + u32(1) + text("blue") + u32(8)), 0), 42,
            "Gadgets::Color has another number for 'blue'");
  badRecord(logOf(numberedType + numberedType, 0), 6 + 2 * numberedType.size() - 4,
            "Gadgets::Numbered is described twice");
  std::string const colored = record(1, text("Gadgets::Colored") + '\3' + u32(1) +  //
                                            text("color") + '\x20' + text("Gadgets::Color") + text(""));
  badRecord(logOf(colored, 0), 6 + colored.size() - 4,
            "Gadgets::Colored::color: Gadgets::Color was not described before");
}

TEST(AttrLog, AttributesThatItDoesNotKnowKeepTheirDefaults) {
  std::string const type = record(1, text("Gadgets::Values") + '\3' + u32(3) +                      //
                                         text("name") + '\x20' + text("Kel::String8") + text("") +  //
                                         text("rank") + '\x20' + text("U16") + text("") +           //
                                         text("u8") + '\0' + text("U8") + text(""));
  auto const values =
      ptrCast<Values>(readAttrLog(logOf(type + record(2, u32(0) + alone + text("v") + std::string("\1\2\3")), 1)));
  EXPECT_EQ(values->rank(), 0x102u);
  EXPECT_EQ(values->u8(), 3u);
  EXPECT_EQ(values->u32(), 7u);
}

TEST(AttrLog, EntitiesThatCannotBeAreRefused) {
  std::string const type = record(1, text("Gadgets::Owner") + '\3' + u32(3) +                       //
                                         text("name") + '\x20' + text("Kel::String8") + text("") +  //
                                         text("part") + '\2' + text("Gadgets::Part") + text("") +   //
                                         text("parts") + '\6' + text("Gadgets::Part") + text("Kel::String8"));
  std::string const part = record(1, text("Gadgets::Part") + '\3' + u32(2) +                        //
                                         text("name") + '\x20' + text("Kel::String8") + text("") +  //
                                         text("peer") + '\1' + text("Gadgets::Part") + text(""));
  std::string const top = record(2, u32(0) + alone + text("o"));
  std::string const null(1, '\0');
  std::size_t const first = 6 + type.size() + part.size() + top.size();
  auto const owned = [](U32 owner, U32 attribute, std::string const& name, std::string const& peer) {
    return record(2, u32(1) + u32(owner) + u32(attribute) + text(name) + peer);
  };
  auto const log = [&](std::string const& entities, U32 count) { return logOf(type + part + top + entities, count); };
  std::string const a = owned(0, 2, "a", null);

  EXPECT_EQ(ptrCast<Owner>(readAttrLog(log(a, 2)))->parts("a")->name(), "a");
  badRecord(log(owned(1, 2, "a", null), 2), first + 9, "no entity #1 before this one");
  badRecord(log(owned(0, 0, "a", null), 2), first + 13, "attribute #0 of the owner owns no entities");
  badRecord(log(owned(0, 3, "a", null), 2), first + 13, "attribute #3 of the owner owns no entities");
  badRecord(log(record(2, u32(2)), 2), first + 5, "no entity type #2");
  badRecord(log(record(2, u32(1) + alone + text("p") + null), 2), first + 9, "Gadgets::Part needs an owner");
  badRecord(log(a, 3), first + a.size() + 5, "the log holds 2 entities, another number than it says");
  badRecord(log(owned(0, 2, "a", null + "x"), 2), first + 23, "bytes left over in the record");
  badEntity(log(a + a, 3), first + a.size(), "Gadgets::Owner::parts: 'a' is taken");
  badEntity(log(owned(0, 1, "a", null) + owned(0, 1, "b", null), 3), first + a.size(),
            "Gadgets::Owner::part: 'a' is taken");
  badEntity(log(record(2, u32(0) + u32(0) + u32(1) + text("p")), 2), first,
            "Gadgets::Owner::part: Entity is the wrong type: Gadgets::Owner 'p' does not belong there");
  badEntity(log(owned(0, 2, "a", '\1' + u32(2)), 2), first + 22, "entity #2 is not there");
  badEntity(log(owned(0, 2, "a", '\2' + text("/x")), 2), first + 22, "'/x' is not there");
  badEntity(log(owned(0, 2, "a", '\1' + u32(0)), 2), first + 22,
            "entity #0: Entity is the wrong type: Gadgets::Part expected, Gadgets::Owner given");
  badRecord(log(owned(0, 2, "a", "\3"), 2), first + 22, "unknown kind of reference 3");

  std::string const name = text("name") + '\x20' + text("Kel::String8") + text("");
  std::string const dirs =
      record(1, text("Kel::Dir") + '\3' + u32(2) + name +  //
                    text("entryState") + '\xa' + text("Kel::Dir::EntryState") + text("Kel::String8")) +
      record(1, text("Kel::Dir::EntryState") + '\3' + u32(2) + name +  //
                    text("typeName") + '\x20' + text("Kel::String8") + text("")) +
      part + record(2, u32(0) + alone + text("d")) +
      record(2, u32(1) + u32(0) + u32(1) + text("a") + text("Gadgets::Part"));
  std::string const child = record(2, u32(2) + u32(0) + u32(1) + text("a") + null);
  badEntity(logOf(dirs + child + child, 4), 6 + dirs.size() + child.size(), "Kel::Dir::entryState: 'a' is taken");

  std::string const bound = record(1, text("Gadgets::Bound") + '\3' + u32(3) +                       //
                                          text("name") + '\x20' + text("Kel::String8") + text("") +  //
                                          text("to") + '\x21' + text("Kel::Entity") + text("") +     //
                                          text("note") + '\x20' + text("Kel::String8") + text(""));
  badEntity(logOf(bound + record(2, u32(0) + alone + text("b") + '\1' + u32(0) + text("")), 1), 6 + bound.size(),
            "a constructor parameter leads back to its own entity");
  std::string const shape =
      record(1, text("Gadgets::Shape") + '\3' + u32(1) + text("name") + '\x20' + text("Kel::String8") + text(""));
  badEntity(logOf(shape + record(2, u32(0) + alone + text("s")), 1), 6 + shape.size(),
            "Gadgets::Shape: Entity is the wrong type: it cannot be created");
}

TEST(AttrLog, MembersOfQueuesThatCannotBeAreRefused) {
  std::string const types = record(1, text("Gadgets::Queues") + '\3' + u32(2) +                      //
                                          text("name") + '\x20' + text("Kel::String8") + text("") +  //
                                          text("plain") + '\xe' + text("Gadgets::Plain") + text("U64")) +
                            record(1, text("Gadgets::Plain") + '\3' + u32(0));
  std::string const top = record(2, u32(0) + alone + text("q") + u32(0) + u32(2));  // two were handed out
  auto const member = [](U32 number) { return record(2, u32(1) + u32(0) + u32(1) + u32(0) + u32(number)); };
  std::size_t const first = 6 + types.size() + top.size();
  auto const log = [&](std::string const& members, U32 count) { return logOf(types + top + members, 1 + count); };
  EXPECT_EQ(ptrCast<Queues>(readAttrLog(log(member(0) + member(1), 2)))->plains(), 2u);
  badEntity(log(member(1) + member(0), 2), first + member(1).size(), "linkqueue index out of range");
  badRecord(log(member(2), 1), first - 8, "Gadgets::Queues::plain: the next index does not follow the members'");
}

// What only the contents of collections can get wrong.
TEST(AttrLog, ContentsThatCannotBeAreRefused) {
  auto const onlyAttribute = [](std::string const& type, std::string const& described, std::string const& contents) {
    std::string const head = record(1, text("Gadgets::" + type) + '\3' + u32(2) +  //
                                           text("name") + '\x20' + text("Kel::String8") + text("") + described);
    return std::pair(logOf(head + record(2, u32(0) + alone + text("e") + contents), 1), 6 + head.size() + 5 + 8 + 5);
  };
  auto const is = [&](char const* type, std::string const& described, std::string const& contents, std::size_t offset,
                      char const* what) {
    auto const [log, start] = onlyAttribute(type, described, contents);
    badRecord(log, start + offset, what);
  };
  std::string const byText = text("byText") + '\4' + text("U32") + text("Kel::String8");
  is("Maps", byText, u32(2) + text("k") + u32(1) + text("k") + u32(2), 13, "Gadgets::Maps::byText: 'k' is there twice");
  is("Maps", byText, u32(0xffffffff) + text("k") + u32(1), 13, "4 bytes expected, 0 left");
  is("Maps", byText, u32(1) + u32(0x7fffffff) + "k", 8, "2147483647 bytes expected, 1 left");
  std::string const byBool = text("byBool") + '\4' + text("Kel::String8") + text("bool");
  is("Maps", byBool, u32(1) + "\2", 4, "a boolean is 0 or 1, not 2");
  std::string const tiny = text("tiny") + '\xc' + text("Kel::String8") + text("U8");
  std::string const zero(7, '\0');
  auto const member = [&](char sequence) { return zero + sequence + text("x"); };
  is("Queues", tiny, u32(2) + member(2) + member(2), 17, "Gadgets::Queues::tiny: the indices do not ascend");
  is("Queues", tiny, u32(1) + member(2) + zero + '\2', 17,
     "Gadgets::Queues::tiny: the next index does not follow the members'");
  std::string const byName = text("byName") + '\5' + text("Gadgets::Part") + text("Kel::String8");
  is("Pointers", byName, u32(1) + text("k") + '\0', 9, "Gadgets::Pointers::byName: a null member");

  std::string const color = record(1, text("Gadgets::Color") + '\1' + u32(0));
  std::string const colored = record(1, text("Gadgets::Colored") + '\3' + u32(1) +  //
                                            text("color") + '\x20' + text("Gadgets::Color") + text(""));
  badRecord(logOf(color + colored + record(2, u32(1) + alone + u32(3)), 1), 6 + color.size() + colored.size() + 13,
            "Gadgets::Color has no enumerator 3");
}

// A chain of entities in each other, as deep as one likes.
TEST(AttrLog, DepthCostsNoStack) {
  auto const top = dirFactory("0");
  Dir* at = top.ptr();
  for (int depth = 1; depth < 50000; ++depth) at = new Dir("d", at);
  std::string const log = writeAttrLog(*top);
  EXPECT_EQ(writeAttrLog(*readAttrLog(log)), log);
}

}  // namespace
