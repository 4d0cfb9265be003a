// The whole chain on the simulated chip: adjacencies, groups that stand on blocks, blocks, next hops.
// The chip stops the process at any operation that leaves a row pointing at nothing.

#include <random>

#include "Life.h"
#include "forwarding/AdjacencySwTable.h"
#include "forwarding/NextHopSwTable.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "group/VxlanEcmpGroup1SelectiveDlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace Chips {
namespace {

using Groups = TessarLoadBalance::EcmpGroup1SelectiveDlbTable;
using VxlanGroups = TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable;
using Members = TessarLoadBalance::DlbEcmpMember1Table;
using NextHops = Forwarding::NextHopTable;
using Adjacencies = Forwarding::AdjacencyTable;
using State = Asic::SwTableBase::EntryState;
using Operations = Asic::Chip::Operations;
using Handle = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;

constexpr U32 nextHopCount = 100;

/// The width of each block, and the block of each group; groups of even ids are underlay ones.
struct Wanted {
  std::vector<U32> widths;
  std::map<U32, U32> groups;
};

Wanted wantedOf(U32 groups, U32 blocks) {
  Wanted wanted;
  for (U32 block = 0; block < blocks; ++block) wanted.widths.push_back(1 + block * 7 % 64);
  for (U32 id = 0; id < groups; ++id) wanted.groups[id] = id % blocks;
  return wanted;
}

Options watched(std::string hardware, std::map<std::string, std::string> switches = {}) {
  switches["stop-at-breach"] = "on";
  return faulty(std::move(hardware), std::move(switches));
}

/// One life of an agent with the five tables, bottom up.
class ChainLife {
 public:
  explicit ChainLife(Options const& options) {
    chip->open(options);
    for (auto& each : runners_) {
      EXPECT_TRUE(each.attachUtil("sim"));
      each.start(chip);
    }
    for (U32 id = 0; id < nextHopCount; ++id) {
      NextHops::Entry entry;
      entry.port = static_cast<U16>(id);
      nextHops_.push_back(nextHops->entryCommit({.id = id}, entry));
    }
  }
  /// Ends as a process does, with the hardware as it is: nothing is programmed any more.
  ~ChainLife() {
    for (auto& each : runners_) each.table().utilIs(nullptr);
    handles.clear();
  }

  void replay(Wanted const& wanted) {
    for (auto const& [id, block] : wanted.groups) commit(id, block, wanted.widths[block]);
    for (auto const& [id, handle] : handles) {
      Adjacencies::Entry entry;
      entry.groupHandle = handle;
      adjacencies->entryCommit({.id = id}, entry);
    }
    for (auto& each : runners_) {
      settle();
      each.replayEnded();
    }
    settle();
    for (auto at = runners_.rbegin(); at != runners_.rend(); ++at) at->purge();
  }
  void commit(U32 id, U32 block, U32 width) {
    if (id % 2 == 0)
      handles[id] = vxlanGroups->entryCommit({.adjId = id}, entryOf<VxlanGroups>(block, width));
    else
      handles[id] = groups->entryCommit({.adjId = id}, entryOf<Groups>(block, width));
  }
  void remove(U32 id) {
    id % 2 == 0 ? vxlanGroups->entryRemove({.adjId = id}) : groups->entryRemove({.adjId = id});
    handles.erase(id);
  }
  void settle() {
    while (chip->answersOutstanding() > 0) chip->poll();
  }
  /// Of each group, then of each of its blocks, by the group's id.
  std::map<U32, std::pair<U32, U32>> indices() const {
    std::map<U32, std::pair<U32, U32>> indices;
    for (auto const& [id, handle] : handles) {
      auto const block = id % 2 == 0 ? vxlanGroups->entry({.adjId = id}).ecmpSecondaryBlockPtr
                                     : groups->entry({.adjId = id}).ecmpSecondaryBlockPtr;
      indices[id] = {handle->hwIndex().value(), block};
    }
    return indices;
  }
  Operations operations() const {
    Operations all;
    for (auto const& each : runners_) {
      auto const some = chip->operations(each.table().typeData().data().name);
      all = {all.writes + some.writes, all.deletes + some.deletes};
    }
    return all;
  }

  Vell::Ptr<Asic::Chip> chip = newChip();
  Vell::Ptr<NextHops> nextHops = Forwarding::nextHopTableFactory();
  Vell::Ptr<Members> members = TessarLoadBalance::dlbEcmpMember1TableFactory();
  Vell::Ptr<Groups> groups = TessarLoadBalance::ecmpGroup1SelectiveDlbTableFactory("groups");
  Vell::Ptr<VxlanGroups> vxlanGroups =
      TessarLoadBalance::vxlanEcmpGroup1SelectiveDlbTableFactory("vxlan");
  Vell::Ptr<Adjacencies> adjacencies = Forwarding::adjacencyTableFactory();
  std::map<U32, Handle> handles;

