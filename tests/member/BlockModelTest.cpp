// Random operations on blocks and on the next hops below them, compared after each step with a
// reference that knows no table. The seed is printed; DLB_MODEL_SEED gives it back.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>

#include "Blocks.h"

namespace Member {
namespace {

using NextHops = Forwarding::NextHopTable;

/// Room for fewer next hops, and for fewer rows, than the operations ask for.
constexpr U32 nextHopRoom = 4;
constexpr U32 rowRoom = 14;
#if defined(DLB_CHECK_INVARIANTS)
constexpr U32 steps = 30'000;
#else
constexpr U32 steps = 1'000'000;
#endif

class Model {
 public:
  explicit Model(U64 seed) : random_(seed) {
    at_.quiet().synced().replayed();
    nextHopUtil_->indexKnownAtWriteIs(true);
    lower_.synced().replayed();
    // No two blocks are equal. Only the operations are random: with blocks of random lengths, some
    // seeds never fill the allocator.
    for (U32 at = 0; at < blocks_.size(); ++at)
      for (U32 i = 0, rows = 1 + at % 7; i < rows; ++i)
        blocks_[at].rows.emplace_back((at + i % 2) % hops_.size(), static_cast<U8>(at));
  }

  void step() {
    auto const operation = random_() % 20;
    if (operation < 6)
      operation < 2 ? removeNextHop() : commitNextHop();
    else
      change(blocks_[random_() % blocks_.size()], operation);
    at_.util->events.clear();
    nextHopUtil_->events.clear();
    settle();
    check();
  }
  /// How often each state was compared: a run that does not come to one proves nothing of it.
  U64 seenWaiting = 0, seenFailed = 0, seenWritten = 0, seenFull = 0;

  /// Everything goes again.
  void end() {
    for (auto& block : blocks_) {
      block.held.clear();
      if (block.known()) at_.table->entryBlockRemove(block.key);
      block = {};
    }
    nextHops_->entryRemoveAll();
    EXPECT_EQ(at_.table->entryBlocks() + nextHops_->entrys(), 0u);
    EXPECT_TRUE(at_.util->rows.empty() && nextHopUtil_->rows.empty());
    EXPECT_EQ(at_.allocator()->totalUsedIndices(), 0u);
    EXPECT_EQ(nextHops_->indexAllocator()->totalUsedIndices(), 0u);
  }

 private:
  struct Hop {
    bool committed = false, hasValue = false, hasIndex = false;
    U16 value = 0;
    bool failed() const { return hasValue && !hasIndex; }
  };
  struct Kept {
    std::vector<std::pair<U32, U8>> rows;
    Block key;  ///< while the block is known
    bool committed = false;
    std::vector<HandlePtr> held;
    enum { none, waiting, resolved } place = none;
    bool failed = false;   ///< waits for a next hop that failed
    bool noIndex = false;  ///< resolved, and found no room
    bool known() const { return committed || !held.empty(); }
    bool needs(U32 hop) const {
      return std::ranges::any_of(rows, [=](auto const& each) { return each.first == hop; });
    }
  };

  // ---- operations ----

  void commitNextHop() {
    U32 const id = random_() % hops_.size();
    auto& hop = hops_[id];
    auto const value = static_cast<U16>(random_() % 3);
    bool const isWritten = !hop.hasValue || value != hop.value;
    hop.committed = hop.hasValue = true;
    hop.value = value;
    if (isWritten && !hop.hasIndex) hop.hasIndex = indicesUsed() < nextHopRoom;
    NextHops::Entry entry;
    entry.port = value;
    nextHops_->entryCommit({.id = id}, entry);
    for (auto& block : blocks_)
      if (isWritten && hop.failed() && block.place == Kept::waiting && block.needs(id))
        block.failed = true;
  }
  void removeNextHop() {
    U32 const id = random_() % hops_.size();
    hops_[id].committed = false;
    nextHops_->entryRemove({.id = id});
  }
  void change(Kept& block, U64 operation) {
    auto const key = block.known() ? block.key : keyOf(block);
    if (operation < 11) {
      bool const commits = operation < 8;
      auto handle = commits ? at_.table->entryBlockCommit(key) : at_.table->entryBlockRef(key);
      block.committed = block.committed || commits;
      if (random_() % 2 || !block.known()) block.held.push_back(std::move(handle));
      block.key = key;
      if (block.place != Kept::none) return;
      block.place = Kept::waiting;
      block.failed = std::ranges::any_of(
          block.rows, [this](auto const& each) { return hops_[each.first].failed(); });
    } else if (operation < 15) {
      at_.table->entryBlockRemove(key);
      if (std::exchange(block.committed, false) && block.place == Kept::waiting)
        block.place = Kept::none;
    } else if (!block.held.empty()) {
      auto handle = std::move(block.held.back());
      block.held.pop_back();
      if (!block.known()) block.key = {};  // so that the drop below is the last of all
    }
  }
  Block keyOf(Kept const& block) {
    Block key;
    for (U32 i = 0; i < block.rows.size(); ++i)
      key.entryIs(i, row(nextHops_->entryRef({.id = block.rows[i].first}), block.rows[i].second));
    return key;
  }

