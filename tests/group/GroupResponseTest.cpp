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
}

// 0 is what `newestWrite` says of a row without a write that waits for its answer.
TYPED_TEST(GroupResponse, anAnswerToNoWriteIsDropped) {
  auto& at = this->at_.replayed();
  at.commit(7, 1);
  at.answer(0);
  EXPECT_EQ(at.hw().newestWrite(0), 0u);
  EXPECT_EQ(at.answer(0), 0u);
  EXPECT_EQ(at.answer(3), 0u) << "of a row that nobody wrote";
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

// A record that the purge deletes may have been the row of a write as well.
TYPED_TEST(GroupResponse, aPurgedRowHearsNothingEither) {
  auto& at = this->at_.holding({{2, 9}});
  at.hw().writeIs(2);
  auto const write = at.hw().newestWrite(2);
  at.replayed();
  EXPECT_EQ(at.acknowledge(write, 2), 0u);
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

TYPED_TEST(GroupResponse, aTableWithoutHardwareTakesNoAcknowledgements) {
  auto& at = this->at_;
  at.table->hwTableIs(nullptr);
  at.replayed();
  EXPECT_FALSE(at.table->writeResponseSm());
  at.commit(7, 1);
  at.remove(7);
  EXPECT_EQ(at.table->entrys(), 0u);
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

TEST(GroupIndices, keysOfBothTypesLieInOneAllocatorAndEachTableKnowsItsOwn) {
  Groups<Ecmp> plain(2);
  Groups<Vxlan> vxlan(2);
  plain.replayed();
  vxlan.replayed();
  plain.commit(7, 1);
  auto const other = vxlan.commit(7, 2);
  auto const third = plain.commit(8, 1);
  EXPECT_EQ(third->entryState(), State::failedNoIndex) << "one space for both";
  EXPECT_EQ(plain.table->swKeyFromHwIndex(0), plain.key(7));
  EXPECT_EQ(vxlan.table->swKeyFromHwIndex(1), vxlan.key(7));
  EXPECT_FALSE(plain.table->swKeyFromHwIndex(1));
  EXPECT_FALSE(vxlan.table->swKeyFromHwIndex(0));
  EXPECT_FALSE(plain.table->swKeyFromHwIndex(2)) << "free";
  plain.answer(1);
  EXPECT_EQ(other->entryState(), State::inProgress) << "that was another hardware table's row";
  vxlan.answer(1);
  EXPECT_EQ(other->entryState(), State::success);
}

TYPED_TEST(GroupResponse, handlesAreMadeOnceAndCountWithoutAnEntry) {
  auto& at = this->at_.replayed();
  auto const handle = at.table->entryHandleIs(at.key(7), at.table.get());
  EXPECT_EQ(at.table->entryHandleIs(at.key(7), at.table.get()), handle);
  EXPECT_THAT(at.take(), ElementsAre("published 0x286 7 new"));
  EXPECT_EQ(at.table->entrys(), 1u);
  EXPECT_FALSE(at.table->entryHas(at.key(7)));
  Groups<TypeParam> other;
  EXPECT_ANY_THROW(at.table->entryHandleIs(at.key(7), other.table.get()));
  EXPECT_EQ(handle->swTable(), at.table.get());
}

TYPED_TEST(GroupResponse, syncedRowsAreToldWithWhatTheyHeld) {
  auto& at = this->at_;
  std::vector<U32> modes;
  auto const watching = at.table->publisher()->watch(0x28a, [&](auto& change) {
    modes.push_back(change.template previousAs<typename TypeParam::Entry>()->lbMode);
  });
  at.table->syncedEntryIs(3, at.entry(5));
  at.table->syncedEntryIs(3, at.entry(5));
  at.table->syncedEntryIs(3, at.entry(6));
  EXPECT_EQ(at.table->syncedEntryDel(3), at.entry(6));
  EXPECT_EQ(at.table->syncedEntryDel(3), at.entry(0));
  EXPECT_THAT(modes, ElementsAre(0u, 5u, 6u));
  EXPECT_FALSE(at.table->syncedEntryGet(3));
}

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
