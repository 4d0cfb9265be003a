#include "agent/LiveChain.h"

#include <fmt/format.h>

#include <algorithm>
#include <ranges>
#include <set>

#include "agent/Answers.h"
#include "agent/Failure.h"
#include "agent/PlaceFinder.h"
#include "agent/Words.h"

namespace DlbAgent {
namespace {

using State = Asic::SwTableBase::EntryState;

void suggestTo(ChainTable::Handle const& handle, Asic::IndexSet const& indices) {
  if (handle->entryState() == State::unresolved && !indices.empty())
    Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, indices);
}

}  // namespace

LiveChain::LiveChain(std::string const& chipName)
    : nextHops_("next hop", new NextHopTable, chipName),
      members_("block", new MemberTable, chipName),
      groups_("group", new GroupTable("groups"), chipName),
      vxlanGroups_("VXLAN group", new VxlanGroupTable("vxlanGroups"), chipName),
      adjacencies_("adjacency", new AdjacencyTable, chipName) {}

std::array<ChainTable*, 5> LiveChain::bottomUp() {
  return {&nextHops_, &members_, &groups_, &vxlanGroups_, &adjacencies_};
}

std::array<ChainTable const*, 5> LiveChain::tables() const {
  return {&nextHops_, &members_, &groups_, &vxlanGroups_, &adjacencies_};
}

void LiveChain::start(Vell::Ptr<Asic::Chip> const& chip) {
  for (auto* table : bottomUp()) table->start(chip);
  forEachGroupRow([this](U32 row) { groups_.table().indexAllocator()->candidateIs(row); });
}

/// Rows of groups that were found, of either table.
template <class Visitor>
void LiveChain::forEachGroupRow(Visitor const& visitor) const {
  for (auto const& each : groups_.found()) visitor(each.first);
  for (auto const& each : vxlanGroups_.found()) visitor(each.first);
}

// ---- replay ----

void LiveChain::replay(WantedChain const& wanted) {
  U32 id = 0;
  for (auto const& [name, entry] : wanted.nextHops)
    nextHops_.handleIs(name, nextHops_.table().entryCommit({.id = id++}, entry));
  for (auto const& [name, rows] : wanted.blocks) members_.handleIs(name, committedBlock(rows));
  for (auto const& [name, group] : wanted.groups)
    groups_.handleIs(name, groups_.table().entryCommit(group.key, group.entry));
  for (auto const& [name, group] : wanted.vxlanGroups)
    vxlanGroups_.handleIs(name, vxlanGroups_.table().entryCommit(group.key, group.entry));
  GroupFinder const finder(wanted, adjacencies_.found(), groups_.found(), vxlanGroups_.found());
  for (auto const* each : finder.adjacencies()) {
    auto const& [name, adjacency] = *each;
    AdjacencyTable::Entry entry;
    entry.groupHandle = groupHandle(adjacency.group);
    adjacencies_.handleIs(name, adjacencies_.table().entryCommit({.id = adjacency.id}, entry));
  }
  suggest(wanted, finder);
}

LiveChain::Handle LiveChain::committedBlock(std::vector<WantedRow> const& rows) {
  MemberTable::EntryBlock block;
  for (U32 i = 0; i < rows.size(); ++i) {
    MemberTable::Entry row;
    row.ecmpNextHopEntryHandle = nextHops_.handle(rows[i].nextHop);
    row.weightIdx = rows[i].weightIdx;
    block.entryIs(i, row);
  }
  return members_.table().entryBlockCommit(block);
}

LiveChain::Handle LiveChain::groupHandle(std::string const& name) const {
  auto const group = groups_.handle(name);
  return group ? group : vxlanGroups_.handle(name);
}

/// From the top down. Adjacencies have told their groups already; what nothing leads to is found by
/// what it holds.
void LiveChain::suggest(WantedChain const& wanted, GroupFinder const& places) {
  suggestGroups(groups_, places);
  suggestGroups(vxlanGroups_, places);
  if (nextHops_.found().empty() && members_.found().empty()) return;
  PlaceFinder const finder(wanted, nextHops_.found(), members_.found());
  for (auto const& [name, first] : finder.blocks()) suggestTo(members_.handle(name), {first});
  for (auto const& [name, entry] : wanted.nextHops) {
    auto const found = finder.nextHops(entry);
    suggestTo(nextHops_.handle(name), {found.begin(), found.end()});
  }
}

/// Groups that found no place by what points at them, as far as their values tell one.
template <class T>
void LiveChain::suggestGroups(NamedTable<T> const& groups, GroupFinder const& finder) const {
  std::map<std::string, typename T::Entry> open;
  for (auto const& [name, handle] : groups.handles())
    if (handle->entryState() == State::unresolved)
      open[name] = groups.table().entry(static_cast<typename T::EntryHandle const&>(*handle).key());
  HeldRows<T> unclaimed;
  for (auto const& each : groups.found())
    if (groups.table().syncedEntryGet(each.first)) unclaimed.insert(each);
  for (auto const& [name, row] : finder.placesOf(open, unclaimed))
    suggestTo(groups.handle(name), {row});
}

