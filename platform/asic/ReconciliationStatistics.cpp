#include "platform/asic/ReconciliationStatistics.h"

namespace Asic {

std::ostream& operator<<(std::ostream& out, ReconciliationStatus status) {
  static constexpr std::array names{"reconcileNone", "reconcileMatched", "reconcileRewritten",
                                    "reconcileAdded", "reconcileDeleted"};
  return out << names.at(static_cast<std::size_t>(status));
}

std::ostream& operator<<(std::ostream& out, ReconciliationStatistics const& statistics) {
  using enum ReconciliationStatus;
  return out << "matched:" << statistics.of(reconcileMatched)
             << " rewritten:" << statistics.of(reconcileRewritten)
             << " added:" << statistics.of(reconcileAdded)
             << " deleted:" << statistics.of(reconcileDeleted);
}

}  // namespace Asic
