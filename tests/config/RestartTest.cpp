// A restart over hardware that holds entries from before, and how entries leave.

#include "DirectTables.h"

namespace Testing {
namespace {

using Asic::ReconciliationStatus;
using Asic::SwTable;

template <class T>
class RestartTest : public DirectTableSuite<T> {};
TYPED_TEST_SUITE(RestartTest, DirectTables);

TYPED_TEST(RestartTest, EqualUntouchedDifferentRewrittenMissingAddedStaleDeleted) {
  auto& at = this->at_;
  auto& table = this->table_;
  at.holding({{1, this->e(1)}, {2, this->e(2)}, {4, this->e(4)}}).synced();

  table.entryCommit(1, this->e(1));
  EXPECT_EQ(at.take(), (std::vector<std::string>{"compare 1 " + this->text(1),
                                                 "published 0x209 1 was " + this->text(1),
                                                 "published 0x207 1 was -"}));
  table.entryCommit(2, this->e(9));
  EXPECT_EQ(at.take(), (std::vector<std::string>{
                           "compare 2 " + this->text(9), "write 2 " + this->text(9),
                           "published 0x209 2 was " + this->text(2), "published 0x207 2 was -"}));
  EXPECT_FALSE(table.reconcilingEntry());
  table.entryCommit(3, this->e(3));
  EXPECT_EQ(at.take(), (std::vector<std::string>{"tracker 3 userAdd", "write 3 " + this->text(3),
                                                 "published 0x207 3 was -"}));

  table.doInitComplete();
  table.purgeStaleEntries();
  EXPECT_EQ(at.take(), (std::vector<std::string>{"tracker 4 userRemove", "delete 4",
                                                 "published 0x209 4 was " + this->text(4)}));
  EXPECT_FALSE(table.reconcilingEntry());
  for (auto status :
       {ReconciliationStatus::reconcileMatched, ReconciliationStatus::reconcileRewritten,
        ReconciliationStatus::reconcileAdded, ReconciliationStatus::reconcileDeleted})
    EXPECT_EQ(at.counted(status), 1u) << status;
  for (U32 index : {1u, 2u, 3u}) EXPECT_EQ(at.uses(index).users, 1u) << index;
  EXPECT_EQ(at.uses(4).users, 0u);
}

TYPED_TEST(RestartTest, AfterTheFirstCommitOfAKeyTheNextGoesTheAddedWay) {
  auto& at = this->at_;
  at.holding({{1, this->e(1)}}).synced();
  this->table_.entryCommit(1, this->e(1));
  this->table_.entryCommit(1, this->e(2));
  EXPECT_EQ(at.counted(ReconciliationStatus::reconcileMatched), 1u);
  EXPECT_EQ(at.counted(ReconciliationStatus::reconcileAdded), 1u);
  EXPECT_EQ(at.uses(1).users, 1u);
  this->table_.entryRemove(1);
  EXPECT_EQ(at.counted(ReconciliationStatus::reconcileDeleted), 1u);
  EXPECT_TRUE(at.util->rows.empty());
}

TYPED_TEST(RestartTest, AKeyCommittedBetweenReplayAndPurgeKeepsItsRow) {
  auto& at = this->at_;
  at.holding({{1, this->e(1)}}).synced();
  this->table_.doInitComplete();
  this->table_.entryCommit(1, this->e(2));
  EXPECT_EQ(at.take(), (std::vector<std::string>{"tracker 1 userAdd", "write 1 " + this->text(2),
                                                 "published 0x207 1 was -"}));
  EXPECT_EQ(this->table_.syncedEntry(1), this->e(1));
  this->table_.purgeStaleEntries();
  EXPECT_EQ(at.take(), std::vector<std::string>{"published 0x209 1 was " + this->text(1)});
  EXPECT_EQ(at.counted(ReconciliationStatus::reconcileDeleted), 0u);
  EXPECT_EQ(at.uses(1).users, 1u);
}

TYPED_TEST(RestartTest, AutoCommitAdoptsTheHardwareWhileReplayRuns) {
  auto& at = this->at_;
  for (U32 key = 0; key < 50; ++key) at.holding({{key, this->e(key)}});
  at.synced();
  this->table_.autoCommitSyncedEntries();
  EXPECT_EQ(at.counted(ReconciliationStatus::reconcileMatched), 50u);
  EXPECT_EQ(this->table_.entrys(), 50u);
  EXPECT_EQ(this->table_.syncedEntryMap().count(), 0u);
  this->table_.doInitComplete();
  this->table_.syncedEntryIs(99, this->e(9));
  this->table_.autoCommitSyncedEntries();
  EXPECT_FALSE(this->table_.entryHas(99));
}

TYPED_TEST(RestartTest, WithoutWatchersTheStaleRestGoesAtOnce) {
  auto& at = this->at_;
  at.subscriptions.clear();
  at.holding({{1, this->e(1)}, {2, this->e(2)}}).synced();
  this->table_.doInitComplete();
  this->table_.purgeStaleEntries();
  EXPECT_TRUE(at.util->rows.empty());
  EXPECT_EQ(this->table_.syncedEntryMap().count(), 0u);
}

TYPED_TEST(RestartTest, SyncComesFirstAndNeedsHardware) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  this->table_.entryCommit(1, this->e(1));
  EXPECT_DEATH(this->table_.syncEntries(), "!swTable_->resolvedEntrys\\(\\)");
  this->table_.hwTableIs(nullptr);
  EXPECT_DEATH(this->table_.syncEntries(), "\"hwTable\\(\\)\"");
  Recorded<TypeParam> other(this->make());
  other.holding({{0xFFFFFFFF, this->e(1)}}).synced();
  EXPECT_DEATH(other.table->purgeStaleEntries(), "!isExhausted\\( hwIndex \\)");
  EXPECT_DEATH(other.table->entryCommit(0xFFFFFFFF, this->e(2)),
               "entryState != indexReconciled\\(\\)");
}

TYPED_TEST(RestartTest, RemovalTellsTrackerHardwareWatchers) {
  auto& at = this->at_;
  at.synced().replayed();
  this->table_.entryCommit(5, this->e(1));
  at.take();
  this->table_.entryRemove(5);
  EXPECT_EQ(at.take(), (std::vector<std::string>{"tracker 5 userRemove", "delete 5",
                                                 "published 0x207 5 was " + this->text(1)}));
  this->table_.entryRemove(5);
  EXPECT_TRUE(at.take().empty());
  EXPECT_EQ(this->table_.resolvedKeyPrior(), SwTable::KeyPrior::noKey);
  this->table_.entryCommit(5, this->e(1));
  EXPECT_EQ(at.take()[0], "tracker 5 userAdd");
}

TYPED_TEST(RestartTest, RemovingAllTakesEveryKeyAsOneWithAValue) {
  auto& at = this->at_;
  this->table_.entryCommit(5, this->e(1));
  this->table_.entryCommit(6, this->e(1));
  at.take();
  this->table_.entryRemoveAll();
  auto const events = at.take();
  EXPECT_EQ(std::ranges::count_if(events, [](auto& e) { return e.ends_with("userRemove"); }), 2);
  EXPECT_EQ(at.counted(ReconciliationStatus::reconcileDeleted), 2u);
  this->table_.entryRemoveAll();
  EXPECT_TRUE(at.take().empty());
}

TYPED_TEST(RestartTest, RemovingAllBeforeThePurgeIsALimit) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  this->at_.holding({{1, this->e(1)}}).synced();
  EXPECT_DEATH(this->table_.entryRemoveAll(), "Should call purgeStaleEntries instead");
  this->table_.utilIs(nullptr);
  this->table_.entryRemoveAll();
}

