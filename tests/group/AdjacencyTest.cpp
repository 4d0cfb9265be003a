// Adjacencies above groups: when a row is written, and with which index; what an adjacency tells its
// group after a restart.

#include "Groups.h"
#include "forwarding/AdjacencySwTable.h"

namespace Group {
namespace {

using Adjacencies = Forwarding::AdjacencyTable;

class Adjacency : public testing::Test {
 protected:
  Adjacency() { util_->indexKnownAtWriteIs(true); }
  /// What the hardware holds, by id the index of the group.
  void holding(std::map<U32, U32> const& rows) {
    for (auto const& [id, group] : rows) util_->rows[id].emplace().group = group;
    at_.synced();
  }
  HandlePtr commit(U32 id, HandlePtr const& group) {
    Adjacencies::Entry entry;
    entry.groupHandle = group;
    return table_->entryCommit({.id = id}, entry);
  }

  Groups<Ecmp> groups_{8};
  Testing::RecordedHandles<Adjacencies> at_{Forwarding::adjacencyTableFactory(), 64};
  Adjacencies* table_ = at_.table.get();
  Testing::RecordingHandleUtil<Adjacencies>* util_ = at_.util.get();
};

TEST_F(Adjacency, isWrittenWhenItsGroupIsAcknowledgedAndKeepsItsRowUntilThen) {
  groups_.replayed();
  at_.replayed();
  auto const handle = commit(40, groups_.ref(1, 1));
  EXPECT_THAT(util_->take(), IsEmpty());
  EXPECT_EQ(handle->entryState(), State::unresolved);
  groups_.answer(0);
  EXPECT_THAT(util_->take(), ElementsAre("tracker 40 userAdd", "write 40 0"));
  EXPECT_EQ(handle->entryState(), State::success);

  commit(40, groups_.ref(2, 2));
  EXPECT_EQ(groups_.table->entrys(), 2u) << "the row still points at the former group";
  EXPECT_EQ(util_->rows.at(40)->group, 0u);
  groups_.take();
  groups_.answer(1);
  EXPECT_THAT(util_->take(), ElementsAre("write 40 1"));
  EXPECT_EQ(groups_.take(), (Events{"tracker 0 userRemove", "delete 0",
                                    "published 0x288 1 was mode 1", "published 0x286 1 gone"}));
  table_->entryRemove({.id = 40});
  EXPECT_THAT(util_->rows, testing::SizeIs(1)) << "held here";
}

TEST_F(Adjacency, tellsItsGroupWhereItsRowPointsAt) {
  groups_.holding({{1, 1}, {3, 1}});
  holding({{40, 3}});
  auto const group = groups_.ref(7, 1);
  EXPECT_EQ(group->entryState(), State::unresolved);
  groups_.take();
  auto const handle = commit(40, group);
  EXPECT_THAT(groups_.take(), ElementsAre("compare 3 mode 1", "published 0x28a 3"));
  EXPECT_EQ(group->entryState(), State::indexReconciled);
  EXPECT_EQ(group->hwIndex().value(), 3u);
  EXPECT_EQ(handle->entryState(), State::indexReconciled) << "and its own row is right";
  EXPECT_EQ(table_->entry({.id = 40}).group, 3u);
  EXPECT_EQ(util_->take(), Events{"compare 40 3"});
}

// An adjacency that was written, and waits for another group when the replay ends.
TEST_F(Adjacency, thatWaitsWithAFormerValueIsNotWrittenAnewAtTheEndOfTheReplay) {
  groups_.replayed();
  holding({{50, 0}});
  auto const first = groups_.commit(1, 1);
  groups_.answer(0);
  auto const handle = commit(40, first);
  commit(41, first);
  commit(41, groups_.commit(2, 2));
  at_.replayed();
  EXPECT_EQ(handle->entryState(), State::success);
  groups_.answer(1);
  EXPECT_EQ(util_->rows.at(41)->group, 1u);
  for (U32 row : {40, 41}) EXPECT_EQ(at_.usesOf(row), 1u) << row;
}

// While the row goes the handle still stands for the group, and must lead nobody to an index that will
// be another's.
TEST_F(Adjacency, thatAHookOfItsGroupsDeletionBringsWaits) {
  for (std::string const moment : {"tracker 0 userRemove", "delete 0"}) {
    groups_.table->doInitComplete();
    table_->doInitComplete();
    groups_.commit(1, 1);
    groups_.answer(0);
    groups_.util->onEvent = [&](std::string const& event) {
      if (event == moment) commit(40, groups_.table->entryHandle(groups_.key(1)));
    };
    groups_.remove(1);
    groups_.util->onEvent = nullptr;
    groups_.commit(2, 2);
    groups_.answer(0);
    EXPECT_THAT(util_->rows, IsEmpty()) << moment;
    table_->entryRemove({.id = 40});
    groups_.table->entryRemoveAll();
  }
}

// The end of the wait is told, and a watcher of it wants another group.
TEST_F(Adjacency, aCommitFromInsideItsOwnResolutionStands) {
  groups_.replayed();
  at_.replayed();
  auto const handle = commit(40, groups_.commit(1, 1));
  auto const second = groups_.commit(2, 2);
  auto const watch = handle->watched().watch(0x102, [&](auto const&) {
    if (handle->entryState() == State::success && !table_->unresolved({.id = 40}))
      commit(40, second);
  });
  auto const record = handle->watched().watch(0x102, [&](auto const&) {
    if (handle->entryState() == State::success) commit(40, second);
  });
  groups_.answer(0);
  EXPECT_TRUE(table_->unresolved({.id = 40})) << "it waits for the second group";
  groups_.answer(1);
  EXPECT_EQ(util_->rows.at(40)->group, 1u);
}

}  // namespace
}  // namespace Group
