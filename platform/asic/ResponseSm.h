// What the response machines of reads and of writes have in common: which table they serve, and at
// which hardware table they take answers.
//
// Invariants
//  1. Answers that come while no machine is active are kept at the hardware table, in their order.
//  2. A machine is called from the deliveries of its hardware table alone, never from inside an
//     operation of its table, so that no answer overtakes the request that it belongs to.
//  3. A machine holds no use of its table, which owns it; while it delivers, the table is held. A
//     machine that outlives its table has none, and is not active any more.
//
// Threading: the thread of the owning agent.

#pragma once

#include "platform/vell/Node.h"
#include "platform/vell/Ptr.h"

namespace Asic {

class HwTable;
class SwTable;

class ResponseSm : public Vell::Node {
 public:
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

 protected:
  explicit ResponseSm(SwTable* swTable) : swTable_(swTable) {}

 private:
  /// Takes, or gives up, the hardware table's place for machines of this kind.
  virtual void enter(HwTable& hwTable) = 0;
  virtual void leave(HwTable& hwTable) = 0;

  SwTable* swTable_;
  Vell::Ptr<HwTable> hwTable_;  ///< whose answers it takes; null while it is not active
};

}  // namespace Asic
