#include "platform/asic/ReadResponseSm.h"

#include "platform/asic/SwTable.h"

namespace Asic {

Vell::Ptr<ReadResponseSm> ReadResponseSm::ReadResponseSmIs(SwTable* swTable) {
  return new ReadResponseSm(swTable);
}

ReadResponseSm::~ReadResponseSm() { hasNotificationActiveIs(false); }

void ReadResponseSm::enter(HwTable& hwTable) { hwTable.readResponseSmIs(this); }

void ReadResponseSm::leave(HwTable& hwTable) {
  if (hwTable.readResponseSm() == this) hwTable.readResponseSmIs(nullptr);
}

void ReadResponseSm::handleReadResponse(ReadResponse const& response) {
  Vell::Ptr<SwTable> const table(swTable());  // the client's handler may drop the last use
  Vell::Ptr<SwTable::Util> const util(table ? table->util() : nullptr);
  if (!util) return;
  if (response.idx == ReadResponse::endOfRead)
    util->doNotifyReadResponseAll(*table, response.transactionId);
  else
    util->doNotifyReadResponse(*table, response);
}

}  // namespace Asic
