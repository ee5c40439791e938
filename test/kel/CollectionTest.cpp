// Collections against the standard containers, under operations at random.
#include <deque>
#include <map>
#include <set>

#include "Support.h"

namespace Gadgets {
namespace {

template <class M>
class AnyMap : public testing::Test {
 public:
  using K = typename M::key_type;
  using V = typename M::mapped_type;

  void expectSame() const {
    ASSERT_EQ(map.members(), model.size());
    ASSERT_EQ(map.empty(), model.empty());
    std::set<K, KeyLess> walked;
    for (auto it = map.iterator(); it; ++it) {
      ASSERT_TRUE(walked.insert(it.key()).second);
      ASSERT_TRUE(model.count(it.key()) && model.at(it.key()) == it.value());
    }
    ASSERT_EQ(walked.size(), model.size());
  }
  // One change of both.
  void change() {
    K const k = key();
    if (random.below(100) < 55) {
      V const v = random.of<V>();
      auto const found = model.find(k);
      bool const changes = found == model.end() || !(found->second == v);
      EXPECT_EQ(map.set(k, v), changes);
      model[k] = v;
    } else {
      erase(k);
    }
  }
  void erase(K const& k) {
    EXPECT_EQ(map.erase(k), model.erase(k) == 1);
    stayed.erase(k);
  }
  K key() {
    if constexpr (std::is_same_v<K, String8>)
      return "key " + std::to_string(random.below(range));
    else if constexpr (std::is_same_v<K, Point>)
      return Point(static_cast<S32>(random.below(range)), 1);
    else
      return static_cast<K>(random.below(range)) - K(10);
  }

