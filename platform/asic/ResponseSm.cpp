#include "platform/asic/ResponseSm.h"

#include <utility>

#include "platform/asic/SwTable.h"

namespace Asic {

ResponseSm::ResponseSm(SwTable* swTable) : swTable_(swTable) {
  if (!swTable) return;
  previous_ = &swTable->responseSms_;
  next_ = std::exchange(*previous_, this);
  if (next_) next_->previous_ = &next_;
}

ResponseSm::~ResponseSm() { swTableGone(); }

void ResponseSm::swTableGone() {
  if (!swTable_) return;
  if (hwTable_) hasNotificationActiveIs(false);
  *previous_ = next_;
  if (next_) next_->previous_ = previous_;
  swTable_ = nullptr;
}

void ResponseSm::hasNotificationActiveIs(bool active) {
  if (hwTable_) leave(*hwTable_);
  hwTable_ = active && swTable_ ? swTable_->hwTable() : nullptr;
  if (hwTable_) enter(*hwTable_);
}

bool ResponseSm::isReady() const { return swTable_ && !swTable_->isGoing(); }

}  // namespace Asic
