// A first-in first-out queue of elements, each known by a 32-bit sequence number, that costs one
// pointer while it has never been used.
//
// It is a chain of arrays. An array is only ever filled at the tail of the chain and drained at the
// head; arrays grow with the queue and are never copied.
//
// Invariants
//  1. Sequence numbers run on without gaps for the life of the queue, from the traits'
//     `firstSequence` (1) on, and wrap. A queue that has become empty keeps a placeholder, an array
//     of capacity 0, that knows the next number.
//  2. All arrays but the tail hold an element; so does the tail, unless it is the only one.
//  3. The queue is whole again before an element is destroyed: its end may use the queue.
//
// `RQueue<Element, counted, Traits>`: `counted` says that elements hold counted references, or may
// (it picks the assertion that they can be moved without throwing); `Traits` brings
// `firstCapacity`, a power of two, and the `name` under which slots are counted.
//
// Threading: none of its own; one owner.

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

#include "containers/IntrusiveLinkedTailQueue.h"
#include "platform/bruvel/Slab.h"
#include "platform/vell/Assert.h"
#include "platform/vell/MemTrack.h"

namespace Vell {

/// The logarithm of a power of two.
constexpr U32 powerOfTwoLog2(U32 i) {
  VELL_ASSERT(std::has_single_bit(i), "isPowerOfTwo( i )", i);
  return static_cast<U32>(std::countr_zero(i));
}

/// Whether sequence number `a` is before `b`; numbers wrap, so the shorter way round decides.
constexpr bool sequenceIsBefore(U32 a, U32 b) { return b - a - 1 <= 0x7FFFFFFE; }

template <class Element>
class RQueueBase {
 public:
  static constexpr U32 largestCapacity = 8192;
  static constexpr U32 offsetBits = 14;

  /// Whether an array's memory has slots behind its header.
  enum class AllocPattern : U8 { placeholder = 0, slots = 1 };

  /// One array of the chain: a header, then the slots. Elements are valid from the head offset up
  /// to, not including, the tail offset.
  struct Array {
    Array* link_ = nullptr;
    U32 headOffset : offsetBits = 0;
    U32 tailOffset : offsetBits = 0;
    U32 capacityLog2 : 4 = 0;
    U32 firstSequence = 0;

    U32 capacity() const { return capacityLog2 == 0 ? 0 : 1u << capacityLog2; }
    U32 count() const { return tailOffset - headOffset; }
    bool isFull() const { return tailOffset == capacity(); }
    U32 headSequence() const { return firstSequence + headOffset; }
    U32 tailSequence() const { return firstSequence + tailOffset; }  ///< of the slot at tail offset
    Element* slot(U32 offset) {
      auto* const behind = reinterpret_cast<std::byte*>(this) + headerBytes;
      return std::launder(reinterpret_cast<Element*>(behind)) + offset;
    }
    Element const* slot(U32 offset) const { return const_cast<Array*>(this)->slot(offset); }
  };

  /// Arrays that exist, placeholders included.
  static inline constinit MemTrack::Impl arrayTracker{"Vell::RQueueBase::Array"};

 protected:
  static constexpr std::size_t headerBytes =
      (sizeof(Array) + alignof(Element) - 1) / alignof(Element) * alignof(Element);
  static std::size_t bytesOf(U32 capacity) { return headerBytes + capacity * sizeof(Element); }
};

/// A walk from the first element to the last. An element that is taken while the walk stands on it
/// is passed over for the one that is first then.
template <class Queue>
class RQueueBaseConstIter {
 public:
  using Array = typename Queue::Array;

  explicit RQueueBaseConstIter(Queue const& queue) : queue_(&queue) { toHead(); }

  explicit operator bool() const { return array_ != nullptr; }
  /// Not at the end, and not when the element has been taken.
  auto const& operator*() const { return *array_->slot(offset_); }
  U32 sequence() const { return sequence_; }
  void increment();
  RQueueBaseConstIter& operator++() {
    increment();
    return *this;
  }

 private:
  void toHead();

  Queue const* queue_;
  Array const* array_ = nullptr;
  U32 offset_ = 0;
  U32 sequence_ = 0;
};

template <class Element, bool counted, class Traits>
class RQueue : public RQueueBase<Element> {
 public:
  using Base = RQueueBase<Element>;
  using Array = typename Base::Array;
  using Iterator = RQueueBaseConstIter<RQueue>;
  /// What becomes of the numbering when a queue is cleared.
  enum class Numbering : U8 {
    kept,     ///< it goes on: a placeholder stays
    dropped,  ///< the queue will not be used again
  };
  static_assert(!counted || std::is_nothrow_move_constructible_v<Element>,
                "an element is moved out while the queue stands between two states");
  static_assert(std::has_single_bit(Traits::firstCapacity) && Traits::firstCapacity >= 2,
                "a capacity is told by its logarithm, and 0 stands for no slots");

  /// Slots that exist.
  static inline constinit MemTrack::Impl arrayElemTracker{Traits::name};

  RQueue() = default;
  RQueue(RQueue const&) = delete;
  RQueue& operator=(RQueue const&) = delete;
  ~RQueue() { doClear(Numbering::dropped); }

  bool empty() const { return chain_.empty() || chain_.head()->count() == 0; }
  U32 count() const { return lastSequence() - firstSequence() + 1; }
  /// The number of the first element; of the next one to come if the queue is empty.
  U32 firstSequence() const {
    return chain_.empty() ? initialSequence() : chain_.head()->headSequence();
  }
  /// The number of the last element; one less than the first of an empty queue.
  U32 lastSequence() const {
    return chain_.empty() ? initialSequence() - 1 : chain_.tail()->tailSequence() - 1;
  }

