// Watchers and hooks that call back into the table that is calling them.

#include <functional>
#include <random>

#include "DirectTables.h"
#include "support/EveryEvent.h"

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
  for (U32 key = 0; key < 80; ++key) table.entryCommit(this->k(key), this->e(key));
  for (U32 key = 0; key < 80; key += 2) table.entryRemove(this->k(key));
  walk();
  table.entryRemoveAll();
  for (auto const& [key, row] : this->at_.util->rows)
    EXPECT_EQ(table.resolvedEntry(this->k(key)), row);
  EXPECT_EQ(this->at_.util->rows.size(), table.entrys());
  for (U32 key = 0; key < 80; ++key) EXPECT_FALSE(table.entryHas(this->k(key))) << key;
}

/// A table after a restart that found rows of two keys.
template <class T>
struct Life {
  Recorded<T> at{Vell::Ptr<T>(new T)};
  std::optional<U64> wish;  ///< of the first key, unless that was taken back

  Life() { at.holding({{5, sampleEntry<typename T::Entry>(1)}, {6, {}}}).synced(); }
  static auto key(U32 number) { return sampleKey<typename T::Key>(number); }
  void commit(U64 n) { at.table->entryCommit(key(5), sampleEntry<typename T::Entry>(*(wish = n))); }
  void remove() {
    wish.reset();
    at.table->entryRemove(key(5));
  }
  void takeOther() { at.table->entryCommit(key(6), sampleEntry<typename T::Entry>(9)); }
  void endReplay() { at.table->doInitComplete(); }
  void purge() {
    endReplay();
    at.table->purgeStaleEntries();
  }
  void onEvent(std::function<void(std::string const&)> const& heard) {
    if (!heard) purge();  // which is the last that calls
    at.util->onEvent = heard;
  }
  void ended() {
    auto& table = *at.table;
    ASSERT_EQ(table.entryHas(key(5)), wish.has_value());
    ASSERT_EQ(table.entry(key(5)), sampleEntry<typename T::Entry>(wish.value_or(0)));
    ASSERT_EQ(at.util->rows.size(), table.entrys());
    ASSERT_EQ(at.tracker().indices(), table.entrys());
    for (auto const& [number, row] : at.util->rows) {
      ASSERT_EQ(table.resolvedEntry(key(number)), row);
      ASSERT_EQ(at.usesOf(number), 1u);
    }
  }
};

// Two callbacks, the second at an event of the first or after it: hardware, tracker and table agree in
// the end, and the newest wish stands.
TYPED_TEST(ReentrancyTest, EveryEventMayChangeTheKeys) {
  using Of = Life<TypeParam>;
  EveryEvent<Of> every;
  every.starts = {
      {"replay", [](Of&) {}},
      {"replay with a key", [](Of& life) { life.commit(2); }},
      {"end", [](Of& life) { life.endReplay(); }},
      {"end and back",
       [](Of& life) { life.endReplay(), life.commit(2), life.remove(), life.commit(2); }},
      {"purged", [](Of& life) { life.purge(); }},
      {"purged with a key", [](Of& life) { life.commit(2), life.purge(); }}};
  every.callBacks = {{"commits", [](Of& life) { life.commit(3); }},
                     {"commits what was found", [](Of& life) { life.commit(1); }},
                     {"removes", [](Of& life) { life.remove(); }},
                     {"removes and commits", [](Of& life) { life.remove(), life.commit(3); }},
                     {"takes and removes the other",
                      [](Of& life) { life.takeOther(), life.at.table->entryRemove(Of::key(6)); }}};
  every.triggers = every.callBacks;
  every.triggers["ends all"] = [](Of& life) { life.purge(); };
  every.second = [](Of& life) { life.commit(4); };
  every.play();
}

// A line stands between any two steps: other keys may change there, the one that it is about may not.
TYPED_TEST(ReentrancyTest, AReaderOfTracesMayChangeOtherKeys) {
  auto& at = this->at_;
  auto const everyLine = [](std::function<void()> act) {
    Zarn::TraceHandle::levelsIs(TypeParam::names.qualified, ~U32{0});
    Zarn::TraceHandle::sinkIs([act = std::move(act), depth = 0](std::string_view) mutable {
      if (++depth == 1) act();
      --depth;
    });
  };
  auto const quiet = [] {
    Zarn::TraceHandle::levelsIs(TypeParam::names.qualified, 0);
    Zarn::TraceHandle::sinkIs({});
  };
  at.synced().replayed();
  U32 other = 100;
  everyLine([&] { at.table->entryCommit(this->k(other++), this->e(2)); });
  for (U32 key = 0; key < 20; ++key) at.table->entryCommit(this->k(key), this->e(1));
  quiet();
  EXPECT_GT(other, 150u);
  EXPECT_EQ(at.util->rows.size(), 20 + other - 100);
  EXPECT_EQ(at.tracker().indices(), at.util->rows.size());
  everyLine([&] { at.table->entryRemove(this->k(5)); });
  EXPECT_DEATH(at.table->entryCommit(this->k(5), this->e(3)),
               "a reader of traces must leave alone the entry that its line is about");
  quiet();
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
      ASSERT_EQ(run.usesOf(key), 1u) << key;
    }
    hardware = run.util->rows;
    run.util->rows.clear();
    run.table->utilIs(nullptr);  // a warm exit: the end of the process touches no hardware
  }
}

}  // namespace
}  // namespace Testing
