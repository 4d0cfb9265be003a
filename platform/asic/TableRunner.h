// Drives one table through the phases of its life, in the order that tables are built for.
//
// Invariant: phases are entered in the order of `Phase`, each once; another order
// is a fatal assertion.

#pragma once

#include <string>
#include <string_view>

#include "platform/asic/Chip.h"
#include "platform/asic/SwTable.h"

namespace Asic {

class TableRunner {
 public:
  enum class Phase : U8 { constructed, replaying, replayComplete, purged };

  explicit TableRunner(Vell::Ptr<SwTable> table) : table_(std::move(table)) {}

  SwTable& table() const { return *table_; }
  Phase phase() const { return phase_; }

  /// Gives the table its chip hooks from the plug-in `chipName`. False if that brings none for it;
  /// the table then works on its collections alone.
  bool attachUtil(std::string_view chipName);
  /// Creates the hardware table from `chip`, which may be null, then the allocator, and reads the
  /// hardware if there is any. The replay may begin.
  void start(Vell::Ptr<Chip> chip);
  /// The replay has ended.
  void replayEnded();
  /// Deletes from the hardware what the replay did not claim.
  void purge();

 private:
  void enter(Phase phase);

  Vell::Ptr<SwTable> table_;
  Phase phase_ = Phase::constructed;
};

}  // namespace Asic
