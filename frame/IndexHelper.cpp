#include "frame/IndexHelper.h"

namespace Asic {
namespace {

constexpr Vell::TypeData type{"Asic::SwTable::IndexHelper", {}, {}};
constexpr Vell::TypeData const* types[] = {&type};
constinit Vell::ModuleInspectData module{"IndexHelper", types};

}  // namespace

constinit Zarn::AllocTrackTypeInfo SwTable::IndexHelper::memAllocationTracker_{
    "Asic::SwTable::IndexHelper"};

Vell::ZarnType SwTable::IndexHelper::typeData() const { return {&module, 0}; }

}  // namespace Asic
