// One table of the hardware, as the tables hold on to it. It keeps the hardware open.

#pragma once

#include <memory>

#include "chips/sim/Hardware.h"
#include "platform/asic/HwTable.h"
#include "platform/vell/Assert.h"

namespace Sim {

class SimHwTable : public Asic::HwTable {
 public:
  SimHwTable(std::shared_ptr<Hardware> hardware, U32 table)
      : hardware_(std::move(hardware)), table_(table) {}

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
  void rowIs(U64 row, std::span<U8 const> bytes) { hardware_->rowIs(table_, row, bytes); }
  void rowDel(U64 row) { hardware_->rowDel(table_, row); }

 protected:
  Hardware& hardware() const { return *hardware_; }

 private:
  std::shared_ptr<Hardware> hardware_;
  U32 table_;
};

}  // namespace Sim
