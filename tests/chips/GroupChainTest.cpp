// Adjacencies and level-1 groups on the simulated chip: writes that are acknowledged late, badly or
// not at all, and restarts that find every index again from what adjacencies point at.

#include <optional>

#include "Life.h"
#include "forwarding/AdjacencySwTable.h"
#include "group/EcmpGroup1DlbSwTable.h"
#include "group/VxlanEcmpGroup1DlbSwTable.h"

namespace Chips {
namespace {

using Groups = TessarLoadBalance::EcmpGroup1DlbTable;
using VxlanGroups = TessarLoadBalance::VxlanEcmpGroup1DlbTable;
using Adjacencies = Forwarding::AdjacencyTable;
using State = Asic::SwTableBase::EntryState;
using Status = Asic::ReconciliationStatus;
using Operations = Asic::Chip::Operations;

/// Modes by adjacency id, even ids underlay ones; each group has the adjacency of its id above it.
using Wanted = std::map<U32, U32>;

Wanted wantedOf(U32 groups) {
  Wanted wanted;
  for (U32 id = 0; id < groups; ++id) wanted[id] = id % 5;
  return wanted;
}

/// One life of an agent with the three tables.
class GroupLife {
 public:
  explicit GroupLife(Options const& options) {
    chip->open(options);
    for (auto* runner : {&groupRunner_, &vxlanRunner_, &adjacencyRunner_}) {
      EXPECT_TRUE(runner->attachUtil("sim"));
      runner->start(chip);
    }
  }
  /// Ends as a process does, with the hardware as it is.
  ~GroupLife() {
    adjacencies->utilIs(nullptr);
    vxlanGroups->utilIs(nullptr);
    groups->utilIs(nullptr);
  }

  void replay(Wanted const& wanted) {
    for (auto const& [id, mode] : wanted) commit(id, mode);
    for (auto const& [id, handle] : handles) {
      Adjacencies::Entry entry;
      entry.groupHandle = handle;
      adjacencyHandles[id] = adjacencies->entryCommit({.id = id}, entry);
    }
    groupRunner_.replayEnded();
    vxlanRunner_.replayEnded();
    settle();
    adjacencyRunner_.replayEnded();
    for (auto* runner : {&adjacencyRunner_, &vxlanRunner_, &groupRunner_}) runner->purge();
  }
  void commit(U32 id, U32 mode) {
    if (id % 2 == 0)
      handles[id] = vxlanGroups->entryCommit({.adjId = id}, entryOf<VxlanGroups>(mode));
    else
      handles[id] = groups->entryCommit({.adjId = id}, entryOf<Groups>(mode));
  }
  void settle() {
    while (chip->answersOutstanding() > 0) chip->poll();
  }
  std::map<U32, U32> indices() const {
    std::map<U32, U32> indices;
    for (auto const& [id, handle] : handles) indices[id] = handle->hwIndex().value();
    return indices;
  }
  Operations groupOperations() const {
    auto const a = chip->operations(Groups::names.qualified);
    auto const b = chip->operations(VxlanGroups::names.qualified);
    return {a.writes + b.writes, a.deletes + b.deletes};
  }
  Operations adjacencyOperations() const { return chip->operations(Adjacencies::names.qualified); }
  U64 counted(Status status) const {
    return groups->statistics().of(status) + vxlanGroups->statistics().of(status);
  }

  Vell::Ptr<Asic::Chip> chip = newChip();
  Vell::Ptr<Groups> groups = TessarLoadBalance::ecmpGroup1DlbTableFactory("groups");
  Vell::Ptr<VxlanGroups> vxlanGroups = TessarLoadBalance::vxlanEcmpGroup1DlbTableFactory("vxlan");
  Vell::Ptr<Adjacencies> adjacencies = Forwarding::adjacencyTableFactory();
  std::map<U32, Groups::HandlePtr> handles;
  std::map<U32, Groups::HandlePtr> adjacencyHandles;

 private:
  template <class T>
  static typename T::Entry entryOf(U32 mode) {
    typename T::Entry entry;
    entry.lbMode = mode;
    return entry;
  }

