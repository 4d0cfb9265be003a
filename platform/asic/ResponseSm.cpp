#include "platform/asic/ResponseSm.h"

#include "platform/asic/SwTable.h"

namespace Asic {

void ResponseSm::hasNotificationActiveIs(bool active) {
  if (hwTable_) leave(*hwTable_);
  hwTable_ = active && swTable_ ? swTable_->hwTable() : nullptr;
  if (hwTable_) enter(*hwTable_);
}

}  // namespace Asic
