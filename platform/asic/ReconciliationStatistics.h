// What became of the entries of a table during replay and purge, counted by outcome.

#pragma once

#include <array>
#include <ostream>

#include "platform/vell/Types.h"

namespace Asic {

enum class ReconciliationStatus : U8 {
  reconcileNone = 0,
  reconcileMatched = 1,    ///< the hardware held the wanted entry
  reconcileRewritten = 2,  ///< the hardware held another one, which was overwritten
  reconcileAdded = 3,      ///< the hardware held nothing
  reconcileDeleted = 4,    ///< the hardware held what nobody wants any more
};

class ReconciliationStatistics {
 public:
  void count(ReconciliationStatus status) { ++counts_.at(static_cast<std::size_t>(status)); }
  U64 of(ReconciliationStatus status) const { return counts_.at(static_cast<std::size_t>(status)); }

 private:
  std::array<U64, 5> counts_{};
};

std::ostream& operator<<(std::ostream& out, ReconciliationStatus status);
/// For instance "matched:4 rewritten:0 added:1 deleted:0".
std::ostream& operator<<(std::ostream& out, ReconciliationStatistics const& statistics);

}  // namespace Asic
