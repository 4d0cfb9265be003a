// A chain on the simulated chip: groups that stand on blocks, blocks, next hops.
// The chip stops the process at any operation that leaves a row pointing at nothing.

#include <random>

#include "Life.h"
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
using Handle = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;

constexpr U32 nextHopCount = 100;

Options watched(std::string hardware, std::map<std::string, std::string> switches = {}) {
  switches["stop-at-breach"] = "on";
  return faulty(std::move(hardware), std::move(switches));
}

/// One life of an agent with the four tables, bottom up.
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

  /// What was committed by now is all that is replayed.
  void replayed() {
    for (auto& each : runners_) {
      settle();
      each.replayEnded();
    }
    settle();
    for (auto at = runners_.rbegin(); at != runners_.rend(); ++at) at->purge();
  }
  /// Groups of even ids are underlay ones.
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

  Vell::Ptr<Asic::Chip> chip = newChip();
  Vell::Ptr<NextHops> nextHops = Forwarding::nextHopTableFactory();
  Vell::Ptr<Members> members = TessarLoadBalance::dlbEcmpMember1TableFactory();
  Vell::Ptr<Groups> groups = TessarLoadBalance::ecmpGroup1SelectiveDlbTableFactory("groups");
  Vell::Ptr<VxlanGroups> vxlanGroups =
      TessarLoadBalance::vxlanEcmpGroup1SelectiveDlbTableFactory("vxlan");
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
  std::array<Asic::TableRunner, 4> runners_{Asic::TableRunner(nextHops), Asic::TableRunner(members),
                                            Asic::TableRunner(groups),
                                            Asic::TableRunner(vxlanGroups)};
};

using SelectiveChain = ChipTest;

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
    life.replayed();
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
    auto const first = life.vxlanGroups->entry({.adjId = 0}).ecmpSecondaryBlockPtr;
    life.members->util()->hwTableEntryDel(*life.members, first);
  };
  {
    ChainLife life(watched(hardware));
    life.commit(0, 0, 1);
    life.replayed();
    EXPECT_DEATH(breakIt(life),
                 "stop-at-breach.*delete of row .*DlbEcmpMember1Table.*"
                 "VxlanEcmpGroup1SelectiveDlbTable points at row");
  }
  ChainLife life(opened(hardware));
  life.commit(0, 0, 1);
  life.replayed();
  EXPECT_THAT(life.chip->contradictions(), testing::IsEmpty());
  breakIt(life);
  EXPECT_EQ(life.chip->contradictions().size(), 1u);
  EXPECT_EQ(life.chip->breaches().size(), 1u) << "the operation that made it so";
}

}  // namespace
}  // namespace Chips