  // ---- what must follow ----

  U64 indicesUsed() const { return std::ranges::count_if(hops_, &Hop::hasIndex); }

  void settle() {
    for (auto& block : blocks_) {
      if (!block.known()) {
        block.key = {};
        block.place = Kept::none;
        block.noIndex = false;
      } else if (block.place == Kept::waiting &&
                 std::ranges::all_of(
                     block.rows, [this](auto const& each) { return hops_[each.first].hasIndex; })) {
        block.place = Kept::resolved;
        // Whether there was room is the allocator's affair; that the handle says it, is not.
        block.noIndex = at_.allocator()->indexForKey(Table::keyType(), &block.key).isExhausted();
        auto const room = block.noIndex ? at_.allocator()->longestFreeRun() : 0;
        EXPECT_LT(room, block.rows.size());
      }
    }
    for (U32 id = 0; id < hops_.size(); ++id)
      if (!hops_[id].committed && std::ranges::none_of(blocks_, [=](auto const& each) {
            return each.known() && each.needs(id);
          }))
        hops_[id] = {};
  }

  void check() {
    U32 known = 0, rowsHeld = 0;
    for (auto& block : blocks_) {
      if (!block.known()) continue;
      ++known;
      auto const handle = at_.table->entryHandle(block.key);
      ASSERT_TRUE(handle);
      ASSERT_EQ(handle->useCount(), 1 + block.held.size() + block.committed);
      ASSERT_EQ(handle->entryType(), block.committed ? Type::committed : Type::referenceOnly);
      ASSERT_EQ(at_.table->entryBlockHas(block.key), block.place == Kept::resolved);
      ASSERT_EQ(at_.table->unresolvedHas(block.key), block.place == Kept::waiting);
      if (block.place == Kept::waiting) {
        ASSERT_EQ(handle->entryState(),
                  block.failed ? State::failedNeededEntry : State::unresolved);
        ++(block.failed ? seenFailed : seenWaiting);
      } else if (block.place == Kept::resolved) {
        ASSERT_EQ(handle->entryState(), block.noIndex ? State::failedNoIndex : State::success);
        ++(block.noIndex ? seenFull : seenWritten);
        if (!block.noIndex) rowsHeld += checkRows(block, handle->hwIndex().value());
      }
    }
    ASSERT_EQ(at_.table->entryBlocks(), known);
    ASSERT_EQ(at_.util->rows.size(), rowsHeld);
    ASSERT_EQ(at_.allocator()->totalUsedIndices(), rowsHeld);
    ASSERT_EQ(at_.tracker().indices(), rowsHeld);
    ASSERT_EQ(nextHopUtil_->rows.size(), indicesUsed());
    ASSERT_EQ(nextHops_->indexAllocator()->totalUsedIndices(), indicesUsed());
    ASSERT_EQ(nextHops_->resolvedCount(), std::ranges::count_if(hops_, &Hop::hasValue));
  }
  U32 checkRows(Kept const& block, U32 base) {
    U32 row = base;
    for (auto const& [hop, weight] : block.rows) {
      auto const index = nextHops_->hwIndexOnlyForCrossAgentCommunication({.id = hop}).value();
      auto const& held = at_.util->rows.at(row++);
      EXPECT_EQ(held->ecmpNextHopEntry, index);
      EXPECT_EQ(held->weightIdx, weight);
      EXPECT_EQ(nextHopUtil_->rows.at(index)->port, hops_[hop].value);
    }
    return row - base;
  }

  std::mt19937_64 random_;
  Recorded at_{rowRoom};
  Testing::RecordedHandles<NextHops> lower_{Forwarding::nextHopTableFactory(), nextHopRoom};
  NextHops* nextHops_ = lower_.table.get();
  Testing::RecordingHandleUtil<NextHops>* nextHopUtil_ = lower_.util.get();
  std::array<Hop, 6> hops_;
  std::array<Kept, 16> blocks_;
};

TEST(BlockModel, agreesAfterEveryStep) {
  char const* const given = std::getenv("DLB_MODEL_SEED");
  U64 const seed = given ? std::strtoull(given, nullptr, 0) : std::random_device()();
  SCOPED_TRACE(Vell::concatenate("DLB_MODEL_SEED=", seed));
  auto const live = Table::EntryHandle::memAllocationTracker_.live();
  auto const nextHops = NextHops::EntryHandle::memAllocationTracker_.live();
  {
    Model model(seed);
    for (U32 i = 0; i < steps; ++i) {
      model.step();
      if (HasFailure()) FAIL() << "at step " << i << " of seed " << seed;
    }
    EXPECT_GT(std::min({model.seenWaiting, model.seenFailed, model.seenWritten, model.seenFull}),
              0u);
    model.end();
  }
  EXPECT_EQ(Table::EntryHandle::memAllocationTracker_.live(), live);
  EXPECT_EQ(NextHops::EntryHandle::memAllocationTracker_.live(), nextHops);
}

}  // namespace
}  // namespace Member
