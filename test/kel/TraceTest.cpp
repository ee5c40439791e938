// Traces, exceptions and assertions.
#include <sstream>

#define KEL_SOURCE_NAME "some/where/Module.x.cpp"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("TraceTest")

#include "Support.h"

namespace Gadgets {
namespace {

class Traces : public testing::Test {
 protected:
  Traces() {
    previous_ = traceSinkIs([this](TraceRecord const& r) {
      lines.push_back(std::string(r.handle) + "/" + std::to_string(r.level) + " " + std::string(r.module) + " " +
                      std::string(r.function) + ": " + std::string(r.message));
      lastLine = r.line;
    });
  }
  ~Traces() override {
    coverageStreamIs(nullptr);
    kelTraceHandle().levelsIs(0);
    TraceHandle::settingsIs("");
    traceSinkIs(previous_);
  }
  std::vector<std::string> lines;
  int lastLine = 0;

 private:
  TraceSink previous_;
};

TEST_F(Traces, EvaluateNothingWhenTheirLevelIsOff) {
  int evaluated = 0;
  auto count = [&] { return ++evaluated; };
  for (int level = 0; level <= 9; ++level) KEL_TRACE(level) << count();
  EXPECT_EQ(evaluated, 0);
  EXPECT_FALSE(kelTraceHandle().any());
  kelTraceHandle().levelsIs(1u << 3 | 1u << 9);
  for (int level = 0; level <= 9; ++level) KEL_TRACE(level) << count();
  EXPECT_EQ(evaluated, 2);
  EXPECT_EQ(lines.size(), 2u);
  if (evaluated == 0)
    KEL_TRACE(3) << "not a dangling else";
  else
    EXPECT_EQ(lines.size(), 2u);
}

TEST_F(Traces, CarryWhereTheyComeFrom) {
  kelTraceHandle().levelsIs(TraceHandle::allLevels);
  int const line = __LINE__ + 1;
  KEL_TRACE(7) << "message " << 1;
  EXPECT_EQ(lines, std::vector<std::string>{"TraceTest/7 Module.x TestBody: message 1"});
  EXPECT_EQ(lastLine, line);
}

TEST_F(Traces, GoToTheCoverageStreamWhateverTheirLevel) {
  std::ostringstream coverage;
  coverageStreamIs(&coverage);
  TraceHandle& late = TraceHandle::get("LateHandle");
  EXPECT_TRUE(late.enabled(9) && kelTraceHandle().enabled(0));
  EXPECT_EQ(late.levels(), 0);
  KEL_TRACE(5) << "covered";
  EXPECT_TRUE(lines.empty());
  EXPECT_NE(coverage.str().find("TraceTest/5"), std::string::npos);
  EXPECT_NE(coverage.str().find(": covered\n"), std::string::npos);
  coverageStreamIs(nullptr);
  EXPECT_FALSE(late.any());
}

TEST_F(Traces, AreSwitchedByNameAndLevel) {
  auto levels = [](char const* settings) {
    kelTraceHandle().levelsIs(0);
    TraceHandle::settingsIs(settings);
    return kelTraceHandle().levels();
  };
  EXPECT_EQ(levels("TraceTest"), 0x3ff);
  EXPECT_EQ(levels("TraceTest/3"), 1 << 3);
  EXPECT_EQ(levels("TraceTest/0-4"), 0x1f);
  EXPECT_EQ(levels("TraceTest/7-"), 0x380);
  EXPECT_EQ(levels("TraceTest/-2"), 7);
  EXPECT_EQ(levels("Trace*/8"), 1 << 8);
  EXPECT_EQ(levels("*/1"), 2);
  EXPECT_EQ(levels("Other,TraceTest/0,,"), 1);
  EXPECT_EQ(levels("TraceTest/5,TraceTest/6"), 1 << 6);
  EXPECT_EQ(levels("Trace,traceTest,TraceTest2,"), 0);
  EXPECT_EQ(levels(""), 0);
  TraceHandle::settingsIs("ComingHandle/2");
  EXPECT_EQ(TraceHandle::get("ComingHandle").levels(), 4);
}

TEST_F(Traces, HandlesOfOneNameAreOne) {
  EXPECT_EQ(&TraceHandle::get("TraceTest"), &kelTraceHandle());
  {
    TraceHandle own("Own", true);
    EXPECT_EQ(own.levels(), TraceHandle::allLevels);
    TraceHandle::settingsIs("Own/1");
    EXPECT_EQ(own.levels(), 2);
  }
  TraceHandle::settingsIs("Own/2");  // the handle is gone
}

// --- Exceptions ---

TEST_F(Traces, ReportExceptionsThatNobodyExpects) {
  TraceHandle& handle = TraceHandle::get("Exception");
  handle.levelsIs(2);
  EXPECT_THROW(throwRangeException("loud"), RangeException);
  EXPECT_EQ(lines.size(), 1u);
  EXPECT_NE(lines.front().find("loud"), std::string::npos);
  {
    Expect outer(Exception::rangeId);
    { Expect inner(Exception::rangeId); }
    try {
      throwRangeException("quiet");
    } catch (RangeException const& e) {
      EXPECT_TRUE(e.expected());
    }
    EXPECT_EQ(lines.size(), 1u);
    EXPECT_THROW(throwNameInUseException("another"), NameInUseException);
    EXPECT_EQ(lines.size(), 2u);
  }
  EXPECT_FALSE(RangeException("after").expected());
  handle.levelsIs(0);
}

TEST(Exceptions, AreOfOneFamilyAndCarryTheirIds) {
  EXPECT_EQ(Exception("m").ids(), Exception::IdBitArray().set(Exception::generalId));
  EXPECT_EQ(Exception("m", Exception::IdBitArray(6)).ids().count(), 2u);
  std::set<std::string> ids;
  auto check = [&ids](auto const& e) {
    Exception const& base = e;
    EXPECT_EQ(base.message(), "m");
    EXPECT_STREQ(base.what(), "m");
    EXPECT_EQ(base.ids().count(), 1u);
    EXPECT_TRUE(ids.insert(base.ids().to_string()).second);
  };
  check(InternalException("m")), check(RangeException("m")), check(UnknownAttrException("m"));
  check(TypeException("m")), check(NoImplementationException("m")), check(NameInUseException("m"));
  check(AttrLogEntityException("m")), check(AttrLogRecordException("m")), check(EntityIdUnavailableException("m"));
  check(ConstException("m")), check(UnknownArgException("m")), check(BadIndexAttrException("m"));
  check(OpNotSupportedException("m"));
  EXPECT_EQ(messageOf<InternalException>([] { throwInternalException("broken"); }), "broken");
  EXPECT_EQ(messageOf<NoImplementationException>([] { throwNoImplementationException("f()"); }), "f()");
}

// --- Assertions ---

void needs(int* pointer) { KEL_ASSERT(pointer); }
void needsText() { KEL_ASSERT_TEXT(1 + 1 == 3, "0 && \"Need more\""); }

TEST(AssertDeathTest, SaysWhereAndWhat) {
  int some = 0;
  needs(&some);
  EXPECT_DEATH(needs(nullptr), "^Module\\.x:[0-9]+: void .*needs\\(int ?\\*\\): Assertion 'pointer' failed\\.\n");
  EXPECT_DEATH(needsText(), "Assertion '0 && \"Need more\"' failed\\.");
  EXPECT_DEATH(Part::Ptr()->peer(), "Ptr.*Gadgets::Part.*Assertion 'null handle' failed\\.");
}

}  // namespace
}  // namespace Gadgets
