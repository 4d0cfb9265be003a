// What groups that stand on blocks are: their entries, what a table tells of them, when a block counts
// as usable, and chips that tell the index at the write, or nothing at all.

#include "SelectiveGroups.h"
#include "platform/zarn/ValueText.h"

namespace Group {
namespace {

template <class T>
class SelectiveModel : public testing::Test {
 protected:
  SelectiveGroups<T> at_;
  NeededPtr block_ = usable(70), waiting_ = needed();
};
TYPED_TEST_SUITE(SelectiveModel, SelectiveTables);

#define AT this->at_

TYPED_TEST(SelectiveModel, thePointerOfAnEntryIsNoPartOfItsIdentity) {
  auto const entry = AT.entry(this->block_, 5);
  auto pointing = entry;
  pointing.ecmpSecondaryBlockPtr = 9;
  EXPECT_EQ(entry, pointing);
  EXPECT_EQ(entry <=> pointing, 0);
  typename TypeParam::Entry onlyPointing;
  onlyPointing.ecmpSecondaryBlockPtr = 9;
  EXPECT_FALSE(static_cast<bool>(onlyPointing));
  EXPECT_TRUE(static_cast<bool>(entry));
  EXPECT_EQ(TypeParam::Entry::numDependentFields, 1u);
  AT.replayed();
  AT.commit(7, this->block_, 5);
  AT.take();
  AT.table->resolvedKeyPriorIs(Prior::value);
  AT.table->resolvedEntryIs(AT.key(7), pointing);
  EXPECT_THAT(AT.take(), IsEmpty());
}

TYPED_TEST(SelectiveModel, textFormsNameWhatIsWrong) {
  using Entry = typename TypeParam::Entry;
  auto entry = AT.entry(this->block_, 4095);
  entry.ecmpSecondaryBlockPtr = 17;
  auto const text = Zarn::valueToStrep(entry);
  EXPECT_EQ(Zarn::strepToValue<Entry>(text), entry);
  EXPECT_EQ(Zarn::strepToValue<Entry>(text).ecmpSecondaryBlockPtr, 17u);
  auto const attributeOf = [](std::string_view handle, std::string_view count) -> std::string {
    try {
      Zarn::strepToValue<Entry>(Vell::concatenate(
          Entry::fields().tag, "{ecmpSecondaryBlockPtrHandle:", handle,
          " ecmpSecondaryBlockPtr:1 secondaryBlockValid:true countSecondary:", count, "}"));
    } catch (Vell::RangeException const& error) {
      return error.attribute();
    }
    return "none";
  };
  EXPECT_EQ(attributeOf("0", "4095"), "none");
  EXPECT_EQ(attributeOf("0x10", "5"), "ecmpSecondaryBlockPtrHandle") << "no handle lies there";
  for (auto const* count : {"4096", "65536", "x", ""})
    EXPECT_EQ(attributeOf("0", count), "countSecondary") << count;
  EXPECT_ANY_THROW(Zarn::strepToValue<Entry>(text + " "));
}

TYPED_TEST(SelectiveModel, aBlockIsUsableByItsStateAndItsIndex) {
  using enum State;
  struct Case {
    State state;
    U32 index;
    bool indexKnownAtWrite;
    bool resolves;
  };
  for (auto const& each : {Case{indexReconciled, noIndex, false, true},
                           {success, noIndex, false, false},
                           {success, 5, false, true},
                           {frameworkComplete, 5, false, true},
                           {frameworkComplete, noIndex, false, false},
                           {inProgress, 5, false, false},
                           {inProgress, 5, true, true},
                           {unresolved, noIndex, true, false}}) {
    SelectiveGroups<TypeParam> at;
    at.replayed();
    at.util->indexKnownAtWriteIs(each.indexKnownAtWrite);
    auto const handle = at.commit(7, needed(each.state, each.index));
    EXPECT_EQ(at.table->resolvedEntry(at.key(7)).has_value(), each.resolves)
        << each.state << " " << each.index;
    EXPECT_EQ(handle->hwIndex().isExhausted(), !(each.resolves && each.indexKnownAtWrite));
  }
}

TYPED_TEST(SelectiveModel, withoutABlockAnEntryIsWrittenAtOnceAndKeepsItsPointer) {
  AT.replayed();
  auto entry = AT.entry(nullptr, 2);
  entry.ecmpSecondaryBlockPtr = 33;
  AT.table->entryCommit(AT.key(7), entry);
  EXPECT_EQ(AT.util->rows.at(0)->ecmpSecondaryBlockPtr, 33u);
  AT.answer(0);
  // A default value shows nothing that would have to be kept.
  AT.table->entryCommit(AT.key(8), {});
  AT.answer(1);
  AT.commit(8, this->block_);
  EXPECT_EQ(AT.handle(8)->pendingEntry().count(), 0u);
}

TYPED_TEST(SelectiveModel, queriesAndWalksSeeWhatWaits) {
  AT.replayed();
  AT.commit(1, this->block_, 1);
  AT.commit(2, this->block_, 2);
  AT.commit(2, this->waiting_, 3);
  AT.commit(3, this->waiting_, 4);
  std::vector<std::pair<U32, U64>> seen;
  for (auto walk = AT.table->entryIteratorConst(); walk; walk.advance())
    seen.emplace_back(walk.key().adjId, walk.entry().countSecondary.value());
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen.back(), std::pair(1u, U64{1})) << "those that wait come first";
  std::ranges::sort(seen);
  EXPECT_THAT(seen, ElementsAre(std::pair(1u, 1u), std::pair(2u, 3u), std::pair(3u, 4u)));
  EXPECT_EQ(AT.table->resolvedEntry(AT.key(2)), AT.entry(this->block_, 2));
  EXPECT_FALSE(AT.table->entryInHwTable(AT.key(3)));
  EXPECT_FALSE(AT.table->entryIteratorConst(AT.key(9)));
  auto at = AT.table->entryIteratorConst(AT.key(2));
  AT.table->unresolvedEntryDel(AT.key(2));
  EXPECT_EQ(at.entry().countSecondary.value(), 2u) << "it waits no more";
  AT.take();
  auto const record = AT.table->unresolvedEntryIs(AT.key(3));
  EXPECT_EQ(AT.table->unresolvedEntry(AT.key(3)), record);
  EXPECT_THAT(AT.take(), IsEmpty());
  AT.answer(0);
  AT.remove(1);
  EXPECT_FALSE(AT.table->entryHas(AT.key(1)));
  EXPECT_FALSE(AT.table->entryIteratorConst(AT.key(1))) << "it leaves";
}

TYPED_TEST(SelectiveModel, anIndexAskedForAheadIsGivenBackIfTheEntryNeverCame) {
  AT.replayed();
  AT.table->entryWriteAtIndex(5, AT.key(7), AT.entry(this->waiting_, 1));
  EXPECT_EQ(AT.indexOf(7), 5u);
  AT.remove(7);
  EXPECT_EQ(AT.allocator()->totalUsedIndices(), 0u);
  auto const held = AT.table->entryWriteAtIndex(5, AT.key(7), AT.entry(this->waiting_, 1));
  AT.remove(7);
  EXPECT_EQ(AT.allocator()->totalUsedIndices(), 0u) << "also while somebody holds the handle";
  AT.table->entryWriteAtIndex(6, AT.key(7), AT.entry(this->block_, 1));
  EXPECT_TRUE(AT.util->rows.contains(6));
}

TYPED_TEST(SelectiveModel, aRefusedWriteKeepsTheBlockThatTheRowStillShows) {
  AT.replayed();
  AT.commit(7, this->block_);
  AT.answer(0);
  auto const other = usable(80);
  AT.commit(7, other);
  AT.answer(0, Asic::WriteResponse::refused);
  EXPECT_EQ(AT.state(7), "U none, R value, T committed, E failedNoIndex, S failedNoIndex, Q 1");
  EXPECT_EQ(AT.usesOf(this->block_), 1u);
  AT.commit(7, this->waiting_);
  AT.commit(7, usable(90));
  AT.answer(0);
  EXPECT_EQ(AT.state(7), "U none, R value, T committed, E success, S success, Q 0");
  // One that was never acknowledged leaves without a dance, and its row before its block.
  AT.commit(7, other);
  AT.answer(0, Asic::WriteResponse::refused);
  AT.take();
  AT.remove(7);
  EXPECT_THAT(AT.take(), ElementsAre("tracker 0 userRemove", "delete 0",
                                     "published 0x289 7 was 80/1", "published 0x287 7 gone"));
}

// ---- chips that do not answer ----

TYPED_TEST(SelectiveModel, withoutHooksAnEntryStaysInItsDance) {
  SelectiveGroups<TypeParam> at(4);
  at.table->utilIs(nullptr);
  at.replayed();
  at.commit(7, this->block_);
  EXPECT_EQ(at.state(7), "U none, R value, T committed, E inProgress, S inProgress, Q 0");
  at.remove(7);
  EXPECT_EQ(at.state(7), "U none, R no value, T inDeletion, E inProgress, S inProgress, Q 1");
  EXPECT_EQ(at.usesOf(this->block_), 1u);
  at.table = nullptr;
  EXPECT_EQ(this->block_->useCount(), 1u);
}

// The environment is read once for each class, so each reading needs a process of its own.
TYPED_TEST(SelectiveModel, theEnvironmentMayAskThatWritesAndDancesEndWithinTheirCalls) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto const run = [&](bool hasHooks, bool indexKnownAtWrite) {
    ::setenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE", "1", 1);
    {
      SelectiveGroups<TypeParam> at(4);
      if (!hasHooks) at.table->utilIs(nullptr);
      at.replayed();
      at.util->indexKnownAtWriteIs(indexKnownAtWrite);
      at.commit(7, this->waiting_);
      this->waiting_->becomes(State::success, 70);
      if (at.state(7) != "U none, R value, T committed, E success, S success, Q 0") std::_Exit(1);
      if (at.handle(7)->hwIndex().value() != 0) std::_Exit(2);
      at.commit(7, this->block_);
      if (at.handle(7)->pendingEntry().count() != 0) std::_Exit(3);
      at.remove(7);
      if (at.state(7) != "U none, R none, no handle") std::_Exit(4);
      if (at.allocator()->totalUsedIndices() != 0 || !at.util->rows.empty()) std::_Exit(5);
    }
    std::_Exit(this->block_->useCount() == 1 ? 0 : 6);
  };
  for (bool const known : {false, true})
    EXPECT_EXIT(run(true, known), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(run(false, false), testing::ExitedWithCode(0), "");
}

#undef AT

}  // namespace
}  // namespace Group
