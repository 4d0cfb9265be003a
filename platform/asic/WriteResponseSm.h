// The response machine of a table whose writes are acknowledged: brings each acknowledgement to the
// handle of the entry that was written.
//
//   table -> HwTable::writeIs                     numbers the write
//         -> Util::hwTableEntryIs -> chip         keeps the number with the write
//   chip  -> HwTable::writeResponseIs             keeps the acknowledgement
//         -> Chip::poll -> HwTable::deliverWriteResponses
//                            drops it if another write or a delete of the row has overtaken it
//              -> WriteResponseSm::handleWriteResponse
//                   -> Util::doNotifyWriteResponse -> SwTable::dispatchResponse
//                        -> the handle's `hwIndex`, then its `resolvedEntryState`

#pragma once

#include "platform/asic/ResponseSm.h"
#include "platform/asic/WriteResponse.h"

namespace Asic {

class WriteResponseSm final : public ResponseSm {
 public:
  /// A new machine for that table, not active yet.
  static Vell::Ptr<WriteResponseSm> WriteResponseSmIs(SwTable* swTable);
  ~WriteResponseSm() override;
  Vell::ZarnType typeData() const override;
  bool isReady() const override;

  /// Brings one acknowledgement to the hooks of the table.
  void handleWriteResponse(WriteResponse const& response);

 private:
  explicit WriteResponseSm(SwTable* swTable) : ResponseSm(swTable) {}
  void enter(HwTable& hwTable) override;
  void leave(HwTable& hwTable) override;
};

}  // namespace Asic
