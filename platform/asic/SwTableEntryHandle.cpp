#include "platform/asic/SwTableEntryHandle.h"

namespace Asic {

void SwTable::EntryHandle::tableUseIs(TableUse use) {
  if (use == tableUse_) return;
  if constexpr (Vell::checksInvariants) {
    // The table's use goes before the entry is only referenced, never after the last user's.
    VELL_ASSERT(use == TableUse::counted || useCount() > 0, "useCount() > 0", entryType());
    VELL_ASSERT(use == TableUse::counted || entryType() == EntryType::referenceOnly,
                "entryType() == referenceOnly", "the table's use of a handle of type ", entryType(),
                " is to count no more");
  }
  tableUse_ = use;
  use == TableUse::counted ? useTake() : useDrop();
}

void SwTable::EntryHandle::committed() {
  tableUseIs(TableUse::counted);
  entryTypeIs(EntryType::committed);
}

EntryLife SwTable::EntryHandle::lifeEnds() {
  auto const ended = std::exchange(life_, {});
  statesEnd();
  return ended;
}

bool SwTable::EntryHandle::referenced() {
  if (entryType() != EntryType::unset && entryType() != EntryType::inDeletion) return false;
  entryTypeIs(EntryType::referenceOnly);
  tableUseIs(TableUse::uncounted);
  return true;
}

}  // namespace Asic
