// Strings and handles. That threads may share them is the thread tests'.
#include <unordered_set>

#include "Support.h"

namespace Gadgets {
namespace {

TEST(String8, CopiesShareTheirBytes) {
  String8 const a("some text");
  String8 const b = a;
  String8 c("other");
  c = b;
  EXPECT_TRUE(a.sharesBytes(c));
  EXPECT_EQ(a.charPtr(), c.charPtr());
  EXPECT_FALSE(a.sharesBytes(String8("some text")));
  EXPECT_TRUE(String8().sharesBytes(String8("")));
  EXPECT_TRUE(a.sharesBytes(a.substr(0)));
  EXPECT_TRUE(a.sharesBytes(a + ""));
}

TEST(String8, BehavesAsStandardStrings) {
  Random random(1);
  for (int i = 0; i < 3000; ++i) {
    String8 const a = random.of<String8>(), b = random.once(2) ? random.of<String8>() : String8(a.str());
    std::string const s = a.str(), t = b.str();
    EXPECT_EQ(a == b, s == t);
    EXPECT_EQ(a < b, s < t);
    EXPECT_EQ(a >= b, s >= t);
    EXPECT_EQ((a + b).str(), s + t);
    String8 sum = a;
    sum += b;
    EXPECT_EQ(sum, a + b);
    EXPECT_EQ(String8::concatForLog({a, "/", b, "", a}).str(), s + "/" + t + s);
    EXPECT_EQ(String8::concatForLog({a, b}), sum);
    if (a == b) {
      EXPECT_EQ(a.hash(), b.hash());
    }
    EXPECT_EQ(a.hash(), keyHash(a.view()));
    EXPECT_NE(a.hash(), 0u);
    S64 const from = static_cast<S64>(random.below(20)) - 3;
    std::size_t const at = s.find(t.substr(0, 1), static_cast<std::size_t>(std::max<S64>(from, 0)));
    EXPECT_EQ(a.pos(t.substr(0, 1), from), at == std::string::npos ? String8::npos : static_cast<S64>(at));
  }
}

TEST(String8, DiffersInAnyOneByte) {
  for (std::size_t size = 1; size < 80; ++size) {
    std::string const text(size, 'a');
    EXPECT_EQ(String8(text), String8(text));
    EXPECT_FALSE(String8(text) == String8(text + 'a'));
    for (std::size_t at = 0; at < size; ++at) {
      std::string other = text;
      other[at] = 'b';
      EXPECT_FALSE(String8(text) == String8(other)) << at << " of " << size;
    }
  }
}

TEST(String8, SubstrClampsBothEnds) {
  String8 const s("abc");
  EXPECT_EQ(s.substr(1), "bc");
  EXPECT_EQ(s.substr(1, 1), "b");
  EXPECT_EQ(s.substr(3), "");
  EXPECT_EQ(s.substr(std::numeric_limits<S64>::max()), "");
  EXPECT_EQ(s.substr(std::numeric_limits<S64>::min(), 2), "ab");
  EXPECT_EQ(s.substr(0, std::numeric_limits<unsigned>::max()), "abc");
  EXPECT_EQ(s.substr(2, 0), "");
  EXPECT_EQ(String8().substr(1, 1), "");
}

TEST(String8, MayBecomeAPartOfItself) {
  String8 s("abcdef");
  s.init(s.charPtr(), 2, 3);
  EXPECT_EQ(s, "cde");
  String8 const& same = s;
  s = same;
  s += same;
  EXPECT_EQ(s, "cdecde");
  String8 moved = std::move(s);
  EXPECT_EQ(moved, "cdecde");
}

TEST(String8, HashesSpread) {
  for (char const* rest : {"", " of the second line card"}) {
    std::unordered_set<U32> hashes;
    for (int i = 0; i < 50000; ++i) hashes.insert(String8("Ethernet" + std::to_string(i) + rest).hash());
    EXPECT_GT(hashes.size(), 49990u);
  }
}

// --- Handles ---

struct Tracked : VFPtrInterface {
  explicit Tracked(int& n) : alive(n) { ++alive; }
  ~Tracked() override { --alive; }
  int& alive;
};
struct Derived : Tracked {
  using Tracked::Tracked;
};

TEST(Ptr, TheLastHandleDestroys) {
  int alive = 0;
  {
    Ptr<Derived> a(new Derived(alive));
    Ptr<Tracked const> b = a;
    EXPECT_EQ(a->refs(), 2u);
    Ptr<Tracked> c = std::move(a);
    EXPECT_EQ(a, nullptr);
    EXPECT_EQ(b->refs(), 2u);
    Ptr<Tracked> const& same = c;
    c = same;
    c = nullptr;
    EXPECT_EQ(alive, 1);
    EXPECT_TRUE(ptrCast<Derived const>(b));
    EXPECT_FALSE(ptrCast<Part const>(Entity::PtrConst(partFactory("p"))) == nullptr);
    EXPECT_FALSE(ptrCast<Plain>(Entity::Ptr(partFactory("p"))));
  }
  EXPECT_EQ(alive, 0);
}

TEST(Ptr, NondestructingObjectsOutliveTheirHandles) {
  int alive = 0;
  Tracked held(alive);
  held.isNondestructingIs(true);
  { Ptr<Tracked> const handle(&held); }
  EXPECT_EQ(alive, 1);
}

TEST(Ptr, ValidPtrIsNeverNull) {
  int alive = 0;
  ValidPtr<Tracked> const valid = validPtr(Ptr<Tracked>(new Tracked(alive)));
  EXPECT_EQ(valid->alive, 1);
  EXPECT_EQ(messageOf<RangeException>([] { validPtr(Ptr<Tracked>()); }), "null ValidPtr");
}

}  // namespace
}  // namespace Gadgets
