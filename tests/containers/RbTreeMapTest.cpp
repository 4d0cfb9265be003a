// The ordered map: random operations and walks against a naive reference, and members whose end
// calls into the map. The seed is printed, and can be given back in the environment variable
// MODEL_SEED.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "containers/RbTreeMap.h"

namespace {

/// A member whose value is called when its last use goes, and which the call may keep alive.
struct Member : Zarn::RbTreeMember<Member, U32, std::function<void(Member&)>> {
  static inline constinit Zarn::AllocTrackTypeInfo memAllocationTracker_{"RbTreeMapTest Member"};

  explicit Member(U32 key, Value atEnd = {}) : RbTreeMember(key, std::move(atEnd)) {}
  void lastUserGone() override {
    if (auto const atEnd = std::exchange(value_, {})) atEnd(*this);
  }
  Vell::ZarnType typeData() const override { return {}; }
};

using Map = Zarn::RbTreeMap<Member, U32, Member::Value>;
static_assert(sizeof(Map) <= 24, "maps are embedded by value and must stay small");

void fill(Map& map, U32 from, U32 to, Member::Value const& atEnd = {}) {
  for (U32 key = from; key < to; ++key) map.memberIs(new Member(key, atEnd));
}

class RbTreeMap : public testing::Test {
 protected:
  ~RbTreeMap() override {
    EXPECT_EQ(Member::memAllocationTracker_.live(), liveBefore_) << "a member leaked";
  }

