// Next hops and member blocks on the simulated chip, over restarts: every block is found again from
// the index that whoever stands above it suggests.

#include <random>

#include "Life.h"
#include "forwarding/NextHopSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace Chips {
namespace {

using Member = TessarLoadBalance::DlbEcmpMember1Table;
using NextHops = Forwarding::NextHopTable;
using Status = Asic::ReconciliationStatus;

/// What an agent is to bring to the hardware: blocks of (next hop, weight), and next hops by port.
struct Wanted {
  std::vector<std::vector<std::pair<U32, U8>>> blocks;
  std::map<U32, U16> nextHops;
};

/// `blocks` blocks of 4 to 64 rows over a thousand next hops, all different, and the next hops.
Wanted wantedOf(U32 blocks) {
  std::mt19937 random(7);
  Wanted wanted;
  for (U32 i = 0; i < blocks; ++i) {
    auto& rows = wanted.blocks.emplace_back();
    for (U32 row = 0, count = 4 + random() % 61; row < count; ++row)
      rows.emplace_back(random() % 1000, static_cast<U8>(random() % 4));
    for (auto const& [id, weight] : rows) wanted.nextHops[id] = static_cast<U16>(1000 + id);
  }
  return wanted;
}

/// One life of an agent with the two tables.
class ChainLife {
 public:
  explicit ChainLife(Options const& options) {
    EXPECT_TRUE(memberRunner_.attachUtil("sim") && nextHopRunner_.attachUtil("sim"));
    chip->open(options);
    nextHopRunner_.start(chip);
    memberRunner_.start(chip);
  }
  /// Ends as a process does, with the hardware as it is.
  ~ChainLife() {
    member->utilIs(nullptr);
    nextHops->utilIs(nullptr);
  }

  /// Replays what is wanted; `bases` are where the blocks of a former life lay, suggested from
  /// above in reverse, as nobody promises an order.
  void replay(Wanted const& wanted, std::vector<U32> const& bases = {}) {
    for (auto const& [id, port] : wanted.nextHops) {
      NextHops::Entry entry;
      entry.port = port;
      nextHops->entryCommit({.id = id}, entry);
    }
    for (auto const& rows : wanted.blocks) handles.push_back(commit(rows));
    for (std::size_t i = std::min(bases.size(), handles.size()); i-- > 0;)
      if (handles[i]->entryState() == Asic::SwTableBase::EntryState::unresolved)
        Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handles[i], {bases[i]});
    nextHopRunner_.replayEnded();
    memberRunner_.replayEnded();
    memberRunner_.purge();
    nextHopRunner_.purge();
  }
  Member::HandlePtr commit(std::vector<std::pair<U32, U8>> const& rows) {
    Member::EntryBlock block;
    for (U32 i = 0; i < rows.size(); ++i) {
      Member::Entry row;
      row.ecmpNextHopEntryHandle = nextHops->entryRef({.id = rows[i].first});
      row.weightIdx = rows[i].second;
      block.entryIs(i, row);
    }
    return member->entryBlockCommit(block);
  }
  std::vector<U32> bases() const {
    std::vector<U32> bases;
    for (auto const& handle : handles) bases.push_back(handle->hwIndex().value());
    return bases;
  }
  U64 operations() const {
    U64 all = 0;
    for (auto const name : {Member::names.qualified, NextHops::names.qualified})
      all += chip->operations(name).writes + chip->operations(name).deletes;
    return all;
  }
  U64 counted(Status status) const { return member->statistics().of(status); }

  Vell::Ptr<Asic::Chip> chip = newChip();
  Vell::Ptr<NextHops> nextHops = Forwarding::nextHopTableFactory();
  Vell::Ptr<Member> member = TessarLoadBalance::dlbEcmpMember1TableFactory();
  std::vector<Member::HandlePtr> handles;

 private:
  Asic::TableRunner nextHopRunner_{nextHops};
  Asic::TableRunner memberRunner_{member};
};

class ChainTest : public ChipTest {
 protected:
  std::vector<U32> coldStart(Wanted const& wanted) const {
    ChainLife life(opened(hardware));
    life.replay(wanted);
    for (auto const& handle : life.handles)
      EXPECT_EQ(handle->entryState(), Asic::SwTableBase::EntryState::success);
    return life.bases();
  }
};

TEST_F(ChainTest, aRestartOfAThousandBlocksTouchesNothing) {
  auto const wanted = wantedOf(1000);
  auto const bases = coldStart(wanted);
  ChainLife life(opened(hardware));
  life.replay(wanted, bases);
  EXPECT_EQ(life.operations(), 0u);
  EXPECT_EQ(life.bases(), bases);
  EXPECT_EQ(life.counted(Status::reconcileMatched), 1000u);
  EXPECT_EQ(life.nextHops->statistics().of(Status::reconcileMatched), 1000u);
  EXPECT_TRUE(life.member->syncedEntryMap().empty());
}

TEST_F(ChainTest, oneRowChangedInTheFileIsTheOneThatIsWritten) {
  auto const wanted = wantedOf(1000);
  auto const bases = coldStart(wanted);
  ChainLife life(
      faulty(hardware, {{"flip-row", "DlbEcmpMember1Table:" + std::to_string(bases[500] + 2)}}));
  life.replay(wanted, bases);
  EXPECT_EQ(life.bases(), bases);
  EXPECT_EQ(life.counted(Status::reconcileRewritten), 1u);
  EXPECT_EQ(life.operations(), 1u)
      << "its table writes the block, and the chip leaves the rest alone";
}

TEST_F(ChainTest, blocksOfTheOldConfigurationGoAtThePurgeRowByRow) {
  auto wanted = wantedOf(1000);
  auto bases = coldStart(wanted);
  U64 rowsOfOld = 0;
  for (U32 i = 900; i < 1000; ++i) rowsOfOld += wanted.blocks[i].size();
  wanted.blocks.resize(900);
  ChainLife life(opened(hardware));
  life.replay(wanted, bases);
  bases.resize(900);
  EXPECT_EQ(life.bases(), bases);
  EXPECT_EQ(life.counted(Status::reconcileDeleted), rowsOfOld);
  EXPECT_EQ(life.chip->operations(Member::names.qualified).deletes, rowsOfOld);
  EXPECT_EQ(life.chip->operations(Member::names.qualified).writes, 0u);
}

// A next hop that changed keeps its index, and the blocks over it are not touched.
TEST_F(ChainTest, aChangedNextHopIsRewrittenUnderItsBlocks) {
  auto wanted = wantedOf(50);
  auto const bases = coldStart(wanted);
  U32 const changed = wanted.blocks[3][0].first;
  wanted.nextHops[changed] = 7;
  ChainLife life(opened(hardware));
  life.replay(wanted, bases);
  EXPECT_EQ(life.bases(), bases);
  EXPECT_EQ(life.operations(), 1u);
}

}  // namespace
}  // namespace Chips
