// A restart of a whole chain that finds everything in its place: next hops, member blocks, groups that
// stand on those, plain groups, and adjacencies, whose rows alone lie where their ids say. All rows are
// found by sync, everything is committed from the bottom up, the adjacencies lead down to where it was,
// the replay ends, what is stale is purged. Per row, beside two ways of doing less:
//
//   least   what the hardware holds goes into a map for each table, by row; what is wanted is known by
//           row, looked up there, compared, taken out, and kept in a second map
//   floor   each row is read from the hardware once and compared with what is wanted of it, in order
//
// Both know the row of everything beforehand, which the library finds out.

#include <memory>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "SideBySide.h"
#include "forwarding/AdjacencySwTable.h"
#include "forwarding/NextHopSwTable.h"
#include "group/EcmpGroup1DlbSwTable.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace {

using NextHops = Forwarding::NextHopTable;
using Members = TessarLoadBalance::DlbEcmpMember1Table;
using Groups = TessarLoadBalance::EcmpGroup1DlbTable;
using Selective = TessarLoadBalance::EcmpGroup1SelectiveDlbTable;
using Adjacencies = Forwarding::AdjacencyTable;

/// How many of each; a block for each selective group.
struct Shape {
  U32 blocks, blockRows, nextHops, plainGroups, adjacencies;

  U32 memberRows() const { return blocks * blockRows; }
  U32 groups() const { return plainGroups + blocks; }
  U32 rows() const { return memberRows() + nextHops + groups() + adjacencies; }
};
/// Of every hundred rows 64 are one block.
constexpr Shape shapeOf(U32 rows) {
  return {rows / 100, 64, 3 * (rows / 100), 10 * (rows / 100), 22 * (rows / 100)};
}

// ---- the hardware, in memory ----

// What the hardware sees of an entry: all but pointers.
bool isSameRow(NextHops::Entry const& a, NextHops::Entry const& b) { return a == b; }
bool isSameRow(Groups::Entry const& a, Groups::Entry const& b) { return a == b; }
bool isSameRow(Members::Entry const& a, Members::Entry const& b) {
  return a.ecmpNextHopEntry == b.ecmpNextHopEntry && a.weightIdx == b.weightIdx;
}
bool isSameRow(Selective::Entry const& a, Selective::Entry const& b) {
  return a.ecmpSecondaryBlockPtr == b.ecmpSecondaryBlockPtr &&
         a.secondaryBlockValid == b.secondaryBlockValid && a.countSecondary == b.countSecondary;
}
bool isSameRow(Adjacencies::Entry const& a, Adjacencies::Entry const& b) {
  return a.group == b.group;
}

/// Rows of a table from `first` on.
template <class T>
struct Held {
  using Entry = typename T::Entry;

  virtual ~Held() = default;
  [[gnu::noinline]] virtual Entry const& read(U32 row) const { return rows[row - first]; }
  U32 end() const { return first + static_cast<U32>(rows.size()); }

  U32 first = 0;
  std::vector<Entry> rows;
};

template <class T>
class HeldUtil final : public T::Util {
 public:
  using Entry = typename T::Entry;
  using Row = typename T::UtilKey;

  explicit HeldUtil(Held<T> const& held) : held_(held) { this->indexKnownAtWriteIs(true); }
  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return numEntries() - 1; }
  U32 numEntries() const override { return 1u << 20; }
  void hwTableEntryIs(T&, Row, Zarn::Optional<Entry> const&) const override { ++operations; }
  void hwTableEntryDel(T&, Row) const override { ++operations; }
  void updateHwIndexRefCountTracker(Asic::HwTable*, Row,
                                    Asic::IndexUserTracker::OpType) const override {}
  bool compareHwEntries(T&, Row row, Entry const& wanted) const override {
    return isSameRow(held_.read(row.value()), wanted);
  }
  void syncEntries(Asic::HwTable&, Vell::Ptr<T> const& table) const override {
    for (U32 row = held_.first; row < held_.end(); ++row)
      table->syncedEntryIs(Asic::Index(row), held_.read(row));
  }

  mutable U64 operations = 0;

 private:
  Held<T> const& held_;
};

/// What an earlier run has left, which is what is wanted.
struct Hardware {
  std::tuple<Held<NextHops>, Held<Members>, Held<Groups>, Held<Selective>, Held<Adjacencies>>
      tables;

  template <class T>
  Held<T>& of() {
    return std::get<Held<T>>(tables);
  }

