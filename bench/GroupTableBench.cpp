// Commits of group entries, whose maps are copied whole with them, beside what a caller would write
// by hand: the same entry with its members in sorted arrays, or in maps of the standard library.

#include <algorithm>
#include <memory>
#include <unordered_map>
#include <vector>

#include "SideBySide.h"
#include "config/DlbEcmpGroupSwTable.h"

namespace {

using Table = TessarLoadBalance::DlbEcmpGroupTable;
using Entry = Table::Entry;
using Row = Zarn::Optional<Entry>;

constexpr U32 groups = 128;
constexpr U16 members = 64;  // of a full group

class CountingUtil final : public Table::Util {
 public:
  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return groups - 1; }
  void hwTableEntryIs(Table&, Table::Key, Row const& entry) const override {
    sum += entry->inactivityDuration;
  }
  void hwTableEntryDel(Table&, Table::Key) const override { ++sum; }
  void updateHwIndexRefCountTracker(Asic::HwTable*, Table::Key,
                                    Asic::IndexUserTracker::OpType) const override {}
  bool compareHwEntries(Table&, Table::Key, Entry const&) const override { return false; }
  void syncEntries(Asic::HwTable&, Vell::Ptr<Table> const&) const override {}

  mutable U64 sum = 0;
};

/// A group's members in arrays that are kept sorted by key.
struct SortedArrays {
  using Ports = std::vector<std::pair<U16, U16>>;
  using NextHops = std::vector<std::pair<U16, U8>>;
};
struct StandardMaps {
  using Ports = std::unordered_map<U16, U16>;
  using NextHops = std::unordered_map<U16, U8>;
};

template <class Maps>
struct LeastEntry {
  U32 inactivityDuration = 0;
  U16 flowSetBase = 0, flowSetSize = 0;
  U8 portAssignmentMode = 0, groupMembershipPointer = 0, primaryGroupSize = 0;
  U8 rebalanceDelta = 0, rebalanceProbabilityThreshold = 0;
  typename Maps::Ports ports;
  typename Maps::NextHops nextHops;

  friend bool operator==(LeastEntry const&, LeastEntry const&) = default;
};

/// The chip of the hand-written side, behind one virtual call as well.
template <class E>
class LeastChip {
 public:
  virtual ~LeastChip() = default;
  virtual void write(U32 key, E const& entry) = 0;
};
template <class E>
class CountingChip final : public LeastChip<E> {
 public:
  void write(U32, E const& entry) override { sum += entry.inactivityDuration; }
  U64 sum = 0;
};

template <class E>
class LeastTable {
 public:
  explicit LeastTable(LeastChip<E>& chip) : chip_(&chip) {}

  [[gnu::noinline]] void commit(U32 key, E const& entry) {
    auto [at, isNew] = rows_.try_emplace(key, entry);
    if (!isNew) {
      if (at->second == entry) return;
      at->second = entry;
    }
    chip_->write(key, at->second);
  }

 private:
  std::unordered_map<U32, E> rows_;
  LeastChip<E>* chip_;
};

/// Two values of each group, so that a commit of the other one is a change: in a scalar, and in the
/// last member of the larger map.
enum class Commit { changed, equal };

template <Commit kind, class Maps>
void commitGroup(benchmark::State& state) {
  using Least = LeastEntry<Maps>;
  Entry entries[2];
  Least leasts[2];
  for (U32 value : {0, 1}) {
    entries[value].flowSetSize = leasts[value].flowSetSize = 2048;
    for (U16 n = 0; n < members; ++n) {
      U16 const member = n == members - 1 ? static_cast<U16>(n + value) : n;
      entries[value].portToMemberMapIs(n, member);
      entries[value].nhiToMemberMapIs(n, static_cast<U8>(n));
      leasts[value].ports.insert(leasts[value].ports.end(), {n, member});
      leasts[value].nextHops.insert(leasts[value].nextHops.end(), {n, static_cast<U8>(n)});
    }
  }
  Vell::Ptr<CountingUtil> const util(new CountingUtil);
  auto const table = TessarLoadBalance::dlbEcmpGroupTableFactory();
  table->utilIs(util);
  table->hwTableIs(new Asic::HwTable);
  table->syncEntries();
  table->doInitComplete();
  CountingChip<Least> chip;
  LeastTable<Least> least(chip);

  constexpr U32 rounds = 16;
  auto const all = [](auto&& commit, auto const& values) {
    return [&] {
      for (U32 round = 0; round < rounds; ++round)
        for (U32 group = 0; group < groups; ++group)
          commit(group, values[kind == Commit::changed ? round % 2 : 0]);
    };
  };
  Bench::SideBySide sides;
  for (auto _ : state)
    sides.turn(
        state, rounds * groups,
        all([&](U32 group, Entry const& entry) { table->entryCommit(group, entry); }, entries),
        all([&](U32 group, Least const& entry) { least.commit(group, entry); }, leasts));
  benchmark::DoNotOptimize(util->sum + chip.sum);
  sides.report(state);
  table->utilIs(nullptr);
}

BENCHMARK(commitGroup<Commit::changed, SortedArrays>)
    ->Name("group/changed/sortedArrays")
    ->UseManualTime();
BENCHMARK(commitGroup<Commit::changed, StandardMaps>)
    ->Name("group/changed/standardMaps")
    ->UseManualTime();
BENCHMARK(commitGroup<Commit::equal, SortedArrays>)
    ->Name("group/equal/sortedArrays")
    ->UseManualTime();
BENCHMARK(commitGroup<Commit::equal, StandardMaps>)
    ->Name("group/equal/standardMaps")
    ->UseManualTime();

}  // namespace
