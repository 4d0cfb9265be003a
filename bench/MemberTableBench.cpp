// Commits and restarts of member blocks, per row, beside the least that a caller could write by
// hand: one map from a block's rows to its first index, a free list of blocks of one size, and the
// same two virtual calls to the chip for each row.

#include <memory>
#include <unordered_map>
#include <vector>

#include "SideBySide.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace {

using Table = TessarLoadBalance::DlbEcmpMember1Table;
using Block = Table::EntryBlock;
using Row = Table::Entry;
using State = Asic::SwTableBase::EntryState;

/// A next hop that is in the hardware.
class NextHop final : public Asic::SwTableBase::EntryHandle {
 public:
  static Vell::Ptr<NextHop> at(U32 index) {
    Vell::Ptr<NextHop> made(new NextHop);
    made->hwIndexIs(index);
    made->entryStateIs(State::success);
    return made;
  }
  Vell::ZarnType typeData() const override { return {&Table::module(), 2}; }
};

class CountingUtil final : public Table::Util {
 public:
  CountingUtil() { indexKnownAtWriteIs(true); }
  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return numEntries() - 1; }
  U32 numEntries() const override { return 1u << 18; }
  void hwTableEntryIs(Table&, Key, Zarn::Optional<Row> const& row) const override {
    sum += row->ecmpNextHopEntry;
  }
  void hwTableEntryDel(Table&, Key) const override { ++sum; }
  void updateHwIndexRefCountTracker(Asic::HwTable*, Key,
                                    Asic::IndexUserTracker::OpType) const override {
    ++sum;
  }
  bool compareHwEntries(Table& table, Key row, Row const& wanted) const override {
    auto const found = table.syncedEntry(row);
    return found.ecmpNextHopEntry == wanted.ecmpNextHopEntry && found.weightIdx == wanted.weightIdx;
  }
  void syncEntries(Asic::HwTable&, Vell::Ptr<Table> const& table) const override {
    for (U32 row = 0; row < held.size(); ++row) table->syncedEntryIs(Asic::Index(row), held[row]);
  }

  std::vector<Row> held;
  mutable U64 sum = 0;
};

/// The blocks of a run, as both sides want them.
using LeastBlock = std::vector<std::pair<NextHop const*, U8>>;
struct Blocks {
  std::vector<Vell::Ptr<NextHop>> nextHops;
  std::vector<Block> blocks;
  std::vector<LeastBlock> least;

  Blocks(U32 count, U32 rows) {
    for (U32 i = 0; i < 256; ++i) nextHops.push_back(NextHop::at(i));
    for (U32 i = 0; i < count; ++i) {
      Block& block = blocks.emplace_back();
      for (U32 offset = 0; offset < rows; ++offset) {
        Row row;
        row.ecmpNextHopEntryHandle = nextHops[(i + offset) % 256];
        row.weightIdx = static_cast<U8>((i >> 8) + (offset == i % rows));
        block.entryIs(offset, row);
      }
      auto& by = least.emplace_back();
      for (U32 offset = 0; offset < rows; ++offset)
        by.emplace_back(nextHops[(i + offset) % 256].get(), block.entry(offset).weightIdx);
    }
  }
};

/// What a caller would write by hand.
class LeastTable {
 public:
  class Chip {
   public:
    virtual ~Chip() = default;
    virtual void use(U32 row) = 0;
    virtual void write(U32 row, U32 nextHop, U8 weight) = 0;
  };
  class CountingChip final : public Chip {
   public:
    void use(U32) override { ++sum; }
    void write(U32, U32 nextHop, U8) override { sum += nextHop; }
    U64 sum = 0;
  };

  LeastTable(Chip& chip, U32 rows) : chip_(&chip) {
    for (U32 base = 0; base + rows <= 1u << 18; base += rows) free_.push_back(base);
  }
  [[gnu::noinline]] void commit(LeastBlock const& block) {
    auto const [at, isNew] = bases_.try_emplace(block, free_.back());
    if (!isNew) return;
    free_.pop_back();
    U32 row = at->second;
    for (auto const& [nextHop, weight] : block) {
      chip_->use(row);
      chip_->write(row++, nextHop->hwIndex().value(), weight);
    }
  }
  void removeAll() {
    for (auto const& each : bases_) free_.push_back(each.second);
    bases_.clear();
  }

