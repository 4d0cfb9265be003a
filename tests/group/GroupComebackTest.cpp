// Groups whose wish changes in the midst of an operation on them: the newest wish wins, an entry that
// comes back begins a new life, and what a row may show is held.

#include "SelectiveGroups.h"

namespace Group {
namespace {

template <class T>
class GroupComeback : public testing::Test {
 protected:
  Groups<T> at_;
};
TYPED_TEST_SUITE(GroupComeback, GroupTables);

TYPED_TEST(GroupComeback, aKeyThatComesBackFromItsRemovalInTheReplayIsWrittenAnew) {
  for (auto const* const event : {"tracker 3 userRemove", "delete 3", "resolved unresolved"}) {
    Groups<TypeParam> at;
    at.holding({{3, 1}});
    ASSERT_TRUE(at.recover(7, 3));
    auto handle = at.follow(at.ref(7, 1));
    ASSERT_EQ(handle->entryState(), State::indexReconciled);
    HandlePtr back;
    at.util->onEvent = [&](auto const& now) {
      if (now == event && !back) back = at.commit(7, 2);
    };
    handle = nullptr;
    at.util->onEvent = nullptr;
    ASSERT_TRUE(back) << event;
    EXPECT_EQ(at.counted(Status::reconcileDeleted), 0u) << event;
    at.replayed();
    EXPECT_EQ(at.answer(at.indexOf(7)), 1u) << event;
    EXPECT_EQ(back->entryState(), State::success) << event;
    isConsistent(at);
  }
}

TYPED_TEST(GroupComeback, aWriteThatIsOvertakenWithoutAnIndexStops) {
  Groups<TypeParam> at(1);
  at.replayed();
  at.commit(1, 1);
  auto const handle = at.table->entryHandleIs(at.key(2), at.table.get());
  at.follow(handle);
  bool done = false;
  at.util->onEvent = [&](auto const& event) {
    if (event != "entryState inProgress" || std::exchange(done, true)) return;
    at.commit(2, 2);
    at.remove(1);
  };
  at.commit(2, 1);
  EXPECT_EQ(at.table->entry(at.key(2)), at.entry(2)) << "the newest wish";
  EXPECT_EQ(handle->entryState(), State::failedNoIndex);
  EXPECT_THAT(at.util->rows, IsEmpty());
  at.commit(2, 3);
  at.answer(0);
  EXPECT_EQ(handle->entryState(), State::success);
  isConsistent(at);
}

TYPED_TEST(GroupComeback, aHandleInNoTableTakesNoCandidates) {
  auto& at = this->at_.holding({{3, 1}});
  HandlePtr const outside = TypeParam::entryHandleFactory(at.key(7), at.table.get());
  suggest(outside, {3});
  EXPECT_EQ(at.table->indexHelpers(), 0u);
}

TYPED_TEST(GroupComeback, anIndexAskedForAheadEndsWithACommitThatIsTakenBack) {
  auto& at = this->at_.replayed();
  at.util->onEvent = [&](auto const& event) {
    if (event == "published 0x286 7 new") at.remove(7);
  };
  at.table->entryWriteAtIndex(5, at.key(7), at.entry(1));
  EXPECT_EQ(at.allocator()->totalUsedIndices(), 0u);
}

template <class T>
class SelectiveComeback : public testing::Test {};
TYPED_TEST_SUITE(SelectiveComeback, SelectiveTables);

// The allocator knows the place, or a candidate fits, before or after the value came.
TYPED_TEST(SelectiveComeback, aValueFoundInPlaceHoldsItsBlockAlsoIfAWatcherOfThatReplacesIt) {
  for (U32 road = 0; road < 3; ++road) {
    SelectiveGroups<TypeParam> at;
    at.holding({{3, 70}});
    auto const former = usable(70), other = usable(80);
    auto const handle = at.table->entryHandleIs(at.key(7), at.table.get());
    at.follow(handle);
    bool done = false;
    at.util->onEvent = [&](auto const& event) {
      bool const isFound = event == "entryState indexReconciled" || event == "published 0x28c 3";
      if (isFound && !std::exchange(done, true)) at.commit(7, other, 2);
    };
    EXPECT_EQ(road == 0 && at.recover(7, 3), road == 0);
    if (road == 1) suggest(handle, {3});
    at.commit(7, former);
    if (road == 2) suggest(handle, {3});
    ASSERT_TRUE(done) << road;
    EXPECT_EQ(at.table->entry(at.key(7)), at.entry(other, 2)) << road;
    EXPECT_GE(at.usesOf(former), 1u) << road << ": the row may show it";
    at.replayed();
    at.answer(at.indexOf(7));
    EXPECT_EQ(at.usesOf(former), 0u) << road;
    EXPECT_EQ(at.util->rows.at(at.indexOf(7)), at.table->resolvedEntry(at.key(7))) << road;
  }
}

}  // namespace
}  // namespace Group
