// Commits, acknowledgements and restarts of level-1 groups beside the least that a caller could write
// by hand: one map from key to index and value, a last-in first-out list of free indices, a number
// for each row's newest write, and the same virtual calls to the chip.

#include <deque>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "SideBySide.h"
#include "group/EcmpGroup1DlbSwTable.h"
#include "platform/asic/WriteResponseSm.h"

namespace {

using Table = TessarLoadBalance::EcmpGroup1DlbTable;
using Entry = Table::Entry;
using Row = Table::UtilKey;
using State = Asic::SwTableBase::EntryState;

constexpr U32 groups = 4000;

Entry entryOf(U32 mode) {
  Entry entry;
  entry.lbMode = mode;
  return entry;
}

class CountingUtil final : public Table::Util {
 public:
  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return numEntries() - 1; }
  U32 numEntries() const override { return 1u << 14; }
  void hwTableEntryIs(Table&, Row row, Zarn::Optional<Entry> const& entry) const override {
    sum += row.value() + entry->lbMode;
  }
  void hwTableEntryDel(Table&, Row) const override { ++sum; }
  void updateHwIndexRefCountTracker(Asic::HwTable*, Row,
                                    Asic::IndexUserTracker::OpType) const override {
    ++sum;
  }
  bool compareHwEntries(Table&, Row row, Entry const& wanted) const override {
    return held[row.value()] == wanted;
  }
  void syncEntries(Asic::HwTable&, Vell::Ptr<Table> const& table) const override {
    for (U32 row = 0; row < held.size(); ++row) table->syncedEntryIs(Asic::Index(row), held[row]);
  }

  std::vector<Entry> held;
  mutable U64 sum = 0;
};

/// What a caller would write by hand.
class LeastTable {
 public:
  class Chip {
   public:
    virtual ~Chip() = default;
    virtual void use(U32 row) = 0;
    virtual void write(U32 row, Entry const& entry) = 0;
  };
  class CountingChip final : public Chip {
   public:
    void use(U32) override { ++sum; }
    void write(U32 row, Entry const& entry) override { sum += row + entry.lbMode; }
    U64 sum = 0;
  };
  struct Ack {
    U64 write;
    U32 row;
  };

  explicit LeastTable(Chip& chip) : newest_(groups), owner_(groups), chip_(&chip) {
    for (U32 row = groups; row-- > 0;) free_.push_back(row);
  }
  [[gnu::noinline]] void commit(U32 id, Entry const& wanted) {
    auto const [at, isNew] = groups_.try_emplace(id);
    auto& group = at->second;
    if (isNew) {
      group.row = free_.back();
      free_.pop_back();
      owner_[group.row] = &group;
      chip_->use(group.row);
    } else if (group.entry == wanted) {
      return;
    }
    group.entry = wanted;
    group.state = State::inProgress;
    newest_[group.row] = ++lastWrite_;
    chip_->write(group.row, wanted);
  }
  U64 newest(U32 row) const { return newest_[row]; }
  void ackIs(Ack ack) { acks_.push_back(ack); }
  [[gnu::noinline]] void deliver() {
    for (; !acks_.empty(); acks_.pop_front()) {
      auto const [write, row] = acks_.front();
      if (newest_[row] != write) continue;
      newest_[row] = 0;
      owner_[row]->state = State::success;
    }
  }

 private:
  struct Group {
    U32 row = 0;
    Entry entry;
    State state = State::unresolved;
  };

  std::unordered_map<U64, Group> groups_;
  std::vector<U32> free_;
  std::vector<U64> newest_;
  std::vector<Group*> owner_;
  std::deque<Ack> acks_;
  U64 lastWrite_ = 0;
  Chip* chip_;
};

/// Both sides with all groups written and acknowledged, and the ids in an order without pattern.
class Sides {
 public:
  Sides() {
    table->utilIs(util);
    table->hwTableIs(new Asic::HwTable);
    table->doCreateAllocator();
    table->syncEntries();
    table->doInitComplete();
    for (U32 id = 0; id < groups; ++id) ids.push_back(id);
    std::shuffle(ids.begin(), ids.end(), std::mt19937(1));
    commitAll(0);
    ackAll();
  }
  ~Sides() { table->utilIs(nullptr); }

