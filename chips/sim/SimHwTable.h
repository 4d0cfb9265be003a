// One table of the hardware, as the tables hold on to it. It keeps the hardware open.
//
// Writes are posted: a row is replaced inside the call, and if the write has a number, its outcome is
// acknowledged later, by a poll.

#pragma once

#include <memory>

#include "chips/sim/AckQueue.h"
#include "chips/sim/Hardware.h"
#include "platform/asic/HwTable.h"
#include "platform/vell/Assert.h"

namespace Sim {

class SimHwTable : public Asic::HwTable {
 public:
  SimHwTable(std::shared_ptr<Hardware> hardware, U32 table)
      : hardware_(std::move(hardware)), table_(table), acks_(hardware_->switches(), table) {}

  /// The simulated chip's side of a hardware table that came from it.
  static SimHwTable& of(Asic::HwTable& hwTable) {
    auto* const own = dynamic_cast<SimHwTable*>(&hwTable);
    VELL_ASSERT(own, "own", "a hook of the simulated chip was given another chip's hardware table");
    return *own;
  }
  static SimHwTable const& of(Asic::HwTable const& hwTable) {
    return of(const_cast<Asic::HwTable&>(hwTable));
  }

  /// The bytes of a valid row, good until the next operation; empty if there is none.
  std::span<U8 const> row(U64 row) const { return hardware_->row(table_, row); }
  /// Whether the switch refuse-writes may strike the row.
  enum class Refusable : bool { no, yes };
  void rowIs(U32 row, std::span<U8 const> bytes, Refusable refusable = Refusable::yes) {
    auto const write = newestWrite(row);
    if (write == 0) return hardware_->rowIs(table_, row, bytes);  // nobody wants to hear of it
    if (hardware_->isFrozen()) return;
    bool const fits = row < hardware_->rows(table_);
    bool const refused = fits && refusable == Refusable::yes && acks_.refusesNext();
    refused ? hardware_->rowRefused(table_, row) : hardware_->rowIs(table_, row, bytes);
    bool const took = fits && !refused;
    acks_.post(
        {write, row, took ? Asic::SwTableBase::EntryState::success : Asic::WriteResponse::refused});
  }
  /// A write that finds the row as it is to be: nothing reaches the hardware, and the answer is as ever.
  void rowStays(U32 row) {
    auto const write = newestWrite(row);
    if (write != 0 && !hardware_->isFrozen())
      acks_.post({write, row, Asic::SwTableBase::EntryState::success});
  }
  void rowDel(U64 row) { hardware_->rowDel(table_, row); }

  /// Lets the answers that are due now reach the table, and returns how many did.
  virtual U64 poll() {
    while (auto const outcome = acks_.next()) writeResponseIs(*outcome);
    acks_.tick();
    return deliverWriteResponses();
  }
  /// Answers that are owed, or wait for a poll to deliver them. Those that no response machine takes
  /// wait for something else.
  virtual U64 outstanding() const {
    return acks_.owed() + (writeResponseSm() ? writeResponses() : 0);
  }

 protected:
  Hardware& hardware() const { return *hardware_; }

 private:
  std::shared_ptr<Hardware> hardware_;
  U32 table_;
  AckQueue acks_;
};

}  // namespace Sim
