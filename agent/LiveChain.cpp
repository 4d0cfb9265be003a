#include "agent/LiveChain.h"

#include <fmt/format.h>

#include <algorithm>
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

template <class Tables>
Tables topDown(Tables tables) {
  std::ranges::reverse(tables);
  return tables;
}

template <class T>
auto partsOf(std::string const& chipName) -> typename NamedTable<T>::Parts {
  constexpr auto words = groupWords<T>;
  return {words.kind, new T(Vell::String(words.section)), chipName};
}

}  // namespace

LiveChain::LiveChain(std::string const& chipName)
    : nextHops_({"next hop", new NextHopTable, chipName}),
      members_({"block", new MemberTable, chipName}),
      groups_(partsOf<GroupTable>(chipName), partsOf<VxlanGroupTable>(chipName),
              partsOf<SelectiveGroupTable>(chipName), partsOf<VxlanSelectiveGroupTable>(chipName)),
      adjacencies_({"adjacency", new AdjacencyTable, chipName}) {}

auto LiveChain::bottomUp() -> std::array<ChainTable*, chainTables> {
  return std::apply(
      [this](auto&... each) {
        return std::array<ChainTable*, chainTables>{&nextHops_, &members_, &each..., &adjacencies_};
      },
      groups_);
}

auto LiveChain::tables() const -> std::array<ChainTable const*, chainTables> {
  return std::apply(
      [this](auto const&... each) {
        return std::array<ChainTable const*, chainTables>{&nextHops_, &members_, &each...,
                                                          &adjacencies_};
      },
      groups_);
}

void LiveChain::start(Vell::Ptr<Asic::Chip> const& chip) {
  for (auto* table : bottomUp()) table->start(chip);
  forEachGroupRow(
      [this](U32 row) { groupsOf<GroupTable>().table().indexAllocator()->candidateIs(row); });
}

/// Rows of groups that were found, of whichever table.
template <class Visitor>
void LiveChain::forEachGroupRow(Visitor const& visitor) const {
  forEachOf(groups_, [&](auto const& table) {
    for (auto const& each : table.found()) visitor(each.first);
  });
}

// ---- replay ----

void LiveChain::replay(WantedChain const& wanted) {
  commit(wanted);
  groupFinder_.emplace(wanted, adjacencies_.found(), [&](std::string const& group, U32 row) {
    return isHeld(wanted, group, row);
  });
  for (auto const* each : groupFinder_->adjacencies()) commitAdjacency(each->first, each->second);
  suggest(wanted);
}

/// All but the adjacencies, whose order is another one in a replay. A next hop keeps its id as long as
/// its name is wanted.
void LiveChain::commit(WantedChain const& wanted) {
  for (auto const& [name, entry] : wanted.nextHops) {
    auto const [at, isNew] = nextHopIds_.try_emplace(name, nextHopId_);
    if (isNew) ++nextHopId_;
    nextHops_.handleIs(name, nextHops_.table().entryCommit({.id = at->second}, entry));
  }
  for (auto const& [name, rows] : wanted.blocks) members_.handleIs(name, committedBlock(rows));
  forEachOf(groups_, [&]<class T>(NamedTable<T>&) { commitGroups<T>(wanted); });
}

