// Acknowledgements: which write they end, which of them belong to nothing any more, and what must
// not come; and how a key and its index lead to each other across the tables of one allocator.

#include "Groups.h"

namespace Group {
namespace {

template <class T>
class GroupResponse : public testing::Test {
 protected:
  Groups<T> at_{4};
};
TYPED_TEST_SUITE(GroupResponse, GroupTables);

TYPED_TEST(GroupResponse, onlyTheNewestWriteOfARowIsAnsweredAndOnce) {
  auto& at = this->at_.replayed();
  auto const handle = at.commit(7, 1);
  auto const overtaken = at.hw().newestWrite(0);
  at.commit(7, 2);
  EXPECT_EQ(at.acknowledge(overtaken, 0), 0u);
  EXPECT_EQ(handle->entryState(), State::inProgress);
  auto const newest = at.hw().newestWrite(0);
  EXPECT_EQ(at.acknowledge(newest, 0), 1u);
  EXPECT_EQ(at.acknowledge(newest, 0, Asic::WriteResponse::refused), 0u) << "a second answer";
  EXPECT_EQ(at.acknowledge(overtaken, 0, Asic::WriteResponse::refused), 0u) << "a late one";
  EXPECT_EQ(handle->entryState(), State::success);
  EXPECT_EQ(at.hw().newestWrite(0), 0u) << "none waits";
  EXPECT_EQ(at.answer(0), 0u);
}

// The first key's acknowledgement is on its way while its index goes to another key.
TYPED_TEST(GroupResponse, anIndexThatWentToAnotherKeyHearsNothingOfTheFormerOne) {
  auto& at = this->at_.replayed();
  at.commit(7, 1);
  auto const former = at.hw().newestWrite(0);
  at.remove(7);
  EXPECT_EQ(at.acknowledge(former, 0), 0u) << "the row is gone";
  auto const handle = at.commit(8, 1);
  ASSERT_EQ(at.indexOf(8), 0u);
  EXPECT_EQ(at.acknowledge(former, 0), 0u);
  EXPECT_EQ(handle->entryState(), State::inProgress);
  EXPECT_EQ(at.answer(0), 1u);
}

TYPED_TEST(GroupResponse, acknowledgementsBeforeTheEndOfTheReplayAreKept) {
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

TYPED_TEST(GroupResponse, aMachineThatIsTakenOutLeavesAcknowledgementsWaiting) {
  auto& at = this->at_.replayed();
  auto const handle = at.commit(7, 1);
  auto const machine = at.table->writeResponseSmDel();
  EXPECT_FALSE(machine->hasNotificationActive());
  EXPECT_FALSE(at.table->writeResponseSmDel());
  EXPECT_EQ(at.answer(0), 0u);
  EXPECT_NE(at.table->writeResponseSmIs(at.table.get()), machine);
  EXPECT_EQ(at.hw().deliverWriteResponses(), 1u);
  EXPECT_EQ(handle->entryState(), State::success);
}

// A handle is usable for those who need it by its index: that one is there before the state.
TYPED_TEST(GroupResponse, watchersOfTheStateReadTheIndex) {
  auto& at = this->at_.replayed();
  auto const handle = at.commit(7, 1);
  U32 read = noIndex;
  auto const watching = handle->watched().watch(0x102, [&](auto&) {
    read = Asic::SwTableBase::getHwIndexForDependentField(*handle).value();
  });
  at.answer(0);
  EXPECT_EQ(read, 0u);
}

// ---- keys and indices of two tables ----

// ---- limits ----

TYPED_TEST(GroupResponse, whatMustNotComeStopsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto& at = this->at_.replayed();
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