  void commitTable(U32 round) {
    for (U32 const id : ids) table->entryCommit({.adjId = id}, entryOf(round));
  }
  void commitLeast(U32 round) {
    for (U32 const id : ids) least.commit(id, entryOf(round));
  }
  void commitAll(U32 round) {
    commitTable(round);
    commitLeast(round);
  }
  void ackTable() {
    auto& hwTable = *table->hwTable();
    for (U32 row = 0; row < groups; ++row)
      hwTable.writeResponseIs({hwTable.newestWrite(row), row, State::success});
    hwTable.deliverWriteResponses();
  }
  void ackLeast() {
    for (U32 row = 0; row < groups; ++row) least.ackIs({least.newest(row), row});
    least.deliver();
  }
  void ackAll() {
    ackTable();
    ackLeast();
  }

  Vell::Ptr<CountingUtil> util{new CountingUtil};
  Vell::Ptr<Table> table = TessarLoadBalance::ecmpGroup1DlbTableFactory("groups");
  LeastTable::CountingChip chip;
  std::unique_ptr<LeastTable::Chip*> const opaque{new LeastTable::Chip*(&chip)};
  LeastTable least{**opaque};
  std::vector<U32> ids;
};

void changedCommit(benchmark::State& state) {
  Sides at;
  Bench::SideBySide sides;
  for (U32 round = 1; auto _ : state) {
    sides.turn(
        state, groups, [&] { at.commitTable(round); }, [&] { at.commitLeast(round); });
    at.ackAll();
    ++round;
  }
  sides.report(state);
}
BENCHMARK(changedCommit)->Name("level1Group/commit")->UseManualTime();

void equalCommit(benchmark::State& state) {
  Sides at;
  Bench::SideBySide sides;
  for (auto _ : state)
    sides.turn(
        state, groups, [&] { at.commitTable(0); }, [&] { at.commitLeast(0); });
  sides.report(state);
}
BENCHMARK(equalCommit)->Name("level1Group/equal")->UseManualTime();

void acknowledgement(benchmark::State& state) {
  Sides at;
  Bench::SideBySide sides;
  for (U32 round = 1; auto _ : state) {
    at.commitAll(round++);
    sides.turn(
        state, groups, [&] { at.ackTable(); }, [&] { at.ackLeast(); });
  }
  sides.report(state);
}
BENCHMARK(acknowledgement)->Name("level1Group/acknowledgement")->UseManualTime();

/// A whole restart, each group told its place by whoever stands above it. The least: what the hardware
/// holds goes into one map, and each group's row is compared and taken out.
void restart(benchmark::State& state) {
  Vell::Ptr<CountingUtil> const util(new CountingUtil);
  for (U32 row = 0; row < groups; ++row) util->held.push_back(entryOf(row % 7));
  Bench::SideBySide sides;
  for (auto _ : state) {
    auto table = TessarLoadBalance::ecmpGroup1DlbTableFactory("groups");
    table->utilIs(util);
    table->hwTableIs(new Asic::HwTable);
    table->doCreateAllocator();
    std::unordered_map<U32, Entry> synced;
    std::unordered_map<U32, std::pair<U32, Entry>> wanted;
    sides.turn(
        state, groups,
        [&] {
          table->syncEntries();
          for (U32 id = 0; id < groups; ++id) {
            auto const handle = table->entryCommit({.adjId = id}, entryOf(id % 7));
            Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, {id});
          }
          table->doInitComplete();
          table->purgeStaleEntries();
        },
        [&] {
          for (U32 row = 0; row < groups; ++row) synced.emplace(row, util->held[row]);
          for (U32 id = 0; id < groups; ++id) {
            auto const held = synced.find(id);
            if (held->second != entryOf(id % 7)) continue;
            wanted.emplace(id, std::pair(id, held->second));
            synced.erase(held);
          }
        });
    if (table->statistics().of(Asic::ReconciliationStatus::reconcileMatched) != groups)
      state.SkipWithError("a group was not found in its place");
    table->utilIs(nullptr);
  }
  sides.report(state);
}
BENCHMARK(restart)->Name("level1Group/restart")->UseManualTime();

}  // namespace
