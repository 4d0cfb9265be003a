// The life of groups that stand on member blocks, per group, beside the least that a caller could
// write by hand: a map from key to row and blocks, a list of waiting keys for each block, a use of a
// block for as long as a row may show it, a last-in first-out list of free rows, a number for each
// row's newest write, and the same calls to the chip.
//
//   waiting    commits while no block is usable, then the blocks become usable; not acknowledged
//   ready      commits on blocks that are usable; not acknowledged
//   replace    commits on other usable blocks; acknowledged
//   dance      removals of the last use, writes without a value, acknowledgements, deletes
//   unchanged  commits of what is there

#include <memory>
#include <unordered_map>
#include <vector>

#include "SideBySide.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "group/VxlanEcmpGroup1SelectiveDlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"
#include "platform/asic/WriteResponseSm.h"

namespace Bench {
/// Adds up what it is told: the sides deal out the same rows in other orders, to equal sums. Outside
/// of the unnamed namespace, where the compiler would make it part of its callers.
class CountingChip {
 public:
  virtual ~CountingChip() = default;
  [[gnu::noinline]] virtual void use(U32 row) { sum += 3 * (row + 1); }
  [[gnu::noinline]] virtual void write(U32 row, U64 value) { sum += 5 * (row + 1) + value; }
  [[gnu::noinline]] virtual void del(U32 row) { sum += 7 * (row + 1); }
  U64 sum = 0;
};
}  // namespace Bench

namespace {

using Ecmp = TessarLoadBalance::EcmpGroup1SelectiveDlbTable;
using Vxlan = TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable;
using Blocks = TessarLoadBalance::DlbEcmpMember1Table;
using Row = Ecmp::UtilKey;
using State = Asic::SwTableBase::EntryState;

constexpr U32 groups = 4000;
constexpr U32 blocks = 1000;  // four groups stand on each
constexpr U32 blockRows = 8;
constexpr U32 idAt(U32 i) { return i * 2741 % groups; }  // each group once

/// A row as the chip takes it; 0 is a row without a value.
constexpr U64 packed(U32 index, U64 count) { return U64{1} << 63 | count << 32 | index; }

template <class T>
class CountingUtil final : public T::Util {
 public:
  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return numEntries() - 1; }
  U32 numEntries() const override { return 1u << 14; }
  void hwTableEntryIs(T&, Row row, Zarn::Optional<typename T::Entry> const& entry) const override {
    chip.write(row.value(),
               entry ? packed(entry->ecmpSecondaryBlockPtr, entry->countSecondary.value()) : 0);
  }
  void hwTableEntryDel(T&, Row row) const override { chip.del(row.value()); }
  void updateHwIndexRefCountTracker(Asic::HwTable*, Row row,
                                    Asic::IndexUserTracker::OpType) const override {
    chip.use(row.value());
  }
  bool compareHwEntries(T&, Row, typename T::Entry const&) const override { return false; }
  void syncEntries(Asic::HwTable&, Vell::Ptr<T> const&) const override {}

  mutable Bench::CountingChip chip;
};

/// The table, past its replay, with handles of blocks that are in no table.
template <class T>
class Library {
 public:
  Library() : entries_(blocks) {
    table_->utilIs(util_);
    table_->hwTableIs(new Asic::HwTable);
    table_->doCreateAllocator();
    table_->syncEntries();
    table_->doInitComplete();
    for (auto& entry : entries_) {
      auto const& handle = handles_.emplace_back(Blocks::entryHandleFactory({}, nullptr));
      handle->hwIndexIs(static_cast<U32>(handles_.size() - 1) * blockRows);
      entry.ecmpSecondaryBlockPtrHandle = handle;
      entry.countSecondary = Zarn::U12(blockRows);
    }
  }
  ~Library() { table_->utilIs(nullptr); }
  void usableIs(U32 block, bool usable) {
    handles_[block]->entryStateIs(usable ? State::success : State::unresolved);
  }
  void commit(U32 id, U32 block) { table_->entryCommit({.adjId = id}, entries_[block]); }
  void remove(U32 id) { table_->entryRemove({.adjId = id}); }
  void acknowledge() {
    auto& hwTable = *table_->hwTable();
    for (U32 row = 0; row < groups; ++row)
      hwTable.writeResponseIs({hwTable.newestWrite(row), row, State::success});
    hwTable.deliverWriteResponses();
  }
  U64 sum() const { return util_->chip.sum; }
  U32 usesOf(U32 block) const { return handles_[block]->useCount() - 2; }  // two are held here

 private:
  std::vector<Vell::Ptr<Blocks::EntryHandle>> handles_;
  std::vector<typename T::Entry> entries_;
  Vell::Ptr<CountingUtil<T>> util_{new CountingUtil<T>};
  Vell::Ptr<T> table_{new T("groups")};
};