 private:
  U64 liveBefore_ = Member::memAllocationTracker_.live();
};

/// An iterator with what it owes: the keys that were there at its start and never left.
struct Walker {
  Map::Iterator at;
  std::set<U32> mustVisit;
};

TEST_F(RbTreeMap, AgreesWithTheReference) {
  char const* const given = std::getenv("MODEL_SEED");
  U64 const seed = given ? std::strtoull(given, nullptr, 0) : std::random_device{}();
  std::printf("MODEL_SEED=%llu\n", static_cast<unsigned long long>(seed));
  std::mt19937_64 random(seed);
  Map map;
  std::map<U32, Member*> reference;
  std::vector<Walker> walkers;
  U32 finishedWalks = 0;
  auto const expected = [&](auto at) { return at == reference.end() ? nullptr : at->second; };
  auto const left = [&](U32 key) {
    reference.erase(key);
    for (Walker& walker : walkers) walker.mustVisit.erase(key);
  };
  for (U32 step = 0, keySpace = 1; step < 100'000; ++step) {
    if (step % 5'000 == 0) keySpace = 1u << (1 + random() % 11);
    U32 const key = static_cast<U32>(random() % keySpace);
    U32 const version = map.version();
    Member* const present = expected(reference.find(key));
    ASSERT_EQ(map.lookup(key), present);
    ASSERT_EQ(map.lowerBound(key), expected(reference.lower_bound(key)));
    ASSERT_EQ(map.upperBound(key), expected(reference.upper_bound(key)));
    ASSERT_EQ(static_cast<bool>(Map::Iterator(map, key)), present != nullptr);
    if (random() % 2) {
      // By key, or the member at hand of a walker, which may have left before.
      bool const byKey = walkers.empty() || random() % 2;
      Vell::Ptr<Member> const victim = byKey ? present : &*walkers[0].at;
      bool const isThere = victim && expected(reference.find(victim->key())) == victim.get();
      auto const removed = byKey ? map.memberDel(key) : map.memberDel(*victim);
      ASSERT_EQ(removed, isThere ? victim : nullptr);
      ASSERT_EQ(map.version() != version, isThere);
      if (isThere) left(victim->key());
    } else if (!present) {
      reference[key] = map.memberIs(new Member(key));
      ASSERT_NE(map.version(), version);
    }
    if (random() % 8'192 == 0 && !map.empty()) {
      U32 const full = map.version();
      map._memberDelAll();
      ASSERT_NE(map.version(), full);
      while (!reference.empty()) left(reference.begin()->first);
    }
    ASSERT_EQ(map.count(), reference.size());
    ASSERT_EQ(map.first(), expected(reference.begin()));
    ASSERT_EQ(map.last(), reference.empty() ? nullptr : reference.rbegin()->second);
    if (keySpace < 64 || step % 256 == 0) map.checkTree();

    if (walkers.size() < 4 && !map.empty()) {
      walkers.push_back({map.lookup(key) ? Map::Iterator(map, key) : Map::Iterator(map), {}});
      Walker& walker = walkers.back();
      for (auto at = reference.upper_bound(walker.at.key()); at != reference.end(); ++at)
        walker.mustVisit.insert(at->first);
    }
    if (walkers.empty()) continue;
    auto const chosen = walkers.begin() + static_cast<std::ptrdiff_t>(random() % walkers.size());
    for (U64 steps = random() % 16; steps-- > 0 && chosen->at;) {
      U32 const before = chosen->at.key();
      chosen->at.advance();
      U32 const due = chosen->mustVisit.empty() ? ~0u : *chosen->mustVisit.begin();
      ASSERT_LE(chosen->at ? chosen->at.key() : ~0u, due) << due << " is not visited";
      if (!chosen->at) break;
      ASSERT_GT(chosen->at.key(), before);
      ASSERT_EQ(&*chosen->at, expected(reference.find(chosen->at.key())));
      chosen->mustVisit.erase(chosen->at.key());
    }
    if (chosen->at) continue;
    ++finishedWalks;
    walkers.erase(chosen);
  }
  EXPECT_GT(finishedWalks, 500u);
}

TEST_F(RbTreeMap, EndsOfMembersMayChangeTheMap) {
  Map map;
  Vell::Ptr<Member> const held(new Member(70));
  // The first end brings back a member that has not had its turn; each inserts another member, and
  // each second one removes what the end before it inserted.
  fill(map, 0, 64, [&](Member& self) {
    EXPECT_FALSE(map.lookup(self.key() + 1));
    EXPECT_EQ(map.memberDel(*held), self.key() == 1 ? held : nullptr);
    fill(map, 100 + self.key(), 101 + self.key());
    if (self.key() % 2) map.memberDel(100 + self.key() - 1);
    if (self.key() == 0) map.memberIs(held);
    map.checkTree();
  });
  map.memberIs(held);
  Map::Iterator const kept(map, 5);
  map._memberDelAll();
  EXPECT_EQ(kept.key(), 5u);
  EXPECT_EQ(held->useCount(), 1u);
  EXPECT_EQ(map.count(), 31u + 1u) << "5 is held, so 104 was not removed";

  map._memberDelAll();
  map.memberIs(new Member(1, [&](Member& self) { map.memberIs(&self); }));
  map._memberDelAll();
  ASSERT_EQ(map.count(), 1u) << "its own end put it back";
  map.first()->value_ = [&](Member&) { fill(map, 2, 3); };  // runs in the map's destructor
}

TEST_F(RbTreeMap, AnIteratorMayBeTheLastToHoldItsMember) {
  Map map;
  fill(map, 0, 4);
  Map::Iterator at(map, 1);
  at->value_ = [&](Member&) { map.memberDel(2); };
  EXPECT_EQ(map.memberDel(1)->useCount(), 2u);
  at.advance();
  EXPECT_EQ(at.key(), 2u);
  EXPECT_FALSE(map.lookup(2)) << "it left when the iterator let 1 go";
  at.advance();
  EXPECT_EQ(at.key(), 3u);
}

TEST_F(RbTreeMap, AKeyIsInTheMapOnce) {
  Map map;
  fill(map, 0, 9);
  EXPECT_DEATH(fill(map, 4, 5), "key of a new member is not in the map");
  EXPECT_DEATH(map.memberIs(map.lookup(4)), "is in no map");
}

}  // namespace
