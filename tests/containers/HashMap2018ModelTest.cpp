// Random operations on a keyed map, and walks over it, against a naive reference. The seed is
// printed, and can be given back in the environment variable MODEL_SEED.

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>

#include "containers/HashMap2018Iterator.h"

namespace {

using Node = Zarn::HN<U32, std::shared_ptr<U64>, 0x8F6A0094>;
using Map = Zarn::HashMap2018<Node>;

/// A safe iterator with what it owes: the keys that were there at its start and never left, and
/// those that it has visited and must not visit again, not even if they left and came back.
struct Walker {
  Zarn::HashMap2018IteratorGeneric<Map> at;
  std::set<U32> mustVisit;
  std::set<U32> visited;
};

class Model {
 public:
  explicit Model(U64 seed) : random_(seed) {}

  void run(int steps) {
    for (int step = 0; step < steps && !testing::Test::HasFatalFailure(); ++step) {
      if (step % 20'000 == 0) newPhase();
      one();
    }
    EXPECT_GT(finishedWalks_, 1'000u);
    EXPECT_GT(largest_, 1'500u) << "the directory's second level has not been used";
  }

 private:
  /// Each phase drifts to a size of its own, so that maps grow, shrink and hover at boundaries.
  void newPhase() {
    static constexpr std::size_t sizes[]{0, 3, 9, 40, 400, 4'000};
    target_ = sizes[random_() % std::size(sizes)];
    keySpace_ = static_cast<U32>(2 * target_ + 8);
  }

  void one() {
    U32 const key = static_cast<U32>(random_() % keySpace_) * 0x01000001u;
    switch (random_() % 16) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
      case 5:
        return reference_.size() <= target_ ? insert(key) : erase(anyKey(key));
      case 6:
      case 7:
        return insert(key);
      case 8:
      case 9:
        return erase(random_() % 2 ? key : anyKey(key));
      case 10:
        return lookUp(key);
      case 11:
        return replaceValue(anyKey(key));
      case 12:
        return random_() % 64 ? newWalker() : wholeMap();
      default:
        return step();
    }
  }

  void insert(U32 key) {
    if (reference_.contains(key)) return;
    auto value = std::make_shared<U64>(random_());
    reference_[key] = *value;
    largest_ = std::max(largest_, reference_.size());
    Node* const node = map_.newMemberG(key, Map::hashOf(key), {std::move(value), key});
    ASSERT_EQ(node->key_, key);
    ASSERT_EQ(*node->value_, reference_[key]);
    ASSERT_EQ(map_.count(), reference_.size());
    for (Walker& walker : walkers_) walker.mustVisit.erase(key);
  }

  void erase(U32 key) {
    Node out;
    auto const found = reference_.find(key);
    ASSERT_EQ(map_.deleteMemberG(key, &out), found != reference_.end());
    if (found == reference_.end()) return;
    ASSERT_EQ(out.key_, key);
    ASSERT_EQ(*out.value_, found->second);
    reference_.erase(found);
    ASSERT_EQ(map_.count(), reference_.size());
    for (Walker& walker : walkers_) walker.mustVisit.erase(key);
  }

  void lookUp(U32 key) {
    Node const* const node = map_.lookupNodeG(key);
    auto const found = reference_.find(key);
    ASSERT_EQ(node != nullptr, found != reference_.end());
    if (node) {
      ASSERT_EQ(*node->value_, found->second);
    }
  }

  void replaceValue(U32 key) {
    Node* const node = map_.lookupNodeG(key);
    if (!node) return;
    node->value_ = std::make_shared<U64>(random_());
    reference_[key] = *node->value_;
  }

  void newWalker() {
    if (walkers_.size() >= 6) walkers_.erase(walkers_.begin() + random_() % 6);
    Walker walker{Zarn::HashMap2018IteratorGeneric<Map>(map_), {}, {}};
    for (auto const& [key, value] : reference_) walker.mustVisit.insert(key);
    if (random_() % 4 == 0 && !walkers_.empty())
      walker = walkers_[random_() % walkers_.size()];
    else
      arrive(walker);
    walkers_.push_back(std::move(walker));
  }

  void step() {
    if (walkers_.empty()) return;
    // One walker runs ahead, so that walks end; the others linger over many changes.
    auto const chosen = random_() % 3 ? 0 : random_() % walkers_.size();
    Walker& walker = walkers_[chosen];
    for (U64 steps = random_() % 64; steps-- > 0 && walker.at;) {
      ASSERT_EQ(*walker.at.currNodeMaybeStale()->value_, valueOf(walker));
      walker.at.advance();
      arrive(walker);
      if (testing::Test::HasFatalFailure()) return;
    }
    if (walker.at) return;
    ++finishedWalks_;
    walkers_.erase(walkers_.begin() + static_cast<std::ptrdiff_t>(chosen));
  }

  /// The value may be changed in place while the walker's bucket is the map's own.
  U64 valueOf(Walker const& walker) const {
    Node const* const node = map_.lookupNodeG(walker.at.currNodeMaybeStale()->key_);
    return node == walker.at.currNodeMaybeStale() ? *node->value_
                                                  : *walker.at.currNodeMaybeStale()->value_;
  }

  void arrive(Walker& walker) {
    if (!walker.at) {
      ASSERT_TRUE(walker.mustVisit.empty()) << "first unvisited: " << *walker.mustVisit.begin();
      return;
    }
    U32 const key = walker.at.currNodeMaybeStale()->key_;
    ASSERT_TRUE(reference_.contains(key)) << key << " was deleted before its turn";
    ASSERT_EQ(*walker.at.currNodeMaybeStale()->value_, reference_[key]);
    ASSERT_EQ(walker.at.currNodeNonStale(), map_.lookupNodeG(key));
    ASSERT_TRUE(walker.visited.insert(key).second) << key << " is visited twice";
    walker.mustVisit.erase(key);
  }

  /// Everything at once: delete all, assign, and compare with a map of another history.
  void wholeMap() {
    switch (random_() % 4) {
      case 0:
        map_._memberDelAll();
        reference_.clear();
        for (Walker& walker : walkers_) walker.mustVisit.clear();
        return;
      case 1: {
        Map copy(map_);
        map_ = std::move(copy);
        return;
      }
      default: {
        Map other;
        for (auto const& [key, value] : reference_)
          other.newMemberG(key, {std::make_shared<U64>(value), key});
        Zarn::HashMap2018UnsafeIteratorConstGeneric<Map> a(map_), b(other);
        for (; a && b; ++a, ++b) ASSERT_EQ(a.currNode()->key_, b.currNode()->key_);
        ASSERT_TRUE(a.atEnd() && b.atEnd());
      }
    }
  }

  U32 anyKey(U32 hint) const {
    auto const found = reference_.lower_bound(hint);
    return found != reference_.end() ? found->first : hint;
  }

  std::mt19937_64 random_;
  std::map<U32, U64> reference_;
  Map map_;
  std::vector<Walker> walkers_;
  std::size_t target_ = 0;
  U32 keySpace_ = 1;
  std::size_t largest_ = 0;
  U64 finishedWalks_ = 0;
};

TEST(HashMap2018Model, AgreesWithTheReference) {
  char const* const given = std::getenv("MODEL_SEED");
  U64 const seed = given ? std::strtoull(given, nullptr, 0) : std::random_device{}();
  std::printf("MODEL_SEED=%llu ZARN_HASH_SEED=%u\n", static_cast<unsigned long long>(seed),
              Zarn::HashHelper::hashSeed32());
  Model(seed).run(1'000'000);
}

}  // namespace
