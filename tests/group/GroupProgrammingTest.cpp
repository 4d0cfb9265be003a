// What a write of a group does, in its order: to its handle, the collections, the tracker and the
// hardware.

#include "Groups.h"

namespace Group {
namespace {

template <class T>
class GroupProgramming : public testing::Test {
 protected:
  GroupProgramming() { at_.replayed(); }
  /// A committed entry whose write is acknowledged, with its handle followed.
  HandlePtr written(U32 id, U32 mode) {
    auto handle = at_.commit(id, mode);
    at_.answer(at_.indexOf(id));
    at_.follow(handle);
    at_.take();
    return handle;
  }

  Groups<T> at_{4};
};
TYPED_TEST_SUITE(GroupProgramming, GroupTables);

// ---- the ordinary road ----

TYPED_TEST(GroupProgramming, aFirstWriteIsToldToTheTrackerThenToTheHardwareThenToWatchers) {
  auto& at = this->at_;
  auto const handle = at.commit(7, 1);
  EXPECT_THAT(at.take(), ElementsAre("published 0x286 7 new", "tracker 0 userAdd", "write 0 mode 1",
                                     "published 0x288 7 was -"));
  EXPECT_EQ(handle->entryState(), State::inProgress);
  EXPECT_EQ(handle->resolvedEntryState(), State::inProgress);
  EXPECT_TRUE(handle->hwIndex().isExhausted()) << "the acknowledgement brings the index";
  EXPECT_EQ(at.table->hwIndexOnlyForCrossAgentCommunication(at.key(7)).value(), noIndex);
  EXPECT_EQ(at.table->hwIndexOnlyForCrossAgentCommunication(at.key(8)).value(), noIndex);

  EXPECT_EQ(at.table->swKeyFromHwIndex(0), at.key(7));
  EXPECT_FALSE(at.table->swKeyFromHwIndex(2)) << "free";
  at.follow(handle);
  EXPECT_EQ(at.answer(0), 1u);
  EXPECT_THAT(at.take(), ElementsAre("entryState success", "resolved success"));
  EXPECT_EQ(at.table->hwIndexOnlyForCrossAgentCommunication(at.key(7)).value(), 0u);
  EXPECT_EQ(at.hw().unansweredWrites(), 0u);
}

TYPED_TEST(GroupProgramming, aChangedEntryIsRewrittenInPlaceAndItsStateBeginsAnew) {
  auto& at = this->at_;
  auto const handle = this->written(7, 1);
  at.ref(7, 2);
  EXPECT_THAT(at.take(),
              ElementsAre("entryState unresolved", "entryState inProgress", "resolved inProgress",
                          "write 0 mode 2", "published 0x288 7 was mode 1"));
  EXPECT_EQ(handle->entryType(), Type::committed) << "a reference takes nothing from the table";
  // Nothing holds a write back: not even one that is not acknowledged.
  at.commit(7, 3);
  EXPECT_THAT(at.take(), ElementsAre("entryState unresolved", "entryState inProgress",
                                     "write 0 mode 3", "published 0x288 7 was mode 2"));
  EXPECT_EQ(at.usesOf(0), 1u);
}

TYPED_TEST(GroupProgramming, aKeyLosesItsValueAndIsGivenOneAgain) {
  auto& at = this->at_;
  auto const handle = this->written(7, 1);
  at.blank(7);
  EXPECT_THAT(at.take(),
              ElementsAre("entryState inProgress", "resolved inProgress",
                          "tracker 0 userDeactivate", "write 0 -", "published 0x288 7 was mode 1"));
  EXPECT_TRUE(at.table->entryHas(at.key(7)));
  EXPECT_EQ(at.table->entry(at.key(7)), at.entry(0));
  EXPECT_FALSE(at.table->resolvedEntry(at.key(7)));
  EXPECT_FALSE(at.table->entryIteratorConst());
  at.commit(7, 2);
  EXPECT_THAT(at.take(),
              ElementsAre("entryState unresolved", "entryState inProgress",
                          "tracker 0 userActivate", "write 0 mode 2", "published 0x288 7 was -"));
  at.answer(0);
  EXPECT_EQ(handle->entryState(), State::success);
  this->written(8, 1);
  at.blank(8);
  at.take();
  at.remove(8);
  EXPECT_THAT(at.take(), testing::IsSupersetOf({"tracker 1 userRemoveInactive", "delete 1"}));
}

// ---- outcomes ----

TYPED_TEST(GroupProgramming, aRefusedWriteLeadsNobodyToARowThatIsNotThere) {
  auto& at = this->at_;
  auto const handle = at.follow(at.commit(7, 1));
  at.take();
  at.answer(0, Asic::WriteResponse::refused);
  EXPECT_THAT(at.take(), ElementsAre("entryState failedNoIndex", "resolved failedNoIndex"));
  EXPECT_TRUE(handle->hwIndex().isExhausted());
  EXPECT_EQ(at.indexOf(7), 0u) << "kept for the next write";
  at.commit(7, 2);
  EXPECT_THAT(at.take(),
              ElementsAre("entryState unresolved", "entryState inProgress", "resolved inProgress",
                          "write 0 mode 2", "published 0x288 7 was mode 1"));
  at.answer(0);
  at.commit(7, 3);
  at.answer(0, Asic::WriteResponse::refused);
  EXPECT_EQ(handle->hwIndex().value(), 0u) << "an earlier value stands there";
}

// ---- where the index comes from ----

TYPED_TEST(GroupProgramming, aFullAllocatorIsToldAndTheFirstWriteWithAnIndexTellsTheTracker) {
  auto& at = this->at_;
  for (U32 id = 0; id < 4; ++id) at.commit(id, 1);
  at.take();
  auto const handle = at.commit(7, 1);
  EXPECT_THAT(at.take(), ElementsAre("published 0x286 7 new", "published 0x288 7 was -"));
  EXPECT_EQ(handle->entryState(), State::failedNoIndex);
  EXPECT_EQ(handle->resolvedEntryState(), State::failedNoIndex);
  at.commit(7, 2);
  EXPECT_THAT(at.take(), ElementsAre("published 0x288 7 was mode 1")) << "still full";
  at.remove(2);
  at.take();
  at.commit(7, 2);
  EXPECT_THAT(at.take(), IsEmpty()) << "nothing retries by itself";
  at.commit(7, 3);
  EXPECT_THAT(at.take(),
              ElementsAre("tracker 2 userAdd", "write 2 mode 3", "published 0x288 7 was mode 2"));
  at.commit(7, 4);
  EXPECT_THAT(at.take(), ElementsAre("write 2 mode 4", "published 0x288 7 was mode 3"));
  EXPECT_EQ(at.usesOf(2), 1u);
}

TYPED_TEST(GroupProgramming, aWriteAtAnIndexTakesItIfItIsFree) {
  auto& at = this->at_;
  at.table->entryWriteAtIndex(3, at.key(7), at.entry(1));
  EXPECT_THAT(at.take(), ElementsAre("published 0x286 7 new", "tracker 3 userAdd", "write 3 mode 1",
                                     "published 0x288 7 was -"));
  at.commit(7, 2);
  at.table->entryWriteAtIndex(1, at.key(7), at.entry(3));
  EXPECT_EQ(at.indexOf(7), 3u) << "a key stays where it is";
  at.table->entryWriteAtIndex(3, at.key(8), at.entry(4));
  EXPECT_EQ(at.indexOf(8), 0u) << "the index is another key's";
  EXPECT_EQ(at.table->entryHandle(at.key(8))->entryType(), Type::committed);
  EXPECT_EQ(at.util->rows.at(3), at.entry(3));
}

TYPED_TEST(GroupProgramming, anIndexThatIsKnownAtTheWriteIsOnTheHandleAtOnce) {
  auto& at = this->at_;
  at.util->indexKnownAtWriteIs(true);
  auto const handle = at.commit(7, 1);
  EXPECT_EQ(handle->hwIndex().value(), 0u);
  EXPECT_EQ(handle->entryState(), State::inProgress) << "the write is acknowledged all the same";
}

TYPED_TEST(GroupProgramming, withoutHooksAnIndexIsTakenAndGivenBackAndNothingIsWritten) {
  Groups<TypeParam> at(4, Groups<TypeParam>::Hooks::absent);
  at.replayed();
  auto handle = at.commit(7, 1);
  EXPECT_EQ(handle->entryState(), State::inProgress);
  EXPECT_EQ(at.allocator()->totalUsedIndices(), 1u);
  at.remove(7);
  EXPECT_EQ(at.allocator()->totalUsedIndices(), 1u) << "the client still holds it";
  at.take();
  handle = nullptr;
  EXPECT_THAT(at.take(), ElementsAre("published 0x288 7 was mode 1", "published 0x286 7 gone"));
  EXPECT_EQ(at.allocator()->totalUsedIndices(), 0u);
}

}  // namespace
}  // namespace Group
