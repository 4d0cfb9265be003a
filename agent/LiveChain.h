// What the configuration knows by name, on its way through a restart: the tables of entries that have
// handles, bottom up, and what became of each entry.
//
// Invariants
//  1. What is needed is committed before what needs it, and its replay ends before; what is stale is
//     deleted in the opposite order. So no row of the hardware ever points at something gone.
//  2. Before the replay of a table ends whose entries need others, the hardware has had the time to
//     acknowledge the writes of those: what waits for them has then found its place.
//  3. Until the replay of all tables of groups has ended, rows of groups that were found are the last
//     to be given to new ones: the allocator is theirs together, and knows of none of them yet.
//
// Threading: one thread.

#pragma once

#include <array>
#include <optional>
#include <set>

#include "agent/Chain.h"
#include "agent/ChainTree.h"
#include "agent/GroupFinder.h"
#include "agent/NamedTable.h"

namespace DlbAgent {

class LiveChain {
  static constexpr std::size_t chainTables = 3 + groupTables;

 public:
  /// Makes the tables, with the hooks that the chip brings for them.
  explicit LiveChain(std::string const& chipName);

  /// Connects the tables with the open chip and reads what the hardware holds.
  void start(Vell::Ptr<Asic::Chip> const& chip);
  void replay(WantedChain const& wanted);
  /// Ends the replay of all, and takes the hardware's answers on the way.
  void replayEnded(Asic::Chip& chip);
  void purge();
  /// After the purge: what is wanted now takes the place of what was wanted before.
  void change(WantedChain const& wanted);
  void abandon();

  /// The tables, what is needed first.
  std::array<ChainTable const*, chainTables> tables() const;
  /// What was changed so far, row by row.
  std::vector<Change> changes() const;
  /// A line for each entry that is wanted and not in the hardware, down to what holds it up.
  std::vector<std::string> unfinished() const;
  /// What the entry of that name waits for, down to the one thing that holds it up; or where it is.
  /// Throws a `Failure` for a name that no entry has.
  std::string why(std::string const& name) const;
  /// Each entry that nothing else needs, with its state, and below it what it needs.
  std::vector<ChainNode> tree() const;
  /// The adjacencies that the hardware was found to hold, with the groups that they point at, and
  /// then the groups that none points at.
  std::vector<ChainNode> heldTree() const;

 private:
  using Handle = ChainTable::Handle;

  std::array<ChainTable*, chainTables> bottomUp();
  void commit(WantedChain const& wanted);
  void commitAdjacency(std::string const& name, WantedAdjacency const& adjacency);
  Handle committedBlock(std::vector<WantedRow> const& rows);
  template <class T>
  void commitGroups(WantedChain const& wanted);
  Handle groupHandle(std::string const& name) const;
  void suggest(WantedChain const& wanted);
  template <class T>
  void suggestGroups(NamedTable<T> const& groups) const;
  bool isHeld(WantedChain const& wanted, std::string const& group, U32 row) const;
  template <class Visitor>
  void forEachGroupRow(Visitor const& visitor) const;
  template <class T>
  NamedTable<T>& groupsOf() {
    return std::get<NamedTable<T>>(groups_);
  }
  ChainTable const& tableOf(Asic::SwTableBase::EntryHandle const& handle) const;
  std::string why(ChainTable const& table, std::string const& name, Handle const& handle) const;
  std::string hindrance(ChainTable const& table, Handle const& handle) const;
  using Drawn = std::set<Asic::SwTableBase::EntryHandle const*>;
  ChainNode node(ChainTable const& table, std::string const& name, Handle const& handle,
                 Drawn& drawn) const;
  /// Of blocks, by the first row and how many: whether all of them are held.
  using DrawnRows = std::map<std::pair<U32, U32>, bool>;
  template <class T>
  ChainNode heldGroup(NamedTable<T> const& groups, U32 row, DrawnRows& drawn) const;
  ChainNode heldBlock(U32 first, U32 rows, DrawnRows& drawn) const;

  NamedTable<NextHopTable> nextHops_;
  NamedTable<MemberTable> members_;
  OfGroupTables<NamedTable> groups_;
  NamedTable<AdjacencyTable> adjacencies_;
  std::map<std::string, U32> nextHopIds_;
  U32 nextHopId_ = 0;                       ///< of the next one that is new
  std::optional<GroupFinder> groupFinder_;  ///< from the replay to its end
};

}  // namespace DlbAgent
