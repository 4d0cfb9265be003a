#include "platform/l3/L3EcmpMember1SharedAllocator.h"

#include "platform/vell/Inspect.h"

namespace TessarL3Common {
namespace {

constexpr Vell::TypeData data{
    "TessarL3Common::L3EcmpMember1SharedAllocator",
    {},
    {.makeNode = [](Vell::String const&, std::span<Vell::Value const>) -> Vell::Ptr<Vell::Node> {
      return new L3EcmpMember1SharedAllocator;
    }}};
constexpr Vell::TypeData const* types[] = {&data};
constinit Vell::ModuleInspectData module{"L3EcmpMember1SharedAllocator", types};

}  // namespace

Vell::ZarnType L3EcmpMember1SharedAllocator::type() { return {&module, 0}; }

}  // namespace TessarL3Common
