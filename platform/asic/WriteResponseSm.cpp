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

void WriteResponseSm::handleWriteResponse(WriteResponse const& response) {
  Vell::Ptr<SwTable> const table(swTable());  // a watcher of the state may drop the last use
  Vell::Ptr<SwTable::Util> const util(table->util());
  if (util) util->doNotifyWriteResponse(*table, response.index, response.outcome);
}

}  // namespace Asic