  explicit Hardware(Shape const& shape) {
    for (U32 i = 0; i < shape.nextHops; ++i) {
      auto& row = of<NextHops>().rows.emplace_back();
      row.port = static_cast<U16>(i % 128);
      row.mac = Forwarding::MacAddress(U64{2} << 40 | i);
    }
    for (U32 i = 0; i < shape.memberRows(); ++i) {
      auto& row = of<Members>().rows.emplace_back();
      // A block begins with a next hop that no other begins with, or with another weight.
      row.ecmpNextHopEntry = (i / shape.blockRows * 3 + i % shape.blockRows * 7) % shape.nextHops;
      row.weightIdx = static_cast<U8>(i / shape.blockRows * 3 / shape.nextHops);
    }
    for (U32 i = 0; i < shape.plainGroups; ++i) of<Groups>().rows.emplace_back().lbMode = i % 7;
    of<Selective>().first = shape.plainGroups;
    for (U32 i = 0; i < shape.blocks; ++i) {
      auto& row = of<Selective>().rows.emplace_back();
      row.ecmpSecondaryBlockPtr = i * shape.blockRows;
      row.secondaryBlockValid = true;
      row.countSecondary = Zarn::U12(shape.blockRows);
    }
    // Each group is some adjacency's, in an order without pattern.
    for (U32 i = 0; i < shape.adjacencies; ++i)
      of<Adjacencies>().rows.emplace_back().group =
          static_cast<U32>(U64{i} * 7919 % shape.groups());
  }
};

// ---- the library ----

template <class T>
struct Driven {
  Driven(Vell::Ptr<T> const& theTable, Hardware& hardware)
      : table(theTable), util(new HeldUtil<T>(hardware.of<T>())) {
    table->utilIs(util);
    table->hwTableIs(new Asic::HwTable);
    table->doCreateAllocator();
  }
  ~Driven() { table->utilIs(nullptr); }
  bool isAllInPlace(U32 entries) const {
    auto const& counts = table->statistics();
    return util->operations == 0 &&
           counts.of(Asic::ReconciliationStatus::reconcileMatched) == entries;
  }

  Vell::Ptr<T> table;
  Vell::Ptr<HeldUtil<T>> util;
};

class Library {
 public:
  Library(Shape const& shape, Hardware& hardware) : shape_(shape), hardware_(hardware) {}

  void sync() {
    forEach([](auto& each) { each.table->syncEntries(); });
  }
  void replay() {
    using Handle = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;
    std::vector<Handle> nextHops, groups;
    for (U32 i = 0; i < shape_.nextHops; ++i)
      nextHops.push_back(nextHops_.table->entryCommit({.id = i}, hardware_.of<NextHops>().rows[i]));
    std::vector<Handle> blocks;
    for (U32 i = 0; i < shape_.blocks; ++i) {
      Members::EntryBlock block;
      for (U32 offset = 0; offset < shape_.blockRows; ++offset) {
        auto const& held = hardware_.of<Members>().rows[i * shape_.blockRows + offset];
        Members::Entry row;
        row.ecmpNextHopEntryHandle = nextHops[held.ecmpNextHopEntry];
        row.weightIdx = held.weightIdx;
        block.entryIs(offset, row);
      }
      blocks.push_back(members_.table->entryBlockCommit(block));
    }
    for (U32 i = 0; i < shape_.plainGroups; ++i)
      groups.push_back(groups_.table->entryCommit({.adjId = i}, hardware_.of<Groups>().rows[i]));
    for (U32 i = 0; i < shape_.blocks; ++i) {
      auto entry = hardware_.of<Selective>().rows[i];
      entry.ecmpSecondaryBlockPtr = 0;
      entry.ecmpSecondaryBlockPtrHandle = blocks[i];
      groups.push_back(selective_.table->entryCommit({.adjId = shape_.plainGroups + i}, entry));
    }
    for (U32 i = 0; i < shape_.adjacencies; ++i) {
      Adjacencies::Entry entry;
      entry.groupHandle = groups[hardware_.of<Adjacencies>().rows[i].group];
      adjacencies_.table->entryCommit({.id = i}, entry);
    }
  }
  void replayEnded() {
    forEach([](auto& each) { each.table->doInitComplete(); });
  }
  void purge() {
    adjacencies_.table->purgeStaleEntries();
    selective_.table->purgeStaleEntries();
    groups_.table->purgeStaleEntries();
    members_.table->purgeStaleEntries();
    nextHops_.table->purgeStaleEntries();
  }
  bool isAllInPlace() const {
    return nextHops_.isAllInPlace(shape_.nextHops) && members_.isAllInPlace(shape_.blocks) &&
           groups_.isAllInPlace(shape_.plainGroups) && selective_.isAllInPlace(shape_.blocks) &&
           adjacencies_.isAllInPlace(shape_.adjacencies);
  }