TYPED_TEST(RestartTest, ADestroyedTableDeletesWhatItHeldAndNothingElse) {
  auto& at = this->at_;
  at.holding({{1, this->e(1)}, {2, this->e(2)}}).synced();
  this->table_.entryCommit(1, this->e(1));
  this->table_.entryCommit(3, this->e(3));
  at.take();
  auto const live = TypeParam::memAllocationTracker_.live();
  at.subscriptions.clear();
  at.table = nullptr;
  EXPECT_EQ(TypeParam::memAllocationTracker_.live(), live - 1);
  EXPECT_EQ(at.util->rows.size(), 1u);
  EXPECT_TRUE(at.util->rows.contains(2));
}

TYPED_TEST(RestartTest, TracesReadToTheLetter) {
  auto& at = this->at_;
  std::vector<std::string> lines;
  Zarn::TraceHandle::sinkIs([&](std::string_view line) { lines.emplace_back(line); });
  Zarn::TraceHandle::levelsIs(TypeParam::names.brief(), ~0u);
  Zarn::TraceHandle::levelsIs("SwTableStat", 1u);
  at.holding({{4, this->e(4)}}).synced();
  this->table_.entryCommit(5, this->e(1));
  this->table_.doInitComplete();
  this->table_.purgeStaleEntries();
  this->table_.entryRemove(5);
  this->table_.purgeStaleEntries();
  this->table_.entryCommit(0xFFFFFFFF, this->e(1));
  this->table_.entryRemoveAll();
  Zarn::TraceHandle::levelsIs(TypeParam::names.brief(), 0);
  Zarn::TraceHandle::levelsIs("SwTableStat", 0);
  Zarn::TraceHandle::sinkIs({});

  std::vector<std::string> const texts{
      "handleEntry key: 5, configReplayComplete: false",
      "handleEntry: reconcileStatus: reconcileAdded",
      "programHwEntry key: 5, entryState:inProgress",
      "traceHwIndex Acquired hwIndex : 5",
      "hwTableEntryIs : key: 5",
      "doInitComplete",
      "syncedEntryRemoveAll",
      "hwTableEntryDel: Deleting entry at key:4",
      "handleStaleEntries: Deleting stale hwEntry for key:4",
      "purgeStaleEntries matched:0 rewritten:0 added:1 deleted:1",
      "handleEntry key: 5, configReplayComplete: true",
      "traceHwIndex Acquired hwIndex : 5",
      "hwTableEntryDel: Deleting entry at key:5",
      "syncedEntryRemoveAll",
      "syncedEntryRemoveAll No stale entries in syncedEntryColl",
      "purgeStaleEntries matched:0 rewritten:0 added:1 deleted:1",
      "handleEntry key: 4294967295, configReplayComplete: true",
      "programHwEntry key: 4294967295, entryState:inProgress",
      "traceHwIndex Acquired hwIndex : 4294967295",
      "entryRemoveAll",
      "handleEntry key: 4294967295, configReplayComplete: true",
      "traceHwIndex Acquired hwIndex : 4294967295",
      "handleEntryNo entry in HwTable for this key. Skip delete",
  };
  ASSERT_TRUE(!lines.empty() &&
              lines[0].starts_with(Vell::concatenate(TypeParam::names.qualified,
                                                     " : syncEntries: swTableInstPtr:")));
  lines.erase(lines.begin());
  std::vector<std::string> wanted;
  for (auto const& each : texts)
    wanted.push_back(Vell::concatenate(TypeParam::names.qualified, " : ", each));
  EXPECT_EQ(lines, wanted);
}

}  // namespace
}  // namespace Testing
