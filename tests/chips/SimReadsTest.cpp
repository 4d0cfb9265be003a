// Reading flowsets back from the simulated chip, and what simulated traffic makes of them.

#include <set>

#include "Life.h"
#include "config/DlbEcmpDlbId0To63EnableSwTable.h"
#include "config/DlbEcmpFlowsetSwTable.h"
#include "config/DlbEcmpGroupSwTable.h"
#include "config/DlbEcmpPortControlSwTable.h"
#include "config/DlbEcmpQualityMapSwTable.h"
#include "config/DlbEcmpQuantizationThresholdSwTable.h"
#include "read/FlowsetRow.h"

namespace Chips {
namespace {

using namespace TessarLoadBalance;
using testing::ElementsAre;
using testing::IsEmpty;
using Read = DlbEcmpFlowsetTableRead;
using Chip = Asic::Chip;
using enum Read::ResponseNotify;

/// One chip with all that traffic and reads need.
class SimReadsTest : public ChipTest {
 protected:
  ~SimReadsTest() override { closeAll(); }

  /// The process ends, and leaves the hardware as it is.
  void closeAll() {
    for (auto& leave : leaves_) leave();
    leaves_.clear();
    readRunner_.reset();
    read_ = nullptr;
    flowsets_ = nullptr;
    chip_ = nullptr;
  }

  /// A process begins on the hardware; the replay is over in all tables but the read table.
  void open(Options const& options) {
    chip_ = newChip();
    chip_->open(options);
    flowsets_ = started<DlbEcmpFlowsetTable>();
    read_ = new Read;
    readRunner_.emplace(read_);
    EXPECT_TRUE(readRunner_->attachUtil("sim"));
    readRunner_->start(chip_);
  }
  /// Beyond that, a chip with one group of these ports; each port is programmed the same.
  void openGroup(DlbEcmpGroupTable::Entry group, std::map<U16, U16> const& members) {
    open(opened(hardware));
    readRunner_->replayEnded();
    for (auto const& [port, member] : members) group.portToMemberMapIs(port, member);
    started<DlbEcmpGroupTable>()->entryCommit(5, group);
    DlbEcmpDlbId0To63EnableTable::Entry enabled;
    enabled.bitmap = 1u << 5;
    started<DlbEcmpDlbId0To63EnableTable>()->entryCommit(0, enabled);
    auto const thresholds = started<DlbEcmpQuantizationThresholdTable>();
    for (U32 band = 0; band < 8; ++band) {
      DlbEcmpQuantizationThresholdTable::Entry entry;
      entry.portLoadingThreshold = 100 * band;
      entry.totalPortQsizeThreshold = entry.itmPortQsizeThreshold = 0xFFFFFFFF;
      thresholds->entryCommit(band, entry);
    }
    auto const qualities = started<DlbEcmpQualityMapTable>();
    for (U8 load = 0; load < 8; ++load) {
      DlbEcmpQualityMapTable::Entry entry;
      entry.assignedQuality = 8u - load;
      qualities->entryCommit({.portLoading = load}, entry);
    }
  }

  void ask(std::optional<U32> index) {
    auto const handler = [this, index](std::any const& answer) {
      auto const& [key, entry] = std::any_cast<Read::Response const&>(answer);
      auto const* const row = FlowsetRow::of(entry);
      order_.push_back(index.value_or(0));
      if (row && row->assigned) found_[key.value()] = {row->portAssignment, row->memberAssignment};
      ++(row ? rows_ : bare_);
    };
    index ? read_->readReqIs(*index, handler) : read_->readAllReqIs(eachEntry, handler);
  }
  /// Polls until nothing is owed any more, and gives how often that was.
  U64 drained() {
    U64 polls = 0;
    for (; chip_->answersOutstanding() > 0; ++polls) chip_->poll();
    return polls;
  }
  /// Where each assigned flowset is: port and member.
  std::map<U32, std::pair<U16, U8>> assigned() {
    found_.clear();
    ask({});
    drained();
    return found_;
  }
  void flowsetIs(U32 index, U16 port, U8 member) {
    DlbEcmpFlowsetTable::Entry entry;
    entry.portAssignment = port;
    entry.memberAssignment = member;
    flowsets_->entryCommit(index, entry);
  }

  Vell::Ptr<Chip> chip_;
  Vell::Ptr<DlbEcmpFlowsetTable> flowsets_;
  Vell::Ptr<Read> read_;
  std::optional<Asic::TableRunner> readRunner_;
  std::map<U32, std::pair<U16, U8>> found_;
  std::vector<U32> order_;  ///< whose answer came
  U64 rows_ = 0, bare_ = 0;

 private:
  /// A table that has replayed nothing; it leaves its rows when the process ends.
  template <class T>
  Vell::Ptr<T> started() {
    Vell::Ptr<T> const table(new T);
    Asic::TableRunner runner(table);
    EXPECT_TRUE(runner.attachUtil("sim"));
    runner.start(chip_);
    table->autoCommitSyncedEntries();
    runner.replayEnded();
    leaves_.push_back([table] { table->utilIs(nullptr); });
    return table;
  }

