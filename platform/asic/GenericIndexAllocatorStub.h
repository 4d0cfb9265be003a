// The shared allocators of a process: one of each type for each chip, from the first table that
// joins to the last one that leaves.

#pragma once

#include "platform/asic/GenericIndexAllocator.h"

namespace Asic {

class GenericIndexAllocatorStub {
 public:
  /// The allocator of type `allocatorType` for the chip of `table`, made from the type's reflection
  /// data if there is none; null if the type cannot be made. Tables without a chip share those of
  /// no chip.
  static Vell::Ptr<GenericIndexAllocator> createSharedAllocator(Vell::ZarnType tableType,
                                                                Vell::ZarnType allocatorType,
                                                                SwTable& table);
  /// The table has left: what it alone held is free. With the last table the allocator goes, as
  /// soon as nobody holds it.
  static void freeSharedAllocator(Vell::ZarnType tableType, Vell::ZarnType allocatorType,
                                  SwTable& table);
};

}  // namespace Asic