 private:
  struct Hash {
    std::size_t operator()(LeastBlock const& block) const {
      std::size_t hash = 0;
      for (auto const& [nextHop, weight] : block)
        hash = (hash ^ reinterpret_cast<std::uintptr_t>(nextHop) ^ weight) * 0x9E3779B97F4A7C15;
      return hash ^ hash >> 32;
    }
  };

  std::unordered_map<LeastBlock, U32, Hash> bases_;
  std::vector<U32> free_;
  Chip* chip_;
};

Vell::Ptr<Table> startedTable(Vell::Ptr<CountingUtil> const& util) {
  auto table = TessarLoadBalance::dlbEcmpMember1TableFactory();
  table->utilIs(util);
  table->hwTableIs(new Asic::HwTable);
  table->doCreateAllocator();
  return table;
}

/// New blocks, in a table that holds none at the start of each chunk.
void newBlock(benchmark::State& state) {
  auto const rows = static_cast<U32>(state.range(0));
  constexpr U32 count = 1024;
  Blocks const blocks(count, rows);
  Vell::Ptr<CountingUtil> const util(new CountingUtil);
  auto table = startedTable(util);
  table->syncEntries();
  table->doInitComplete();
  LeastTable::CountingChip chip;
  std::unique_ptr<LeastTable::Chip*> const opaque(new LeastTable::Chip*(&chip));
  LeastTable least(**opaque, rows);
  Bench::SideBySide sides;
  for (auto _ : state) {
    sides.turn(
        state, std::size_t{count} * rows,
        [&] {
          for (auto const& block : blocks.blocks) table->entryBlockCommit(block);
        },
        [&] {
          for (auto const& block : blocks.least) least.commit(block);
        });
    table->entryBlockRemoveAll();
    least.removeAll();
  }
  benchmark::DoNotOptimize(util->sum + chip.sum);
  sides.report(state);
}
BENCHMARK(newBlock)->Name("memberBlock/new")->Arg(4)->Arg(16)->Arg(64)->UseManualTime();

/// A whole restart of a thousand blocks, each told its place by whoever stands above it. The least:
/// what the hardware holds goes into one map, and each block's rows are compared and taken out.
void restart(benchmark::State& state) {
  auto const rows = static_cast<U32>(state.range(0));
  constexpr U32 count = 1000;
  Blocks const blocks(count, rows);
  Vell::Ptr<CountingUtil> const util(new CountingUtil);
  for (auto const& block : blocks.blocks)
    for (U32 offset = 0; offset < rows; ++offset) {
      auto row = block.entry(offset);
      row.ecmpNextHopEntry = row.ecmpNextHopEntryHandle->hwIndex().value();
      row.ecmpNextHopEntryHandle = nullptr;
      util->held.push_back(row);
    }
  Bench::SideBySide sides;
  for (auto _ : state) {
    auto table = startedTable(util);
    std::unordered_map<U32, std::pair<U32, U8>> synced;
    std::unordered_map<U32, U32> bases;
    sides.turn(
        state, std::size_t{count} * rows,
        [&] {
          table->syncEntries();
          for (U32 i = 0; i < count; ++i) {
            auto const handle = table->entryBlockCommit(blocks.blocks[i]);
            Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, {i * rows});
          }
          table->doInitComplete();
          table->purgeStaleEntries();
        },
        [&] {
          for (U32 row = 0; row < util->held.size(); ++row)
            synced.emplace(row,
                           std::pair(util->held[row].ecmpNextHopEntry, util->held[row].weightIdx));
          for (U32 i = 0; i < count; ++i) {
            bool isSame = true;
            for (U32 offset = 0; offset < rows; ++offset) {
              auto const& [nextHop, weight] = blocks.least[i][offset];
              auto const held = synced.find(i * rows + offset);
              isSame = isSame && held->second == std::pair(nextHop->hwIndex().value(), weight);
              synced.erase(held);
            }
            if (isSame) bases.emplace(i, i * rows);
          }
        });
    if (table->statistics().of(Asic::ReconciliationStatus::reconcileMatched) != count)
      state.SkipWithError("a block was not found in its place");
    table->utilIs(nullptr);
  }
  sides.report(state);
}
BENCHMARK(restart)->Name("memberBlock/restart")->Arg(4)->Arg(16)->Arg(64)->UseManualTime();

}  // namespace
