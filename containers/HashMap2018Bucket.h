// A bucket of a keyed map: one allocation with a header, an 8-bit tag per node, and the nodes.
//
// Invariants
//  1. Nodes 0 to size - 1 exist, in ascending key order; the slots from size to capacity are free.
//  2. Tag i comes from the hash of node i and is never 0; the tags of free slots are 0.
//  3. A bucket with more than one reference does not change its nodes' keys, number or places: the
//     map gives up its reference and goes on with a fresh copy. Values may be changed in place.
//
// Threading: none of its own; one owner.

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <span>

#include "platform/vell/Assert.h"
#include "platform/vell/Types.h"
#include "platform/zarn/AllocTrack.h"

namespace Zarn {

struct HashMap2018BucketHeader {
  static constexpr U32 maximumSize = 0xFFFF;
  static constexpr U32 tagsPerWord = 8;

  U32 references;
  U16 size;
  U16 capacity;

  /// The count of all bucket headers with their tags, of all map types.
  static AllocTrackTypeInfo& memAllocationTracker() {
    static AllocTrackTypeInfo info("Zarn::HashMap2018BucketHeader");
    return info;
  }

  static U32 tagWords(U32 capacity) { return (capacity + tagsPerWord - 1) / tagsPerWord; }

  static U8 tagOf(U32 hash) { return static_cast<U8>((hash >> 24) | (hash >> 24 == 0)); }

  U64* tags() { return reinterpret_cast<U64*>(this + 1); }
  U64 const* tags() const { return reinterpret_cast<U64 const*>(this + 1); }

  U8 tag(U32 index) const { return static_cast<U8>(tags()[index / tagsPerWord] >> shiftOf(index)); }
  /// Sets a tag that is 0.
  void tagIs(U32 index, U8 tag) { tags()[index / tagsPerWord] |= U64{tag} << shiftOf(index); }

  /// Moves the tags from `index` up by one, and sets tag `index`.
  void insertTag(U32 index, U8 tag) {
    U64* const words = tags();
    U32 word = index / tagsPerWord;
    U64 const kept = (U64{1} << shiftOf(index)) - 1;
    U64 old = words[word];
    words[word] = (old & kept) | U64{tag} << shiftOf(index) | (old & ~kept) << 8;
    for (U64 carry = old >> 56; ++word < tagWords(capacity); carry = old >> 56) {
      old = words[word];
      words[word] = old << 8 | carry;
    }
  }
  /// Moves the tags behind `index` down by one, over tag `index`.
  void removeTag(U32 index) {
    U64* const words = tags();
    U32 word = index / tagsPerWord;
    U64 const kept = (U64{1} << shiftOf(index)) - 1;
    words[word] = (words[word] & kept) | (words[word] >> 8 & ~kept);
    for (; ++word < tagWords(capacity); words[word] >>= 8) words[word - 1] |= words[word] << 56;
  }

  /// The places in word `word` that hold `tag`: the top bit of each byte that does.
  U64 matches(U32 word, U8 tag) const {
    constexpr U64 low7 = 0x7F7F7F7F7F7F7F7F;
    U64 const difference = tags()[word] ^ tag * 0x0101010101010101u;
    return ~(((difference & low7) + low7) | difference | low7);
  }
  /// The index in its word of the first place in a value of `matches`.
  static U32 firstMatch(U64 matches) { return static_cast<U32>(std::countr_zero(matches)) / 8; }

 private:
  static U32 shiftOf(U32 index) { return index % tagsPerWord * 8; }
};
static_assert(sizeof(HashMap2018BucketHeader) == sizeof(U64),
              "the tags are words that follow the header without a gap");

enum class NodeSource : U8 {
  copy,  ///< someone else still reads the nodes
  move,  ///< nobody reads them again: they may be left moved from
};

/// Nodes that lie side by side, as a source for a new bucket.
template <class Node>
struct HashMap2018NodeSpan {
  HashMap2018BucketHeader const* bucket;  ///< that holds the nodes; null if they are in none
  U32 first;                              ///< position of the first one in `bucket`
  Node* nodes;
  U32 count;
  NodeSource source;
};

/// How a bucket of `Node`s lies in memory.
template <class Node>
struct HashMap2018BucketLayout {
  using Header = HashMap2018BucketHeader;
  static_assert(alignof(Node) <= 16, "memory of the slabs is aligned to 16; such a node is not");

  /// Slots for `size` nodes and a few more, so that most insertions find one free.
  static U32 roomFor(U32 size) {
    VELL_ASSERT(size <= Header::maximumSize, "size <= maximumSize", "a bucket of ", size,
                " nodes: the hash of this key type does not spread its keys");
    U32 const step = size > 32 ? size / 8 : sizeof(Node) <= 64 ? 4 : 2;
    return std::min((size + step - 1) / step * step, Header::maximumSize);
  }

  static std::size_t headerBytes(U32 capacity) {
    std::size_t const bytes = sizeof(Header) + Header::tagWords(capacity) * sizeof(U64);
    return (bytes + alignof(Node) - 1) / alignof(Node) * alignof(Node);
  }
  static std::size_t nodeBytes(U32 capacity) { return capacity * sizeof(Node); }

  static Node* nodes(Header const* bucket) {
    auto const* const bytes = reinterpret_cast<std::byte const*>(bucket);
    return reinterpret_cast<Node*>(const_cast<std::byte*>(bytes + headerBytes(bucket->capacity)));
  }
};

}  // namespace Zarn
