#include "containers/HashMap2018Directory.h"

#include <limits>
#include <type_traits>

#include "platform/bruvel/Slab.h"
#include "platform/vell/Assert.h"
#include "platform/zarn/AllocTrack.h"

namespace Zarn {
namespace {

constexpr U32 smallestFlatBits = 2;

AllocTrackTypeInfo& tracker() {
  static AllocTrackTypeInfo info("Zarn::HashMap2018Directory slots");
  return info;
}

template <class Element>
Element* newArray(U32 size) {
  tracker().allocated(size * sizeof(Element));
  void* const memory = Bruvel::slabAllocOrStdMalloc(size * sizeof(Element));
  return new (memory) Element[size]{};
}

template <class Element>
void freeArray(Element* array, U32 size) {
  tracker().released(size * sizeof(Element));
  Bruvel::slabFreeOrStdFree(array, size * sizeof(Element));
}

/// Puts the first elements of `array` into a new one of another size in its place.
template <class Element>
void resizeArray(Element*& array, U32 size, U32 newSize) {
  Element* const larger = newArray<Element>(newSize);
  std::copy_n(array, std::min(size, newSize), larger);
  freeArray(array, size);
  array = larger;
}

}  // namespace

HashMap2018Directory::~HashMap2018Directory() {
  if (bits_ == 0) return;
  if (bits_ <= segmentBits) {
    freeArray(root_.flat, capacity());
    return;
  }
  U32 const segments = capacity() / segmentSlots;
  for (U32 index = 0; index < segments; ++index)
    if (root_.segments[index]) freeArray(root_.segments[index], segmentSlots);
  freeArray(root_.segments, segments);
}

void HashMap2018Directory::reserve(U32 buckets) {
  while (capacity() < buckets) grow();
  reservedBits_ = bits_;
}

void HashMap2018Directory::appendUpTo(U32 buckets) {
  // A flat array of the right size at once, where growing would make one of each size on the way.
  auto const bits = static_cast<U32>(std::bit_width(buckets - 1));
  if (bits_ == 0 && bits > smallestFlatBits && bits <= segmentBits) {
    Slot* const slots = newArray<Slot>(1u << bits);
    slots[0] = root_.one;
    root_.flat = slots;
    bits_ = static_cast<U8>(bits);
  }
  while (size_ < buckets) append();
}

void HashMap2018Directory::dropReservation() {
  reservedBits_ = 0;
  for (U32 before = 0; before != bits_;) {
    before = bits_;
    if (bits_ != 0) shrink();
  }
}

void HashMap2018Directory::grow() {
  VELL_ASSERT(bits_ < std::numeric_limits<U32>::digits - 1, "bits_ < 31", "too many buckets");
  if (bits_ == 0) {
    Slot* const slots = newArray<Slot>(1u << smallestFlatBits);
    slots[0] = root_.one;
    root_.flat = slots;
    bits_ = smallestFlatBits;
  } else if (bits_ < segmentBits) {
    resizeFlat(bits_ + 1u);
  } else if (bits_ == segmentBits) {
    Slot** const segments = newArray<Slot*>(2);
    segments[0] = root_.flat;
    root_.segments = segments;
    ++bits_;
  } else {
    resizeSegments(bits_ + 1u);
  }
}

void HashMap2018Directory::shrink() {
  if (bits_ > segmentBits) return shrinkSegments();
  if (bits_ <= reservedBits_) return;
  if (size_ == 1) {
    Slot const only = root_.flat[0];
    freeArray(root_.flat, capacity());
    root_.one = only;
    bits_ = 0;
  } else if (bits_ > smallestFlatBits && size_ <= capacity() / 4) {
    resizeFlat(bits_ - 1u);
  }
}

void HashMap2018Directory::shrinkSegments() {
  U32 const kept = size_ + segmentSlots / 2;
  if (kept % segmentSlots == 0 && kept < capacity()) {
    Slot*& last = root_.segments[kept / segmentSlots];
    if (Slot* const slots = std::exchange(last, nullptr)) freeArray(slots, segmentSlots);
  }
  if (bits_ <= reservedBits_ || size_ > capacity() / 4) return;
  if (bits_ > segmentBits + 1) return resizeSegments(bits_ - 1u);
  Slot* const only = root_.segments[0];
  freeArray(root_.segments, 2);
  root_.flat = only;
  bits_ = segmentBits;
}

void HashMap2018Directory::resizeFlat(U32 bits) {
  resizeArray(root_.flat, capacity(), 1u << bits);
  bits_ = static_cast<U8>(bits);
}

void HashMap2018Directory::resizeSegments(U32 bits) {
  resizeArray(root_.segments, capacity() / segmentSlots, (1u << bits) / segmentSlots);
  bits_ = static_cast<U8>(bits);
}

void HashMap2018Directory::addSegment(U32 index) {
  if (!root_.segments[index]) root_.segments[index] = newArray<Slot>(segmentSlots);
}

}  // namespace Zarn
