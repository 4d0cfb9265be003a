// How a block comes in, waits, reaches the hardware, and leaves.

#include "Blocks.h"

namespace Member {
namespace {

/// Gives the block that index when it comes.
void reserve(Recorded& at, Block const& key, U32 index) {
  ASSERT_TRUE(at.allocator()->requestIndexForKey(index, Table::keyType(), &key));
}

TEST(BlockProgramming, rowsInOrderAndTheTrackerBeforeEachThenTheHandleOnce) {
  Recorded at;
  at.synced().replayed();
  auto const nextHop = usable(9);
  auto const key = block({row(nextHop, 1), row(nullptr, 2, 7), row(nextHop, 3), row(nextHop, 4)});
  reserve(at, key, 100);
  std::vector<State> states;
  auto const watched = at.table->publisher()->watch(0x28e, [&](auto const&) {
    if (!states.empty()) return;
    states.push_back(at.handle(key).entryState());
  });
  auto const handle = at.table->entryBlockCommit(key);
  EXPECT_THAT(at.take(), ElementsAre("published 0x285 new", "published 0x28e new",  //
                                     "tracker 100 userAdd", "write 100 9/1",        //
                                     "tracker 101 userAdd", "write 101 7/2",        //
                                     "tracker 102 userAdd", "write 102 9/3",        //
                                     "tracker 103 userAdd", "write 103 9/4",        //
                                     "published 0x286 new", "published 0x28e gone"));
  EXPECT_THAT(states, ElementsAre(State::unresolved));
  EXPECT_EQ(handle->entryState(), State::success);
  EXPECT_EQ(handle->resolvedEntryState(), State::success);
  EXPECT_EQ(handle->hwIndex().value(), 100u);
  EXPECT_EQ(at.handle(key).key().entry(0).ecmpNextHopEntry, 0u) << "the key is the client's";
  EXPECT_TRUE(at.table->entryInHwTable(key));
  EXPECT_EQ(at.table->swKeyFromHwIndex(102), key);
  EXPECT_FALSE(at.table->swKeyFromHwIndex(99));
  EXPECT_EQ(at.table->hwIndexOnlyForCrossAgentCommunication(key).value(), 100u);
  EXPECT_TRUE(at.table->hwIndexOnlyForCrossAgentCommunication(plainBlock(1)).isExhausted());

  EXPECT_EQ(at.table->entryBlockCommit(key), handle);
  EXPECT_EQ(at.table->entryBlockRef(key), handle);
  EXPECT_THAT(at.take(), IsEmpty()) << "a known block touches nothing";
}

TEST(BlockProgramming, deletesBeforeTheIndexIsFreeAndBeforeTheWatchers) {
  Recorded at;
  at.synced().replayed();
  auto const key = plainBlock(2);
  reserve(at, key, 50);
  at.table->entryBlockCommit(key);
  at.take();
  bool assigned = true;
  at.util->onEvent = [&](std::string const& event) {
    assigned = assigned && (event.starts_with("published 0x28") ||
                            at.allocator()->isIndexAssigned(50, Table::keyType()));
  };
  at.table->entryBlockRemove(key);
  EXPECT_THAT(at.take(), ElementsAre("tracker 50 userRemove", "delete 50", "tracker 51 userRemove",
                                     "delete 51", "published 0x286 gone", "published 0x285 gone"));
  EXPECT_TRUE(assigned);
  EXPECT_FALSE(at.allocator()->isIndexAssigned(50, Table::keyType()));
  EXPECT_EQ(at.usesOf(50), 0u);
  EXPECT_FALSE(at.table->entryHandle(key));
}

TEST(BlockProgramming, aBlockWithoutRoomIsTriedAgainWhenItIsHandled) {
  Recorded at(16);  // four banks of four rows
  at.quiet().synced().replayed();
  for (U8 i = 0; i < 4; ++i) at.table->entryBlockCommit(plainBlock(4, i));
  auto const refused = at.table->entryBlockCommit(plainBlock(3, 40));
  EXPECT_EQ(refused->entryState(), State::failedNoIndex);
  EXPECT_FALSE(at.table->entryInHwTable(plainBlock(3, 40)));
  at.table->entryBlockRemove(plainBlock(4, 1));
  EXPECT_EQ(refused->entryState(), State::failedNoIndex) << "nothing tries again by itself";
  at.table->handleEntryBlock(plainBlock(3, 40));
  EXPECT_EQ(refused->entryState(), State::success);
  EXPECT_EQ(at.usesOf(refused->hwIndex().value()), 1u);
}

TEST(BlockProgramming, withoutHooksTheAllocatorAloneWorks) {
  Recorded at;
  at.table->utilIs(nullptr);
  at.table->doInitComplete();
  auto const key = plainBlock(3);
  auto const handle = at.table->entryBlockCommit(key);
  EXPECT_EQ(handle->entryState(), State::inProgress);
  EXPECT_EQ(at.allocator()->totalUsedIndices(), 3u);
  at.table->entryBlockRemove(key);
  EXPECT_EQ(at.allocator()->totalUsedIndices(), 3u) << "the handle is held";
}

// ---- waiting ----

TEST(BlockWaiting, isToldWhenItBeginsAndWhenItEnds) {
  Recorded at;
  at.synced().replayed();
  auto const first = needed(), second = needed();
  auto const key = block({row(first, 1), row(second, 2), row(first, 3)});
  auto const handle = at.table->entryBlockCommit(key);
  EXPECT_THAT(at.take(), ElementsAre("published 0x285 new", "published 0x28e new"));
  EXPECT_EQ(at.table->unresolvedEntryBlock(key)->neededEntryHandleSms(), 3u);
  EXPECT_EQ(at.table->entryBlockCommit(key), handle);
  first->becomes(State::success, 5);
  EXPECT_EQ(at.table->unresolvedEntryBlock(key)->neededEntryHandleSms(), 1u);
  EXPECT_THAT(at.take(), IsEmpty());
  second->becomes(State::success, 6);
  EXPECT_EQ(at.take().size(), 2u * 3u + 2u);
  second->becomes(State::failedNeededEntry, 7);
  EXPECT_THAT(at.take(), IsEmpty()) << "once resolved, a block does not look back";
}

// ---- references ----

TEST(BlockReferences, removeAllDeletesNothingBeforeItsWalkIsOver) {
  Recorded at;
  at.synced().replayed();
  for (U8 i = 0; i < 3; ++i) at.table->entryBlockCommit(plainBlock(1, i));
  auto const held = at.table->entryBlockRef(plainBlock(1, 1));
  at.quiet().take();
  U32 known = 0;
  at.util->onEvent = [&](std::string const&) {
    for (U8 i = 0; i < 3; ++i)
      if (auto const handle = at.table->entryHandle(plainBlock(1, i)))
        known += handle->entryType() == Type::committed;
  };
  at.table->entryBlockRemoveAll();
  EXPECT_EQ(known, 0u) << "every claim was taken back before the first row went";
  EXPECT_EQ(at.take().size(), 4u) << "two rows, each with its tracker";
  EXPECT_EQ(at.table->entryBlocks(), 1u);
}

TEST(BlockReferences, aCopyOfABlockIsItsOwn) {
  auto const original = plainBlock(2);
  auto copy = original;
  copy.entryIs(1, row(nullptr, 9));
  EXPECT_EQ(original, plainBlock(2));
  EXPECT_NE(copy, original);
}

// ---- callbacks ----

TEST(BlockCallbacks, theTableMayGoInsideAnything) {
  auto const live = Table::EntryHandle::memAllocationTracker_.live();
  auto const nextHop = usable(3);
  for (U32 point = 0; point < 8; ++point) {
    Recorded at;
    at.synced().replayed();
    at.table->entryBlockCommit(block({row(needed(), 2)}));
    U32 events = 0;
    auto const util = at.util;
    util->onEvent = [&](std::string const&) {
      if (events++ == point) at.table = nullptr;
    };
    auto handle = at.table->entryBlockCommit(block({row(nextHop, 1), row(nextHop, 2)}));
    util->onEvent = nullptr;
    at.subscriptions.clear();
    at.table = nullptr;
    EXPECT_THAT(util->rows, IsEmpty()) << point;
    EXPECT_EQ(Table::EntryHandle::memAllocationTracker_.live(), live + 1);
    EXPECT_EQ(Asic::SwTableBase::getHwIndexForDependentField(*handle), handle->hwIndex());
    handle = nullptr;
    EXPECT_EQ(Table::EntryHandle::memAllocationTracker_.live(), live);
    EXPECT_EQ(nextHop->useCount(), 1u);
  }
}

}  // namespace
}  // namespace Member
