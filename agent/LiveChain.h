// Next hops and member blocks on their way through a restart: the tables of entries that have
// handles, bottom up, and what became of each entry by its name.
//
// Invariants
//  1. Next hops are committed before the blocks that need them, and their replay ends before that of
//     the blocks; stale blocks are deleted before stale next hops, so that no row of the hardware
//     ever points at something gone.
//  2. The tables outlive this object, as those of LiveTable do.
//
// Threading: one thread.

#pragma once

#include "agent/Chain.h"
#include "agent/PlaceFinder.h"
#include "agent/Report.h"
#include "platform/asic/TableRunner.h"

namespace DlbAgent {

class LiveChain {
 public:
  /// Makes the tables, with the hooks that the chip brings for them.
  explicit LiveChain(std::string const& chipName);

  /// Connects the tables with the open chip and reads what the hardware holds.
  void start(Vell::Ptr<Asic::Chip> const& chip);
  void replay(WantedChain const& wanted);
  void replayEnded();
  void purge();

  /// The rows that the hardware was found to hold, by table.
  struct Held {
    TableType const* table;
    Rows rows;
  };
  std::vector<Held> held() const;
  /// What was done so far, against the operations that `chip` counted.
  std::vector<TableReport> figures(Asic::Chip const& chip) const;
  /// What was changed so far, row by row, and the entries that are not in the hardware.
  std::vector<Change> changes() const;
  /// A line for each entry that is wanted and not in the hardware, down to what holds it up.
  std::vector<std::string> unfinished() const;
  /// What the entry of that name waits for, down to the one thing that holds it up; or where it is.
  /// Throws a `Failure` for a name that no entry has.
  std::string why(std::string const& name) const;

 private:
  using Handle = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;

  /// One table with its runner and what sync found.
  template <class T>
  struct Live {
    explicit Live(std::string const& chipName);
    bool hasHardware() const { return table->util() && table->hwTable(); }

    Vell::Ptr<T> table;
    Asic::TableRunner runner;
    HeldRows<T> found;
  };
  /// A row as it is to be, and whose it is.
  template <class Entry>
  struct Placed {
    Entry entry;
    std::string owner;
  };

  void suggest(WantedChain const& wanted);
  Handle committedBlock(std::vector<WantedRow> const& rows);
  std::map<U32, Placed<NextHopTable::Entry>> placedNextHops() const;
  std::map<U32, Placed<MemberTable::Entry>> placedRows() const;
  std::string whyOf(std::string_view kind, std::string const& name, Handle const& handle) const;
  std::string hindranceOf(Handle const& handle) const;
  std::string nameOf(Asic::SwTableBase::EntryHandle const& nextHop) const;

  Live<NextHopTable> nextHops_;
  Live<MemberTable> members_;
  std::map<std::string, Handle> nextHopHandles_;
  std::map<std::string, Handle> blockHandles_;
};

}  // namespace DlbAgent
