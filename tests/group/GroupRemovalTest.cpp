// How a group leaves: who keeps it, and the order of what happens.

#include "Groups.h"

namespace Group {
namespace {

template <class T>
class GroupRemoval : public testing::Test {
 protected:
  GroupRemoval() { at_.replayed(); }
  Groups<T> at_;
};
TYPED_TEST_SUITE(GroupRemoval, GroupTables);

TYPED_TEST(GroupRemoval, aHeldEntryStaysUntilItsHolderLetsGo) {
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

TYPED_TEST(GroupRemoval, aHandleOfNoEntryLeavesTheTableAndStaysWithItsHolder) {
  auto& at = this->at_;
  auto const handle = at.table->entryHandleIs(at.key(7), at.table.get());
  at.take();
  at.remove(7);
  EXPECT_THAT(at.take(), ElementsAre("published 0x286 7 gone"));
  at.commit(7, 1);
  EXPECT_NE(at.table->entryHandle(at.key(7)), handle);
}

TYPED_TEST(GroupRemoval, removingAllTakesBackEveryCommitAndSparesWhatIsHeld) {
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

TYPED_TEST(GroupRemoval, aTableThatGoesDeletesAllAlsoWhatIsHeld) {
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

}  // namespace
}  // namespace Group
