#include "platform/asic/SwTableEntryHandle.h"

namespace Asic {

void SwTable::EntryHandle::tableUseIs(TableUse use) {
  if (use == tableUse_) return;
  tableUse_ = use;
  use == TableUse::counted ? useTake() : useDrop();
}

void SwTable::EntryHandle::committed() {
  ++commits_;
  tableUseIs(TableUse::counted);
  entryTypeIs(EntryType::committed);
}

}  // namespace Asic