void LiveChain::commitAdjacency(std::string const& name, WantedAdjacency const& adjacency) {
  AdjacencyTable::Entry entry;
  entry.groupHandle = groupHandle(adjacency.group);
  adjacencies_.handleIs(name, adjacencies_.table().entryCommit({.id = adjacency.id}, entry));
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

template <class T>
void LiveChain::commitGroups(WantedChain const& wanted) {
  auto& groups = groupsOf<T>();
  for (auto const& [name, group] : wanted.groupsOf<T>()) {
    auto entry = group.entry;
    if constexpr (Asic::Trait::needsEntries<T>) {
      entry.ecmpSecondaryBlockPtrHandle = members_.handle(group.block);
      auto const rows = wanted.blocks.at(group.block).size();
      if (group.countsAllRows)
        entry.countSecondary = Zarn::U12(std::min<U64>(rows, Zarn::U12::largest));
    }
    groups.handleIs(name, groups.table().entryCommit(group.key, entry));
  }
}

LiveChain::Handle LiveChain::groupHandle(std::string const& name) const {
  Handle found;
  forEachOf(groups_, [&](auto const& table) {
    if (!found) found = table.handle(name);
  });
  return found;
}

/// Whether the table that the group is to be in was found to hold that row.
bool LiveChain::isHeld(WantedChain const& wanted, std::string const& group, U32 row) const {
  bool held = false;
  forEachOf(groups_, [&]<class T>(NamedTable<T> const& table) {
    held = held || (wanted.groupsOf<T>().contains(group) && table.found().contains(row));
  });
  return held;
}

/// From the top down. Adjacencies have told their groups already, and those their blocks; what
/// nothing leads to is found by what it holds.
void LiveChain::suggest(WantedChain const& wanted) {
  suggestGroups(groupsOf<GroupTable>());
  suggestGroups(groupsOf<VxlanGroupTable>());
  if (nextHops_.found().empty() && members_.found().empty()) return;
  PlaceFinder::PointedAt pointedAt;
  forEachOf(groups_, [&]<class T>(NamedTable<T> const& groups) {
    if constexpr (Asic::Trait::needsEntries<T>)
      for (auto const& each : groups.found())
        pointedAt.emplace(each.second.ecmpSecondaryBlockPtr, each.second.countSecondary.value());
  });
  HeldRows<MemberTable> unclaimed;
  for (auto const& each : members_.found())
    if (members_.table().syncedEntryGet(each.first)) unclaimed.insert(each);
  auto const isOpen = [this](std::string const& block) {
    return members_.handle(block)->entryState() == State::unresolved;
  };
  auto const settled = [this] {
    PlaceFinder::Settled rows;
    for (auto const& [name, handle] : nextHops_.handles())
      if (handle->entryState() != State::unresolved && !handle->hwIndex().isExhausted())
        rows[name] = handle->hwIndex().value();
    return rows;
  };
  PlaceFinder const finder(wanted, isOpen, nextHops_.found(), unclaimed, std::move(pointedAt),
                           settled());
  for (auto const& [name, first] : finder.blocks()) suggestTo(members_.handle(name), {first});
  // By now blocks have led more of them to their rows.
  for (auto const& [name, row] : PlaceFinder::nextHopRows(wanted, nextHops_.found(), settled()))
    suggestTo(nextHops_.handle(name), {row});
}

/// Groups that found no place by what points at them, as far as their values tell one. A group that
/// still waits for its block has none yet; one whose key has an index by another table is there.
template <class T>
void LiveChain::suggestGroups(NamedTable<T> const& groups) const {
  auto& table = groups.table();
  auto const indexOf = [&](typename T::Key const& key) {
    return table.indexAllocator()->indexForKey(T::keyType(), &key);
  };
  std::map<std::string, std::string> open;
  for (auto const& [name, handle] : groups.handles()) {
    auto const& key = static_cast<typename T::EntryHandle const&>(*handle).key();
    if (handle->entryState() != State::unresolved || !table.hasValue(key)) continue;
    if (indexOf(key).isExhausted())
      open.emplace(name, NamedTable<T>::seenText(*table.resolvedEntry(key)));
    else
      table.handleEntry(key);
  }
  std::map<U32, std::string> unclaimed;
  for (auto const& [row, entry] : groups.found())
    if (table.syncedEntryGet(row) && !table.indexAllocator()->isIndexAssigned(row, T::keyType()))
      unclaimed.emplace(row, NamedTable<T>::seenText(entry));
  for (auto const& [name, row] : groupFinder_->placesOf(open, unclaimed))
    suggestTo(groups.handle(name), {row});
}

void LiveChain::replayEnded(Asic::Chip& chip) {
  auto const settle = [&] {
    awaitAnswers(
        chip, [&] { return chip.answersOutstanding() == 0; }, [] {});
  };
  for (auto* table : bottomUp()) {
    if (table->needsEntries()) settle();
    // What they need has found its place by now, as far as it had any.
    forEachOf(groups_, [&](auto const& groups) {
      if (table == &groups) suggestGroups(groups);
    });
    table->replayEnded();
    if (table == &std::get<groupTables - 1>(groups_))
      forEachGroupRow(
          [this](U32 row) { groupsOf<GroupTable>().table().indexAllocator()->candidateDel(row); });
  }
  groupFinder_.reset();
  settle();
}

void LiveChain::purge() {
  for (auto* table : topDown(bottomUp())) table->purge();
}

void LiveChain::abandon() {
  for (auto* table : bottomUp()) table->abandon();
}

// ---- a change of what is wanted ----

// The handles of what was wanted are dropped last, so that a removal finds its entry.
void LiveChain::change(WantedChain const& wanted) {
  std::array<ChainTable::Handles, chainTables> former;
  std::ranges::transform(bottomUp(), former.begin(), &ChainTable::handlesTaken);
  commit(wanted);
  for (auto const& [name, adjacency] : wanted.adjacencies) commitAdjacency(name, adjacency);
  for (auto number = chainTables; number-- > 0;) bottomUp()[number]->removeUnnamed(former[number]);
  std::erase_if(nextHopIds_,
                [&](auto const& each) { return !wanted.nextHops.contains(each.first); });
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
  for (auto const* table : topDown(tables())) {
    if (auto const handle = table->handle(name)) lines += why(*table, name, handle) + '\n';
    for (auto const& each : table->handles()) known.push_back(each.first);
  }
  if (!lines.empty()) return lines;
  throw Failure(known.empty() ? fmt::format("no entry \"{}\": the configuration names none", name)
                              : fmt::format("no entry \"{}\"; {}", name, hintFor(name, known)));
}

// ---- trees ----

ChainNode LiveChain::node(ChainTable const& table, std::string const& name, Handle const& handle,
                          Drawn& drawn) const {
  ChainNode node{fmt::format("{} {}", table.kind(), name),
                 table.placeText(*handle),
                 Vell::concatenate(handle->entryState()),
                 {}};
  if (!drawn.insert(handle.get()).second) return node;
  for (auto const& needed : table.needed(*handle)) {
    auto const& of = tableOf(*needed);
    node.needs.push_back(this->node(of, of.nameOf(*needed), needed, drawn));
  }
  return node;
}

std::vector<ChainNode> LiveChain::tree() const {
  std::set<Asic::SwTableBase::EntryHandle const*> isNeeded;
  for (auto const* table : tables())
    for (auto const& each : table->handles())
      for (auto const& needed : table->needed(*each.second)) isNeeded.insert(needed.get());
  std::vector<ChainNode> nodes;
  Drawn drawn;
  for (auto const* table : topDown(tables()))
    for (auto const& [name, handle] : table->handles())
      if (!isNeeded.contains(handle.get())) nodes.push_back(node(*table, name, handle, drawn));
  return nodes;
}

namespace {

std::string rowText(U32 first, U32 rows) {
  return rows == 1 ? fmt::format("row {}", first)
                   : fmt::format("rows {} to {}", first, first + rows - 1);
}

ChainNode heldNode(std::string_view kind, U32 first, U32 rows, bool isHeld) {
  return {std::string(kind), rowText(first, rows), isHeld ? "held" : "missing", {}};
}

}  // namespace

/// Rows that a group points at, and the next hops that they point at, each once.
ChainNode LiveChain::heldBlock(U32 first, U32 rows, DrawnRows& drawn) const {
  if (auto const at = drawn.find({first, rows}); at != drawn.end())
    return heldNode(members_.kind(), first, rows, at->second);
  auto const& found = members_.found();
  bool isWhole = true;
  std::set<U32> nextHops;
  for (U32 row = first; row < first + rows; ++row) {
    auto const held = found.find(row);
    isWhole = isWhole && held != found.end();
    if (held != found.end()) nextHops.insert(held->second.ecmpNextHopEntry);
  }
  drawn[{first, rows}] = isWhole;
  auto node = heldNode(members_.kind(), first, rows, isWhole);
  for (auto const row : nextHops)
    node.needs.push_back(heldNode(nextHops_.kind(), row, 1, nextHops_.found().contains(row)));
  return node;
}

template <class T>
ChainNode LiveChain::heldGroup(NamedTable<T> const& groups, U32 row, DrawnRows& drawn) const {
  auto node = heldNode(groups.kind(), row, 1, true);
  if constexpr (Asic::Trait::needsEntries<T>) {
    auto const& entry = groups.found().at(row);
    if (entry.secondaryBlockValid)
      node.needs.push_back(
          heldBlock(entry.ecmpSecondaryBlockPtr,
                    std::max<U32>(1, static_cast<U32>(entry.countSecondary.value())), drawn));
  }
  return node;
}

std::vector<ChainNode> LiveChain::heldTree() const {
  std::vector<ChainNode> nodes;
  DrawnRows drawn;
  std::set<U32> isNeeded;
  for (auto const& [row, adjacency] : adjacencies_.found()) {
    auto& top = nodes.emplace_back(heldNode(adjacencies_.kind(), row, 1, true));
    U32 const group = adjacency.group;
    isNeeded.insert(group);
    forEachOf(groups_, [&](auto const& table) {
      if (table.found().contains(group)) top.needs.push_back(heldGroup(table, group, drawn));
    });
    if (top.needs.empty()) top.needs.push_back(heldNode("group", group, 1, false));
  }
  forEachOf(groups_, [&](auto const& table) {
    for (auto const& each : table.found())
      if (!isNeeded.contains(each.first)) nodes.push_back(heldGroup(table, each.first, drawn));
  });
  return nodes;
}

}  // namespace DlbAgent
