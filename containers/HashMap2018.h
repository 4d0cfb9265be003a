// The keyed map of the tables: an unordered map by linear hashing, with small buckets that are kept
// in key order and shared with safe iterators (containers/HashMap2018Iterator.h).
//
// Invariants
//  1. The number of buckets depends on the number of keys alone (`bucketsFor`), and the order of a
//     walk on the set of keys alone, within one process: neither history nor capacity shows.
//  2. An insertion splits at most one bucket and a removal merges at most two; neither has a pause
//     that grows with the map. With the last key all memory goes back (but what the constructor was
//     told to keep). An empty map owns no memory.
//  3. Before the destructor of a removed value runs, the map is whole again: such a destructor may
//     look up, insert and delete in the same map. So may the owner of a bucket that
//     an iterator lets go.
//  4. `version()` changes with every change of the set of keys, and when all contents are replaced.
//
// A node pointer is good until the next insertion or removal. Iterators must not outlive the map.
//
// Threading: none of its own; one owner.

#pragma once

#include <algorithm>
#include <span>
#include <utility>

#include "containers/HashMap2018Directory.h"
#include "containers/HashMap2018Node.h"
#include "containers/HashMap2018SpanList.h"

namespace Zarn {

template <class NodeType, class Ne = typename NodeType::Ne,
          NodeAllocMode allocMode = NodeAllocMode::inBucket>
class HashMap2018 {
 public:
  using Node = NodeType;
  using Key = typename Node::Key;
  using Header = HashMap2018BucketHeader;
  using Layout = HashMap2018BucketLayout<Node>;
  using Hooks = HashMap2018Hooks<HashMap2018, Node>;
  static_assert(allocMode == NodeAllocMode::inBucket,
                "nodes elsewhere than in buckets do not exist");

  static constexpr U32 versionMask = (1u << 23) - 1;
  static constexpr HashMap2018Descriptor<HashMap2018, Node> vt_{
      .nodeSize = sizeof(Node),
      .bktHdrRefDec = Hooks::bktHdrRefDec,
      .keyEqualsNode = Hooks::keyEqualsNode,
      .place = Hooks::place,
      .shift = Hooks::shift,
      .newBucketAssemble = Hooks::newBucketAssemble,
      .compareOrLruUnlink = Hooks::compareOrLruUnlink,
  };

  HashMap2018() : HashMap2018(1, false) {}
  /// With `keepDirectory`, the directory for `initialSize` keys is made now and kept while the map
  /// lives, also when it is emptied; without it, `initialSize` has no effect.
  HashMap2018(U32 initialSize, bool keepDirectory) {
    if (keepDirectory) directory_.reserve(bucketsFor(initialSize));
  }
  /// A copy owns copies of all nodes.
  HashMap2018(HashMap2018 const& other);
  /// Leaves `other` empty.
  HashMap2018(HashMap2018&& other) noexcept { swapContents(other); }
  /// The old contents are destroyed last, when the new ones are in place.
  HashMap2018& operator=(HashMap2018 const& other) {
    if (this != &other) HashMap2018(other).swapContents(*this);
    return *this;
  }
  HashMap2018& operator=(HashMap2018&& other) noexcept {
    HashMap2018(std::move(other)).swapContents(*this);
    return *this;
  }
  ~HashMap2018() { emptyAllBuckets(true); }

  /// The hash under which `key` is found in maps of this type.
  static U32 hashOf(Key const& key) { return KeyTraits<Key>::hash(key, Ne::seed()); }

  /// The node of `key`, or null. `hash` is `hashOf(key)`, here and below.
  Node* lookupNodeG(Key const& key, U32 hash) { return find(directory_.slotOf(hash), key, hash); }
  Node const* lookupNodeG(Key const& key, U32 hash) const {
    return find(directory_.slotOf(hash), key, hash);
  }
  Node* lookupNodeG(Key const& key) { return lookupNodeG(key, hashOf(key)); }
  Node const* lookupNodeG(Key const& key) const { return lookupNodeG(key, hashOf(key)); }

  /// Inserts `node`, whose key is `key` and is not in the map, and returns it in its place. Neither
  /// argument may lie in the map.
  Node* newMemberG(Key const& key, U32 hash, Node&& node);
  Node* newMemberG(Key const& key, Node&& node) {
    return newMemberG(key, hashOf(key), std::move(node));
  }
  /// The node of `node`'s key; inserts `node` if there is none yet.
  Node* lookupOrNewMember(Node&& node) {
    decltype(auto) key = std::as_const(node).key();
    U32 const hash = hashOf(key);
    Node* const present = lookupNodeG(key, hash);
    return present ? present : newMemberG(key, hash, std::move(node));
  }

