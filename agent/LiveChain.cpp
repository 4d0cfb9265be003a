#include "agent/LiveChain.h"

#include <fmt/format.h>

#include <algorithm>

#include "agent/ChainTables.h"
#include "agent/Failure.h"
#include "agent/LiveTable.h"
#include "agent/Words.h"
#include "frame/FieldEntry.h"

namespace DlbAgent {
namespace {

using State = Asic::SwTableBase::EntryState;
using Status = Asic::ReconciliationStatus;

template <class T>
TableType typeOf() {
  auto const types = T::module().types();
  return {*types[T::typeNumber], *types[T::entryTypeNumber]};
}

template <class T>
HeldRows<T> syncedRows(T const& table) {
  HeldRows<T> rows;
  for (typename T::SyncedEntryMap::Iterator at(table.syncedEntryMap()); at; at.advance())
    rows.emplace(at.key().value(), at->value_);
  return rows;
}

template <class Entry>
Vell::Record recordOf(Entry const& entry) {
  return *Asic::EntryReflection<Entry>::toValue(entry).record();
}

template <class Entry>
Rows recordsOf(std::map<U32, Entry> const& held) {
  Rows rows;
  for (auto const& [index, entry] : held)
    rows.insert_or_assign(Key(Vell::Value(U64{index})), recordOf(entry));
  return rows;
}

bool isInHardware(Asic::SwTableBase::EntryHandle const& handle) {
  return handle.entryState() == State::success || handle.entryState() == State::indexReconciled;
}

/// As the hardware holds them.
bool areSame(NextHopTable::Entry const& a, NextHopTable::Entry const& b) { return a == b; }
bool areSame(MemberTable::Entry const& a, MemberTable::Entry const& b) {
  return a.ecmpNextHopEntry == b.ecmpNextHopEntry && a.weightIdx == b.weightIdx;
}

/// The rows that are not as they were.
template <class Entry, class Placed>
void addChanges(std::vector<Change>& changes, TableType const& type,
                std::map<U32, Entry> const& found, std::map<U32, Placed> const& placed) {
  auto const keyOf = [](U32 index) { return Key(Vell::Value(U64{index})); };
  for (auto const& [index, row] : placed) {
    auto const before = found.find(index);
    if (before == found.end())
      changes.push_back(
          {&type, keyOf(index), Change::Kind::added, {}, recordOf(row.entry), row.owner});
    else if (!areSame(before->second, row.entry))
      changes.push_back({&type, keyOf(index), Change::Kind::rewritten, recordOf(before->second),
                         recordOf(row.entry), row.owner});
  }
  for (auto const& [index, entry] : found)
    if (!placed.contains(index))
      changes.push_back({&type, keyOf(index), Change::Kind::deleted, recordOf(entry), {}, {}});
  std::ranges::stable_sort(changes, {}, [](auto const& each) {
    return std::pair(each.table->name(), *each.key.value().number());
  });
}

template <class Live>
TableReport reportOf(TableType const& type, Live const& live, Asic::Chip const& chip) {
  if (!live.hasHardware()) return {type.name(), {}};
  return {type.name(), figuresOf(*live.table, type, chip)};
}

}  // namespace

TableType const& nextHopType() {
  static auto const type = typeOf<NextHopTable>();
  return type;
}
TableType const& memberType() {
  static auto const type = typeOf<MemberTable>();
  return type;
}

template <class T>
LiveChain::Live<T>::Live(std::string const& chipName) : table(new T), runner(table) {
  keptForWarmExit(table);
  runner.attachUtil(chipName);
}

LiveChain::LiveChain(std::string const& chipName) : nextHops_(chipName), members_(chipName) {}

void LiveChain::start(Vell::Ptr<Asic::Chip> const& chip) {
  nextHops_.runner.start(chip);
  members_.runner.start(chip);
  nextHops_.found = syncedRows(*nextHops_.table);
  members_.found = syncedRows(*members_.table);
}

// ---- replay ----

void LiveChain::replay(WantedChain const& wanted) {
  U32 id = 0;
  for (auto const& [name, entry] : wanted.nextHops)
    nextHopHandles_[name] = nextHops_.table->entryCommit({.id = id++}, entry);
  for (auto const& [name, rows] : wanted.blocks) blockHandles_[name] = committedBlock(rows);
  suggest(wanted);
}

LiveChain::Handle LiveChain::committedBlock(std::vector<WantedRow> const& rows) {
  MemberTable::EntryBlock block;
  for (U32 i = 0; i < rows.size(); ++i) {
    MemberTable::Entry row;
    row.ecmpNextHopEntryHandle = nextHopHandles_.at(rows[i].nextHop);
    row.weightIdx = rows[i].weightIdx;
    block.entryIs(i, row);
  }
  return members_.table->entryBlockCommit(block);
}

/// From the top down: blocks lead to their next hops, and what no block leads to is found alone.
void LiveChain::suggest(WantedChain const& wanted) {
  if (nextHops_.found.empty() && members_.found.empty()) return;
  PlaceFinder const finder(wanted, nextHops_.found, members_.found);
  auto const suggestTo = [](Handle const& handle, Asic::IndexSet const& indices) {
    if (handle->entryState() == State::unresolved && !indices.empty())
      Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, indices);
  };
  for (auto const& [name, first] : finder.blocks()) suggestTo(blockHandles_.at(name), {first});
  for (auto const& [name, entry] : wanted.nextHops) {
    auto const found = finder.nextHops(entry);
    suggestTo(nextHopHandles_.at(name), {found.begin(), found.end()});
  }
}

