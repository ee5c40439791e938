// Reactors: when they are called, in which order, and what they may do meanwhile.
#include <functional>

#include "Support.h"

namespace Gadgets {
namespace {

// Does what it is told to when `text`, `u8` or `u32` changes.
struct Reactor : Values::Notifiee {
  Reactor(std::string name, std::string& log) : name_(std::move(name)), log_(log) {}
  void onText() override { run("text"); }
  void onU8() override { run("u8"); }
  void onU32() override { run("u32"); }
  void run(std::string const& what) {
    log_ += name_ + ":" + what + ";";
    if (act) act(what);
  }
  std::function<void(std::string const&)> act;

 private:
  std::string name_;
  std::string& log_;
};

class Reactors : public testing::Test {
 protected:
  Ptr<Reactor> add(char const* name) {
    Ptr<Reactor> const made(new Reactor(name, log));
    made->notifierIs(values);
    return made;
  }
  std::string take() { return std::exchange(log, ""); }

  std::string log;
  Values::Ptr values = valuesFactory("v", 1);
};

TEST_F(Reactors, AreCalledAfterTheChangeInTheOrderOfBinding) {
  auto const a = add("a"), b = add("b"), c = add("c");
  a->act = [&](std::string const&) { EXPECT_EQ(values->text(), "new"); };
  b->notifierIs(nullptr);
  b->notifierIs(values);
  a->notifierIs(values);  // it is bound already
  values->textIs("new");
  EXPECT_EQ(take(), "a:text;c:text;b:text;");
}

// That they hear of changes only is a law of the doors.
TEST_F(Reactors, HearOfNotificationsAndIncrements) {
  auto const a = add("a");
  values->textNotify();
  boxed(values)->attributeOp(AttributeOp::notify, Values::textAttr);
  EXPECT_EQ(take(), "a:text;a:text;");
  values->u8Inc();
  boxed(values)->attributeOp(AttributeOp::increment, Values::u8Attr);
  EXPECT_EQ(take(), "a:u8;a:u8;");
  EXPECT_EQ(values->u8(), 2);
}

TEST_F(Reactors, AreRefusedWhileActiveAndTheValueIsStored) {
  auto const a = add("a"), b = add("b");
  a->act = [&](std::string const& what) {
    if (what != "text") return;
    EXPECT_EQ(messageOf<InternalException>([&] { values->textIs("inner"); }), "entity reactor is already active");
    EXPECT_THROW(values->textNotify(), InternalException);
    values->u8Is(9);  // another attribute
  };
  values->textIs("outer");
  EXPECT_EQ(values->text(), "inner");
  EXPECT_EQ(take(), "a:text;a:u8;b:u8;b:text;");

  a->act = [&](std::string const&) { values->textIs("again"); };
  EXPECT_THROW(values->textIs("once more"), InternalException);
  EXPECT_EQ(values->text(), "again");
  a->act = nullptr;
  values->textIs("fine");
  EXPECT_EQ(values->text(), "fine");
}

TEST_F(Reactors, MayGoInCircles) {
  auto const a = add("a");
  a->act = [&](std::string const& what) { what == "text" ? values->u8Inc() : values->textIs("circle"); };
  EXPECT_THROW(values->textIs("start"), InternalException);
  EXPECT_EQ(values->text(), "circle");
  EXPECT_EQ(values->u8(), 1);
}

TEST_F(Reactors, MayBindUnbindAndDieWhileRunning) {
  auto a = add("a"), b = add("b"), c = add("c");
  Ptr<Reactor> late(new Reactor("late", log));
  a->act = [&](std::string const& what) {
    if (what != "text") return;
    b = nullptr;               // destroyed before its turn
    c->notifierIs(nullptr);    // unbound before its turn
    late->notifierIs(values);  // bound too late for this change
    c->notifierIs(values);     // as a new one
    values->u8Inc();           // another change
    Reactor const& self = *a;
    a = nullptr;  // itself, while it runs
    EXPECT_EQ(self.refs(), 1u);
  };
  values->textIs("1");
  EXPECT_EQ(take(), "a:text;a:u8;late:u8;c:u8;");
  values->textIs("2");
  EXPECT_EQ(take(), "late:text;c:text;");
  late->notifierIs(nullptr);
  c->notifierIs(nullptr);
  EXPECT_FALSE(values->hasReactors());
}

TEST_F(Reactors, MayLetGoOfTheirNotifier) {
  auto const a = add("a"), b = add("b");
  Values* const raw = values.ptr();
  a->act = [&](std::string const&) {
    b->notifierIs(nullptr);
    a->notifierIs(nullptr);
    values = nullptr;
  };
  raw->textIs("last");
  EXPECT_EQ(take(), "a:text;");
}

TEST_F(Reactors, KeepTheirNotifierAlive) {
  auto const a = add("a");
  Values* const raw = values.ptr();
  values = nullptr;
  EXPECT_EQ(raw->refs(), 1u);
  EXPECT_EQ(a->notifier().ptr(), raw);
  a->notifierIs(valuesFactory("other", 1));
  EXPECT_EQ(a->notifier()->name(), "other");
}

TEST_F(Reactors, ThrowingOnesLeaveTheRestUsable) {
  auto const a = add("a"), b = add("b");
  a->act = [](std::string const&) { throwRangeException("no"); };
  EXPECT_THROW(values->textIs("1"), RangeException);
  EXPECT_EQ(values->text(), "1");
  a->notifierIs(nullptr);
  take();
  values->textIs("2");
  EXPECT_EQ(take(), "b:text;");
}

TEST(ReactorKeys, AreThoseOfTheChangedMember) {
  struct Keys : Maps::Notifiee {
    void onByText(Kel::String const& key) override { log += key.str() + ";"; }
    void onByPoint(Point const& key) override { log += std::to_string(key.x()) + ";"; }
    void onByField(Kel::String const& key) override { log += "field " + key.str() + ";"; }
    std::string log;
  };
  Maps::Ptr const maps = mapsFactory("m");
  Ptr<Keys> const keys(new Keys);
  keys->notifierIs(maps);
  maps->byTextIs("a", 1);
  maps->byTextIs("a", 1);
  maps->byTextIs("a", 2);
  maps->byTextDel("none");
  maps->byPointIs(Point(7, 0), Segment());
  maps->byPointDel(maps->byPointIterator().key());  // a key that goes with its member
  maps->byFieldIs(Segment(Point(), Color::red, "f"));
  maps->byTextIs("b", 1);
  boxed(maps)->attributeOp(AttributeOp::deleteAll, Maps::byTextAttr);
  maps->byTextNotify("z");
  EXPECT_EQ(keys->log, "a;a;7;7;field f;b;a;b;z;");
  EXPECT_EQ(maps->writes(), 2u);  // onChange
}

TEST(ReactorKeys, DeletingAllWhileMembersComeEnds) {
  struct Adder : Maps::Notifiee {
    void onByText(Kel::String const& key) override {
      if (notifier()->byTexts() < 3 && key == "x")
        boxed(notifier())->attributeIs(Maps::byTextOrderedAttr, GenericIf::of(key), GenericIf::of(key));
    }
  };
  Maps::Ptr const maps = mapsFactory("m");
  Ptr<Adder> const adder(new Adder);
  for (char const* key : {"x", "y", "z"}) maps->byTextIs(key, 1);
  adder->notifierIs(maps);
  maps->byTextDelAll();
  EXPECT_EQ(maps->byTexts(), 0u);
  EXPECT_EQ(maps->byTextOrdered("x"), "x");
}

TEST(ReactorTypes, DerivedReactorsHearOfInheritedAttributes) {
  struct More : MoreValues::Notifiee {
    void onText() override { log += "text;"; }
    void onFurther() override { log += "further;"; }
    void onPart() override { log += "part;"; }
    std::string log;
  };
  struct MoreConst : MoreValues::NotifieeConst {
    void onText() override { log += "text;"; }
    std::string log;
  };
  MoreValues::Ptr const values = moreValuesFactory("v", 1, "e");
  Ptr<More> const more(new More);
  Ptr<MoreConst> const moreConst(new MoreConst);
  more->notifierIs(values);
  moreConst->notifierIs(values);
  values->textIs("x");
  values->furtherIs(1);
  values->newPart("p");
  values->partIs("p");
  values->partIs("q");
  values->partDel();
  values->partDel();
  EXPECT_EQ(more->log, "text;further;part;part;part;");
  EXPECT_EQ(moreConst->log, "text;");
}

}  // namespace
}  // namespace Gadgets