  Asic::TableRunner groupRunner_{groups};
  Asic::TableRunner vxlanRunner_{vxlanGroups};
  Asic::TableRunner adjacencyRunner_{adjacencies};
};

class GroupChainTest : public ChipTest {
 protected:
  std::map<U32, U32> coldStart(Wanted const& wanted) const {
    GroupLife life(opened(hardware));
    life.replay(wanted);
    for (auto const& each : life.adjacencyHandles)
      EXPECT_EQ(each.second->entryState(), State::success);
    return life.indices();
  }
};

TEST_F(GroupChainTest, aRestartOfFourThousandGroupsTouchesNothing) {
  auto const wanted = wantedOf(4000);
  auto const indices = coldStart(wanted);
  GroupLife life(opened(hardware));
  life.replay(wanted);
  EXPECT_EQ(life.groupOperations(), Operations());
  EXPECT_EQ(life.adjacencyOperations(), Operations());
  EXPECT_EQ(life.indices(), indices);
  EXPECT_EQ(life.counted(Status::reconcileMatched), 4000u);
}

// Ids 0 to 399 change, 400 to 799 go, 4000 to 4399 come.
TEST_F(GroupChainTest, aRestartTouchesTheRowsThatDifferAndNoOthers) {
  auto const indices = coldStart(wantedOf(4000));
  auto wanted = wantedOf(4400);
  wanted.erase(wanted.find(400), wanted.find(800));
  for (U32 id = 0; id < 400; ++id) wanted[id] += 100;
  GroupLife life(opened(hardware));
  life.replay(wanted);
  // Of the 400 indices that came free, new groups took those that lie lowest: rows of half of them
  // were written over in place, unless they held the same, and those in the other table deleted.
  EXPECT_LE(life.groupOperations().writes, 800u);
  EXPECT_EQ(life.groupOperations().deletes, 200u);
  EXPECT_EQ(life.adjacencyOperations(), (Operations{400, 400}));
  EXPECT_EQ(life.counted(Status::reconcileRewritten), 400u);
  EXPECT_EQ(life.counted(Status::reconcileAdded), 400u);
  EXPECT_EQ(life.counted(Status::reconcileDeleted), 200u);
  auto const now = life.indices();
  for (auto const& [id, index] : indices)
    EXPECT_TRUE(!wanted.contains(id) || now.at(id) == index) << id;
}

TEST_F(GroupChainTest, aLostAcknowledgementLeavesTheGroupInProgressAndTheAdjacencyWaiting) {
  GroupLife life(faulty(hardware, {{"lose-acks", "100"}}));
  life.replay({{1, 1}});
  EXPECT_EQ(life.handles.at(1)->entryState(), State::inProgress);
  EXPECT_EQ(life.adjacencyHandles.at(1)->entryState(), State::unresolved);
  EXPECT_EQ(life.adjacencyOperations(), Operations());
  EXPECT_EQ(life.groups->hwTable()->unansweredWrites(), 1u);
}

TEST_F(GroupChainTest, aRefusedWriteLeavesTheRowAndFailsTheGroup) {
  auto const indices = coldStart({{1, 1}});
  GroupLife life(faulty(hardware, {{"refuse-writes", "100"}}));
  life.replay({{1, 2}});
  EXPECT_EQ(life.handles.at(1)->entryState(), State::failedNoIndex);
  EXPECT_EQ(life.groupOperations(), Operations());
  EXPECT_EQ(life.chip->journal(1).front().operation, "refused");
}

// An adjacency may have been written meanwhile, since its group's index was known; else it waits.
TEST_F(GroupChainTest, acknowledgementsThatAreLateDoubledAndOutOfOrderEndInTheSame) {
  for (auto const* seed : {"1", "2", "3"}) {
    std::filesystem::remove(hardware);
    GroupLife life(faulty(hardware, {{"delay-acks", "50"},
                                     {"reorder-acks", "50"},
                                     {"duplicate-acks", "50"},
                                     {"fault-seed", seed}}));
    life.replay(wantedOf(50));
    for (U32 round = 1; round <= 20; ++round) {
      for (U32 id = round % 3; id < 50; id += 3) life.commit(id, round * 50 + id);
      life.chip->poll();
    }
    life.settle();
    for (auto const* handles : {&life.handles, &life.adjacencyHandles})
      for (auto const& each : *handles) EXPECT_EQ(each.second->entryState(), State::success);
    EXPECT_EQ(life.groups->hwTable()->unansweredWrites(), 0u);
    EXPECT_EQ(life.adjacencyOperations(), (Operations{50, 0}));
  }
}

}  // namespace
}  // namespace Chips
