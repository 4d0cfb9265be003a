// Node types of keyed maps, and the hooks that one instantiation contributes to the generic map.
//
// A node type has `Key` and `Ne`, a member `key()`, and can be copied and moved; its values live by
// value in the buckets and so change their address when the map changes. Copying and moving a node
// must not throw (it would end the process). Neither that nor destroying a node that was moved from
// may call into the map; destroying a node that holds a value may.
//
// Threading: no state but the allocation trackers.

#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

#include "containers/HashMap2018Bucket.h"
#include "containers/KeyTraits.h"
#include "platform/bruvel/Slab.h"

namespace Zarn {

/// Where the seed of a map's hash comes from.
enum class MapSeed : U8 {
  ofProcess,  ///< the process's seed and the map's constant: every process walks in another order
  fixed,      ///< the constant alone: the order of a walk is the same in every process
};

/// What sets one map apart from another with the same node: a constant of its own that goes into
/// its hash, so that two maps never share an order of collisions.
template <U32 Constant, MapSeed source = MapSeed::ofProcess>
struct Hm2018NE {
  static U32 seed() {
    return source == MapSeed::fixed ? Constant : HashHelper::hashSeed32() ^ Constant;
  }
};

enum class NodeAllocMode : U8 {
  inBucket = 1,  ///< nodes lie by value, side by side, in their bucket
};

/// The usual node: the value first, the key after it.
template <class KeyType, class Value, U32 Constant, MapSeed source = MapSeed::ofProcess>
struct HN {
  using Key = KeyType;
  using Ne = Hm2018NE<Constant, source>;

  Value value_;
  Key key_;

  Key const& key() const { return key_; }
};

/// A node whose key is read out of its value by `KeyOf`, such as a counted pointer to an object
/// that holds the key. The key must not change while the node is in a map.
template <class Value, class KeyOf, U32 Constant>
struct HNKeyInValue {
  using Key = std::remove_cvref_t<std::invoke_result_t<KeyOf, Value const&>>;
  using Ne = Hm2018NE<Constant>;

  Value value_;

  decltype(auto) key() const { return KeyOf{}(value_); }
};

/// A node of a pure set.
template <class KeyType, U32 Constant>
struct HNKeyOnly {
  using Key = KeyType;
  using Ne = Hm2018NE<Constant>;

  Key key_;

  Key const& key() const { return key_; }
};

/// The descriptor of a map type: its node's size and its hooks.
template <class Map, class Node>
struct HashMap2018Descriptor {
  using Header = HashMap2018BucketHeader;
  using Key = typename Node::Key;

  std::size_t nodeSize;
  void (*bktHdrRefDec)(Header* bucket);
  bool (*keyEqualsNode)(Key const& key, Node const& node);
  void (*place)(Map& map, void* slot, Node const& source);
  void (*shift)(Map& map, Node* nodes, Node* newNode, U32 end, U32 position, int slotsToShift);
  void (*newBucketAssemble)(Map& map, U32 size, Node* newNodes,
                            std::span<HashMap2018NodeSpan<Node> const> spans);
  int (*compareOrLruUnlink)(Key const& key, Node const* second, Node const& node);
};

/// The hooks for maps of `Node`.
template <class Map, class Node>
struct HashMap2018Hooks {
  using Header = HashMap2018BucketHeader;
  using Layout = HashMap2018BucketLayout<Node>;
  using Key = typename Node::Key;
  using Traits = KeyTraits<Key>;
  static_assert(std::is_copy_constructible_v<Node>,
                "a bucket that an iterator holds is replaced by a copy, so nodes must be copyable");
  static_assert(std::is_move_assignable_v<Node>, "nodes move over one another inside a bucket");

  /// The count of all node arrays of this node type.
  static AllocTrackTypeInfo& memAllocationTracker() {
    static AllocTrackTypeInfo info(nodeTypeName());
    return info;
  }

  /// Drops one reference on `bucket`. With the last one go its nodes, whose destructors may call
  /// into any map: the caller has made sure that nothing leads to the bucket any more.
  static void bktHdrRefDec(Header* bucket) {
    if (!bktHdrRefDecHelper(bucket)) return;
    U32 const capacity = bucket->capacity;
    std::destroy_n(Layout::nodes(bucket), bucket->size);
    Header::memAllocationTracker().released(Layout::headerBytes(capacity));
    memAllocationTracker().released(Layout::nodeBytes(capacity));
    Bruvel::slabFreeOrStdFree(bucket, Layout::headerBytes(capacity) + Layout::nodeBytes(capacity));
  }

  static bool keyEqualsNode(Key const& key, Node const& node) {
    return Traits::isEq(key, node.key());
  }

  /// Constructs a copy of `source` in the free `slot`.
  static void place(Map&, void* slot, Node const& source) noexcept { ::new (slot) Node(source); }

  /// Moves nodes inside a bucket of which `end` nodes exist. -n: the nodes from `position` + n on
  /// move down to `position`; the last n are left moved from. 1: those from `position` on move up
  /// into the free slot `end`, and `*newNode` moves to `position`.
  static void shift(Map&, Node* nodes, Node* newNode, U32 end, U32 position,
                    int slotsToShift) noexcept {
    if (slotsToShift < 0) {
      U32 const from = position + static_cast<U32>(-slotsToShift);
      for (U32 source = from; source < end; ++source, ++position)
        nodes[position] = std::move(nodes[source]);
      return;
    }
    VELL_ASSERT(slotsToShift == 1, "slotsToShift == 1", slotsToShift);
    if (position == end) {
      ::new (static_cast<void*>(nodes + end)) Node(std::move(*newNode));
      return;
    }
    ::new (static_cast<void*>(nodes + end)) Node(std::move(nodes[end - 1]));
    for (U32 target = end - 1; target != position; --target)
      nodes[target] = std::move(nodes[target - 1]);
    nodes[position] = std::move(*newNode);
  }

  /// Fills the new array of `size` slots with the nodes of `spans`, in order, and counts it.
  static void newBucketAssemble(Map& map, U32 size, Node* newNodes,
                                std::span<HashMap2018NodeSpan<Node> const> spans) noexcept {
    memAllocationTracker().allocated(Layout::nodeBytes(size));
    for (auto const& span : spans) {
      if (span.source == NodeSource::move) {
        newNodes = std::uninitialized_move_n(span.nodes, span.count, newNodes).second;
        continue;
      }
      for (U32 i = 0; i < span.count; ++i, ++newNodes) place(map, newNodes, span.nodes[i]);
    }
  }

  /// Compares the key of `node` with that of `second` or, if that is null, with `key`: 0 equal, 2
  /// the node sorts first, 1 it sorts later.
  static int compareOrLruUnlink(Key const& key, Node const* second, Node const& node) {
    int const order = second ? Traits::compare(node.key(), second->key())  //
                             : Traits::compare(node.key(), key);
    return order < 0 ? 2 : order > 0;
  }

 private:
  /// Whether the reference that went was the last.
  static bool bktHdrRefDecHelper(Header* bucket) { return --bucket->references == 0; }

  /// `... [with ... Node = NAME ...]` of the compiler: static text that names the node type.
  static constexpr std::string_view nodeTypeName() {
    std::string_view const text = __PRETTY_FUNCTION__;
    std::string_view const label = "Node = ";
    std::size_t const from = text.rfind(label) + label.size();
    return text.substr(from, text.find_first_of(";]", from) - from);
  }
};

}  // namespace Zarn
