// Watchers and hooks that call back into the table that is calling them.

#include <functional>
#include <random>

#include "DirectTables.h"

namespace Testing {
namespace {

template <class T>
class ReentrancyTest : public DirectTableSuite<T> {};
TYPED_TEST_SUITE(ReentrancyTest, DirectTables);

TYPED_TEST(ReentrancyTest, AWatcherCommitsRemovesAndWalksDuringEveryPublication) {
  auto& table = this->table_;
  this->at_.synced().replayed();
  int depth = 0;
  auto const walk = [&] {
    U32 keys = 0;
    for (auto each = table.entryIteratorConst(); each; each.advance(), ++keys)
      EXPECT_EQ(table.resolvedEntry(each.key()), each.entry());
    EXPECT_EQ(keys, table.entrys());
  };
  auto const watching = table.publisher()->watch(Vell::Publisher::everyField, [&](auto& change) {
    if (++depth < 4) {
      U32 const key = numberOf(change.template keyAs<typename TypeParam::Key>());
      table.entryCommit(this->k(key + 1000), this->e(static_cast<U64>(depth)));
      table.entryRemove(this->k(key / 2));
      walk();
    }
    --depth;
  });
  for (U32 key = 0; key < 300; ++key) table.entryCommit(this->k(key), this->e(key));
  for (U32 key = 0; key < 300; key += 2) table.entryRemove(this->k(key));
  walk();
  table.entryRemoveAll();
  for (auto const& [key, row] : this->at_.util->rows)
    EXPECT_EQ(table.resolvedEntry(this->k(key)), row);
  EXPECT_EQ(this->at_.util->rows.size(), table.entrys());
  for (U32 key = 0; key < 300; ++key) EXPECT_FALSE(table.entryHas(this->k(key))) << key;
}

// Whatever a hook does to the very key that it is called for, hardware and table agree in the end.
TYPED_TEST(ReentrancyTest, AHookMayRemoveOrCommitItsOwnKey) {
  using Action = std::function<void(TypeParam&)>;
  Action const remove = [](auto& table) { table.entryRemove(TestFixture::k(5)); };
  auto const commit = [](U64 n) -> Action {
    return [n](auto& table) { table.entryCommit(TestFixture::k(5), TestFixture::e(n)); };
  };
  Action const replayEnded = [](auto& table) { table.doInitComplete(); };
  Action const purge = [](auto& table) {
    table.doInitComplete();
    table.purgeStaleEntries();
  };
  struct Case {
    bool hardwareHoldsIt;
    std::vector<Action> before;
    Action trigger;
    std::string event;  ///< the first one of that beginning runs `callBack`
    Action callBack;
  };
  for (auto const& each : {
           Case{false, {purge}, commit(2), "tracker 5 userAdd", remove},
           Case{false, {purge}, commit(2), "tracker 5 userAdd", commit(3)},
           Case{false, {purge, commit(1)}, remove, "tracker 5 userRemove", commit(3)},
           Case{true, {}, commit(2), "compare 5", remove},
           Case{true, {}, commit(2), "compare 5", commit(3)},
           Case{true, {}, commit(2), "compare 5", commit(1)},
           Case{true, {}, purge, "tracker 5 userRemove", commit(3)},
           Case{true, {replayEnded, commit(2)}, remove, "tracker 5 userRemove", [](auto&) {}},
           Case{
               true, {replayEnded, commit(2), remove, commit(2)}, remove, "delete 5", [](auto&) {}},
           Case{true, {replayEnded}, commit(2), "tracker 5 userAdd", remove},
       }) {
    Recorded<TypeParam> run(this->make());
    if (each.hardwareHoldsIt) run.holding({{5, this->e(1)}});
    run.synced();
    for (auto const& step : each.before) step(*run.table);
    bool called = false;
    run.util->onEvent = [&](std::string const& event) {
      if (event.starts_with(each.event) && !std::exchange(called, true)) each.callBack(*run.table);
    };
    each.trigger(*run.table);
    purge(*run.table);
    ASSERT_TRUE(called) << each.event;
    ASSERT_EQ(run.util->rows.size(), run.table->entrys()) << each.event;
    ASSERT_EQ(run.uses(5).users, run.table->entrys()) << each.event;
    for (auto const& [key, row] : run.util->rows)
      ASSERT_EQ(run.table->resolvedEntry(this->k(key)), row) << each.event;
  }
}

// What sync found of the key is still noted while it is rewritten, but not known to the tracker any more
// once the key has gone.
TYPED_TEST(ReentrancyTest, AKeyMayGoAndComeBackInTheMidstOfItsRewrite) {
  this->at_.holding({{5, this->e(1)}}).synced();
  U32 inside = 0;
  this->at_.util->onEvent = [&](std::string const& event) {
    if (inside == 0 && event.starts_with("write 5")) {
      inside = 1;
      this->table_.entryRemove(this->k(5));
    } else if (inside == 1 && event.starts_with("tracker 5")) {
      inside = 2;
      this->table_.entryCommit(this->k(5), this->e(3));
    }
  };
  this->table_.entryCommit(this->k(5), this->e(2));
  this->at_.util->onEvent = nullptr;
  ASSERT_EQ(inside, 2u);
  EXPECT_EQ(this->at_.uses(5).users, 1u);
  this->at_.replayed();
  EXPECT_EQ(this->at_.util->rows.at(5), this->e(3));
  EXPECT_EQ(this->at_.uses(5).users, 1u);
}

// The purge comes to each stale row whatever became of its key meanwhile; a use that is not there
// is a broken limit again when it is over.
TYPED_TEST(ReentrancyTest, StaleKeysMayComeAndGoDuringThePurge) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto& table = this->table_;
  for (U32 key = 0; key < 20; ++key) this->at_.holding({{key, this->e(1)}});
  this->at_.synced();
  table.doInitComplete();
  bool called = false;
  this->at_.util->onEvent = [&](std::string const& event) {
    if (!event.starts_with("delete") || std::exchange(called, true)) return;
    for (U32 key = 0; key < 20; ++key) {
      table.entryCommit(this->k(key), this->e(2));
      table.entryRemove(this->k(key));
    }
  };
  table.purgeStaleEntries();
  this->at_.util->onEvent = nullptr;
  EXPECT_TRUE(called);
  EXPECT_TRUE(this->at_.util->rows.empty());
  auto& tracker = Asic::IndexUserTracker::Stub::tracker(*table.hwTable());
  EXPECT_EQ(tracker.indices(), 0u);
  EXPECT_DEATH(tracker.update(5, Asic::IndexUserTracker::OpType::userRemove), "the use is there");
}

TYPED_TEST(ReentrancyTest, ATableEndsEmptyWhateverItsWatchersCommit) {
  this->at_.synced().replayed();
  for (U32 key = 0; key < 20; ++key) this->table_.entryCommit(this->k(key), this->e(1));
  U32 commits = 0;
  auto* const table = &this->table_;
  auto const watching = table->publisher()->watch(0x207, [&](auto&) {
    if (commits < 30) table->entryCommit(this->k(commits++), this->e(2));
  });
  this->at_.table = nullptr;
  EXPECT_EQ(commits, 20u)
      << "each key that goes is told, and what is committed meanwhile is not taken";
  EXPECT_TRUE(this->at_.util->rows.empty());
}

TYPED_TEST(ReentrancyTest, TheLastUseOfTheTableMayGoInsideItsPublication) {
  this->at_.synced().replayed();
  auto const live = TypeParam::memAllocationTracker_.live();
  auto* const table = this->at_.table.get();
  bool dropped = false;
  this->at_.subscriptions.push_back(table->publisher()->watch(0x207, [&](auto&) {
    if (std::exchange(dropped, true)) return;
    this->at_.table = nullptr;
  }));
  table->entryCommit(this->k(5), this->e(1));
  EXPECT_TRUE(dropped);
  EXPECT_EQ(TypeParam::memAllocationTracker_.live(), live - 1);
  EXPECT_TRUE(this->at_.util->rows.empty());
}

// Random commits, removals and restarts: hardware and collection agree with a plain map throughout.
TYPED_TEST(ReentrancyTest, RandomOperationsAgreeWithAPlainMap) {
  std::mt19937 random(20261122);
  std::map<U32, U64> wanted;
  std::map<U32, Zarn::Optional<typename TypeParam::Entry>> hardware;
  for (int restart = 0; restart < 20; ++restart) {
    Recorded<TypeParam> run(this->make());
    run.util->rows = hardware;
    run.synced();
    for (auto const& [key, n] : wanted)
      if (random() % 10 != 0) run.table->entryCommit(this->k(key), this->e(n));
    std::erase_if(wanted, [&](auto& each) { return !run.table->entryHas(this->k(each.first)); });
    run.replayed();
    for (int step = 0; step < 500; ++step) {
      U32 const key = random() % 200;
      if (random() % 3 == 0) {
        run.table->entryRemove(this->k(key));
        wanted.erase(key);
      } else {
        wanted[key] = random() % 5;
        run.table->entryCommit(this->k(key), this->e(wanted[key]));
      }
    }
    ASSERT_EQ(run.util->rows.size(), wanted.size());
    for (auto const& [key, n] : wanted) {
      ASSERT_EQ(run.util->rows[key], this->e(n)) << key;
      ASSERT_EQ(run.uses(key).users, 1u) << key;
    }
    hardware = run.util->rows;
    run.util->rows.clear();
    run.table->utilIs(nullptr);  // a warm exit: the end of the process touches no hardware
  }
}

}  // namespace
}  // namespace Testing
