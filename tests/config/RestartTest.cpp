// A restart over hardware that holds entries from before, and how entries leave.

#include "DirectTables.h"
#include "platform/fennlog/Reader.h"

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

  table.entryCommit(this->k(1), this->e(1));
  EXPECT_EQ(at.take(), (std::vector<std::string>{"compare 1 " + this->text(1),
                                                 "published 0x209 1 was " + this->text(1),
                                                 "published 0x207 1 was -"}));
  table.entryCommit(this->k(2), this->e(9));
  EXPECT_EQ(at.take(), (std::vector<std::string>{
                           "compare 2 " + this->text(9), "write 2 " + this->text(9),
                           "published 0x209 2 was " + this->text(2), "published 0x207 2 was -"}));
  EXPECT_FALSE(table.reconcilingEntry());
  table.entryCommit(this->k(3), this->e(3));
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
  for (U32 index : {1u, 2u, 3u}) EXPECT_EQ(at.usesOf(index), 1u) << index;
  EXPECT_EQ(at.usesOf(4), 0u);
}

TYPED_TEST(RestartTest, AKeyWithoutAValueIsComparedAsADefaultEntry) {
  auto& at = this->at_;
  at.holding({{1, this->e(0)}, {2, this->e(2)}}).synced();
  this->table_.resolvedKeyPriorIs(SwTable::KeyPrior::noKey);
  this->table_.resolvedEntryIs(this->k(1), {});
  EXPECT_EQ(at.take()[0], "compare 1 " + this->text(0));
  this->table_.resolvedEntryIs(this->k(2), {});
  EXPECT_EQ(at.take(), (std::vector<std::string>{"compare 2 " + this->text(0), "write 2 -",
                                                 "published 0x209 2 was " + this->text(2),
                                                 "published 0x207 2 was -"}));
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
  this->table_.syncedEntryIs(this->k(99), this->e(9));
  this->table_.autoCommitSyncedEntries();
  EXPECT_FALSE(this->table_.entryHas(this->k(99)));
}

TYPED_TEST(RestartTest, LimitsOnTheCallersStopTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  this->table_.entryCommit(this->k(1), this->e(1));
  EXPECT_DEATH(this->table_.syncEntries(), "!swTable_->resolvedEntrys\\(\\)");
  this->table_.hwTableIs(nullptr);
  EXPECT_DEATH(this->table_.syncEntries(), "\"hwTable\\(\\)\"");
  Recorded<TypeParam> restarted(this->make());
  restarted.holding({{1, this->e(1)}}).synced();
  EXPECT_DEATH(restarted.table->entryRemoveAll(), "Should call purgeStaleEntries instead");
  restarted.table->doInitComplete();
  restarted.table->purgeStaleEntries();
  EXPECT_DEATH(restarted.tracker().update(1, Asic::IndexUserTracker::OpType::userRemove),
               "the use is there");
  if (!TestFixture::keyIsIndex) return;  // no structured key is the exhausted index
  Recorded<TypeParam> other(this->make());
  other.holding({{0xFFFFFFFF, this->e(1)}}).synced();
  EXPECT_DEATH(other.table->purgeStaleEntries(), "!isExhausted\\( hwIndex \\)");
  EXPECT_DEATH(other.table->entryCommit(this->k(0xFFFFFFFF), this->e(2)),
               "entryState != indexReconciled\\(\\)");
}

TYPED_TEST(RestartTest, RemovingAllTakesEveryKeyAsOneWithAValue) {
  auto& at = this->at_;
  this->table_.entryCommit(this->k(5), this->e(1));
  this->table_.entryCommit(this->k(6), this->e(1));
  this->table_.resolvedKeyPriorIs(SwTable::KeyPrior::value);
  this->table_.resolvedEntryIs(this->k(6), {});
  at.take();
  this->table_.entryRemoveAll();
  auto const events = at.take();
  EXPECT_EQ(std::ranges::count_if(events, [](auto& e) { return e.ends_with("userRemove"); }), 2);
  EXPECT_EQ(at.counted(ReconciliationStatus::reconcileDeleted), 2u);
  this->table_.entryRemoveAll();
  EXPECT_TRUE(at.take().empty());
}

TYPED_TEST(RestartTest, ADestroyedTableDeletesWhatItHeldAndNothingElse) {
  auto& at = this->at_;
  at.holding({{1, this->e(1)}, {2, this->e(2)}}).synced();
  this->table_.entryCommit(this->k(1), this->e(1));
  this->table_.entryCommit(this->k(3), this->e(3));
  at.take();
  auto const live = TypeParam::memAllocationTracker_.live();
  Vell::Ptr<Asic::HwTable> const hwTable(at.table->hwTable());
  at.subscriptions.clear();
  at.table = nullptr;
  EXPECT_EQ(Asic::IndexUserTracker::Stub::tracker(*hwTable).indices(), 0u) << "the tracker is gone";
  EXPECT_EQ(TypeParam::memAllocationTracker_.live(), live - 1);
  EXPECT_EQ(at.util->rows.size(), 1u);
  EXPECT_TRUE(at.util->rows.contains(2));
}

