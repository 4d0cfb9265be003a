#include "platform/asic/HwTable.h"

#include "platform/asic/Chip.h"
#include "platform/vell/ModuleInspectData.h"

namespace Asic {
namespace {

constexpr Vell::TypeData hwTableType{"Asic::HwTable", {}, {}};
constexpr Vell::TypeData chipType{"Asic::Chip", {}, {}};
constexpr Vell::TypeData const* types[] = {&hwTableType, &chipType};
constinit Vell::ModuleInspectData module("AsicHardware", types);

}  // namespace

Vell::ZarnType HwTable::typeData() const { return {&module, 0}; }
Vell::ZarnType Chip::typeData() const { return {&module, 1}; }

}  // namespace Asic
