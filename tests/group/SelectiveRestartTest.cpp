// A restart of groups that stand on blocks: how suggestions travel down to the blocks, how groups find
// their rows, and a dance that begins before the replay has ended.

#include "SelectiveGroups.h"

namespace Group {
namespace {

template <class T>
class SelectiveRestart : public testing::Test {
 protected:
  SelectiveGroups<T> at_;
  NeededPtr block_ = needed();
};
TYPED_TEST_SUITE(SelectiveRestart, SelectiveTables);

#define AT this->at_

TYPED_TEST(SelectiveRestart, aSuggestionGoesDownToTheBlockAndTheAnswerComesBackUp) {
  AT.holding({{3, 70}, {4, 80}});
  auto const handle = AT.commit(7, this->block_);
  EXPECT_THAT(this->block_->suggested, IsEmpty()) << "nobody knows yet where the group lay";
  suggest(handle, {5, 3});
  // Where there is no row, the pointer of a default one is handed on.
  EXPECT_THAT(this->block_->suggested, testing::UnorderedElementsAre(0u, 70u));
  EXPECT_EQ(handle->entryState(), State::unresolved);
  AT.take();
  this->block_->becomes(State::indexReconciled, 70);
  EXPECT_EQ(AT.state(7), "U none, R value, T committed, E indexReconciled, S indexReconciled, Q 0");
  EXPECT_THAT(AT.take(), testing::Not(testing::Contains(testing::StartsWith("write"))));
  EXPECT_EQ(handle->hwIndex().value(), 3u);
  AT.replayed();
  EXPECT_EQ(AT.util->rows.size(), 1u) << "the other one was stale";
}

// Another wish while the first waits finds the candidates that are there, and drops those without rows.
TYPED_TEST(SelectiveRestart, aNewWishTellsItsBlockOfAllCandidatesAtOnce) {
  AT.holding({{3, 70}});
  auto const handle = AT.commit(7, this->block_);
  suggest(handle, {3, 9});
  auto const other = needed();
  AT.commit(7, other);
  EXPECT_THAT(other->suggested, ElementsAre(70u));
  EXPECT_TRUE(AT.table->indexHelper(*handle)->indexHas(3));
  EXPECT_FALSE(AT.table->indexHelper(*handle)->indexHas(9));
  // A block that is settled already is told nothing.
  auto const settled = needed(State::inProgress, 1);
  AT.commit(7, settled);
  EXPECT_THAT(settled->suggested, IsEmpty());
}

TYPED_TEST(SelectiveRestart, aKeyThatTheAllocatorKnowsTellsItsBlockItself) {
  AT.holding({{3, 70}});
  ASSERT_TRUE(AT.recover(7, 3));
  AT.commit(7, this->block_);
  EXPECT_THAT(this->block_->suggested, ElementsAre(70u));
  this->block_->becomes(State::success, 71);
  EXPECT_EQ(AT.state(7), "U none, R value, T committed, E indexReconciled, S indexReconciled, Q 0");
  EXPECT_EQ(AT.util->rows.at(3)->ecmpSecondaryBlockPtr, 71u) << "rewritten in place";
  EXPECT_EQ(AT.counted(Status::reconcileRewritten), 1u);
}

TYPED_TEST(SelectiveRestart, whatStillWaitsAtTheEndIsLeftAloneAndResolvesLater) {
  AT.holding({{3, 70}});
  auto const handle = AT.commit(7, this->block_);
  suggest(handle, {3});
  AT.table->doInitComplete();
  AT.take();
  EXPECT_EQ(AT.state(7), "U waiting, R none, T committed, E unresolved, S unresolved, Q 0");
  EXPECT_EQ(AT.counted(Status::reconcileAdded), 0u);
  EXPECT_EQ(AT.table->indexHelpers(), 0u);
  AT.table->purgeStaleEntries();
  // Its row may point at a block that goes; the group is written anew when its block is there.
  EXPECT_THAT(AT.util->rows, IsEmpty());
  AT.take();
  this->block_->becomes(State::success, 90);
  EXPECT_THAT(AT.take(), testing::IsSupersetOf({"tracker 0 userAdd", "write 0 90/1"}));
}

// The old value was found in its place; what waits for another block is not written over it.
TYPED_TEST(SelectiveRestart, aFormerValueThatWasFoundStaysWhateverBecomesOfTheWish) {
  for (bool const wishesAgain : {false, true}) {
    SelectiveGroups<TypeParam> at;
    at.holding({{3, 70}});
    ASSERT_TRUE(at.recover(7, 3));
    auto const handle = at.commit(7, usable(70));
    at.commit(7, this->block_);
    at.remove(7);
    EXPECT_EQ(handle->entryState(), State::unresolved);
    if (wishesAgain) at.commit(7, this->block_);
    at.take();
    at.table->doInitComplete();
    EXPECT_EQ(handle->entryState(), wishesAgain ? State::unresolved : State::indexReconciled);
    EXPECT_THAT(at.take(), ElementsAre("published 0x283"));
    EXPECT_EQ(at.counted(Status::reconcileAdded), 0u);
    EXPECT_EQ(at.util->rows.at(3)->ecmpSecondaryBlockPtr, 70u);
  }
}

// A value that has no place yet, and another one that waits: the row of the first is found.
TYPED_TEST(SelectiveRestart, aPlaceThatIsFoundForAFormerValueLeavesTheWishAWish) {
  AT.holding({{3, 70}});
  auto const former = usable(70);
  auto const handle = AT.commit(7, former);
  EXPECT_EQ(AT.state(7), "U none, R value, T committed, E unresolved, S unresolved, Q 0");
  AT.commit(7, this->block_);
  suggest(handle, {3});
  EXPECT_EQ(AT.state(7), "U waiting, R value, T committed, E unresolved, S indexReconciled, Q 0");
  EXPECT_THAT(this->block_->suggested, IsEmpty()) << "the row is the former value's";
  EXPECT_EQ(handle->hwIndex().value(), 3u);
}

// The chip refuses the rewrite, and the row shows what an earlier life put there: it may point at rows
// that the member table deletes next.
TYPED_TEST(SelectiveRestart, aRowWhoseRewriteIsRefusedGoesWithThePurge) {
  AT.holding({{3, 70}});
  ASSERT_TRUE(AT.recover(7, 3));
  auto const handle = AT.commit(7, usable(71));
  AT.commit(8, usable(71));  // where no row was found: nothing is there to be taken away
  AT.table->doInitComplete();
  for (U32 row : {3, 0}) AT.answer(row, Asic::WriteResponse::refused);
  AT.take();
  AT.table->purgeStaleEntries();
  EXPECT_THAT(AT.take(), ElementsAre("tracker 3 userRemove", "delete 3"));
  EXPECT_EQ(handle->entryState(), State::failedNoIndex);
  AT.commit(7, usable(72));
  EXPECT_THAT(AT.take(), testing::IsSupersetOf({"tracker 3 userAdd", "write 3 72/1"}));
}

// ---- a dance that begins before the replay has ended ----

TYPED_TEST(SelectiveRestart, aDanceOfTheReplayEndsWithTheFirstAcknowledgement) {
  AT.holding({{3, 70}, {4, 70}});
  ASSERT_TRUE(AT.recover(7, 3));
  auto handle = AT.ref(7, usable(70));
  ASSERT_EQ(AT.handle(7)->entryState(), State::indexReconciled);
  AT.take();
  handle = nullptr;
  EXPECT_THAT(AT.take(),
              ElementsAre("tracker 3 userDeactivate", "write 3 -", "published 0x289 7 was 70/1"));
  EXPECT_EQ(AT.state(7), "U none, R no value, T inDeletion, E inProgress, S inProgress, Q 1");
  EXPECT_EQ(AT.answer(3), 0u) << "nobody takes it yet";
  AT.replayed();
  AT.hw().deliverWriteResponses();
  EXPECT_THAT(AT.take(), ElementsAre("tracker 3 userRemoveInactive", "delete 3",
                                     "published 0x289 7 was -", "published 0x287 7 gone"));
  EXPECT_THAT(AT.util->rows, IsEmpty());
  EXPECT_EQ(AT.tracker().indices(), 0u);
}

#undef AT

}  // namespace
}  // namespace Group
