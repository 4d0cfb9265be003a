// Blocks whose wish changes in the midst of an operation on them: the newest wish wins, and an entry that
// comes back begins a new life.

#include "Blocks.h"

namespace Member {
namespace {

TEST(BlockComeback, aWatcherOfANewHandleMayWriteTheBlockOrLetItFail) {
  for (bool const fails : {false, true}) {
    Recorded at;
    at.synced().replayed();
    auto const nextHop = usable(9);
    auto const key = block({row(nextHop, 1), row(nextHop, 2)});
    at.util->onEvent = [&](auto const& event) {
      if (event != "published 0x285 new") return;
      if (fails) nextHop->becomes(State::failedNoIndex, 0xFFFFFFFF);
      at.table->entryBlockRef(key);
    };
    auto const handle = at.table->entryBlockCommit(key);
    EXPECT_EQ(handle->entryType(), Type::committed);
    EXPECT_EQ(handle->entryState(), fails ? State::failedNeededEntry : State::success);
    EXPECT_NE(at.table->entryBlockHas(key), at.table->unresolvedEntryBlock(key) != nullptr);
    EXPECT_EQ(at.util->rows.size(), fails ? 0u : 2u);
    at.util->onEvent = nullptr;
  }
}

TEST(BlockComeback, aBlockThatWasFoundAndComesBackFromItsDeletionHasOneUseOfEachRow) {
  Recorded at;
  at.holding(100, {{9, 1}, {9, 2}, {9, 3}}).synced();
  auto const nextHop = usable(9);
  auto const key = block({row(nextHop, 1), row(nextHop, 2), row(nextHop, 3)});
  Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*at.table->entryBlockCommit(key), {100});
  at.replayed();
  HandlePtr back;
  at.util->onEvent = [&](auto const& event) {
    if (event == "delete 100") back = at.table->entryBlockRef(key);
  };
  at.table->entryBlockRemove(key);
  at.util->onEvent = nullptr;
  ASSERT_TRUE(back);
  EXPECT_EQ(back->entryState(), State::success);
  EXPECT_EQ(at.util->rows.size(), 3u);
  for (U32 index = 100; index < 103; ++index) EXPECT_EQ(at.usesOf(index), 1u) << index;
  back = nullptr;
  EXPECT_THAT(at.util->rows, IsEmpty());
  EXPECT_EQ(at.usesOf(101), 0u);
}

TEST(BlockComeback, whatIsCopiedOrRemovedInTheMidstOfAResolutionStaysSo) {
  Recorded at;
  at.synced().replayed();
  auto const nextHop = usable(9);
  auto const key = block({row(nextHop, 1, 70), row(nextHop, 2, 71)});
  U32 asked = 0;
  Block copied;
  nextHop->onAsked = [&] {
    if (++asked == 2) copied = at.table->unresolvedEntryBlock(key)->entryBlock();
    if (asked == 4) at.table->entryBlockRemove(key);
  };
  auto handle = at.table->entryBlockCommit(key);
  EXPECT_EQ(copied.entry(0).ecmpNextHopEntry, 70u);
  EXPECT_EQ(copied.entry(1).ecmpNextHopEntry, 71u);
  at.table->entryBlockRemove(key);
  handle = nullptr;
  EXPECT_THAT(at.util->rows, IsEmpty());
  handle = at.table->entryBlockCommit(key);
  EXPECT_FALSE(at.table->entryBlockHas(key)) << "it was removed before it had resolved";
  handle = nullptr;
  EXPECT_EQ(at.table->entryBlocks(), 0u);
  EXPECT_THAT(at.util->rows, IsEmpty());
}

TEST(BlockComeback, aTableThatGoesTakesNothing) {
  Recorded at;
  at.synced().replayed();
  auto const waiting = needed();
  at.table->entryBlockCommit(plainBlock(2));
  at.table->entryBlockCommit(block({row(waiting, 1)}));
  auto* const table = at.table.get();
  std::vector<HandlePtr> refused;
  at.util->onEvent = [&](auto const& event) {
    if (event.starts_with("published")) refused.push_back(table->entryBlockCommit(plainBlock(3)));
  };
  at.table = nullptr;
  EXPECT_GE(refused.size(), 4u) << "of 0x282, 0x285, 0x286 and 0x28e";
  for (auto const& each : refused) EXPECT_EQ(each->entryState(), State::unresolved);
  EXPECT_THAT(at.util->rows, IsEmpty());
}

}  // namespace
}  // namespace Member
