#include "platform/asic/WriteResponseSm.h"

#include "platform/asic/SwTable.h"

namespace Asic {

Vell::Ptr<WriteResponseSm> WriteResponseSm::WriteResponseSmIs(SwTable* swTable) {
  return new WriteResponseSm(swTable);
}

WriteResponseSm::~WriteResponseSm() { hasNotificationActiveIs(false); }

void WriteResponseSm::enter(HwTable& hwTable) {
  // A machine of the same table may still be there, while a watcher of its removal makes the next.
  auto const* const other = hwTable.writeResponseSm();
  VELL_ASSERT(!other || other->swTable() == swTable(), "!other || other->swTable() == swTable()",
              "two tables cannot take the acknowledgements of one hardware table");
  hwTable.writeResponseSmIs(this);
}

void WriteResponseSm::leave(HwTable& hwTable) {
  if (hwTable.writeResponseSm() == this) hwTable.writeResponseSmIs(nullptr);
}

// In the midst of an operation an answer could be taken for that of a write which is yet to come.
bool WriteResponseSm::isReady() const {
  return ResponseSm::isReady() && !swTable()->operationInProgress();
}

void WriteResponseSm::handleWriteResponse(WriteResponse const& response) {
  Vell::Ptr<SwTable> const table(swTable());  // a watcher of the state may drop the last use
  Vell::Ptr<SwTable::Util> const util(table ? table->util() : nullptr);
  if (util) util->doNotifyWriteResponse(*table, response.index, response.outcome);
}

}  // namespace Asic
