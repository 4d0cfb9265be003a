// The directory of a keyed map: which bucket holds the keys of a hash, by linear hashing.
//
// With n buckets, a bucket's number is the low bits of its keys' hashes: one bit more for the
// buckets that were split since n was last a power of two. Going from n to n + 1 buckets splits one
// bucket, going back merges the same two.
//
// Invariants
//  1. There is at least one bucket; an empty bucket is a null pointer.
//  2. One bucket stands in the object itself; up to 512 in one array that grows by doubling; more
//     in segments of 512 slots that never move, found through an array of segment pointers. No step
//     copies more than 512 slots or one pointer per 512 buckets.
//  3. Storage is given back when at most a quarter of it is in use; a last segment when the buckets
//     end 256 slots before it, so that going to and fro at a boundary does not allocate.
//  4. Slots at and above the bucket count hold nothing.
//
// Walk order: buckets are walked in the order of their bit-reversed numbers. A scope is all
// hashes with given low bits; splitting cuts a scope into two that follow each other, merging
// joins such two. So a walk that stands between two scopes has the same hashes before and
// behind it whatever happens.
//
// Threading: none of its own; one owner.

#pragma once

#include <algorithm>
#include <bit>
#include <utility>

#include "platform/vell/Types.h"

namespace Zarn {

struct HashMap2018BucketHeader;

/// All hashes whose low `depth` bits are `prefix`. Depth 0: all hashes.
struct HashMap2018Scope {
  U32 prefix = 0;
  U32 depth = 0;

  static U32 lowBits(U32 depth) { return static_cast<U32>((U64{1} << depth) - 1); }

  bool contains(U32 hash) const { return (hash & lowBits(depth)) == prefix; }

  /// Moves to the largest scope that begins behind this one in walk order and has no hash of this
  /// one in it; returns false, with nothing changed, if this one is the last.
  bool next() {
    U32 const zeros = ~prefix & lowBits(depth);
    if (zeros == 0) return false;
    U32 const top = std::bit_floor(zeros);
    prefix = (prefix & (top - 1)) | top;
    depth = static_cast<U32>(std::bit_width(top));
    return true;
  }
};

class HashMap2018Directory {
 public:
  using Slot = HashMap2018BucketHeader*;
  static constexpr U32 segmentBits = 9;
  static constexpr U32 segmentSlots = 1u << segmentBits;

  HashMap2018Directory() = default;
  HashMap2018Directory(HashMap2018Directory&& other) noexcept { swap(other); }
  HashMap2018Directory& operator=(HashMap2018Directory&& other) noexcept {
    HashMap2018Directory(std::move(other)).swap(*this);
    return *this;
  }
  /// Frees the slots; their buckets are the owner's.
  ~HashMap2018Directory();

  void swap(HashMap2018Directory& other) noexcept {
    std::swap(root_, other.root_);
    std::swap(size_, other.size_);
    std::swap(bits_, other.bits_);
    std::swap(reservedBits_, other.reservedBits_);
  }

  /// Makes room for `buckets` slots, and keeps it however few buckets there are.
  void reserve(U32 buckets);
  /// Ends what `reserve` began, and gives back what the buckets do not need.
  void dropReservation();
  U32 reserved() const { return reservedBits_ ? 1u << reservedBits_ : 0; }

  U32 size() const { return size_; }

  Slot& slot(U32 index) {
    if (bits_ == 0) return root_.one;
    if (bits_ <= segmentBits) return root_.flat[index];
    return root_.segments[index >> segmentBits][index & (segmentSlots - 1)];
  }
  Slot slot(U32 index) const { return const_cast<HashMap2018Directory*>(this)->slot(index); }

  /// The number of the bucket whose scope contains `hash`.
  U32 indexOf(U32 hash) const {
    U32 const all = static_cast<U32>((U64{1} << std::bit_width(size_)) - 1);
    U32 const index = hash & all;
    return index < size_ ? index : index & (all >> 1);
  }
  Slot& slotOf(U32 hash) { return slot(indexOf(hash)); }
  Slot slotOf(U32 hash) const { return slot(indexOf(hash)); }

  /// The scope of the bucket whose scope contains `hash`.
  HashMap2018Scope scopeOf(U32 hash) const {
    U32 const half = std::bit_floor(size_);
    U32 const low = hash & (half - 1);
    U32 const depth = static_cast<U32>(std::bit_width(half)) - (low + half < size_ ? 0 : 1);
    return {hash & HashMap2018Scope::lowBits(depth), depth};
  }

  /// The bucket with which the last one, numbered `size() - 1`, was once one.
  U32 partnerOfLast() const { return (size_ - 1) - std::bit_floor(size_ - 1); }

  /// Adds a bucket, empty.
  void append() {
    if (size_ >= capacity()) grow();
    if (bits_ > segmentBits && size_ % segmentSlots == 0) addSegment(size_ / segmentSlots);
    slot(size_++) = nullptr;
  }
  /// Adds empty buckets until there are that many.
  void appendUpTo(U32 buckets);
  /// Takes away the last bucket, which is empty.
  void removeLast() {
    --size_;
    if (bits_ != 0) shrink();
  }

 private:
  union Root {
    Slot one = nullptr;
    Slot* flat;
    Slot** segments;
  };

  U32 capacity() const { return 1u << bits_; }
  void grow();
  void shrink();
  void shrinkSegments();
  void resizeFlat(U32 bits);
  void resizeSegments(U32 bits);
  void addSegment(U32 index);

  Root root_{};
  U32 size_ = 1;
  U8 bits_ = 0;  ///< 2^bits_ slots can be reached without a larger root
  U8 reservedBits_ = 0;
};

}  // namespace Zarn