 private:
  /// A block of its own next hops for each number; only those who need it hold it.
  template <class T>
  typename T::Entry entryOf(U32 block, U32 width) {
    Members::EntryBlock rows;
    for (U32 i = 0; i < width; ++i) {
      Members::Entry row;
      row.ecmpNextHopEntryHandle = nextHops_[(block * 13 + i) % nextHopCount];
      row.weightIdx = static_cast<U8>(block);
      rows.entryIs(i, row);
    }
    typename T::Entry entry;
    entry.ecmpSecondaryBlockPtrHandle = members->entryBlockRef(rows);
    entry.secondaryBlockValid = true;
    entry.countSecondary = Zarn::U12(width);
    return entry;
  }

  std::vector<Handle> nextHops_;
  std::array<Asic::TableRunner, 5> runners_{
      Asic::TableRunner(nextHops), Asic::TableRunner(members), Asic::TableRunner(groups),
      Asic::TableRunner(vxlanGroups), Asic::TableRunner(adjacencies)};
};

using SelectiveChain = ChipTest;

TEST_F(SelectiveChain, isFoundAgainFromTheAdjacenciesAloneWithoutAnOperation) {
  auto const wanted = wantedOf(500, 60);
  std::map<U32, std::pair<U32, U32>> indices;
  {
    ChainLife life(watched(hardware));
    life.replay(wanted);
    indices = life.indices();
    for (auto const& each : life.handles) EXPECT_EQ(each.second->entryState(), State::success);
  }
  ChainLife life(watched(hardware));
  life.replay(wanted);
  EXPECT_EQ(life.operations(), Operations());
  EXPECT_EQ(life.indices(), indices);
}

// Block 3 is another one, groups of id 7 stand on others, 8 goes and 500 comes: what stays in place is
// not touched.
TEST_F(SelectiveChain, aChangeTouchesTheRowsThatDiffer) {
  auto wanted = wantedOf(500, 60);
  ChainLife(watched(hardware)).replay(wanted);
  wanted.groups[7] = 12;
  wanted.groups.erase(8);
  wanted.groups[500] = 12;
  ChainLife life(watched(hardware));
  life.replay(wanted);
  // Written: group 7, group 500 and its adjacency. Deleted: group 8 and its adjacency, unless one of
  // the new took its place.
  EXPECT_LE(life.operations().writes, 3u);
  EXPECT_LE(life.operations().deletes, 2u);
}

// Blocks come with their groups and go behind them, whatever the acknowledgements do.
TEST_F(SelectiveChain, badAcknowledgementsNeverLeaveARowPointingAtNothing) {
  for (auto const* seed : {"1", "2", "3"}) {
    SCOPED_TRACE(seed);
    std::filesystem::remove(hardware);
    ChainLife life(watched(hardware, {{"delay-acks", "50"},
                                      {"reorder-acks", "50"},
                                      {"duplicate-acks", "50"},
                                      {"refuse-writes", "20"},
                                      {"fault-seed", seed}}));
    life.replay({{}, {}});
    std::mt19937 random(seed[0]);
    for (U32 step = 0; step < 3000; ++step) {
      U32 const id = random() % 24, block = random() % 9;
      if (random() % 3 == 0)
        life.remove(id);
      else
        life.commit(id, block, 1 + block * 5);
      if (random() % 4 == 0) life.chip->poll();
    }
    for (U32 id = 0; id < 24; ++id) life.remove(id);
    life.settle();
    EXPECT_EQ(life.groups->entrys() + life.vxlanGroups->entrys(), 0u);
    EXPECT_EQ(life.members->entryBlocks(), 0u);
    EXPECT_EQ(life.members->indexAllocator()->totalUsedIndices(), 0u);
    EXPECT_THAT(life.chip->contradictions(), testing::IsEmpty());
  }
}

// ---- the check itself ----

TEST_F(SelectiveChain, anOperationThatLeavesARowPointingAtNothingIsAFault) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto const breakIt = [](ChainLife& life) {
    auto const first = life.indices().at(0).second;
    life.members->util()->hwTableEntryDel(*life.members, first);
  };
  {
    ChainLife life(watched(hardware));
    life.replay(wantedOf(1, 2));
    EXPECT_DEATH(breakIt(life),
                 "stop-at-breach.*delete of row .*DlbEcmpMember1Table.*"
                 "VxlanEcmpGroup1SelectiveDlbTable points at row");
  }
  ChainLife life(opened(hardware));
  life.replay(wantedOf(1, 2));
  EXPECT_THAT(life.chip->contradictions(), testing::IsEmpty());
  breakIt(life);
  EXPECT_EQ(life.chip->contradictions().size(), 1u);
  EXPECT_EQ(life.chip->breaches().size(), 1u) << "the operation that made it so";
}

}  // namespace
}  // namespace Chips
