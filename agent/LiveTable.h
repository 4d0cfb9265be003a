// One table on its way through the phases of a restart, and a record of what each step did.
//
// Invariants
//  1. The phases are entered in the order start, replay, replayEnded, purge; the table's runner
//     stops the process otherwise.
//  2. The table outlives this object, up to the end of the process: see `keptForWarmExit`.
//
// Threading: one thread.

#pragma once

#include <string>
#include <vector>

#include "agent/Configuration.h"
#include "agent/Report.h"
#include "platform/asic/TableRunner.h"

namespace DlbAgent {

/// Gives the table a use that nobody ever drops, so that the process ends warm whichever way it
/// ends: a destroyed table deletes its entries from the hardware.
void keptForWarmExit(Vell::Ptr<Asic::SwTable> table);
/// The opposite, for a session that ends as a killed process does while the process goes on: nothing
/// that happens to the table reaches the hardware any more, and it goes with its last use.
void abandoned(Asic::SwTable& table);

/// What a table with hardware did so far, against the operations that `chip` counted.
Figures figuresOf(Asic::SwTable const& table, TableType const& type, Asic::Chip const& chip);

class LiveTable {
 public:
  /// Makes the table, with the hooks that the chip brings for it.
  LiveTable(TableType const& type, std::string const& chipName);

  TableType const& type() const { return *type_; }
  /// Valid indices; all of them in a table that does not know.
  IndexLimits limits() const;
  /// Whether the chip brings hooks for the table.
  bool hasHooks() const { return hasHooks_; }
  /// Whether the chip has hardware for the table. Known once started.
  bool hasHardware() const { return hasHooks_ && runner_.table().hwTable(); }

  /// Connects the table with the open chip and reads what the hardware holds.
  void start(Vell::Ptr<Asic::Chip> const& chip);
  /// What the hardware was found to hold and nobody has claimed yet.
  Rows held() const;
  void replay(Rows const& wanted);
  void replayEnded() { runner_.replayEnded(); }
  void purge();
  /// After the purge: commits what is wanted, removes what only the former has.
  void change(Rows const& former, Rows const& wanted);
  void abandon() { abandoned(runner_.table()); }

  /// What was done so far, against the operations that `chip` counted.
  Figures figures(Asic::Chip const& chip) const;
  /// What was changed so far, in the order of the keys.
  std::vector<Change> changes() const;

 private:
  Asic::ReconciliationStatus commit(Key const& key, Vell::Record const& entry);

  TableType const* type_;
  Asic::TableRunner runner_;
  bool hasHooks_;
  Rows found_;  ///< what the hardware held at the start
  std::map<Key, Change> changes_;
};

}  // namespace DlbAgent
