#include "platform/asic/HwTable.h"

#include "platform/asic/Chip.h"
#include "platform/asic/ReadResponseSm.h"
#include "platform/vell/ModuleInspectData.h"

namespace Asic {
namespace {

constexpr Vell::TypeData hwTableType{"Asic::HwTable", {}, {}};
constexpr Vell::TypeData chipType{"Asic::Chip", {}, {}};
constexpr Vell::TypeData readResponseSmType{"Asic::ReadResponseSm", {}, {}};
constexpr Vell::TypeData const* types[] = {&hwTableType, &chipType, &readResponseSmType};
constinit Vell::ModuleInspectData module("AsicHardware", types);

}  // namespace

Vell::ZarnType HwTable::typeData() const { return {&module, 0}; }
Vell::ZarnType Chip::typeData() const { return {&module, 1}; }
Vell::ZarnType ReadResponseSm::typeData() const { return {&module, 2}; }

U64 HwTable::deliverReadResponses() {
  Vell::Ptr<HwTable> const held(this);
  U64 delivered = 0;
  // What comes meanwhile waits for the next time: a handler may read again and again.
  for (auto left = readResponses_.size(); left > 0 && readResponseSm_ && !readResponses_.empty();
       --left, ++delivered) {
    auto const response = std::move(readResponses_.front());
    readResponses_.pop_front();
    Vell::Ptr<ReadResponseSm> const machine(readResponseSm_);
    machine->handleReadResponse(response);
  }
  return delivered;
}

}  // namespace Asic