/// What a caller would write by hand. A group has its row from its commit on.
class Least {
 public:
  Least() : blocks_(blocks), owner_(groups), newest_(groups) {
    for (U32 row = groups; row-- > 0;) free_.push_back(row);
    for (U32 number = 0; number < blocks; ++number) blocks_[number].index = number * blockRows;
  }
  [[gnu::noinline]] void usableIs(U32 number, bool usable) {
    auto& block = blocks_[number];
    block.isUsable = usable;
    if (!usable) return;
    for (U32 const id : block.waiting) {
      auto const at = groups_.find(id);
      if (at != groups_.end() && at->second.waitsFor(block)) write(at->second);
    }
    block.waiting.clear();
  }
  [[gnu::noinline]] void commit(U32 id, U32 number) {
    auto& block = blocks_[number];
    auto const [at, isNew] = groups_.try_emplace(id);
    auto& group = at->second;
    if (isNew) {
      group.row = free_.back();
      free_.pop_back();
      owner_[group.row] = id;
    }
    if (group.wanted == &block) return;
    if (group.wanted && group.waitsFor(*group.wanted)) --group.wanted->uses;
    ++block.uses;
    group.wanted = &block;
    group.state = State::unresolved;
    block.isUsable ? write(group) : block.waiting.push_back(id);
  }
  [[gnu::noinline]] void remove(U32 id) {
    auto const at = groups_.find(id);
    if (at == groups_.end() || !at->second.wanted) return;
    auto& group = at->second;
    if (group.waitsFor(*group.wanted)) --group.wanted->uses;
    group.wanted = nullptr;
    group.written || !group.former.empty() ? write(group) : drop(at);
  }
  void acknowledge() {
    for (U32 row = 0; row < groups; ++row) acknowledged(newest_[row], row);
  }
  U64 sum() const { return chip_->sum; }
  U32 usesOf(U32 block) const { return blocks_[block].uses; }

 private:
  struct Block {
    U32 index = 0, uses = 0;
    bool isUsable = false;
    std::vector<U32> waiting;
  };
  struct Group {
    U32 row = 0;
    State state = State::unresolved;
    Block *wanted = nullptr, *written = nullptr;
    std::vector<Block*> former;  ///< what the row may show until its newest write is acknowledged
    bool waitsFor(Block& block) const { return wanted == &block && state == State::unresolved; }
  };
  using Groups = std::unordered_map<U32, Group>;

  void write(Group& group) {
    if (!group.wanted != !group.written) chip_->use(group.row);
    if (group.written) group.former.push_back(group.written);
    group.written = group.wanted;
    group.state = State::inProgress;
    newest_[group.row] = ++lastWrite_;
    chip_->write(group.row, group.written ? packed(group.written->index, blockRows) : 0);
  }
  [[gnu::noinline]] void acknowledged(U64 write, U32 row) {
    if (write == 0 || newest_[row] != write) return;
    newest_[row] = 0;
    auto const at = groups_.find(owner_[row]);
    auto& group = at->second;
    if (!group.written) chip_->use(row), chip_->del(row);
    for (auto* const block : group.former) --block->uses;
    group.former.clear();
    if (!group.wanted) return drop(at);
    if (group.state == State::inProgress) group.state = State::success;
  }
  void drop(Groups::iterator at) {
    free_.push_back(at->second.row);
    groups_.erase(at);
  }

  Groups groups_;
  std::vector<Block> blocks_;
  std::vector<U32> free_, owner_;
  std::vector<U64> newest_;
  U64 lastWrite_ = 0;
  std::unique_ptr<Bench::CountingChip> const chip_ = std::make_unique<Bench::CountingChip>();
};

// What is done to either side: groups in an order that follows neither keys nor rows.

constexpr auto commit = [](auto& side, U32 shift = 0) {
  for (U32 i = 0; i < groups; ++i) side.commit(idAt(i), (idAt(i) + shift) % blocks);
};
constexpr auto usable = [](auto& side, bool isUsable = true) {
  for (U32 block = 0; block < blocks; ++block) side.usableIs(block, isUsable);
};
constexpr auto dance = [](auto& side) {
  for (U32 i = 0; i < groups; ++i) side.remove(idAt(i));
  side.acknowledge();
};
constexpr auto replace = [](auto& side) { commit(side, 1), side.acknowledge(); };
constexpr auto commitThenUsable = [](auto& side) { commit(side), usable(side); };
constexpr auto settled = [](auto& side) { commitThenUsable(side), side.acknowledge(); };
constexpr auto noGroup = [](auto& side) { settled(side), dance(side); };
constexpr auto noBlock = [](auto& side) { noGroup(side), usable(side, false); };

template <class T>
void run(benchmark::State& state, auto before, auto measured) {
  Library<T> library;
  Least least;
  Bench::SideBySide sides;
  for (auto _ : state) {
    before(library), before(least);
    sides.turn(
        state, groups, [&] { measured(library); }, [&] { measured(least); });
  }
  bool isSame = library.sum() == least.sum();
  for (U32 block = 0; block < blocks; ++block)
    isSame = isSame && library.usesOf(block) == least.usesOf(block);
  if (!isSame) state.SkipWithError("the sides did not do the same");
  sides.report(state);
}
void selectiveGroup(benchmark::State& state, auto... steps) {
  state.range(0) == 0 ? run<Ecmp>(state, steps...) : run<Vxlan>(state, steps...);
}
constexpr auto both = [](auto* at) { at->ArgName("vxlan")->DenseRange(0, 1)->UseManualTime(); };
BENCHMARK_CAPTURE(selectiveGroup, waiting, noBlock, commitThenUsable)->Apply(both);
BENCHMARK_CAPTURE(selectiveGroup, ready, noGroup, commit)->Apply(both);
BENCHMARK_CAPTURE(selectiveGroup, replace, settled, replace)->Apply(both);
BENCHMARK_CAPTURE(selectiveGroup, dance, settled, dance)->Apply(both);
BENCHMARK_CAPTURE(selectiveGroup, unchanged, settled, commit)->Apply(both);

}  // namespace
