// Reads flowsets back from the hardware: what each is assigned to by now, which the hardware
// decides as traffic comes and no commit tells.
//
// The read table goes through the phases of a restart beside the other tables; it holds no rows and
// never writes, so it may be destroyed.
//
// Invariants
//  1. One read at a time. A read that fails leaves no request behind.
//  2. What came of a read that did not end is thrown away: it may be incomplete.
//
// Threading: one thread.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "agent/Report.h"
#include "platform/asic/TableRunner.h"
#include "read/DlbEcmpFlowsetTableRead.h"

namespace DlbAgent {

struct Flowset {
  U64 index;
  bool assigned;
  U64 port;  ///< only if assigned, as is the member
  U64 member;
};

class FlowsetReader {
 public:
  /// Called whenever rows have come.
  using Progress = std::function<void(U64 rows, U64 ofRows)>;

  /// Makes the table, with the hooks that the chip brings for it.
  explicit FlowsetReader(std::string chipName);
  FlowsetReader(FlowsetReader const&) = delete;
  FlowsetReader& operator=(FlowsetReader const&) = delete;

  static std::string_view name() { return Table::names.brief(); }
  /// What the table did to the hardware.
  Figures figures() const;

  void start(Vell::Ptr<Asic::Chip> const& chip);
  void replayEnded() { runner_.replayEnded(); }
  void purge() { runner_.purge(); }

  // After the replay. Each throws a `Failure` that tells what cannot be read, and why.

  /// The flowset at an index.
  Flowset one(U64 index);
  /// All flowsets, in the order of their indices.
  std::vector<Flowset> all(Progress const& progress);

 private:
  using Table = TessarLoadBalance::DlbEcmpFlowsetTableRead;

  Table& table() const { return static_cast<Table&>(runner_.table()); }
  U64 rowsOfTable() const { return U64{table().maxIndex()} - table().minIndex() + 1; }
  void needReadBack() const;
  void take(std::any const& answer);
  void awaitEnd(U64 ofRows, Progress const& progress);
  [[noreturn]] void didNotEnd(U64 ofRows, std::string_view why);

  std::string chipName_;
  Asic::TableRunner runner_;
  bool hasHooks_;
  Vell::Ptr<Asic::Chip> chip_;
  std::vector<Flowset> came_;  ///< rows of the read in progress
};

}  // namespace DlbAgent
