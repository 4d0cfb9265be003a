#include "platform/asic/ReadResponseSm.h"

#include "platform/asic/SwTable.h"

namespace Asic {

Vell::Ptr<ReadResponseSm> ReadResponseSm::ReadResponseSmIs(SwTable* swTable) {
  return new ReadResponseSm(swTable);
}

ReadResponseSm::~ReadResponseSm() { hasNotificationActiveIs(false); }

void ReadResponseSm::hasNotificationActiveIs(bool active) {
  if (hwTable_ && hwTable_->readResponseSm() == this) hwTable_->readResponseSmIs(nullptr);
  hwTable_ = active && swTable_ ? swTable_->hwTable() : nullptr;
  if (hwTable_) hwTable_->readResponseSmIs(this);
}

void ReadResponseSm::handleReadResponse(ReadResponse const& response) {
  Vell::Ptr<SwTable> const table(swTable_);  // the client's handler may drop the last use
  Vell::Ptr<SwTable::Util> const util(table->util());
  if (!util) return;
  if (response.idx == ReadResponse::endOfRead)
    util->doNotifyReadResponseAll(*table, response.transactionId);
  else
    util->doNotifyReadResponse(*table, response);
}

}  // namespace Asic
