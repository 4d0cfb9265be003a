#include "platform/asic/GenericIndexAllocatorStub.h"

#include <map>
#include <tuple>

#include "platform/asic/SwTable.h"
#include "platform/vell/Inspect.h"

namespace Asic {
namespace {

/// The chip, and the type by module and number.
using Place = std::tuple<void const*, void const*, U32>;

// For good: tables that are held to the end of the process leave after static objects have gone.
std::map<Place, Vell::Ptr<GenericIndexAllocator>>& allocators() {
  static auto& all = *new std::map<Place, Vell::Ptr<GenericIndexAllocator>>;
  return all;
}

Place placeOf(Vell::ZarnType allocatorType, SwTable const& table) {
  return {table.chip(), allocatorType.module, allocatorType.number};
}

}  // namespace

Vell::Ptr<GenericIndexAllocator> GenericIndexAllocatorStub::createSharedAllocator(
    Vell::ZarnType, Vell::ZarnType allocatorType, SwTable& table) {
  auto& allocator = allocators()[placeOf(allocatorType, table)];
  if (!allocator && allocatorType.data().functions.makeNode)
    allocator = static_cast<GenericIndexAllocator*>(Vell::inspectMake(allocatorType.data()).get());
  return allocator;
}

void GenericIndexAllocatorStub::freeSharedAllocator(Vell::ZarnType, Vell::ZarnType allocatorType,
                                                    SwTable& table) {
  auto const at = allocators().find(placeOf(allocatorType, table));
  if (at == allocators().end()) return;
  auto const allocator = at->second;  // the end of a key that it held may come here again
  allocator->tableAttrDel(table);
  if (allocator->tableAttrs() == 0) allocators().erase(placeOf(allocatorType, table));
}

}  // namespace Asic