  /// Removes the node of `key` and moves it to `*out` (if not null); false if there is none. `key`
  /// may lie in the map, `*out` may not.
  bool deleteMemberG(Key const& key, U32 hash, Node* out);
  bool deleteMemberG(Key const& key, Node* out = nullptr) {
    return deleteMemberG(key, hashOf(key), out);
  }

  /// Removes all nodes that are in the map now; nodes that their destructors insert stay.
  void _memberDelAll();
  /// Removes all nodes. `last`: the map will not be used again, so that nodes which destructors
  /// insert are removed as well, and a kept directory goes.
  void emptyAllBuckets(bool last);

  /// Keys in the map.
  U32 count() const { return count_; }
  bool empty() const { return count_ == 0; }
  /// 23 bits that differ after every change of the set of keys.
  U32 version() const { return version_; }

  /// Buckets now; bucket `index` holds `bucketSize(index)` nodes.
  U32 bucketCount() const { return directory_.size(); }
  U32 bucketSize(U32 index) const {
    Header const* const bucket = directory_.slot(index);
    return bucket ? bucket->size : 0;
  }
  /// The nodes of bucket `index`. Maps of one type with equal keys have equal nodes in it but for
  /// their values.
  std::span<Node const> bucketNodes(U32 index) const {
    Header const* const bucket = directory_.slot(index);
    return bucket ? std::span<Node const>(Layout::nodes(bucket), bucket->size)
                  : std::span<Node const>();
  }
  /// The bucket of `hash` (null if it is empty) and its scope, for iterators.
  Header* bucketOf(U32 hash) const { return directory_.slotOf(hash); }
  HashMap2018Scope scopeOf(U32 hash) const { return directory_.scopeOf(hash); }
  /// The first position in `bucket` whose node's key is greater than `key`.
  static U32 upperBound(Header const* bucket, Key const& key);
  /// The node of `key` in `bucket` (which may be null), or null.
  static Node* find(Header const* bucket, Key const& key, U32 hash);

 private:
  using NodeSpan = HashMap2018NodeSpan<Node>;
  using SpanList = HashMap2018SpanList<Node>;

  /// Mean keys per bucket, by measurement: fewer cost directory and allocations,
  /// more cost compares.
  static constexpr U32 keysPerBucket = 3;
  /// Up to one word of tags there is one bucket; behind that, one bucket more per insertion until
  /// the mean is reached, so that no insertion splits two.
  static U32 bucketsFor(U32 count) {
    if (count <= Header::tagsPerWord) return 1;
    return std::min(count - (Header::tagsPerWord - 1), (count - 1) / keysPerBucket + 1);
  }

  /// A map of one or two keys takes no more than it needs.
  U32 capacityFor(U32 size) const {
    return size <= 2 && directory_.size() == 1 ? size : Layout::roomFor(size);
  }
  static NodeSource sourceOf(Header const* bucket) {
    return bucket->references > 1 ? NodeSource::copy : NodeSource::move;
  }
  static NodeSpan span(Header const* bucket, U32 from, U32 to) {
    return {bucket, from, Layout::nodes(bucket) + from, to - from, sourceOf(bucket)};
  }

  void changed() { version_ = (version_ + 1) & versionMask; }
  void checkInvariants(U32 hash) const;
  void swapContents(HashMap2018& other) noexcept;
  Header* assemble(U32 size, std::span<NodeSpan const> spans, U8 newNodeTag = 0);
  Header* emptyBucket(U32 size);
  Header* copyOf(Header const* bucket);
  Node* insertInto(Header*& slot, Key const& key, U32 hash, Node&& node);
  Node takeOut(Header* bucket, U32 position);
  void closeGap(Header*& slot, U32 position);
  void splitOne();
  void prefetchSplit() const;
  void split(Header*& low, Header*& high, U32 bit);
  void closeGaps(Header* bucket, std::span<NodeSpan const> gaps);
  Header* assembleWithout(Header const* bucket, std::span<NodeSpan const> gaps);
  void mergeOne();
  void merge(Header*& low, Header* high);
  bool mergeInPlace(Header* low, Header* high);
  static void destroyBuckets(HashMap2018Directory& detached);

  HashMap2018Directory directory_;
  U32 count_ = 0;
  U32 version_ = 0;
};

}  // namespace Zarn

#include "containers/HashMap2018Impl.h"
