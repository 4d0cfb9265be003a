// How blocks find their place again after a restart, and what becomes of rows that nobody claims.

#include "Blocks.h"

namespace Member {
namespace {

void suggest(HandlePtr const& handle, Asic::IndexSet const& indices) {
  Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, indices);
}

Block fourRows(Vell::Ptr<Needed> const& nextHop) {
  return block({row(nextHop, 1), row(nextHop, 2), row(nextHop, 3), row(nextHop, 4)});
}

/// The hardware of `fourRows` with a next hop at index 9.
std::vector<std::pair<U32, U8>> const fourHeld{{9, 1}, {9, 2}, {9, 3}, {9, 4}};

TEST(BlockRestart, aSuggestionToAWaitingBlockReachesItsNextHopsAndSettlesBoth) {
  Recorded at;
  at.holding(100, fourHeld).synced();
  auto const nextHop = needed();
  auto const key = fourRows(nextHop);
  auto const handle = at.table->entryBlockCommit(key);
  // The next hop's table settles its own place from the first suggestion.
  nextHop->onSuggestion = [&] {
    nextHop->hwIndexIs(9);
    nextHop->entryStateIs(State::indexReconciled);
  };
  at.take();
  suggest(handle, {100});
  EXPECT_THAT(nextHop->suggested, ElementsAre(9u)) << "the rows behind need no more suggestions";
  EXPECT_EQ(handle->entryState(), State::indexReconciled);
  EXPECT_EQ(handle->resolvedEntryState(), State::indexReconciled);
  EXPECT_EQ(handle->hwIndex().value(), 100u);
  for (auto const& event : at.take()) EXPECT_FALSE(event.starts_with("write")) << event;
  EXPECT_TRUE(at.table->syncedEntryMap().empty());
  EXPECT_EQ(at.table->indexHelpers(), 0u);
  EXPECT_EQ(at.counted(Status::reconcileMatched), 1u);
  at.replayed();
  EXPECT_EQ(at.util->rows.size(), 4u);
  EXPECT_EQ(at.usesOf(103), 1u);
  at.table->entryBlockRemove(key);
}

TEST(BlockRestart, aSuggestionToAResolvedBlockIsComparedRowByRow) {
  Recorded at;
  auto held = fourHeld;
  held[2].second = 77;
  at.holding(100, held).holding(200, {{9, 1}, {9, 2}, {9, 3}}).holding(300, fourHeld).synced();
  auto const handle = at.table->entryBlockCommit(fourRows(usable(9)));
  EXPECT_EQ(handle->entryState(), State::unresolved) << "no candidate yet";
  at.take();
  suggest(handle, {100, 200});
  EXPECT_THAT(at.take(), ElementsAre("compare 100 9/1", "compare 101 9/2", "compare 102 9/3"))
      << "the first that differs ends it, and where a row is missing nothing is compared";
  suggest(handle, {100});
  EXPECT_THAT(at.take(), IsEmpty()) << "dealt with";
  at.quiet();
  suggest(handle, {300, 301});
  EXPECT_EQ(at.take().size(), 4u) << "the second was not looked at";
  EXPECT_EQ(handle->hwIndex().value(), 300u);
  EXPECT_EQ(handle->entryState(), State::indexReconciled);
  EXPECT_EQ(at.counted(Status::reconcileMatched), 1u);

  auto const other = at.table->entryBlockCommit(block({row(usable(9), 1)}));
  suggest(other, {300});
  EXPECT_THAT(at.take(), IsEmpty()) << "the index is taken";
  at.table->doInitComplete();
  at.table->purgeStaleEntries();
  EXPECT_EQ(at.counted(Status::reconcileDeleted), 7u) << "the rows of nobody, one by one";
  EXPECT_EQ(at.counted(Status::reconcileAdded), 1u);
  EXPECT_EQ(at.util->rows.size(), 5u);
}

TEST(BlockRestart, theAllocatorsMemoryIsTriedFirstAndRewrittenInPlace) {
  Recorded at;
  at.holding(100, {{9, 1}, {9, 2}, {8, 3}}).quiet().synced();
  auto const key = fourRows(usable(9));
  ASSERT_TRUE(at.allocator()->recoverIndexForKey(100, Table::keyType(), &key));
  auto const handle = at.table->entryBlockCommit(key);
  EXPECT_THAT(at.take(), ElementsAre("compare 100 9/1", "compare 101 9/2", "compare 102 9/3",  //
                                     "write 100 9/1", "write 101 9/2", "write 102 9/3",        //
                                     "tracker 103 userAdd", "write 103 9/4"));
  EXPECT_EQ(handle->entryState(), State::success);
  EXPECT_EQ(at.counted(Status::reconcileRewritten), 1u);
  EXPECT_TRUE(at.table->syncedEntryMap().empty());
  for (U32 row : {100, 103}) EXPECT_EQ(at.usesOf(row), 1u);
}

// Who needs a block goes on as soon as that is told to be in place, and points at its rows.
TEST(BlockRestart, aBlockIsNotToldInPlaceBeforeItsRowsAreThere) {
  for (bool const isWhole : {false, true}) {
    Recorded at;
    at.quiet().holding(100, {{9, 1}, {9, 2}, {8, 3}});
    if (isWhole) at.holding(103, {{8, 4}});
    at.synced();
    auto const key = fourRows(usable(9));
    auto const handle = at.table->entryBlockCommit(key);
    suggest(handle, {100});
    std::vector<bool> whenUsable;
    auto const watching = handle->watched().watch(0x102, [&](auto const&) {
      if (Asic::SwTable::UnresolvedEntry::isUsable(*handle, nullptr))
        whenUsable.push_back(at.util->rows.contains(103));
    });
    at.table->doInitComplete();
    EXPECT_THAT(whenUsable, testing::Each(true));
    EXPECT_EQ(whenUsable.size(), isWhole ? 2u : 1u);
    EXPECT_EQ(handle->entryState(), State::success);
  }
}

TEST(BlockRestart, theEndOfTheReplaySettlesWhatIsOpen) {
  Recorded at;
  at.quiet()
      .holding(100, {{9, 90}, {9, 91}})
      .holding(200, {{9, 50}})
      .holding(300, {{9, 60}})
      .synced();
  auto const nextHop = usable(9);
  auto const withCandidate = block({row(nextHop, 1), row(nextHop, 2)});
  auto const without = block({row(nextHop, 3)});
  auto const waiting = block({row(needed(), 4)});
  auto const refused = block({row(nextHop, 5)});
  auto const handle = at.table->entryBlockCommit(withCandidate);
  suggest(handle, {100});
  at.table->entryBlockCommit(without);
  at.table->entryBlockCommit(waiting);
  suggest(at.table->entryBlockCommit(refused), {300});
  auto const taker = plainBlock(1, 99);
  ASSERT_TRUE(at.allocator()->requestIndexForKey(300, Table::keyType(), &taker));
  at.take();
  at.table->doInitComplete();
  auto const events = at.take();
  EXPECT_THAT(at.util->rows.at(100)->weightIdx, 1) << "the first candidate, whatever was there";
  EXPECT_EQ(handle->entryState(), State::success);
  EXPECT_EQ(at.usesOf(100), 1u) << "told once more, of a row that was found: one use";
  EXPECT_THAT(events, testing::Contains("tracker 100 userAdd"));
  EXPECT_EQ(at.counted(Status::reconcileRewritten), 1u);
  EXPECT_EQ(at.counted(Status::reconcileAdded), 2u);
  EXPECT_NE(at.indexOf(refused), 300u);
  EXPECT_EQ(at.handle(waiting).entryState(), State::unresolved);
  EXPECT_EQ(at.table->indexHelpers(), 0u);
  at.table->purgeStaleEntries();
  EXPECT_EQ(at.counted(Status::reconcileDeleted), 1u);
  EXPECT_FALSE(at.util->rows.contains(200));
  EXPECT_TRUE(at.util->rows.contains(300)) << "the row of a key that the allocator holds";
  EXPECT_EQ(at.usesOf(300), 0u);
}

// A block that came between the end of the replay and the purge, over rows of an old one.
TEST(BlockRestart, thePurgeSparesRowsThatABlockTookMeanwhile) {
  Recorded at;
  at.quiet().holding(100, {{9, 1}, {9, 2}, {9, 3}, {9, 4}}).synced();
  at.table->doInitComplete();
  auto const key = plainBlock(2);
  ASSERT_TRUE(at.allocator()->requestIndexForKey(101, Table::keyType(), &key));
  at.table->entryBlockCommit(key);
  at.take();
  at.table->purgeStaleEntries();
  EXPECT_THAT(at.take(), ElementsAre("tracker 100 userRemove", "delete 100",              //
                                     "tracker 101 userRemove", "tracker 102 userRemove",  //
                                     "tracker 103 userRemove", "delete 103"));
  EXPECT_EQ(at.counted(Status::reconcileDeleted), 2u);
  EXPECT_EQ(at.usesOf(101), 1u) << "the block's own";
  at.table->entryBlockRemove(key);
  EXPECT_THAT(at.util->rows, IsEmpty());
  EXPECT_EQ(at.usesOf(101), 0u);
}

TEST(BlockRestartDeath, limitsOnTheCallersStopTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  Recorded at;
  at.quiet().holding(50, {{1, 1}}).synced();
  auto const handle = at.table->entryBlockCommit(plainBlock(1));
  EXPECT_DEATH(at.table->syncEntries(), "!swTable_->resolvedEntryBlocks\\(\\)");
  EXPECT_DEATH(at.table->entryBlockRemoveAll(), "Should call purgeStaleEntries instead");
  at.replayed();
  EXPECT_DEATH(suggest(handle, {50}), "eh->entryState\\(\\) == unresolved\\(\\)");
  auto const waitingKey = block({row(needed(), 1)});
  auto const waiting = at.table->entryBlockCommit(waitingKey);
  EXPECT_DEATH(suggest(waiting, {50}), "swTable_->configReplayInProgress\\(\\)");
  EXPECT_DEATH(at.table->unresolvedEntryBlock(waitingKey)->doResolve(),
               "ue->neededEntryHandleSms\\(\\) == 0.*function should not have been called");
  EXPECT_DEATH(const_cast<Asic::SwTableBase::EntryHandle&>(*handle).useDrop();
               at.table->entryHandle(plainBlock(1))->useDrop(), "unexpected entryType");
}

}  // namespace
}  // namespace Member
