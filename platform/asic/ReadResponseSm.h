// The response machine of a table that reads hardware: brings the answers to its table's hooks.
//
//   chip -> HwTable::readResponseIs     keeps the answer
//        -> Chip::poll -> HwTable::deliverReadResponses
//             -> ReadResponseSm::handleReadResponse
//                  -> Util::doNotifyReadResponse, or doNotifyReadResponseAll at the end of a read
//                       -> the table, which calls the client's handler
//
// Invariants
//  1. Answers that come while no machine is active are kept, in their order.
//  2. A machine delivers from `deliverReadResponses` alone, never from inside an operation of its
//     table, so that no answer overtakes the request that it belongs to.
//  3. A machine holds no use of its table, which owns it; while it delivers, the table is held. A
//     machine that outlives its table has none, and is not active any more.
//
// Threading: the thread of the owning agent.

#pragma once

#include "platform/asic/ReadResponse.h"
#include "platform/vell/Node.h"
#include "platform/vell/Ptr.h"

namespace Asic {

class HwTable;
class SwTable;

class ReadResponseSm : public Vell::Node {
 public:
  /// A new machine for that table, not active yet.
  static Vell::Ptr<ReadResponseSm> ReadResponseSmIs(SwTable* swTable);
  ~ReadResponseSm() override;
  Vell::ZarnType typeData() const override;

  /// Null when the table has gone.
  SwTable* swTable() const { return swTable_; }
  void swTableGone() {
    hasNotificationActiveIs(false);
    swTable_ = nullptr;
  }
  bool hasNotificationActive() const { return hwTable_ != nullptr; }
  /// Takes the answers of the hardware table that `swTable` has now, or stops taking them. Nothing
  /// without a table or without hardware.
  void hasNotificationActiveIs(bool active);

  /// Brings one answer to the hooks of the table. An exception of the client's handler passes out.
  void handleReadResponse(ReadResponse const& response);

 private:
  explicit ReadResponseSm(SwTable* swTable) : swTable_(swTable) {}

  SwTable* swTable_;
  Vell::Ptr<HwTable> hwTable_;  ///< whose answers it takes; null while it is not active
};

}  // namespace Asic
