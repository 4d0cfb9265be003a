// The keyed map: operations, hooks, re-entrancy and spread. The random model test of walks is in
// HashMap2018ModelTest.cpp.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "containers/HashMap2018Iterator.h"

namespace {

template <class Map>
std::vector<U32> walkedKeys(Map const& map) {
  std::vector<U32> keys;
  for (Zarn::HashMap2018UnsafeIteratorConstGeneric<Map> at(map); at; ++at)
    keys.push_back(at.currNode()->key());
  return keys;
}

/// Live allocations of buckets, node arrays and directories, of all maps.
U64 liveMapAllocations() {
  U64 live = 0;
  for (auto const* tracker = Zarn::AllocTrackTypeInfo::first(); tracker; tracker = tracker->next())
    live += tracker->live();
  return live;
}

class HashMap2018 : public testing::Test {
 protected:
  ~HashMap2018() override { EXPECT_EQ(liveMapAllocations(), liveBefore_) << "a map leaked"; }

 private:
  U64 liveBefore_ = liveMapAllocations();
};

using TextNode = Zarn::HN<U32, std::optional<std::string>, 0x51A4B27D>;
using TextMap = Zarn::HashMap2018<TextNode>;
using Walk = Zarn::HashMap2018IteratorGeneric<TextMap>;
static_assert(sizeof(TextMap) <= 32, "maps are embedded by value in entries and must stay small");

void fill(TextMap& map, U32 from, U32 to) {
  for (U32 key = from; key < to; ++key) map.newMemberG(key, {std::to_string(key), key});
}

TEST_F(HashMap2018, CopiesAndMovesOwnTheirNodes) {
  TextMap map;
  fill(map, 0, 2'000);
  TextMap copy(map);
  EXPECT_EQ(walkedKeys(copy), walkedKeys(map));
  copy.lookupNodeG(7)->value_ = "seven";
  EXPECT_EQ(map.lookupNodeG(7)->value_, "7");
  map.deleteMemberG(8);
  EXPECT_TRUE(copy.lookupNodeG(8));
  U32 const version = map.version();
  map = copy;
  EXPECT_NE(map.version(), version);
  EXPECT_EQ(map.lookupNodeG(7)->value_, "seven");
  TextMap const moved(std::move(copy));
  EXPECT_EQ(moved.count(), 2'000u);
  EXPECT_EQ(copy.count(), 0u);
  TextMap const& same = map;
  map = same;
  EXPECT_EQ(map.count(), 2'000u);
}

TEST_F(HashMap2018, AnEmptyMapOwnsNothingUnlessToldToKeepItsDirectory) {
  U64 const before = liveMapAllocations();
  {
    TextMap map;
    EXPECT_EQ(liveMapAllocations(), before);
    for (int round = 0; round < 2; ++round) {
      fill(map, 0, 20'000);
      EXPECT_LE(map.bucketCount(), 20'000u);
      for (U32 key = 0; key < 20'000; ++key) ASSERT_TRUE(map.deleteMemberG(key));
      EXPECT_EQ(map.bucketCount(), 1u);
      EXPECT_EQ(liveMapAllocations(), before);
    }
    fill(map, 0, 20'000);
    map._memberDelAll();
    EXPECT_EQ(liveMapAllocations(), before);
  }
}

TEST_F(HashMap2018, VersionHas23BitsAndChangesWithTheKeys) {
  TextMap map;
  std::vector<U32> versions{map.version()};
  auto const next = [&] { versions.push_back(map.version()); };
  map.newMemberG(1, {"a", 1}), next();
  map.deleteMemberG(1), next();
  map.newMemberG(1, {"a", 1}), next();
  map._memberDelAll(), next();
  for (std::size_t i = 1; i < versions.size(); ++i) EXPECT_EQ(versions[i], versions[i - 1] + 1);
  map.deleteMemberG(1);
  map._memberDelAll();
  EXPECT_EQ(map.version(), versions.back()) << "nothing was there to remove";
  for (U32 i = 0; i < (1u << 22); ++i) map.newMemberG(1, {std::nullopt, 1}), map.deleteMemberG(1);
  EXPECT_EQ(map.version(), versions.back()) << "the version wraps after 2^23 changes";
}

// ---- Spread ----

TEST_F(HashMap2018, KeysThatStepByAPowerOfTwoSpread) {
  for (U32 constant = 0; constant < 4; ++constant) {
    U32 const seed = Zarn::HashHelper::hashSeed32() ^ (constant * 0x10001u);
    for (U32 step = 0; step <= 20; ++step) {
      // About as many buckets as a map of 2^16 keys has. Neighbours lie together in fours, so the
      // fullest of a random spread has about eight fours, and eleven are beyond chance.
      std::vector<U32> lowBits(1u << 14), tags(256);
      for (U32 i = 0; i < (1u << 16); ++i) {
        U32 const key = std::rotl(i, static_cast<int>(step));
        U32 const hash = Zarn::hashSingleAttr(seed, key);
        ++lowBits[hash & (lowBits.size() - 1)];
        ++tags[hash >> 24];
      }
      EXPECT_LE(*std::max_element(lowBits.begin(), lowBits.end()), 44u) << "step 2^" << step;
      EXPECT_LE(*std::max_element(tags.begin(), tags.end()), 400u) << "step 2^" << step;
    }
  }
  for (U32 step = 0; step <= 20; step += 5) {
    Zarn::HashMap2018<Zarn::HNKeyOnly<U64, 0x2C9D0E64>> map;
    for (U64 i = 0; i < (1u << 16); ++i) map.newMemberG(i << step, {i << step});
    U32 longest = 0;
    for (U32 i = 0; i < map.bucketCount(); ++i) longest = std::max(longest, map.bucketSize(i));
    EXPECT_LE(longest, 44u) << "step 2^" << step;
  }
}

/// A key whose hash does not spread at all.
struct Colliding {
  U32 number;
  U32 hash(U32) const { return 5; }
  auto operator<=>(Colliding const&) const = default;
};

TEST_F(HashMap2018, KeysOfOneHashStillWork) {
  Zarn::HashMap2018<Zarn::HNKeyOnly<Colliding, 0x61F00D2B>> map;
  Zarn::HashMap2018IteratorGeneric<decltype(map)> held(map);
  for (U32 i = 0; i < 500; ++i) map.newMemberG({i * 7 % 500}, {{i * 7 % 500}});
  held = Zarn::HashMap2018IteratorGeneric<decltype(map)>(map, {250});
  for (U32 i = 0; i < 500; i += 2) EXPECT_TRUE(map.deleteMemberG({i}));
  U32 expected = 251;
  for (held.advance(); held; held.advance(), expected += 2)
    ASSERT_EQ(held.currNodeNonStale()->key_.number, expected);
  EXPECT_EQ(expected, 501u);
  for (U32 i = 1; i < 500; i += 2) EXPECT_TRUE(map.deleteMemberG({i}));
}

// ---- Re-entrancy ----

/// A counted value that, when its last holder drops it, does something to the map that held it.
struct Reentrant;
using ReentrantNode = Zarn::HN<U32, std::shared_ptr<Reentrant>, 0x19AC44E3>;
using ReentrantMap = Zarn::HashMap2018<ReentrantNode>;
struct Reentrant {
  ReentrantMap& map;
  U32 key;
  int generation;
  ~Reentrant() {
    EXPECT_FALSE(map.lookupNodeG(key) && map.lookupNodeG(key)->value_.get() == this);
    EXPECT_EQ(walkedKeys(map).size(), map.count());
    if (generation == 0) return;
    map.deleteMemberG(key / 2);
    map.lookupOrNewMember({std::make_shared<Reentrant>(map, key + 1, generation - 1), key + 1});
  }
  Reentrant(ReentrantMap& mapIn, U32 keyIn, int generationIn)
      : map(mapIn), key(keyIn), generation(generationIn) {}
};

TEST_F(HashMap2018, DestructorsOfValuesMayUseTheMap) {
  for (U32 const count : {1u, 9u, 120u}) {
    ReentrantMap map;
    auto const refill = [&] {
      for (U32 key = 0; key < count; ++key)
        map.lookupOrNewMember({std::make_shared<Reentrant>(map, key * 3, 2), key * 3});
    };
    refill();
    for (U32 key = 0; key < count; ++key) map.deleteMemberG(key * 3);
    refill();
    {
      Zarn::HashMap2018IteratorGeneric<ReentrantMap> held(map);
      map._memberDelAll();
      refill();
      while (held) held.advance();  // lets go of the last holders of the first values
    }
    ReentrantNode out{std::make_shared<Reentrant>(map, 1, 2), 1};
    map.deleteMemberG(walkedKeys(map).front(), &out);
    map = ReentrantMap();
    refill();
  }
}

// ---- Walks ----

TEST_F(HashMap2018, AWalkSeesNewValuesAndTellsStaleNodes) {
  TextMap map;
  fill(map, 0, 4);
  Walk at(map);
  Walk const end(map, Zarn::EndOfCollection{});
  EXPECT_EQ(at, Walk(map, 0));
  EXPECT_EQ(Walk(map, 77), end);
  fill(map, 10, 200);
  map.lookupNodeG(0)->value_ = "new";
  map.lookupNodeG(1)->value_ = "one";
  EXPECT_EQ(at.currNodeMaybeStale()->value_, "0");
  EXPECT_EQ(at.currNodeNonStale()->value_, "new");
  Walk copy = at;
  copy.advance();
  EXPECT_NE(copy, at);
  EXPECT_EQ(copy.currNodeMaybeStale()->value_, "one") << "the value at the time of the step";
  Walk const moved = std::move(copy);
  EXPECT_EQ(moved.currNodeNonStale()->key_, 1u);
  EXPECT_TRUE(copy.atEnd());
  map.deleteMemberG(0);
  EXPECT_DEATH(at.currNodeNonStale(), "the current node is in the map");
}

TEST_F(HashMap2018, AnUnsafeWalkStopsTheProcessIfTheMapChanges) {
  TextMap map;
  fill(map, 0, 10);
  Zarn::HashMap2018UnsafeIteratorConstGeneric<TextMap> at(map);
  map.lookupNodeG(3)->value_ = "changed in place";
  at.advance();
  map.deleteMemberG(3);
  EXPECT_DEATH(at.advance(), "version_ == hashMap_->version\\(\\)");
  EXPECT_DEATH(at.currNode(), "version_ == hashMap_->version\\(\\)");
  EXPECT_DEATH(map.newMemberG(4, {"twice", 4}), "not in the map");
}

}  // namespace
