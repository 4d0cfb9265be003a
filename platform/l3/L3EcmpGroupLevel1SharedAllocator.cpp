#include "platform/l3/L3EcmpGroupLevel1SharedAllocator.h"

#include "platform/vell/Inspect.h"

namespace TessarL3Tunnel {
namespace {

constexpr Vell::TypeData data{
    "TessarL3Tunnel::L3EcmpGroupLevel1SharedAllocator",
    {},
    {.makeNode = [](Vell::String const&, std::span<Vell::Value const>) -> Vell::Ptr<Vell::Node> {
      return new L3EcmpGroupLevel1SharedAllocator;
    }}};
constexpr Vell::TypeData const* types[] = {&data};
constinit Vell::ModuleInspectData module{"L3EcmpGroupLevel1SharedAllocator", types};

}  // namespace

Vell::ZarnType L3EcmpGroupLevel1SharedAllocator::type() { return {&module, 0}; }

}  // namespace TessarL3Tunnel
