// All tables on one chip: an agent's life, as far as the hardware sees it.
//
//   Session session(catalogue, "sim");             tables and hooks are there, nothing is opened
//   auto wanted = Configuration::fromFile(file, catalogue, session.room());
//   session.open(options);                         the hardware is open
//   session.start();                               the hardware has been read
//   auto report = session.replay(wanted);          the hardware holds what is wanted
//
// The tables stay as they are when a session ends, and so does the hardware:
// LiveTable.cpp tells how.
//
// Threading: one thread.

#pragma once

#include <string>
#include <vector>

#include "agent/FlowsetReader.h"
#include "agent/LiveChain.h"
#include "agent/LiveTable.h"

namespace DlbAgent {

class Session {
 public:
  /// Throws a `Failure` that tells what there is if no plug-in brings that chip. `catalogue`
  /// outlives the session.
  Session(Catalogue const& catalogue, std::string const& chipName);

  /// What the chip has room for; of the tables that it has hooks for.
  Room room() const;
  /// The tables that are configured; the one that is only read stands beside them.
  std::vector<LiveTable> const& tables() const { return tables_; }
  FlowsetReader& flowsets() { return flowsets_; }
  /// What the configuration knows by name.
  LiveChain const& chain() const { return chain_; }
  Asic::Chip& chip() const { return *chip_; }

  /// Opens the chip. Throws what the chip throws; nothing is touched then.
  void open(Asic::Chip::Options const& options) { chip_->open(options); }
  /// Reads what the hardware holds.
  void start();
  /// Brings the hardware to what is wanted: writes what is missing or different,
  /// then deletes the rest.
  Report replay(Configuration const& wanted);
  /// The same without the report, which holds entries by their handles; and its steps.
  void bringTo(Configuration const& wanted);
  void commit(Configuration const& wanted);
  void replayEnded();
  void purge();
  Report report() const;
  /// After the purge: brings the hardware from `former`, which it was brought to before, to what is
  /// wanted now, as an agent does that lives on. The hardware's answers come later: `settle`.
  void change(Configuration const& former, Configuration const& wanted);
  /// Takes the hardware's answers, as far as it gives any.
  void settle();
  /// Ends the session as the death of the process would: the hardware stays as it is, and the tables
  /// go with the session.
  void die();

 private:
  LiveTable const& liveTable(TableType const& type) const;

  Vell::Ptr<Asic::Chip> chip_;  // first: it loads the plug-in
  std::vector<LiveTable> tables_;
  LiveChain chain_;
  FlowsetReader flowsets_;
};

/// The chip of that name. Throws a `Failure` that names the chips found, the folders searched, and
/// the plug-ins refused.
Vell::Ptr<Asic::Chip> chipNamed(std::string const& name);

}  // namespace DlbAgent
