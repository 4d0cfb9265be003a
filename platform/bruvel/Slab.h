// Slab allocation: memory for the many small objects of the tables.
//
// Sizes up to `largestSlabObject` bytes are served from slabs of one size class each (steps of 16
// bytes); a freed object is handed out again before memory that was never used, so a steady state
// allocates nothing from the system. Larger sizes go to malloc. A slab that becomes wholly free
// goes back to the system, except for one that each class keeps. Every block is aligned to 16.
//
// Invariants
//  1. `slabFree(p, n)` takes back what `slabAlloc(n)` gave, with the same n.
//  2. Memory handed out is not shared between two owners, and is not initialised.
//
// Threading: plain when `Vell::ThreadControl::tsp_` is clear; under one lock when it is set.

#pragma once

#include <cstddef>
#include <utility>

#include "platform/vell/Types.h"
#include "platform/zarn/AllocTrack.h"

namespace Bruvel {

inline constexpr std::size_t largestSlabObject = 1024;

/// `bytes` of memory; stops the process when the system has none, since no caller could go on.
void* slabAllocOrStdMalloc(std::size_t bytes);
/// Takes back memory of `slabAllocOrStdMalloc(bytes)`. A null pointer is ignored.
void slabFreeOrStdFree(void* memory, std::size_t bytes);

/// The same from the global allocator, past the slabs.
void* globalAlloc(std::size_t bytes);
void globalFree(void* memory, std::size_t bytes);

struct SlabFigures {
  U64 slabs;      ///< slabs held from the system now
  U64 usedBytes;  ///< bytes in objects handed out, rounded up to their size classes
};
SlabFigures slabFigures();

/// Class-level `operator new` and `delete` for `T`: from the slabs, counted in
/// `T::memAllocationTracker_`. `T` derives from `Allocated<T>` and holds that static tracker.
template <class T>
class Allocated {
 public:
  static void* operator new(std::size_t bytes) {
    T::memAllocationTracker_.allocated(bytes);
    return slabAllocOrStdMalloc(bytes);
  }
  static void operator delete(void* memory, std::size_t bytes) {
    T::memAllocationTracker_.released(bytes);
    slabFreeOrStdFree(memory, bytes);
  }
};

/// The same from the global allocator.
template <class T>
class GloballyAllocated {
 public:
  static void* operator new(std::size_t bytes) {
    T::memAllocationTracker_.allocated(bytes);
    return globalAlloc(bytes);
  }
  static void operator delete(void* memory, std::size_t bytes) {
    T::memAllocationTracker_.released(bytes);
    globalFree(memory, bytes);
  }
};

}  // namespace Bruvel