/// What a whole life of a table traces, with the given levels on.
template <class T>
std::vector<std::string> tracedLife(std::string_view handle, U32 levels) {
  auto const e = [](U64 n) { return sampleEntry<typename T::Entry>(n); };
  auto const k = [](U32 number) { return sampleKey<typename T::Key>(number); };
  std::vector<std::string> lines;
  Zarn::TraceHandle::sinkIs([&](std::string_view line) { lines.emplace_back(line); });
  Zarn::TraceHandle::levelsIs(handle, levels);
  {
    Recorded<T> at(Vell::Ptr<T>(new T));
    at.holding({{4, e(4)}, {6, e(6)}}).synced();
    at.table->entryCommit(k(5), e(1));
    at.table->doInitComplete();
    at.table->entryCommit(k(6), e(7));
    at.table->purgeStaleEntries();
    at.table->entryRemove(k(5));
    at.table->purgeStaleEntries();
    at.table->entryRemoveAll();
    at.subscriptions.clear();
  }
  Zarn::TraceHandle::levelsIs(handle, 0);
  Zarn::TraceHandle::sinkIs({});
  return lines;
}

TYPED_TEST(RestartTest, TracesReadToTheLetterAndStandAtTheirLevels) {
  auto const wanted = [](std::vector<std::string> texts) {
    for (auto& each : texts) each = Vell::concatenate(TypeParam::names.qualified, " : ", each);
    return texts;
  };
  auto const at = [](U32 level) {
    return tracedLife<TypeParam>(TypeParam::names.brief(), 1u << level);
  };
  EXPECT_EQ(at(5), wanted({"entryRemoveAll"}));
  auto const life = at(6);
  ASSERT_EQ(life.size(), 2u);
  EXPECT_TRUE(life[0].starts_with(wanted({"syncEntries: swTableInstPtr:"})[0]));
  EXPECT_EQ(life[1], wanted({"cleanup"})[0]);
  EXPECT_EQ(at(9), wanted({"doInitComplete"}));
  EXPECT_EQ(at(7), wanted({}));
  auto const summary = "purgeStaleEntries matched:0 rewritten:0 added:1 deleted:1";
  EXPECT_EQ(tracedLife<TypeParam>("SwTableStat", 1), wanted({summary, summary}));
  auto key = at(8);
  // {N} stands for a key; a structured one reads as its text, and has no hardware index.
  auto const lines = [&](std::vector<std::string> texts) {
    if (!TestFixture::keyIsIndex)
      std::erase_if(texts, [](auto& each) { return each.starts_with("traceHwIndex"); });
    for (auto& each : texts)
      if (auto const open = each.find('{'); open != each.npos) {
        auto const close = each.find('}');
        auto const number = std::stoul(each.substr(open + 1, close - open - 1));
        each.replace(open, close + 1 - open,
                     Zarn::valueToStrep(TestFixture::k(static_cast<U32>(number))));
      }
    return wanted(texts);
  };
  // The stale rows are met in map order, which the process's seed decides.
  auto const stale = std::ranges::find(key, lines({"handleStaleEntriesSkip resolved key:{6}"})[0]);
  ASSERT_NE(stale, key.end());
  key.erase(stale);
  EXPECT_EQ(key, lines({
                     "handleEntry key: {5}, configReplayComplete: false",
                     "handleEntry: reconcileStatus: reconcileAdded",
                     "programHwEntry key: {5}, entryState:inProgress",
                     "traceHwIndex Acquired hwIndex : {5}",
                     "hwTableEntryIs : key: {5}",
                     "handleEntry key: {6}, configReplayComplete: true",
                     "programHwEntry key: {6}, entryState:inProgress",
                     "traceHwIndex Acquired hwIndex : {6}",
                     "hwTableEntryIs : key: {6}",
                     "syncedEntryRemoveAll",
                     "hwTableEntryDel: Deleting entry at key:{4}",
                     "handleStaleEntries: Deleting stale hwEntry for key:{4}",
                     "handleEntry key: {5}, configReplayComplete: true",
                     "traceHwIndex Acquired hwIndex : {5}",
                     "hwTableEntryDel: Deleting entry at key:{5}",
                     "syncedEntryRemoveAll",
                     "syncedEntryRemoveAll No stale entries in syncedEntryColl",
                     "handleEntry key: {6}, configReplayComplete: true",
                     "traceHwIndex Acquired hwIndex : {6}",
                     "hwTableEntryDel: Deleting entry at key:{6}",
                 }));
}

TYPED_TEST(RestartTest, OperationsLeaveTheirMessages) {
  auto* const before = Fennlog::defaultHandle();
  auto const ring = Fennlog::Handle::inMemory(64);
  Fennlog::defaultHandleIs(ring.get());
  this->table_.entryCommit(this->k(5), this->e(1));
  this->table_.entryRemoveAll();
  this->table_.purgeStaleEntries();
  Fennlog::defaultHandleIs(before);
  std::vector<std::string> texts;
  for (auto const& message : Fennlog::read(*ring)) texts.push_back(message.text);
  std::vector<std::string> wanted;
  for (auto const* each :
       {"handleEntry", "programHwEntry", "entryRemoveAll", "handleEntry", "syncedEntryRemoveAll"})
    wanted.push_back(Vell::concatenate(TypeParam::names.brief(), ": ", each));
  EXPECT_EQ(texts, wanted);
}

}  // namespace
}  // namespace Testing