  std::vector<std::function<void()>> leaves_;
};

TEST_F(SimReadsTest, everyRowIsAnsweredAndThenTheEnd) {
  open(opened(hardware));
  flowsetIs(0, 7, 1);
  flowsetIs(32767, 65535, 255);
  ask({});
  EXPECT_EQ(read_->maxIndex(), 32767u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(chip_->poll(), 0u) << "the replay has not ended";
  EXPECT_LT(read_->hwTable()->readResponses(), 10000u) << "what cannot be delivered is not posted";
  readRunner_->replayEnded();
  drained();
  EXPECT_EQ(rows_, 32768u);
  EXPECT_EQ(found_, (std::map<U32, std::pair<U16, U8>>{{0, {7, 1}}, {32767, {65535, 255}}}));
  EXPECT_EQ(read_->readRequestMap().count(), 0u);

  ask(32767);
  EXPECT_EQ(rows_, 32768u) << "nothing is answered inside the call";
  drained();
  EXPECT_EQ(rows_, 32769u);
  ask(32768);
  drained();
  EXPECT_EQ(bare_, 1u) << "no such row: an end, and nothing of a row";
  EXPECT_EQ(read_->readRequestMap().count(), 0u);
}

TEST_F(SimReadsTest, readsAreServedInOrderOrByTurns) {
  for (std::string const how : {"off", "on"}) {
    open(faulty(hardware, {{"interleave-reads", how}}));
    readRunner_->replayEnded();
    order_.clear();
    ask({});
    ask(9);
    drained();
    ASSERT_EQ(order_.size(), 32769u);
    EXPECT_EQ(std::ranges::find(order_, 9u) - order_.begin(), how == "on" ? 1 : 32768);
    EXPECT_EQ(read_->readRequestMap().count(), 0u);
    closeAll();
  }
}

TEST_F(SimReadsTest, switchesDelayReadsAndLoseTheirEnds) {
  open(faulty(hardware, {{"delay-reads", "3"}, {"lose-read-ends", "1"}}));
  readRunner_->replayEnded();
  ask({});
  for (int i = 0; i < 3; ++i) EXPECT_EQ(chip_->poll(), 0u);
  EXPECT_GT(chip_->poll(), 0u);
  drained();
  EXPECT_EQ(rows_, 32768u);
  EXPECT_EQ(read_->readRequestMap().count(), 1u) << "its end never comes";
  ask({});
  drained();
  EXPECT_EQ(read_->readRequestMap().count(), 1u) << "the second read ends";
}

// ---- traffic ----

TEST_F(SimReadsTest, trafficStaysInItsGroupsAndRestartsFindNoDifference) {
  DlbEcmpGroupTable::Entry group;
  group.flowSetBase = 100;
  group.flowSetSize = 50;
  group.inactivityDuration = 10;
  openGroup(group, {{8, 1}, {9, 2}});
  flowsetIs(101, 8, 1);
  flowsetIs(4000, 3, 3);
  auto const traffic = *chip_->simulateTraffic(2000, 1);
  EXPECT_EQ(traffic.flows, traffic.assigned + traffic.moved + traffic.kept + traffic.unserved);
  EXPECT_EQ(traffic.assigned, 49u) << "one of the fifty was assigned by software";
  EXPECT_GT(traffic.moved, 0u);
  auto const after = assigned();
  EXPECT_EQ(after.size(), 51u);
  EXPECT_EQ(after.at(4000), std::pair(U16{3}, U8{3}));
  for (auto const& [flowset, place] : after)
    if (flowset != 4000) {
      EXPECT_TRUE(place == std::pair(U16{8}, U8{1}) || place == std::pair(U16{9}, U8{2}));
    }

  closeAll();
  Life<DlbEcmpFlowsetTable> life(opened(hardware));
  EXPECT_EQ(life.synced().size(), 2u) << "what the chip made of them is no difference";
  life.replay(life.synced());
  EXPECT_EQ(life.operations(), (Asic::Chip::Operations{0, 0}));
}

// Qualities follow the quantized load: flows go where less is, and not where the port is full.
TEST_F(SimReadsTest, trafficEvensOutTheLoad) {
  DlbEcmpGroupTable::Entry group;
  group.flowSetSize = 300;
  group.portAssignmentMode = 2;
  openGroup(group, {{8, 1}, {9, 2}});
  closeAll();
  open(opened(hardware));
  readRunner_->replayEnded();
  for (U32 flowset = 0; flowset < 100; ++flowset) flowsetIs(flowset, 8, 1);
  chip_->simulateTraffic(6, 1);
  chip_->simulateTraffic(300, 2);
  U32 on9 = 0, others = 0;
  for (auto const& [flowset, place] : assigned())
    if (flowset >= 100) place.first == 9 ? ++on9 : ++others;
  EXPECT_GT(on9, others) << "port 8 carries the first hundred flowsets";
}

}  // namespace
}  // namespace Chips