void LiveChain::replayEnded(Asic::Chip& chip) {
  auto const settle = [&] {
    awaitAnswers(
        chip, [&] { return chip.answersOutstanding() == 0; }, [] {});
  };
  for (auto* table : bottomUp()) {
    if (table->needsEntries()) settle();
    table->replayEnded();
    if (table == &vxlanGroups_)
      forEachGroupRow([this](U32 row) { groups_.table().indexAllocator()->candidateDel(row); });
  }
  settle();
}

void LiveChain::purge() {
  for (auto* table : bottomUp() | std::views::reverse) table->purge();
}

// ---- what came of it ----

std::vector<Change> LiveChain::changes() const {
  std::vector<Change> changes;
  for (auto const* table : tables())
    std::ranges::move(table->changes(), std::back_inserter(changes));
  return changes;
}

/// The table of an entry, which is one of the configuration's, as is all that it needs.
ChainTable const& LiveChain::tableOf(Asic::SwTableBase::EntryHandle const& handle) const {
  auto const all = tables();
  return **std::ranges::find_if(all, [&](auto const* table) { return table->has(handle); });
}

/// What keeps the entry out of the hardware, as the end of a sentence about it.
std::string LiveChain::hindrance(ChainTable const& table, Handle const& handle) const {
  if (!table.hasHardware()) return ": the chip has no hardware for it";
  auto const awaited = table.awaited(*handle);
  if (!awaited) return ": " + table.hindranceOf(*handle);
  auto const& of = tableOf(*awaited);
  return fmt::format(" waits for {} {}{}", of.kind(), of.nameOf(*awaited), hindrance(of, awaited));
}

std::string LiveChain::why(ChainTable const& table, std::string const& name,
                           Handle const& handle) const {
  if (!table.isInHardware(*handle))
    return fmt::format("{} {}{}", table.kind(), name, hindrance(table, handle));
  auto const place = table.placeText(*handle);
  if (place.empty())
    return fmt::format("{} {} has no rows, and nothing to wait for", table.kind(), name);
  auto const line = fmt::format("{} {} is in the hardware, {}", table.kind(), name, place);
  for (auto const& needed : table.needed(*handle))
    if (auto const& of = tableOf(*needed); !of.isInHardware(*needed))
      return line + "; " + why(of, of.nameOf(*needed), needed);
  return line;
}

std::vector<std::string> LiveChain::unfinished() const {
  std::vector<std::string> lines;
  for (auto const* table : tables())
    for (auto const& [name, handle] : table->handles())
      if (table->hasHardware() && !table->isInHardware(*handle))
        lines.push_back(why(*table, name, handle));
  return lines;
}

std::string LiveChain::why(std::string const& name) const {
  std::string lines;
  std::vector<std::string_view> known;
  for (auto const* table : tables() | std::views::reverse) {
    if (auto const handle = table->handle(name)) lines += why(*table, name, handle) + '\n';
    for (auto const& each : table->handles()) known.push_back(each.first);
  }
  if (!lines.empty()) return lines;
  throw Failure(known.empty() ? fmt::format("no entry \"{}\": the configuration names none", name)
                              : fmt::format("no entry \"{}\"; {}", name, hintFor(name, known)));
}

// ---- trees ----

ChainNode LiveChain::node(ChainTable const& table, std::string const& name,
                          Handle const& handle) const {
  ChainNode node{fmt::format("{} {}", table.kind(), name),
                 table.placeText(*handle),
                 Vell::concatenate(handle->entryState()),
                 {}};
  for (auto const& needed : table.needed(*handle)) {
    auto const& of = tableOf(*needed);
    node.needs.push_back(this->node(of, of.nameOf(*needed), needed));
  }
  return node;
}

std::vector<ChainNode> LiveChain::tree() const {
  std::set<Asic::SwTableBase::EntryHandle const*> isNeeded;
  for (auto const* table : tables())
    for (auto const& each : table->handles())
      for (auto const& needed : table->needed(*each.second)) isNeeded.insert(needed.get());
  std::vector<ChainNode> nodes;
  for (auto const* table : tables() | std::views::reverse)
    for (auto const& [name, handle] : table->handles())
      if (!isNeeded.contains(handle.get())) nodes.push_back(node(*table, name, handle));
  return nodes;
}

std::vector<ChainNode> LiveChain::heldTree() const {
  auto const nodeOf = [](ChainTable const& table, U32 row) -> ChainNode {
    return {std::string(table.kind()), fmt::format("row {}", row), "held", {}};
  };
  std::vector<ChainNode> nodes;
  std::set<U32> isNeeded;
  for (auto const& [row, adjacency] : adjacencies_.found()) {
    auto& top = nodes.emplace_back(nodeOf(adjacencies_, row));
    isNeeded.insert(adjacency.group);
    if (vxlanGroups_.found().contains(adjacency.group))
      top.needs.push_back(nodeOf(vxlanGroups_, adjacency.group));
    if (groups_.found().contains(adjacency.group))
      top.needs.push_back(nodeOf(groups_, adjacency.group));
    if (top.needs.empty())
      top.needs.push_back({"group", fmt::format("row {}", adjacency.group), "missing", {}});
  }
  auto const addOthers = [&](auto const& table) {
    for (auto const& each : table.found())
      if (!isNeeded.contains(each.first)) nodes.push_back(nodeOf(table, each.first));
  };
  addOthers(vxlanGroups_);
  addOthers(groups_);
  return nodes;
}

}  // namespace DlbAgent
