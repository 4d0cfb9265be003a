#include "platform/asic/SwTable.h"

#include "platform/asic/ResponseSm.h"
#include "platform/asic/WriteResponse.h"

namespace Asic {
namespace {

std::string mountPath(std::string_view what, Vell::ZarnType type, Vell::String const& name) {
  return Vell::concatenate("hwTable/", what, "/", type.data().name, name.empty() ? "" : "/", name);
}

}  // namespace

// A response machine holds no use of its table, and others may hold the machine.
SwTable::~SwTable() {
  while (responseSms_) responseSms_->swTableGone();
}

void SwTable::doCreateHwTable() {
  doCreateHwTableResponse(chip_ ? chip_->hwTable(typeData().data().name) : nullptr);
}

void SwTable::doCreateHwTableResponse(Vell::Ptr<HwTable> hwTable) { hwTableIs(std::move(hwTable)); }

Vell::Ptr<SwTableBase::EntryHandle> SwTable::getEntryHandle(Asic::Index) { return nullptr; }

void SwTable::dispatchResponse(Asic::Index index, EntryState outcome) {
  auto const handle = getEntryHandle(index);
  if (!handle) return;
  // Before the state: whoever watches it reads the index. A refused write leaves the row as it was,
  // and with it what the handle says: nobody else is led to a row that is not there.
  if (outcome != WriteResponse::refused) handle->hwIndexIs(index);
  handle->resolvedEntryStateIs(outcome);
}

void SwTable::utilIs(Vell::Ptr<Util> util) { util_ = std::move(util); }

void SwTable::configReplayCompleteIs(bool complete) {
  VELL_ASSERT(complete || !configReplayComplete_, "complete || !configReplayComplete_",
              typeData().data().name);
  configReplayComplete_ = complete;
}

void SwTable::Util::doNotifyWriteResponse(SwTable& table, Asic::Index index,
                                          EntryState outcome) const {
  table.dispatchResponse(index, outcome);
}

void SwTable::Util::doMountHwTableMountInfo(Vell::ZarnType type, Mirel::MountGroup& mg,
                                            Vell::String const& name) {
  mg.mountIs(mountPath("mountInfo", type, name), std::string(type.data().name));
}

void SwTable::Util::doMountHwTableRecoveryStatus(Vell::ZarnType type, Mirel::MountGroup& mg,
                                                 Vell::String const& name) {
  mg.mountIs(mountPath("recoveryStatus", type, name), std::string(type.data().name));
}

void SwTable::Util::doRecoverHwTable(Vell::ZarnType type, HwTableRecoverGroup& rg, UnitId unitId,
                                     Mirel::EntityManager& mirelEm, ChipInfo const& chipInfo,
                                     Vell::String const& name) {
  rg.recoveryIs({std::string(type.data().name), name, unitId, chipInfo.chip, mirelEm.name()});
}

}  // namespace Asic
