// What the response machines of reads and of writes have in common: which table they serve, and at
// which hardware table they take answers.
//
// Invariants
//  1. Answers that come while no machine is active are kept at the hardware table, in their order.
//  2. A machine is called from the deliveries of its hardware table alone, never from inside an
//     operation of its table, so that no answer overtakes the request that it belongs to.
//  3. A machine holds no use of its table; while it delivers, the table is held. The table knows every
//     machine that was made for it, whoever holds it, and tells them all when it goes: a machine that
//     outlives its table has none, and is not active any more.
//  4. A table that is going hears of no answer, whatever its last publications call.
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
  ~ResponseSm() override;

  /// Null when the table has gone.
  SwTable* swTable() const { return swTable_; }
  bool hasNotificationActive() const { return hwTable_ != nullptr; }
  /// Takes the answers of the hardware table that `swTable` has now, or stops taking them. Nothing
  /// without a table or without hardware.
  void hasNotificationActiveIs(bool active);
  /// Whether an answer can be brought to the table now.
  virtual bool isReady() const;

 protected:
  explicit ResponseSm(SwTable* swTable);

 private:
  friend class SwTable;

  /// Takes, or gives up, the hardware table's place for machines of this kind.
  virtual void enter(HwTable& hwTable) = 0;
  virtual void leave(HwTable& hwTable) = 0;
  /// The end of the table, or of the machine.
  void swTableGone();

  SwTable* swTable_;
  ResponseSm* next_ = nullptr;       ///< of the same table
  ResponseSm** previous_ = nullptr;  ///< what points here; null without a table
  Vell::Ptr<HwTable> hwTable_;       ///< whose answers it takes; null while it is not active
};

}  // namespace Asic
