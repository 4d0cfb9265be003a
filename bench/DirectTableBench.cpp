// Commits and restarts of a direct table, beside the least that a caller could write by hand:
// the two look-ups, the comparison and the store on `std::unordered_map`, and the same
// virtual call to the chip. Keys come from a random stream of 2^20, since a short order
// trains the branch predictor.

#include <atomic>
#include <memory>
#include <random>
#include <unordered_map>

#include "SideBySide.h"
#include "config/DlbControlSwTable.h"
#include "config/DlbEcmpControlSwTable.h"

namespace {

using Table = TessarLoadBalance::DlbEcmpControlTable;
using Entry = Table::Entry;
using Key = Table::Key;
using Row = Zarn::Optional<Entry>;

/// A chip that counts, and answers what it is told to hold.
class CountingUtil final : public Table::Util {
 public:
  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return 0xFFFFFFFE; }
  void hwTableEntryIs(Table&, Key, Row const& entry) const override {
    sum += entry->randomSelectionSeed;
  }
  void hwTableEntryDel(Table&, Key) const override { ++sum; }
  void updateHwIndexRefCountTracker(Asic::HwTable*, Key,
                                    Asic::IndexUserTracker::OpType) const override {
    ++sum;
  }
  bool compareHwEntries(Table&, Key key, Entry const& wanted) const override {
    return wanted.randomSelectionSeed == key.value();
  }
  void syncEntries(Asic::HwTable&, Vell::Ptr<Table> const& table) const override {
    for (U32 key = 0; key < held; ++key) table->syncedEntryIs(spread(key), entryOf(spread(key)));
  }
  /// Keys as a chip has them: dense.
  static U32 spread(U32 key) { return key; }
  static Entry entryOf(U32 seed) {
    Entry entry;
    entry.randomSelectionSeed = seed;
    return entry;
  }

  U32 held = 0;
  mutable U64 sum = 0;
};

/// What a caller would write by hand.
class LeastTable {
 public:
  class Chip {
   public:
    virtual ~Chip() = default;
    virtual void write(U32 key, Row const& entry) = 0;
    virtual void use(U32 key) = 0;
  };
  class CountingChip final : public Chip {
   public:
    void write(U32, Row const& entry) override { sum += entry->randomSelectionSeed; }
    void use(U32) override { ++sum; }
    U64 sum = 0;
  };

  explicit LeastTable(Chip& chip) : chip_(&chip) {}

  /// A call, as a table of a library is one.
  [[gnu::noinline]] void commit(U32 key, Entry const& entry) {
    auto const prior = rows_.find(key);
    bool const isNew = prior == rows_.end();
    Row& row = rows_[key];
    if (row && row->baseEcmpIndex == entry.baseEcmpIndex &&
        row->randomSelectionSeed == entry.randomSelectionSeed)
      return;
    row = entry;
    if (isNew) chip_->use(key);
    chip_->write(key, row);
  }

 private:
  std::unordered_map<U32, Row> rows_;
  Chip* chip_;
};

std::vector<U32> const& randomKeys(U32 count) {
  static std::unordered_map<U32, std::vector<U32>> streams;
  auto& keys = streams[count];
  if (keys.empty()) {
    std::mt19937 random(1);
    keys.resize(1u << 20);
    for (auto& key : keys) key = random() % count;
  }
  return keys;
}

struct BothTables {
  Vell::Ptr<CountingUtil> util{new CountingUtil};
  Vell::Ptr<Table> table = TessarLoadBalance::dlbEcmpControlTableFactory();
  LeastTable::CountingChip chip;
  std::unique_ptr<LeastTable::Chip*> opaque{new LeastTable::Chip*(&chip)};
  LeastTable least{**opaque};

  explicit BothTables(U32 count) {
    table->utilIs(util);
    table->hwTableIs(new Asic::HwTable);
    table->syncEntries();
    table->doInitComplete();
    for (U32 key = 0; key < count; ++key) {
      table->entryCommit(key, CountingUtil::entryOf(key));
      least.commit(key, CountingUtil::entryOf(key));
    }
  }
};

