// Slabs are aligned to their own size, so that the slab of an object is found by masking its
// address. Each slab has its own list of freed objects, and hands out its untouched rest only when
// that list is empty; a class knows the slabs that have room and one wholly free slab in reserve.

#include "platform/bruvel/Slab.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "platform/vell/Assert.h"
#include "platform/vell/ThreadControl.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, bytes) (static_cast<void>(address))
#define ASAN_UNPOISON_MEMORY_REGION(address, bytes) (static_cast<void>(address))
#endif

namespace Bruvel {
namespace {

constexpr std::size_t granule = 16;
constexpr std::size_t classCount = largestSlabObject / granule;
constexpr std::size_t slabAlignment = 32u * 1024;
/// A little less than the alignment: the system's own block header then fits between two slabs that
/// lie side by side.
constexpr std::size_t slabBytes = slabAlignment - 64;

struct FreeObject {
  FreeObject* next;
};

struct alignas(granule) Slab {
  Slab* next;  ///< among the slabs of the class that have room
  Slab* previous;
  FreeObject* freed;
  std::byte* untouched;  ///< from here to the end no object was ever handed out
  U32 used;
  U32 capacity;
  U32 objectBytes;
};

struct SizeClass {
  Slab* withRoom = nullptr;  ///< used in part, the latest to get room first
  Slab* reserve = nullptr;   ///< the one wholly free slab that is kept
};

constinit std::array<SizeClass, classCount> classes{};
constinit SlabFigures figures{};
constinit std::mutex sharedUse;

Slab* slabOf(void* object) {
  auto const address = reinterpret_cast<std::uintptr_t>(object);
  return reinterpret_cast<Slab*>(address & ~std::uintptr_t{slabAlignment - 1});
}

void link(SizeClass& sizeClass, Slab* slab) {
  slab->previous = nullptr;
  slab->next = sizeClass.withRoom;
  if (slab->next) slab->next->previous = slab;
  sizeClass.withRoom = slab;
}

void unlink(SizeClass& sizeClass, Slab* slab) {
  (slab->previous ? slab->previous->next : sizeClass.withRoom) = slab->next;
  if (slab->next) slab->next->previous = slab->previous;
}

Slab* newSlab(std::size_t objectBytes) {
  void* memory = nullptr;
  VELL_ASSERT(posix_memalign(&memory, slabAlignment, slabBytes) == 0, "slab memory is available",
              slabBytes, " bytes; ", figures.slabs, " slabs are held");
  ++figures.slabs;
  std::byte* const objects = static_cast<std::byte*>(memory) + sizeof(Slab);
  ASAN_POISON_MEMORY_REGION(objects, slabBytes - sizeof(Slab));
  return new (memory) Slab{.next = nullptr,
                           .previous = nullptr,
                           .freed = nullptr,
                           .untouched = objects,
                           .used = 0,
                           .capacity = static_cast<U32>((slabBytes - sizeof(Slab)) / objectBytes),
                           .objectBytes = static_cast<U32>(objectBytes)};
}

void giveBack(Slab* slab) {
  --figures.slabs;
  ASAN_UNPOISON_MEMORY_REGION(slab, slabBytes);
  std::free(slab);
}

Slab* slabWithRoom(SizeClass& sizeClass, std::size_t objectBytes) {
  Slab* slab = std::exchange(sizeClass.reserve, nullptr);
  if (!slab) slab = newSlab(objectBytes);
  link(sizeClass, slab);
  return slab;
}

void* takeFrom(Slab* slab) {
  if (FreeObject* const object = slab->freed) {
    ASAN_UNPOISON_MEMORY_REGION(object, slab->objectBytes);
    slab->freed = object->next;
    return object;
  }
  void* const object = std::exchange(slab->untouched, slab->untouched + slab->objectBytes);
  ASAN_UNPOISON_MEMORY_REGION(object, slab->objectBytes);
  return object;
}

std::size_t classOf(std::size_t bytes) { return bytes ? (bytes - 1) / granule : 0; }

void* allocate(std::size_t index) {
  SizeClass& sizeClass = classes[index];
  std::size_t const objectBytes = (index + 1) * granule;
  Slab* slab = sizeClass.withRoom;
  if (!slab) [[unlikely]]
    slab = slabWithRoom(sizeClass, objectBytes);
  void* const object = takeFrom(slab);
  if (++slab->used == slab->capacity) unlink(sizeClass, slab);
  figures.usedBytes += objectBytes;
  return object;
}

void retire(SizeClass& sizeClass, Slab* slab) {
  unlink(sizeClass, slab);
  if (Slab* const older = std::exchange(sizeClass.reserve, slab)) giveBack(older);
}

void release(void* memory, std::size_t index) {
  SizeClass& sizeClass = classes[index];
  Slab* const slab = slabOf(memory);
  slab->freed = new (memory) FreeObject{slab->freed};
  ASAN_POISON_MEMORY_REGION(memory, slab->objectBytes);
  figures.usedBytes -= slab->objectBytes;
  if (slab->used-- == slab->capacity) link(sizeClass, slab);
  if (slab->used == 0) [[unlikely]]
    retire(sizeClass, slab);
}

/// Runs `action` under the lock if other threads may be in here.
template <class Action>
auto guarded(Action action) {
  if (!Vell::ThreadControl::tsp_) [[likely]]
    return action();
  std::lock_guard const lock(sharedUse);
  return action();
}

}  // namespace

void* slabAllocOrStdMalloc(std::size_t bytes) {
  if (bytes <= largestSlabObject) [[likely]]
    return guarded([bytes] { return allocate(classOf(bytes)); });
  void* const memory = std::malloc(bytes);
  VELL_ASSERT(memory, "memory is available", bytes, " bytes");
  return memory;
}

void slabFreeOrStdFree(void* memory, std::size_t bytes) {
  if (!memory) return;
  if (bytes > largestSlabObject) return std::free(memory);
  guarded([memory, bytes] { release(memory, classOf(bytes)); });
}

SlabFigures slabFigures() {
  return guarded([] { return figures; });
}

void* globalAlloc(std::size_t bytes) { return ::operator new(bytes); }

void globalFree(void* memory, std::size_t bytes) { ::operator delete(memory, bytes); }

}  // namespace Bruvel
