#include "platform/asic/TableRunner.h"

#include "platform/plugin/Registry.h"

namespace Asic {

void TableRunner::enter(Phase phase) {
  VELL_ASSERT(static_cast<int>(phase) == static_cast<int>(phase_) + 1, "phase follows phase_",
              table_->typeData().data().name, " from ", +static_cast<U8>(phase_), " to ",
              +static_cast<U8>(phase));
  phase_ = phase;
}

bool TableRunner::attachUtil(std::string_view chipName) {
  auto const made = Plugin::make(chipName, "AsicFeature", table_->typeData().data().name);
  if (!made) return false;
  table_->utilIs(static_cast<SwTable::Util*>(made.get()));
  return true;
}

void TableRunner::start(Vell::Ptr<Chip> chip) {
  enter(Phase::replaying);
  table_->chipIs(std::move(chip));
  table_->doCreateHwTable();
  table_->doCreateResourceSms();
  table_->doInitResourceConfigSm();
  table_->doPublishHwTableMountInfo();
  table_->doPublishResourceMountInfo();
  table_->doCreateAllocator();
  if (table_->hwTable()) table_->syncEntries();
}

void TableRunner::replayEnded() {
  enter(Phase::replayComplete);
  table_->doInitComplete();
}

void TableRunner::purge() {
  enter(Phase::purged);
  table_->purgeStaleEntries();
}

}  // namespace Asic
