// What a write and a removal of a group do, in their order: to its handle, the collections, the tracker
// and the hardware.

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

TYPED_TEST(GroupProgramming, withoutHooksAnIndexIsTakenAndGivenBackAndNothingIsWritten) {
  Groups<TypeParam> at(4);
  at.table->utilIs(nullptr);
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

// ---- how it leaves ----

TYPED_TEST(GroupProgramming, aHeldEntryStaysUntilItsHolderLetsGo) {
  auto& at = this->at_;
  auto handle = at.commit(7, 1);
  at.take();
  at.remove(7);
  EXPECT_THAT(at.take(), IsEmpty());
  EXPECT_EQ(handle->entryType(), Type::referenceOnly);
  EXPECT_EQ(handle->useCount(), 1u);
  at.remove(7);
  EXPECT_THAT(at.take(), IsEmpty()) << "a reference cannot be removed, only let go";
  U32 usedAtDelete = 0;
  at.util->onEvent = [&](auto& event) {
    if (event == "delete 0") usedAtDelete = at.allocator()->totalUsedIndices();
  };
  handle = nullptr;
  EXPECT_THAT(at.take(), ElementsAre("tracker 0 userRemove", "delete 0",
                                     "published 0x288 7 was mode 1", "published 0x286 7 gone"));
  EXPECT_EQ(usedAtDelete, 1u) << "the row goes before the index is free";
  isConsistent(at);
}

TYPED_TEST(GroupProgramming, removingAllTakesBackEveryCommitAndSparesWhatIsHeld) {
  auto& at = this->at_;
  auto const held = at.commit(3, 1);
  for (U32 id = 4; id < 10; ++id) at.commit(id, 1);
  at.table->entryHandleIs(at.key(11), at.table.get());
  at.table->entryRemoveAll();
  EXPECT_EQ(at.table->entrys(), 1u);
  EXPECT_EQ(held->entryType(), Type::referenceOnly);
  EXPECT_EQ(at.table->entry(at.key(3)), at.entry(1));
  isConsistent(at);
}

TYPED_TEST(GroupProgramming, aTableThatGoesDeletesAllAlsoWhatIsHeld) {
  auto& at = this->at_;
  auto held = at.table->entryHandle(at.key((at.commit(7, 1), 7)));
  at.commit(8, 1);
  auto const waits = at.ref(9, 1);
  auto const hwTable = Vell::Ptr<Asic::HwTable>(&at.hw());
  auto const live = TypeParam::EntryHandle::memAllocationTracker_.live();
  auto const allocator = Vell::Ptr(at.allocator());
  at.table = nullptr;
  EXPECT_THAT(at.util->rows, IsEmpty());
  EXPECT_EQ(allocator->totalUsedIndices(), 0u);
  EXPECT_EQ(allocator->tableAttrs(), 0u);
  EXPECT_FALSE(held->swTable());
  EXPECT_FALSE(hwTable->writeResponseSm());
  EXPECT_EQ(TypeParam::EntryHandle::memAllocationTracker_.live(), live - 1);
  held->cleanup();
  held->resolvedEntryStateIs(State::success);
  held = nullptr;
  EXPECT_EQ(TypeParam::EntryHandle::memAllocationTracker_.live(), live - 2);
}

// ---- limits ----

TYPED_TEST(GroupProgramming, whatMustNotComeStopsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto& at = this->at_;
  at.commit(7, 1);
  auto& handle = *at.table->entryHandle(at.key(7));
  at.answer(0);
  constexpr auto otherFinal =
      "entryState == unresolved\\(\\) \\|\\| "
      "entryState == failedNeededEntry\\(\\)";
  EXPECT_DEATH(handle.resolvedEntryStateIs(State::failedNoIndex), otherFinal);
  EXPECT_DEATH(handle.resolvedEntryStateIs(State::frameworkComplete), otherFinal);
  handle.entryStateIs(State::unresolved);
  constexpr auto notSuccess = "resolvedEntryState == success\\(\\)";
  EXPECT_DEATH(handle.resolvedEntryStateIs(State::failedNoIndex), notSuccess);
  at.commit(7, 2);
  EXPECT_DEATH(
      {
        handle.entryStateIs(State::failedNeededEntry);
        at.answer(0, Asic::WriteResponse::refused);
      },
      notSuccess);
  EXPECT_DEATH((at.blank(7), at.answer(0)), "Trait::tableNeedsDeleteDance");
  EXPECT_DEATH((at.blank(7), at.answer(0, Asic::WriteResponse::refused)), notSuccess);
  EXPECT_DEATH(
      at.table->entryHandleIs(at.key(8), at.table.get())->resolvedEntryStateIs(State::success),
      "swTable_->resolvedEntryHas\\( key \\)");
  EXPECT_DEATH(handle.entryStateIs(static_cast<State>(7)), "\"?0\"?.*does not exist");
  at.table->resolvedKeyPriorIs(Prior::noKey);
  EXPECT_DEATH(at.table->resolvedEntryIs(at.key(9), {}), "false.*empty value");
}

}  // namespace
}  // namespace Group
