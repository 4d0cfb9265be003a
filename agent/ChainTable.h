// One table of entries that have handles, on its way through a restart, and the handles by the names
// that the configuration has for the entries.
//
// Invariants
//  1. The phases are entered in the order start, replayEnded, purge; the table's runner stops the
//     process otherwise. What is wanted is committed between the first two.
//  2. The table outlives this object: see `keptForWarmExit`.
//
// Threading: one thread.

#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "agent/LiveTable.h"
#include "agent/Report.h"
#include "platform/asic/TableRunner.h"

namespace DlbAgent {

class ChainTable {
 public:
  using EntryHandle = Asic::SwTableBase::EntryHandle;
  using Handle = Vell::Ptr<EntryHandle const>;
  using Handles = std::map<std::string, Handle>;

  ChainTable(ChainTable const&) = delete;
  ChainTable& operator=(ChainTable const&) = delete;
  virtual ~ChainTable() = default;

  /// What an entry is called: "next hop".
  std::string_view kind() const { return kind_; }
  TableType const& type() const { return *type_; }
  /// Whether the chip has hooks and hardware for the table. Known once started.
  bool hasHardware() const { return runner_.table().util() && runner_.table().hwTable(); }

  /// Connects the table with the open chip and reads what the hardware holds.
  void start(Vell::Ptr<Asic::Chip> const& chip);
  void replayEnded() { runner_.replayEnded(); }
  void purge() { runner_.purge(); }
  void abandon() { abandoned(swTable()); }

  // What is wanted, by name.

  Handles const& handles() const { return handles_; }
  /// Two names may have one handle: blocks of equal rows are one entry.
  void handleIs(std::string const& name, Handle handle);
  /// Takes all names away, for others to come, and gives the handles that they had.
  Handles handlesTaken();
  /// Takes back the commits of those entries that have no name any more.
  void removeUnnamed(Handles const& former);
  /// The handle of that name; null if there is none.
  Handle handle(std::string const& name) const;
  /// Whether an entry is one of these.
  bool has(EntryHandle const& handle) const { return names_.contains(&handle); }
  /// The first name of an entry that is one of these.
  std::string const& nameOf(EntryHandle const& handle) const { return names_.at(&handle); }

  // How far an entry is. All of them are about entries of this table.

  /// Whether the hardware holds the entry, and has said so if it says such things.
  bool isInHardware(EntryHandle const& handle) const;
  /// "row 3", "rows 4 to 7"; empty for an entry that has no rows.
  std::string placeText(EntryHandle const& handle) const;
  /// Why an entry that needs nothing is not in the hardware.
  std::string hindranceOf(EntryHandle const& handle) const;
  /// Whether entries of this table need entries of others at all.
  virtual bool needsEntries() const = 0;
  /// The entries of other tables that the entry needs, each once.
  virtual std::vector<Handle> needed(EntryHandle const& handle) const = 0;
  /// The first of those that it waits for, or null.
  virtual Handle awaited(EntryHandle const& handle) const = 0;

  // What came of it.

  /// The rows that the hardware was found to hold.
  virtual Rows held() const = 0;
  /// What was changed so far, in the order of the rows.
  virtual std::vector<Change> changes() const = 0;
  /// What was done so far, against the operations that `chip` counted.
  TableReport figures(Asic::Chip const& chip) const;

 protected:
  ChainTable(std::string_view kind, TableType const& type, Vell::Ptr<Asic::SwTable> const& table,
             std::string const& chipName);

  Asic::SwTable& swTable() const { return runner_.table(); }

 private:
  /// The entry's first row, or the row that it would have; none if no place was found for it.
  virtual Asic::Index indexOf(EntryHandle const& handle) const = 0;
  /// Rows that the entry takes.
  virtual U32 rowsOf(EntryHandle const& handle) const = 0;
  /// What the allocator has no room for.
  virtual std::string shortageOf(EntryHandle const& handle) const = 0;
  virtual void noteFound() = 0;
  /// Takes back the commit of the entry, unless the entry has left the table by itself.
  virtual void remove(EntryHandle const& handle) = 0;

  std::string_view kind_;
  TableType const* type_;
  Asic::TableRunner runner_;
  Handles handles_;
  std::map<EntryHandle const*, std::string> names_;
};

}  // namespace DlbAgent