  Random random{7};
  unsigned range = 200;
  M map;
  std::map<K, V, KeyLess> model;
  std::set<K, KeyLess> stayed;  // what was there from the start of a walk on
};

using Maps_ = testing::Types<HashMap<String8, String8>, HashMap<U32, U64>, HashMap<Point, Segment>, HashMap<S8, F64>,
                             RbTreeMap<String8, U32>, RbTreeMap<S16, Point>, RbTreeMap<Point, String8>>;
TYPED_TEST_SUITE(AnyMap, Maps_);

TYPED_TEST(AnyMap, AgreesWithStdMap) {
  for (unsigned keys : {3u, 12u, 200u}) {
    this->range = keys;
    for (int i = 0; i < 4000; ++i) {
      this->change();
      auto const k = this->key();
      auto const found = this->model.find(k);
      auto const* v = this->map.find(k);
      ASSERT_EQ(v != nullptr, found != this->model.end());
      ASSERT_TRUE(!v || *v == found->second);
      if (i % 97 == 0) this->expectSame();
      if (this->random.once(2000)) {
        this->map.clear();
        this->model.clear();
      }
    }
    this->expectSame();
  }
}

// Whatever happens while an iterator walks: it visits nothing twice, no member that is not there, and every member that
// was there from beginning to end.
TYPED_TEST(AnyMap, IteratorsSurviveChanges) {
  for (int round = 0; round < 200; ++round) {
    for (int i = 0; i < 40; ++i) this->change();
    std::set<typename TypeParam::key_type, KeyLess> walked;
    for (auto const& [k, v] : this->model) this->stayed.insert(k);
    for (auto it = this->map.iterator(); it; ++it) {
      auto const k = it.key();
      ASSERT_TRUE(this->model.count(k));
      ASSERT_TRUE(walked.insert(k).second || !this->stayed.count(k));
      auto const copy = it;
      if (this->random.once(3)) {
        this->erase(k);
        ASSERT_FALSE(it);
        ASSERT_FALSE(copy);
      }
      if (walked.size() < 400)
        for (unsigned n = this->random.below(3); n > 0; --n) this->change();
    }
    for (auto const& k : this->stayed) ASSERT_TRUE(walked.count(k));
    this->stayed.clear();
  }
  this->expectSame();
}

TYPED_TEST(AnyMap, IteratorAtAMissingKeyIsOnNoMember) {
  for (int i = 0; i < 300; ++i) {
    this->change();
    auto const k = this->key();
    auto it = this->map.iterator(k);
    ASSERT_EQ(static_cast<bool>(it), this->model.count(k) == 1);
    if (!it) {
      ++it;
      ASSERT_FALSE(it);
    }
  }
}

// The value, or the key, that is set may be one of the map's own members; growth must not pull it away.
TYPED_TEST(AnyMap, MembersMayBeSetFromMembers) {
  this->map.set(this->key(), this->random.template of<typename TypeParam::mapped_type>());
  auto const first = this->map.iterator();
  auto const value = first.value();
  for (int i = 0; i < 200; ++i) {
    auto const k = this->key();
    if (k == first.key()) continue;
    this->map.set(k, first.value());
    ASSERT_TRUE(*this->map.find(k) == value);
  }
}

TEST(HashMap, WalksInTheOrderOfInsertion) {
  HashMap<U32, U32> map;
  for (U32 i = 0; i < 1000; ++i) map.set(i * 7919 % 1000, i);
  U32 at = 0;
  for (auto it = map.iterator(); it; ++it) EXPECT_EQ(it.value(), at++);
  for (U32 i = 0; i < 1000; i += 2) map.erase(i * 7919 % 1000);
  U32 last = 0;
  for (auto it = map.iterator(); it; ++it) {
    EXPECT_EQ(it.value() % 2, 1u);
    EXPECT_TRUE(last == 0 || it.value() > last);
    last = it.value();
  }
  auto it = map.iterator();
  map.clear();
  map.set(1, 1);
  EXPECT_FALSE(it) << "on a member that came later";
  EXPECT_TRUE(++it);
}

// Keys that all have the same hash, and keys whose hash says nothing.
struct Clash {
  U32 n;
  U32 hash() const { return n % 2; }
  bool operator==(Clash const& o) const { return n == o.n; }
};

TEST(HashMap, KeepsKeysApartThatHashAlike) {
  HashMap<Clash, U32> map;
  for (U32 i = 0; i < 300; ++i) map.set({i}, i);
  for (U32 i = 0; i < 300; i += 3) EXPECT_TRUE(map.erase({i}));
  for (U32 i = 0; i < 300; ++i) EXPECT_EQ(map.find(Clash{i}) != nullptr, i % 3 != 0);
}

TEST(HashMap, MemoryStaysBoundedUnderChurn) {
  HashMap<U32, U32> map;
  for (U32 i = 0; i < 200000; ++i) {
    map.set(i, i);
    if (i >= 10) map.erase(i - 10);
  }
  EXPECT_LT(map.slotEnd(), 64u);
}

struct Throwing {
  explicit Throwing(int n) : id(n) {}
  Throwing(Throwing const& o) : id(o.id) {
    if (armed) throw 1;
  }
  Throwing(Throwing&&) noexcept = default;
  Throwing& operator=(Throwing const&) = default;
  int id;
  static inline bool armed = false;
};

TEST(HashMap, AFailedInsertionChangesNothing) {
  HashMap<U32, Throwing> map;
  for (U32 i = 0; i < 20; ++i) {
    Throwing::armed = true;
    EXPECT_THROW(map.set(i, Throwing(1)), int);
    Throwing::armed = false;
    EXPECT_EQ(map.members(), i);
    EXPECT_EQ(map.find(i), nullptr);
    map.set(i, Throwing(static_cast<int>(i)));
  }
}

// A NaN equals nothing, but as a key it can be found, replaced and deleted like another.
template <class M>
void expectNanIsAKey() {
  F64 const nan = std::numeric_limits<F64>::quiet_NaN();
  M map;
  for (U32 i = 0; i < 20; ++i) map.set(i, i);
  map.set(nan, 100);
  map.set(-nan, 101);
  EXPECT_EQ(map.members(), 21u);
  for (U32 i = 0; i < 20; ++i) EXPECT_EQ(*map.find(F64(i)), i);
  EXPECT_EQ(*map.find(nan), 101u);
  EXPECT_TRUE(map.erase(nan));
  EXPECT_EQ(map.find(nan), nullptr);
}
TEST(HashMap, NanIsAKey) { expectNanIsAKey<HashMap<F64, U32>>(); }
TEST(RbTreeMap, NanIsAKey) { expectNanIsAKey<RbTreeMap<F64, U32>>(); }

TEST(RbTreeMap, WalksInKeyOrder) {
  RbTreeMap<String8, U32> map;
  for (char const* key : {"b", "\xff", "", "ab", "a", "a/"}) map.set(key, 1);
  std::string order;
  for (auto it = map.iterator(); it; ++it) order += it.key().str() + ";";
  EXPECT_EQ(order, ";a;a/;ab;b;\xff;");
}

// --- Queues ---

template <class Q>
class AnyQueue : public testing::Test {};
using Queues_ = testing::Types<LinkQueue<String8, U8>, LinkQueue<String8, S8>, LinkQueue<String8, U16>,
                               LinkQueue<String8>, LinkQueue<String8, S64>>;
TYPED_TEST_SUITE(AnyQueue, Queues_);

// Far enough for a small index to wrap round many times.
TYPED_TEST(AnyQueue, AgreesWithStdDeque) {
  using I = typename TypeParam::key_type;
  Random random(3);
  TypeParam queue;
  std::deque<std::pair<I, String8>> model;
  for (int i = 0; i < 20000; ++i) {
    if (model.size() < 100 && random.below(100) < 55) {
      String8 const v = std::to_string(i);
      model.emplace_back(queue.enq(v), v);
    } else if (random.once(2) && !model.empty()) {
      ASSERT_EQ(queue.deq(), model.front().second);
      model.pop_front();
    } else if (!model.empty()) {
      auto const at = model.begin() + random.below(static_cast<unsigned>(model.size()));
      ASSERT_EQ(queue.get(at->first), at->second);
      ASSERT_TRUE(queue.erase(at->first));
      ASSERT_FALSE(queue.erase(at->first));
      model.erase(at);
    }
    if (!model.empty()) {
      Kel::U32 const position = random.below(static_cast<unsigned>(model.size()));
      ASSERT_EQ(queue.iteratorAt(position).key(), model[position].first);
      ASSERT_EQ(queue.positionOf(model[position].first), position);
    }
    ASSERT_FALSE(queue.iteratorAt(static_cast<Kel::U32>(model.size())));
    if (i % 50 != 0) continue;
    auto it = queue.iterator();
    for (auto const& [index, v] : model) {
      ASSERT_TRUE(it);
      ASSERT_EQ(it.key(), index);
      ASSERT_EQ(it.value(), v);
      ++it;
    }
    ASSERT_FALSE(it);
  }
}

// Members that stay while the index wraps round again and again keep their index, their place and their way to be
// found.
TYPED_TEST(AnyQueue, PassesOverTheIndicesOfMembersThatStay) {
  using I = typename TypeParam::key_type;
  Random random(9);
  TypeParam queue;
  std::vector<std::pair<I, String8>> model;
  for (int i = 0; i < 70000; ++i) {
    String8 const v = std::to_string(i);
    I const next = queue.nextIndex();
    ASSERT_EQ(queue.find(next), nullptr);
    ASSERT_EQ(queue.enq(v), next);
    model.emplace_back(next, v);
    if (model.size() < 10 || (model.size() < 200 && random.once(2))) continue;
    // The oldest ones stay.
    auto const at = model.begin() + 2 + random.below(static_cast<unsigned>(model.size()) - 2);
    ASSERT_EQ(queue.take(at->first), at->second);
    model.erase(at);
    if (!random.once(99)) continue;
    auto it = queue.iterator();
    for (auto const& [index, value] : model) {
      ASSERT_TRUE(it && it.key() == index && it.value() == value);
      ASSERT_EQ(queue.get(index), value);
      ++it;
    }
    ASSERT_FALSE(it);
  }
}

template <class I>
void expectFullAt256() {
  LinkQueue<U32, I> queue;
  for (U32 i = 0; i < 1000; ++i) {
    queue.enq(i);
    if (i >= 3) queue.deq();
  }
  std::set<I> used;
  for (auto it = queue.iterator(); it; ++it) used.insert(it.key());
  while (queue.members() < 256) EXPECT_TRUE(used.insert(queue.enq(0)).second);
  EXPECT_EQ(messageOf<RangeException>([&] { queue.enq(0); }), "linkqueue index space full");
  EXPECT_EQ(queue.members(), 256u);
  // The one index that is free is found wherever it is.
  for (I free : {I(7), I(7), I(8), I(6)}) {
    EXPECT_TRUE(queue.erase(free));
    EXPECT_EQ(queue.enq(1), free);
  }
  EXPECT_EQ(messageOf<RangeException>([&] { queue.nextIndex(); }), "linkqueue index space full");
  EXPECT_TRUE(queue.erase(I(20)) && queue.erase(I(3)));
  EXPECT_EQ(queue.enq(1), I(20)) << "the next one after the last given";
}
TEST(LinkQueue, UsesTheWholeIndexSpace) {
  expectFullAt256<U8>();
  expectFullAt256<S8>();
}

TEST(LinkQueue, RefusesIndicesWithoutAMember) {
  LinkQueue<U32, U8> queue;
  EXPECT_EQ(messageOf<RangeException>([&] { queue.deq(); }), "linkqueue index out of range");
  queue.enq(1);
  EXPECT_EQ(messageOf<RangeException>([&] { queue.get(1); }), "linkqueue index out of range");
  EXPECT_EQ(messageOf<RangeException>([&] { queue.take(255); }), "linkqueue index out of range");
  EXPECT_EQ(queue.find(9), nullptr);
}

TEST(LinkQueue, DeletionUnderAnIteratorLeavesItReady) {
  LinkQueue<U32, U8> queue;
  for (U32 i = 0; i < 6; ++i) queue.enq(i);
  std::string walked;
  for (auto it = queue.iterator(); it; ++it) {
    walked += std::to_string(it.value());
    if (it.value() % 2 == 0) queue.erase(it.key());
    if (queue.members() < 5 && walked.size() < 6) queue.enq(9);
  }
  EXPECT_EQ(walked, "01234599");
}

// --- Const owners ---

template <class Iterator, class Member>
constexpr bool handsOut = std::is_same_v<decltype(&**std::declval<Iterator const&>()), Member*>;
static_assert(handsOut<Queues::QueuedIterator, Queued> && handsOut<Queues::QueuedIteratorConst, Queued const>);
template <class Iterator, class Member>
constexpr bool leadsTo = std::is_same_v<decltype(&*std::declval<Iterator const&>()), Member*>;
static_assert(leadsTo<Owner::PartsIterator, Part> && leadsTo<Owner::PartsIteratorConst, Part const>);
static_assert(leadsTo<Owner::PartsOrderedIteratorConst, Part const>);

TEST(LinkQueue, IteratorsOfConstQueuesWalkTheSameMembers) {
  auto const queues = queuesFactory("queues");
  for (char const* label : {"a", "b", "c"}) queues->queuedEnq(label);
  queues->queuedDel(1);
  auto it = queues->queuedIterator();
  for (auto member = Queues::PtrConst(queues)->queuedIteratorConst(); member; ++member, ++it) {
    ASSERT_TRUE(it);
    EXPECT_EQ(member.key(), it.key());
    EXPECT_EQ(member.value(), it.value());
    EXPECT_EQ(member->ptr(), it->ptr());
  }
  EXPECT_FALSE(it);
}

// --- Counters ---

TEST(CounterMap, CountsModulo256) {
  Random random(5);
  CounterMap<String8> map;
  std::map<std::string, U8> model;
  std::vector<String8> keys;
  for (int i = 0; i < 30; ++i) keys.push_back("k" + std::to_string(i));
  for (int i = 0; i < 60000; ++i) {
    // The same bytes, and equal ones that are not the same.
    String8 const key = random.once(2) ? keys[random.below(3)] : String8("k" + std::to_string(random.below(30)));
    unsigned const what = random.below(400);
    if (what == 0) {
      EXPECT_EQ(map.erase(key), model.erase(key.str()) == 1);
    } else if (what == 1) {
      map.set(key, 250);
      model[key.str()] = 250;
    } else if (what == 2) {
      EXPECT_EQ(map.value(key), model.count(key.str()) ? model[key.str()] : 0);
    } else {
      map.increment(key);
      ++model[key.str()];
    }
  }
  EXPECT_EQ(map.members(), model.size());
  for (auto it = map.iterator(); it; ++it) EXPECT_EQ(it.value(), model.at(it.key().str()));
}

// Reading after each write costs no walk of the map.
TEST(CounterMap, ReadsBetweenWritesStayCheap) {
  CounterMap<U32> map;
  for (U32 i = 0; i < 300000; ++i) {
    map.increment(i);
    ASSERT_EQ(map.value(i), 1);
  }
}

}  // namespace
}  // namespace Gadgets