  /// Adds an element at the end and gives its number.
  U32 enq(Element const& element);
  /// Takes the first element; a default one if there is none.
  Element deq();
  /// Copies of the first and the last element; default ones if there are none.
  Element front() const { return at(firstSequence()); }
  Element back() const { return at(lastSequence()); }
  /// A copy of the element of that number; a default one if there is none.
  Element at(U32 sequence) const;
  bool has(U32 sequence) const {
    return !empty() && !sequenceIsBefore(sequence, firstSequence()) &&
           !sequenceIsBefore(lastSequence(), sequence);
  }
  void doClear(Numbering numbering);

  Array const* head() const { return chain_.head(); }
  Array const* tail() const { return chain_.tail(); }

 private:
  using AllocPattern = typename Base::AllocPattern;

  static constexpr U32 initialSequence() {
    if constexpr (requires { Traits::firstSequence; })
      return Traits::firstSequence;
    else
      return 1;
  }
  static Array* newArray(U32 capacity, U32 firstSequence);
  static void freeArray(Array* array);
  Array* arrayWithRoom();
  void unlinkDrained(Array* drained);

  IntrusiveLinkedTailQueue<Array> chain_;
};

template <class Element, bool counted, class Traits>
auto RQueue<Element, counted, Traits>::newArray(U32 capacity, U32 firstSequence) -> Array* {
  void* const memory = Bruvel::slabAllocOrStdMalloc(Base::bytesOf(capacity));
  auto* const array = ::new (memory) Array;
  array->capacityLog2 = capacity == 0 ? 0 : powerOfTwoLog2(capacity);
  array->firstSequence = firstSequence;
  Base::arrayTracker.allocated(1);
  arrayElemTracker.allocated(capacity);
  return array;
}

template <class Element, bool counted, class Traits>
void RQueue<Element, counted, Traits>::freeArray(Array* array) {
  VELL_ASSERT(!array->link_, "!linked()", "an array is freed that is still in a chain");
  U32 const capacity = array->capacity();
  Base::arrayTracker.released(1);
  arrayElemTracker.released(capacity);
  Bruvel::slabFreeOrStdFree(array, Base::bytesOf(capacity));
}

/// The tail of the chain, a new one if the present one is full.
template <class Element, bool counted, class Traits>
auto RQueue<Element, counted, Traits>::arrayWithRoom() -> Array* {
  auto* const tail = chain_.tail();
  if (tail && !tail->isFull()) return tail;
  U32 const next = lastSequence() + 1;
  U32 capacity = Traits::firstCapacity;
  if (tail && tail->capacity() == 0) {
    freeArray(chain_.deq());
  } else if (tail) {
    U32 const elements = std::min(count(), Base::largestCapacity - 1);
    capacity = std::max(capacity, std::bit_ceil(elements + 1));
  }
  auto* const array = newArray(capacity, next);
  chain_.enq(array);
  return array;
}

template <class Element, bool counted, class Traits>
U32 RQueue<Element, counted, Traits>::enq(Element const& element) {
  Element copy = element;  // it may lie in this queue
  auto* const array = arrayWithRoom();
  ::new (array->slot(array->tailOffset)) Element(std::move(copy));
  ++array->tailOffset;
  return array->tailSequence() - 1;
}

template <class Element, bool counted, class Traits>
Element RQueue<Element, counted, Traits>::deq() {
  if (empty()) return {};
  auto* const array = chain_.head();
  auto* const slot = array->slot(array->headOffset);
  Element taken = std::move(*slot);
  std::destroy_at(slot);  // what was moved from holds nothing
  ++array->headOffset;
  if (array->count() == 0) unlinkDrained(array);
  return taken;
}

template <class Element, bool counted, class Traits>
void RQueue<Element, counted, Traits>::unlinkDrained(Array* drained) {
  U32 const next = drained->headSequence();
  chain_.deq();
  if (chain_.empty()) chain_.enq(newArray(0, next));
  freeArray(drained);
}

template <class Element, bool counted, class Traits>
Element RQueue<Element, counted, Traits>::at(U32 sequence) const {
  if (!has(sequence)) return {};
  auto const* array = chain_.tail();
  if (sequenceIsBefore(sequence, array->headSequence()))
    for (array = chain_.head(); !sequenceIsBefore(sequence, array->tailSequence());)
      array = array->link_;
  return *array->slot(sequence - array->firstSequence);
}

template <class Element, bool counted, class Traits>
void RQueue<Element, counted, Traits>::doClear(Numbering numbering) {
  if (chain_.empty()) return;
  U32 const next = lastSequence() + 1;
  auto clearing = std::exchange(chain_, {});
  if (numbering == Numbering::kept) chain_.enq(newArray(0, next));
  while (!clearing.empty()) {
    auto* const array = clearing.deq();
    std::destroy_n(array->slot(array->headOffset), array->count());
    freeArray(array);
  }
}

template <class Queue>
void RQueueBaseConstIter<Queue>::toHead() {
  array_ = queue_->empty() ? nullptr : queue_->head();
  if (!array_) return;
  offset_ = array_->headOffset;
  sequence_ = array_->headSequence();
}

template <class Queue>
void RQueueBaseConstIter<Queue>::increment() {
  if (queue_->empty() || sequenceIsBefore(sequence_, queue_->firstSequence())) {
    toHead();
    return;
  }
  ++sequence_;
  if (++offset_ < array_->tailOffset) return;
  array_ = array_ == queue_->tail() ? nullptr : array_->link_;
  offset_ = array_ ? array_->headOffset : 0;
}

}  // namespace Vell