void LiveChain::replayEnded() {
  nextHops_.runner.replayEnded();
  members_.runner.replayEnded();
}

void LiveChain::purge() {
  members_.runner.purge();
  nextHops_.runner.purge();
}

// ---- what came of it ----

std::vector<LiveChain::Held> LiveChain::held() const {
  return {{&memberType(), recordsOf(members_.found)}, {&nextHopType(), recordsOf(nextHops_.found)}};
}

std::vector<TableReport> LiveChain::figures(Asic::Chip const& chip) const {
  return {reportOf(memberType(), members_, chip), reportOf(nextHopType(), nextHops_, chip)};
}

auto LiveChain::placedNextHops() const -> std::map<U32, Placed<NextHopTable::Entry>> {
  std::map<U32, Placed<NextHopTable::Entry>> placed;
  U32 id = 0;
  for (auto const& [name, handle] : nextHopHandles_) {
    auto const entry = nextHops_.table->entry({.id = id++});
    if (isInHardware(*handle)) placed[handle->hwIndex().value()] = {entry, name};
  }
  return placed;
}

auto LiveChain::placedRows() const -> std::map<U32, Placed<MemberTable::Entry>> {
  std::map<U32, Placed<MemberTable::Entry>> placed;
  for (auto const& [name, handle] : blockHandles_) {
    auto const& own = static_cast<MemberTable::EntryHandle const&>(*handle);
    auto const rows = members_.table->resolvedRows(own.key());
    for (U32 i = 0; isInHardware(own) && i < rows.blockSize(); ++i)
      placed[own.hwIndex().value() + i] = {rows.entry(i), elementOf(name, i)};
  }
  return placed;
}

std::vector<Change> LiveChain::changes() const {
  std::vector<Change> changes;
  if (members_.hasHardware()) addChanges(changes, memberType(), members_.found, placedRows());
  if (nextHops_.hasHardware())
    addChanges(changes, nextHopType(), nextHops_.found, placedNextHops());
  return changes;
}

// ---- why ----

std::string LiveChain::nameOf(Asic::SwTableBase::EntryHandle const& nextHop) const {
  auto const found = std::ranges::find_if(
      nextHopHandles_, [&](auto const& each) { return each.second.get() == &nextHop; });
  return found == nextHopHandles_.end() ? "of another agent" : found->first;
}

/// What keeps the entry out of the hardware.
std::string LiveChain::hindranceOf(Handle const& handle) const {
  auto const* const block = dynamic_cast<MemberTable::EntryHandle const*>(handle.get());
  if (!(block ? members_.hasHardware() : nextHops_.hasHardware()))
    return ": the chip has no hardware for it";
  if (block)
    if (auto const record = members_.table->unresolvedEntryBlock(block->key())) {
      auto const needed = record->neededEntryHandles().front();
      return fmt::format(" waits for next hop {}{}", nameOf(*needed), hindranceOf(needed));
    }
  if (handle->entryState() != State::failedNoIndex)
    return fmt::format(": its state is {}", Vell::concatenate(handle->entryState()));
  if (!block) {
    auto const& allocator = *nextHops_.table->indexAllocator();
    return fmt::format(": no index free ({} of {} used)", allocator.totalUsedIndices(),
                       allocator.size());
  }
  auto const& allocator = *members_.table->indexAllocator();
  return fmt::format(
      ": no {} rows free in one run ({} of {} used; the longest free run has {}, a bank {})",
      block->key().blockSize(), allocator.totalUsedIndices(), allocator.size(),
      allocator.longestFreeRun(), allocator.bankLength());
}

std::string LiveChain::whyOf(std::string_view kind, std::string const& name,
                             Handle const& handle) const {
  if (!isInHardware(*handle)) return fmt::format("{} {}{}", kind, name, hindranceOf(handle));
  auto const index = handle->hwIndex().value();
  auto const* const block = dynamic_cast<MemberTable::EntryHandle const*>(handle.get());
  if (!block) return fmt::format("{} {} is in the hardware, at row {}", kind, name, index);
  if (block->key().blockSize() == 0)
    return fmt::format("{} {} has no rows, and nothing to wait for", kind, name);
  return fmt::format("{} {} is in the hardware, rows {} to {}", kind, name, index,
                     index + block->key().blockSize() - 1);
}

std::vector<std::string> LiveChain::unfinished() const {
  std::vector<std::string> lines;
  for (auto const& [name, handle] : nextHopHandles_)
    if (nextHops_.hasHardware() && !isInHardware(*handle))
      lines.push_back(whyOf("next hop", name, handle));
  for (auto const& [name, handle] : blockHandles_)
    if (members_.hasHardware() && !isInHardware(*handle))
      lines.push_back(whyOf("block", name, handle));
  return lines;
}

std::string LiveChain::why(std::string const& name) const {
  std::string lines;
  auto const add = [&](std::string_view kind, auto const& handles) {
    if (auto const found = handles.find(name); found != handles.end())
      lines += whyOf(kind, name, found->second) + '\n';
  };
  add("block", blockHandles_);
  add("next hop", nextHopHandles_);
  if (!lines.empty()) return lines;
  std::vector<std::string_view> known;
  for (auto const* handles : {&blockHandles_, &nextHopHandles_})
    for (auto const& each : *handles) known.push_back(each.first);
  throw Failure(known.empty()
                    ? fmt::format("no entry \"{}\": the configuration names no next hops and no "
                                  "member blocks",
                                  name)
                    : fmt::format("no entry \"{}\"; {}", name, hintFor(name, known)));
}

}  // namespace DlbAgent