 private:
  template <class Visitor>
  void forEach(Visitor const& visitor) {
    visitor(nextHops_), visitor(members_), visitor(groups_), visitor(selective_);
    visitor(adjacencies_);
  }

  Shape shape_;
  Hardware& hardware_;
  Driven<NextHops> nextHops_{Forwarding::nextHopTableFactory(), hardware_};
  Driven<Members> members_{TessarLoadBalance::dlbEcmpMember1TableFactory(), hardware_};
  Driven<Groups> groups_{TessarLoadBalance::ecmpGroup1DlbTableFactory("groups"), hardware_};
  Driven<Selective> selective_{
      TessarLoadBalance::ecmpGroup1SelectiveDlbTableFactory("selective groups"), hardware_};
  Driven<Adjacencies> adjacencies_{Forwarding::adjacencyTableFactory(), hardware_};
};

// ---- less ----

template <class T>
using RowMap = std::unordered_map<U32, typename T::Entry>;

/// Calls `visitor(held, wanted)` for each table.
template <class Visitor>
void forEachTable(Hardware const& hardware, Hardware const& wanted, Visitor const& visitor) {
  [&]<std::size_t... i>(std::index_sequence<i...>) {
    (visitor(std::get<i>(hardware.tables), std::get<i>(wanted.tables)), ...);
  }
  (std::make_index_sequence<5>());
}

/// By hand: the rows that are in their place.
U64 reconciledByHand(Hardware const& hardware, Hardware const& wanted) {
  U64 inPlace = 0;
  forEachTable(hardware, wanted, [&]<class T>(Held<T> const& held, Held<T> const& rows) {
    RowMap<T> found, kept;
    for (U32 row = held.first; row < held.end(); ++row) found.emplace(row, held.read(row));
    for (U32 row = rows.first; row < rows.end(); ++row) {
      auto const at = found.find(row);
      auto const& entry = rows.rows[row - rows.first];
      if (at == found.end() || !isSameRow(at->second, entry)) continue;
      kept.emplace(row, entry);
      found.erase(at);
      ++inPlace;
    }
  });
  return inPlace;
}

U64 comparedInOrder(Hardware const& hardware, Hardware const& wanted) {
  U64 equal = 0;
  forEachTable(hardware, wanted, [&]<class T>(Held<T> const& held, Held<T> const& rows) {
    for (U32 row = held.first; row < held.end(); ++row)
      equal += isSameRow(held.read(row), rows.rows[row - rows.first]);
  });
  return equal;
}

// ---- the benchmark ----

void restart(benchmark::State& state, Shape const& shape) {
  Hardware hardware(shape), wanted(shape);
  Bench::SideBySide sides;
  for (auto _ : state) {
    auto library = std::make_unique<Library>(shape, hardware);
    U64 byHand = 0, inOrder = 0;
    sides.turn(
        state, shape.rows(),
        [&] {
          library->sync();
          library->replay();
          library->replayEnded();
          library->purge();
        },
        [&] { byHand = reconciledByHand(hardware, wanted); });
    sides.floor(shape.rows(), [&] { inOrder = comparedInOrder(hardware, wanted); });
    if (!library->isAllInPlace() || byHand != shape.rows() || inOrder != shape.rows())
      state.SkipWithError("a row was not found in its place");
  }
  sides.report(state);
}
void chainOfRows(benchmark::State& state) {
  restart(state, shapeOf(static_cast<U32>(state.range(0))));
}
// As many rows in all at each size, so that whole runs can be compared too.
constexpr auto rowsInAll = 5'000'000;
BENCHMARK(chainOfRows)
    ->Name("restart/chain")
    ->Arg(1'000)
    ->Iterations(rowsInAll / 1'000)
    ->UseManualTime();
BENCHMARK(chainOfRows)
    ->Name("restart/chain")
    ->Arg(10'000)
    ->Iterations(rowsInAll / 10'000)
    ->UseManualTime();
BENCHMARK(chainOfRows)
    ->Name("restart/chain")
    ->Arg(100'000)
    ->Iterations(rowsInAll / 100'000)
    ->UseManualTime();
BENCHMARK(chainOfRows)
    ->Name("restart/chain")
    ->Arg(1'000'000)
    ->Iterations(rowsInAll / 1'000'000)
    ->UseManualTime();
/// 200 groups of 60 members, the adjacencies that lead to them, and next hops for them.
void groupsOfMembers(benchmark::State& state) { restart(state, {200, 60, 600, 0, 200}); }
BENCHMARK(groupsOfMembers)->Name("restart/200x60")->UseManualTime();

}  // namespace