enum class Commit { changed, equal };

/// `streamed`: commits follow each other at once, and the processor overlaps the cache misses of
/// one with the work of the next, as far as it can look ahead. `alone`: it may not, as in an agent
/// that does something else between two commits.
enum class Pace { streamed, alone };

template <Pace pace>
void betweenCommits() {
#if defined(__x86_64__)
  if constexpr (pace == Pace::alone) __builtin_ia32_lfence();
#else
  if constexpr (pace == Pace::alone) std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
}

template <Commit kind, Pace pace>
void commit(benchmark::State& state) {
  auto const count = static_cast<U32>(state.range(0));
  auto const& keys = randomKeys(count);
  BothTables both(count);
  Bench::SideBySide sides;
  constexpr std::size_t chunk = 1u << 16;
  std::size_t at = 0;
  U32 round = count;
  for (auto _ : state) {
    ++round;
    auto const all = [&](auto&& operation) {
      return [&, operation] {
        for (std::size_t i = 0; i < chunk; ++i) {
          U32 const key = keys[at + i];
          // A changed value differs from that of every earlier chunk and of a repeat in this one.
          U32 const value = kind == Commit::equal ? key : round * chunk + static_cast<U32>(i);
          operation(key, CountingUtil::entryOf(value));
          betweenCommits<pace>();
        }
      };
    };
    sides.turn(state, chunk,
               all([&](U32 key, Entry const& entry) { both.table->entryCommit(key, entry); }),
               all([&](U32 key, Entry const& entry) { both.least.commit(key, entry); }));
    at = (at + chunk) % keys.size();
  }
  benchmark::DoNotOptimize(both.util->sum + both.chip.sum);
  sides.report(state);
  both.table->utilIs(nullptr);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1000)->Arg(100000)->UseManualTime();
}
BENCHMARK(commit<Commit::changed, Pace::streamed>)->Name("commit/changed/streamed")->Apply(sizes);
BENCHMARK(commit<Commit::changed, Pace::alone>)->Name("commit/changed/alone")->Apply(sizes);
BENCHMARK(commit<Commit::equal, Pace::streamed>)->Name("commit/equal/streamed")->Apply(sizes);
BENCHMARK(commit<Commit::equal, Pace::alone>)->Name("commit/equal/alone")->Apply(sizes);

/// A whole restart: sync, replay of equal entries, end of replay, purge. Beside it, the least: what
/// the hardware holds goes into one map, each entry is looked up, compared and put into another.
void restart(benchmark::State& state) {
  auto const count = static_cast<U32>(state.range(0));
  Bench::SideBySide sides;
  for (auto _ : state) {
    Vell::Ptr<CountingUtil> util(new CountingUtil);
    util->held = count;
    auto table = TessarLoadBalance::dlbEcmpControlTableFactory();
    table->utilIs(util);
    table->hwTableIs(new Asic::HwTable);
    std::unordered_map<U32, Entry> synced;
    std::unordered_map<U32, Row> resolved;
    sides.turn(
        state, count,
        [&] {
          table->syncEntries();
          for (U32 key = 0; key < count; ++key)
            table->entryCommit(CountingUtil::spread(key), CountingUtil::entryOf(key));
          table->doInitComplete();
          table->purgeStaleEntries();
        },
        [&] {
          for (U32 key = 0; key < count; ++key)
            synced.emplace(CountingUtil::spread(key), CountingUtil::entryOf(key));
          for (U32 key = 0; key < count; ++key) {
            auto const found = synced.find(CountingUtil::spread(key));
            if (found->second.randomSelectionSeed == key) synced.erase(found);
            resolved[CountingUtil::spread(key)] = CountingUtil::entryOf(key);
          }
        });
    table->utilIs(nullptr);
  }
  sides.report(state);
}

BENCHMARK(restart)->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000)->UseManualTime();

}  // namespace
