// How groups find their old index after a restart, and what becomes of rows that nobody claims.

#include "Groups.h"

namespace Group {
namespace {

template <class T>
class GroupRestart : public testing::Test {
 protected:
  Groups<T> at_;
};
TYPED_TEST_SUITE(GroupRestart, GroupTables);

// ---- at the commit ----

// The allocator knows the index, or it was suggested to a handle that somebody made and nobody
// committed.
TYPED_TEST(GroupRestart, aRowAtAKnownIndexIsLeftAloneOrRewrittenInPlace) {
  struct Case {
    bool isSuggested;
    U32 mode;
    Status counted;
    Events events;
  };
  for (auto const& each :
       {Case{false, 1, Status::reconcileMatched, {"compare 4 mode 1"}},
        {true, 1, Status::reconcileMatched, {"compare 4 mode 1"}},
        {false, 2, Status::reconcileRewritten, {"compare 4 mode 2", "write 4 mode 2"}}}) {
    SCOPED_TRACE(each.mode);
    Groups<TypeParam> at;
    at.holding({{4, 1}, {9, 9}});
    HandlePtr const handle = at.table->entryHandleIs(at.key(7), at.table.get());
    each.isSuggested ? suggest(handle, {4, 12}) : static_cast<void>(at.recover(7, 4));
    EXPECT_THAT(at.take(), ElementsAre("published 0x286 7 new")) << "nothing to compare with yet";
    EXPECT_EQ(at.commit(7, each.mode), handle);
    auto events = each.events;
    events.insert(events.end(), {"published 0x28a 4", "published 0x288 7 was -"});
    EXPECT_EQ(at.take(), events);
    EXPECT_EQ(handle->entryState(), State::indexReconciled);
    EXPECT_EQ(handle->resolvedEntryState(), State::indexReconciled);
    EXPECT_EQ(handle->hwIndex().value(), 4u);
    EXPECT_EQ(at.table->indexHelpers(), 0u);
    at.replayed();
    EXPECT_EQ(at.counted(each.counted), 1u);
    EXPECT_EQ(at.counted(Status::reconcileAdded), 0u);
    // The tracker knows the row: it is not told again, neither then nor by a later write.
    at.commit(7, 3);
    EXPECT_EQ(at.take()[0], "write 4 mode 3");
    EXPECT_EQ(at.usesOf(4), 1u);
    EXPECT_EQ(at.answer(4), 1u);
    EXPECT_EQ(handle->entryState(), State::success);
  }
}

// ---- waiting ----

TYPED_TEST(GroupRestart, aKeyWithoutAnIndexWaitsForASuggestion) {
  auto& at = this->at_.holding({{4, 1}, {9, 9}});
  auto const handle = at.commit(7, 1);
  EXPECT_THAT(at.take(), ElementsAre("published 0x286 7 new", "published 0x288 7 was -"));
  EXPECT_EQ(handle->entryState(), State::unresolved);
  EXPECT_EQ(at.counted(Status::reconcileAdded), 0u);
  at.follow(handle);
  suggest(handle, {9});
  EXPECT_THAT(at.take(), ElementsAre("compare 9 mode 1"));
  suggest(handle, {9});
  EXPECT_THAT(at.take(), IsEmpty()) << "dealt with";
  suggest(handle, {4, 9, 12});
  EXPECT_THAT(at.take(), ElementsAre("compare 4 mode 1", "published 0x28a 4",
                                     "entryState indexReconciled", "resolved indexReconciled"));
  EXPECT_EQ(handle->hwIndex().value(), 4u);
  EXPECT_EQ(at.counted(Status::reconcileMatched), 1u);
  EXPECT_EQ(at.table->indexHelpers(), 0u);
  // A row that was written after the sync is not known to the tracker.
  at.util->rows[6] = at.entry(1);
  auto const late = at.commit(8, 1);
  at.take();
  suggest(late, {6});
  EXPECT_THAT(at.take(), ElementsAre("compare 6 mode 1", "tracker 6 userAdd"));
  EXPECT_EQ(late->entryState(), State::indexReconciled);
}

// ---- the end of the replay ----

// The index that the allocator knows of the key, the candidate that is suggested, and what comes of it.
TYPED_TEST(GroupRestart, whereAKeyGoesWhoseRowWasNotFound) {
  struct Case {
    U32 known, candidate, index;
    State state;
    Status counted;
  };
  for (auto const& each : {Case{5, noIndex, 5, State::inProgress, Status::reconcileAdded},
                           {noIndex, 12, 12, State::indexReconciled, Status::reconcileRewritten},
                           {noIndex, 4, 4, State::indexReconciled, Status::reconcileRewritten},
                           {noIndex, noIndex, 0, State::inProgress, Status::reconcileAdded}}) {
    SCOPED_TRACE(each.index);
    Groups<TypeParam> at;
    at.holding({{4, 9}});
    if (each.known != noIndex) at.recover(7, each.known);
    auto const handle = at.commit(7, 1);
    if (each.candidate != noIndex) suggest(handle, {each.candidate});
    at.table->doInitComplete();
    auto const events = at.take();
    EXPECT_THAT(events, testing::Contains(Vell::concatenate("write ", each.index, " mode 1")));
    EXPECT_EQ(std::ranges::count(events, Vell::concatenate("tracker ", each.index, " userAdd")),
              each.index != 4);
    EXPECT_EQ(handle->entryState(), each.state);
    EXPECT_EQ(at.counted(each.counted), 1u);
    EXPECT_EQ(at.table->indexHelpers(), 0u);
    at.table->purgeStaleEntries();
    EXPECT_EQ(at.usesOf(4), each.index == 4);
    EXPECT_EQ(at.usesOf(each.index), 1u);
    EXPECT_EQ(at.answer(each.index), 1u);
  }
}

// New indices are the lowest free ones, and each of the candidates is one of those.
TYPED_TEST(GroupRestart, noNewIndexTakesACandidateAway) {
  auto& at = this->at_.holding({{0, 9}, {1, 9}, {2, 9}, {15, 9}});
  for (U32 id = 0; id < 10; ++id) at.commit(id, 1);
  for (U32 id : {2, 5, 9}) suggest(at.table->entryHandle(at.key(id)), {id / 4});
  at.replayed();
  for (U32 id : {2, 5, 9}) EXPECT_EQ(at.indexOf(id), id / 4);
  EXPECT_EQ(at.counted(Status::reconcileRewritten), 3u);
  EXPECT_EQ(at.counted(Status::reconcileAdded), 7u);
  EXPECT_EQ(at.util->rows.size(), 10u);
}

// A row above may be damaged, or older than what the allocator knows.
TYPED_TEST(GroupRestart, aCandidateThatCannotBeHadIsPassedOver) {
  auto& at = this->at_.holding({{4, 1}, {6, 2}});
  auto const beyond = at.commit(7, 5);
  suggest(beyond, {16, noIndex});
  auto const placed = at.commit(8, 2);
  at.recover(8, 2);
  suggest(placed, {6});
  EXPECT_EQ(placed->entryState(), State::unresolved);
  at.replayed();
  EXPECT_EQ(beyond->entryState(), State::inProgress);
  EXPECT_EQ(at.indexOf(7), 0u);
  EXPECT_EQ(at.indexOf(8), 2u);
  EXPECT_THAT(at.util->rows, testing::SizeIs(2));
}

TYPED_TEST(GroupRestart, acknowledgementsBeforeTheEndOfTheReplayAreKept) {
  auto& at = this->at_.holding({});
  auto const handle = at.commit(7, 1);
  at.commit(8, 1);
  EXPECT_EQ(at.answer(0), 0u) << "nobody takes it yet";
  at.remove(8);
  at.take();
  at.table->doInitComplete();
  EXPECT_THAT(at.take(), ElementsAre("published 0x283"));
  EXPECT_EQ(handle->entryState(), State::inProgress) << "not from inside an operation";
  EXPECT_EQ(at.hw().deliverWriteResponses(), 1u);
  EXPECT_EQ(handle->entryState(), State::success);
  at.table->doInitComplete();
  EXPECT_THAT(at.take(), IsEmpty()) << "there is a machine";
}

// ---- removal during the replay ----

TYPED_TEST(GroupRestart, anEntryThatStillWaitsLeavesNothingAndItsRowIsPurged) {
  auto& at = this->at_.holding({{4, 9}});
  suggest(at.commit(7, 1), {4});
  at.take();
  at.remove(7);
  EXPECT_THAT(at.take(), ElementsAre("published 0x288 7 was mode 1", "published 0x286 7 gone"));
  EXPECT_EQ(at.table->indexHelpers(), 0u);
  EXPECT_EQ(at.counted(Status::reconcileDeleted), 0u);
  suggest(at.commit(9, 1), {0});
  at.remove(9);
  at.commit(8, 1);
  at.replayed();
  EXPECT_EQ(at.indexOf(8), 0u) << "no candidate of anybody any more";
  EXPECT_THAT(at.util->rows, testing::SizeIs(1));
  EXPECT_EQ(at.usesOf(4), 0u);
}

// ---- limits ----

TYPED_TEST(GroupRestart, limitsOnTheCallersStopTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto& at = this->at_.holding({{4, 1}});
  auto const waiting = at.commit(8, 5);
  at.recover(7, 4);
  auto const matched = at.commit(7, 1);
  at.table->syncedEntryIs(3, at.entry(1));
  EXPECT_DEATH(suggest(matched, {4}), "eh->entryState\\(\\) == unresolved\\(\\)");
  EXPECT_DEATH(at.table->syncEntries(), "!swTable_->resolvedEntrys\\(\\)");
  EXPECT_DEATH(at.table->entryRemoveAll(), "Should call purgeStaleEntries instead");
  at.table->configReplayCompleteIs(true);
  EXPECT_DEATH(suggest(waiting, {4}), "swTable_->configReplayInProgress\\(\\)");
}

}  // namespace
}  // namespace Group
