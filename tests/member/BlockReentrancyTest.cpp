// Hooks and watchers that change the very block, or next hop, that is being written or removed. Each case
// is one that went wrong once.

#include "Blocks.h"

namespace Member {
namespace {

using NextHops = Forwarding::NextHopTable;

class BlockReentrancy : public testing::Test {
 protected:
  class NextHopUtil final : public Testing::RecordingUtil<NextHops> {
   public:
    U32 numEntries() const override { return 4; }
  };

  BlockReentrancy() {
    nextHops_->utilIs(util_);
    nextHops_->hwTableIs(new Asic::HwTable);
    util_->indexKnownAtWriteIs(true);
    nextHops_->doCreateAllocator();
    at_.quiet();
  }
  void replayed() {
    nextHops_->doInitComplete();
    nextHops_->purgeStaleEntries();
    at_.synced().replayed();
  }
  HandlePtr commit(U32 id, U16 port) {
    NextHops::Entry entry;
    entry.port = port;
    return nextHops_->entryCommit({.id = id}, entry);
  }
  /// Once, at the event of that number from now on; whether there was one.
  template <class Util>
  static auto atEvent(Util& util, U32 number, std::function<void()> const& action) {
    auto const left = std::make_shared<U32>(number);
    util.onEvent = [=](auto const&) {
      if ((*left)-- == 0) action();
    };
    return [=] { return *left > number; };
  }
  U32 usesOfNextHop(U32 row) const {
    return Asic::IndexUserTracker::Stub::tracker(*nextHops_->hwTable()).uses(row).users;
  }

  Vell::Ptr<NextHopUtil> util_{new NextHopUtil};
  Vell::Ptr<NextHops> nextHops_ = Forwarding::nextHopTableFactory();
  Recorded at_;
};

TEST_F(BlockReentrancy, theLastValueOfANextHopIsTheOneThatItsRowHolds) {
  replayed();
  for (U32 moment = 0;; ++moment) {
    auto const wasReached = atEvent(*util_, moment, [&] { commit(0, 2); });
    commit(0, 1);
    util_->onEvent = nullptr;
    EXPECT_EQ(util_->rows.at(0)->port, nextHops_->entry({.id = 0}).port) << "at event " << moment;
    EXPECT_EQ(usesOfNextHop(0), 1u) << "at event " << moment;
    nextHops_->entryRemove({.id = 0});
    if (!wasReached()) break;
  }
}

TEST_F(BlockReentrancy, aBlockThatComesBackWhileItsRowsGoKeepsItsPlace) {
  replayed();
  auto const key = plainBlock(3);
  for (U32 moment = 0;; ++moment) {
    SCOPED_TRACE(moment);
    HandlePtr back;
    at_.table->entryBlockCommit(key);
    auto const wasReached =
        atEvent(*at_.util, moment, [&] { back = at_.table->entryBlockRef(key); });
    at_.table->entryBlockRemove(key);
    at_.util->onEvent = nullptr;
    if (!wasReached()) break;
    ASSERT_EQ(at_.table->entryHandle(key), back);
    EXPECT_EQ(back->entryState(), State::success);
    EXPECT_EQ(at_.allocator()->totalUsedIndices(), 3u);
    ASSERT_EQ(at_.util->rows.size(), 3u);
    for (auto const& each : at_.util->rows) EXPECT_EQ(at_.usesOf(each.first), 1u);
    EXPECT_EQ(at_.indexOf(key), at_.util->rows.begin()->first);
    back = nullptr;
    EXPECT_THAT(at_.util->rows, IsEmpty());
  }
}

TEST_F(BlockReentrancy, aNextHopThatComesBackWhileItsRowGoesIsWhole) {
  replayed();
  for (bool const twice : {false, true})
    for (U32 moment = 0; moment < 2; ++moment) {
      commit(0, 1);
      Vell::Subscription watching;
      atEvent(*util_, moment, [&] {
        auto const handle = nextHops_->entryHandle({.id = 0});
        if (twice)
          watching = handle->watched().watch(0x102, [&, at = handle.get()](auto&) {
            if (at->entryState() == State::inProgress) commit(0, 3);
          });
        commit(0, 2);
      });
      nextHops_->entryRemove({.id = 0});
      util_->onEvent = nullptr;
      EXPECT_EQ(util_->rows.at(0)->port, twice ? 3u : 2u);
      EXPECT_EQ(usesOfNextHop(0), 1u);
      EXPECT_EQ(nextHops_->indexAllocator()->totalUsedIndices(), 1u);
    }
}

// It waits for the next hop's next value, at whichever index, and not at the row that is going.
TEST_F(BlockReentrancy, aBlockThatComesWhileItsNextHopGoesWaits) {
  replayed();
  for (U32 moment = 0; moment < 2; ++moment) {
    Block key;
    commit(0, 1);
    atEvent(*util_, moment, [&] {
      key = block({row(nextHops_->entryRef({.id = 0}), 1)});
      at_.table->entryBlockCommit(key);
    });
    nextHops_->entryRemove({.id = 0});
    util_->onEvent = nullptr;
    EXPECT_TRUE(at_.table->unresolvedHas(key));
    EXPECT_THAT(at_.util->rows, IsEmpty());
    commit(1, 5);
    commit(0, 2);
    ASSERT_EQ(at_.util->rows.size(), 1u) << "its next hop is still that of the table";
    EXPECT_EQ(at_.util->rows.begin()->second->ecmpNextHopEntry, 1u);
    at_.table->entryBlockRemoveAll();
    key = {};
    nextHops_->entryRemoveAll();
    EXPECT_EQ(nextHops_->entrys(), 0u);
  }
}

TEST_F(BlockReentrancy, aValueFromTheMidstOfAComparisonIsNotTakenForTheOneThatWasCompared) {
  NextHops::Entry held;
  held.port = 1;
  util_->rows[0] = held;
  nextHops_->syncEntries();
  auto const handle = commit(3, 1);
  atEvent(*util_, 0, [&] { commit(3, 2); });
  Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, {0});
  util_->onEvent = nullptr;
  replayed();
  EXPECT_EQ(util_->rows.at(handle->hwIndex().value())->port, 2u);
}

TEST_F(BlockReentrancy, aRowThatIsTakenInTheMidstOfItsPurgeHasAUse) {
  util_->rows[0] = NextHops::Entry{};
  nextHops_->syncEntries();
  nextHops_->doInitComplete();
  auto const watching =
      nextHops_->publisher()->watch(NextHops::syncedEntryField, [&](auto&) { commit(3, 7); });
  nextHops_->purgeStaleEntries();
  EXPECT_EQ(util_->rows.at(0)->port, 7u);
  EXPECT_EQ(usesOfNextHop(0), 1u);
}

}  // namespace
}  // namespace Member
