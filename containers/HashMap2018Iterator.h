// Iterators over keyed maps.
//
// HashMap2018IteratorGeneric, the safe one, may be held while the map changes in any way. Its node
// stays readable, since the iterator holds a reference on the node's bucket, which the map then
// replaces instead of changing it.
//
// Invariants of a walk with the safe iterator, whatever is inserted, deleted or replaced meanwhile
//  1. A key that is in the map during the whole walk is visited once.
//  2. No key is visited twice. A key inserted during the walk is visited at most once, a key
//     deleted before its turn not at all.
// How: the iterator walks scope after scope (see HashMap2018Directory.h), and keys in ascending
// order in a scope. While one bucket covers its scope, it goes on with that bucket's next key. When
// the scope is spread over several, it goes on with the bucket it has at hand as the list of the
// keys still to visit, so that a step never searches them all, however far the map has grown.
//
// HashMap2018UnsafeIteratorConstGeneric holds nothing and stops the process if the map changes.
//
// An iterator must not outlive its map. A destructor that runs because an iterator was the last to
// hold a bucket may call into the map.
//
// Threading: that of the map; a safe iterator counts references on its buckets.

#pragma once

#include <type_traits>
#include <utility>

#include "containers/HashMap2018.h"

namespace Zarn {

/// Selects the constructor of an iterator behind the last node.
struct EndOfCollection {};

/// One reference on a bucket, or none.
template <class Map>
class HashMap2018BucketPin {
 public:
  using Header = HashMap2018BucketHeader;

  HashMap2018BucketPin() = default;
  explicit HashMap2018BucketPin(Header* bucket) : bucket_(bucket) {
    if (bucket_) ++bucket_->references;
  }
  HashMap2018BucketPin(HashMap2018BucketPin const& other) : HashMap2018BucketPin(other.bucket_) {}
  HashMap2018BucketPin(HashMap2018BucketPin&& other) noexcept
      : bucket_(std::exchange(other.bucket_, nullptr)) {}
  HashMap2018BucketPin& operator=(HashMap2018BucketPin other) noexcept {
    std::swap(bucket_, other.bucket_);
    return *this;
  }
  ~HashMap2018BucketPin() {
    if (bucket_) Map::vt_.bktHdrRefDec(bucket_);
  }

  explicit operator bool() const { return bucket_; }
  Header* get() const { return bucket_; }
  Header* operator->() const { return bucket_; }

 private:
  Header* bucket_ = nullptr;
};

/// `MapType` may be const, for maps that are only read.
template <class MapType>
class HashMap2018IteratorGeneric {
 public:
  using Map = std::remove_const_t<MapType>;
  using Node =
      std::conditional_t<std::is_const_v<MapType>, typename Map::Node const, typename Map::Node>;
  using Key = typename Map::Key;

  /// At the first node, or at the end if there is none.
  explicit HashMap2018IteratorGeneric(MapType& map) : map_(&map) { position_ = enter({}); }
  /// At the node of `key`, or at the end if there is none.
  HashMap2018IteratorGeneric(MapType& map, Key const& key) : map_(&map) {
    U32 const hash = Map::hashOf(key);
    position_ = at(map.scopeOf(hash), map.bucketOf(hash), key, hash);
  }
  HashMap2018IteratorGeneric(MapType& map, EndOfCollection) : map_(&map) {}
  HashMap2018IteratorGeneric(HashMap2018IteratorGeneric const&) = default;
  /// Leaves `other` at the end.
  HashMap2018IteratorGeneric(HashMap2018IteratorGeneric&& other) noexcept
      : map_(other.map_), position_(std::exchange(other.position_, {})) {}
  HashMap2018IteratorGeneric& operator=(HashMap2018IteratorGeneric other) noexcept {
    std::swap(map_, other.map_);
    std::swap(position_, other.position_);
    return *this;
  }

  bool atEnd() const { return !position_.bucket; }
  explicit operator bool() const { return !atEnd(); }

  /// The node at the position as it was when the map last held it there: still readable
  /// if it has been deleted since, and perhaps with an old value. Good until the
  /// iterator moves. Not at the end.
  typename Map::Node const* currNodeMaybeStale() const {
    VELL_ASSERT(!atEnd(), "!atEnd()", "the iterator is behind the last node");
    return node();
  }
  /// The map's own node for a key that is in the map. Not at the end.
  Node* currNodeNonStale() const;

  /// Moves to the next node, also if the current one has been deleted. Not at the end.
  void advance();
  HashMap2018IteratorGeneric& operator++() {
    advance();
    return *this;
  }

  /// Both on one map, and both at the end or at the same key.
  friend bool operator==(HashMap2018IteratorGeneric const& a, HashMap2018IteratorGeneric const& b) {
    if (a.map_ != b.map_ || a.atEnd() != b.atEnd()) return false;
    return a.atEnd() || Map::vt_.keyEqualsNode(a.node()->key(), *b.node());
  }

 private:
  using Header = HashMap2018BucketHeader;
  using Scope = HashMap2018Scope;
  using Pin = HashMap2018BucketPin<Map>;
  static constexpr U32 none = ~U32{0};

  struct Position {
    Pin bucket;      ///< of the node; null at the end
    Pin toVisit;     ///< the keys of the scope when it was spread over several buckets; else null
    U32 index = 0;   ///< of the node in `bucket`
    U32 listed = 0;  ///< of the node's key in `toVisit`
    Scope scope{};
  };

  typename Map::Node const* node() const {
    return Map::Layout::nodes(position_.bucket.get()) + position_.index;
  }

  static Position at(Scope scope, Header* bucket, Key const& key, U32 hash);
  static U32 nextInScope(Header const* bucket, U32 from, Scope scope, bool bucketIsWider);
  Position enter(Scope from) const;
  Position leave(Scope scope) const;
  Position nextInCover(Header* cover, bool coverIsWider) const;
  Position nextListed(Position const& list) const;

  MapType* map_;
  Position position_;
};

/// Read-only walks over a map that does not change.
template <class MapType>
class HashMap2018UnsafeIteratorConstGeneric {
 public:
  using Map = std::remove_const_t<MapType>;
  using Node = typename Map::Node;

  /// At the first node, or at the end if there is none.
  explicit HashMap2018UnsafeIteratorConstGeneric(Map const& map)
      : hashMap_(&map), version_(map.version()), scope_(map.scopeOf(0)), bucket_(map.bucketOf(0)) {
    if (!bucket_) nextBucket();
  }

  bool atEnd() const { return !bucket_; }
  explicit operator bool() const { return !atEnd(); }

  /// The node at the position; stops the process if the map has changed. Not at the end.
  Node const* currNode() const {
    checkUnchanged();
    VELL_ASSERT(!atEnd(), "!atEnd()", "the iterator is behind the last node");
    return Map::Layout::nodes(bucket_) + index_;
  }

  /// Moves to the next node; stops the process if the map has changed. Not at the end.
  void advance() {
    checkUnchanged();
    VELL_ASSERT(!atEnd(), "!atEnd()", "the iterator is behind the last node");
    if (++index_ == bucket_->size) nextBucket();
  }
  HashMap2018UnsafeIteratorConstGeneric& operator++() {
    advance();
    return *this;
  }

 private:
  void checkUnchanged() const {
    VELL_ASSERT(version_ == hashMap_->version(), "version_ == hashMap_->version()", version_,
                " != ", hashMap_->version());
  }

  void nextBucket() {
    index_ = 0;
    do {
      if (!scope_.next()) {
        bucket_ = nullptr;
        return;
      }
      bucket_ = hashMap_->bucketOf(scope_.prefix);
      scope_ = hashMap_->scopeOf(scope_.prefix);
    } while (!bucket_);
  }

  Map const* hashMap_;
  U32 version_;
  U32 index_ = 0;
  HashMap2018Scope scope_;
  HashMap2018BucketHeader const* bucket_;
};

template <class MapType>
auto HashMap2018IteratorGeneric<MapType>::currNodeNonStale() const -> Node* {
  VELL_ASSERT(!atEnd(), "!atEnd()", "the iterator is behind the last node");
  auto const& key = node()->key();
  U32 const hash = Map::hashOf(key);
  Header* const live = map_->bucketOf(hash);
  Node* const found = live == position_.bucket.get() ? Map::Layout::nodes(live) + position_.index
                                                     : Map::find(live, key, hash);
  VELL_ASSERT(found, "the current node is in the map",
              "it was deleted since the iterator reached it");
  return found;
}

template <class MapType>
void HashMap2018IteratorGeneric<MapType>::advance() {
  VELL_ASSERT(!atEnd(), "!atEnd()", "the iterator is behind the last node");
  Scope const scope = position_.scope;
  Scope const cover = map_->scopeOf(scope.prefix);
  Position next = cover.depth <= scope.depth
                      ? nextInCover(map_->bucketOf(scope.prefix), cover.depth < scope.depth)
                      : nextListed(position_);
  if (!next.bucket) next = leave(scope);
  // What the old position holds goes last, by the destructor of `next`: it may call back.
  std::swap(position_, next);
}

/// The first position in `bucket`, from `from` on, whose key belongs to `scope`;
/// `none` if there is none.
template <class MapType>
U32 HashMap2018IteratorGeneric<MapType>::nextInScope(Header const* bucket, U32 from, Scope scope,
                                                     bool bucketIsWider) {
  for (U32 index = from; index < bucket->size; ++index) {
    auto const* const candidate = Map::Layout::nodes(bucket) + index;
    if (!bucketIsWider || scope.contains(Map::hashOf(candidate->key()))) return index;
  }
  return none;
}

template <class MapType>
auto HashMap2018IteratorGeneric<MapType>::at(Scope scope, Header* bucket, Key const& key, U32 hash)
    -> Position {
  auto const* const found = Map::find(bucket, key, hash);
  if (!found) return {};
  auto const index = static_cast<U32>(found - Map::Layout::nodes(bucket));
  return {.bucket = Pin(bucket), .toVisit = {}, .index = index, .listed = 0, .scope = scope};
}

/// The first node at or behind the start of `from`; the end if there is none.
template <class MapType>
auto HashMap2018IteratorGeneric<MapType>::enter(Scope from) const -> Position {
  do {
    Scope const cover = map_->scopeOf(from.prefix);
    bool const coverIsWider = cover.depth < from.depth;
    // A wider bucket began in a scope that has been walked: only what is in `from` is left for now.
    if (!coverIsWider) from = cover;
    Header* const bucket = map_->bucketOf(from.prefix);
    U32 const index = bucket ? nextInScope(bucket, 0, from, coverIsWider) : none;
    if (index != none)
      return {.bucket = Pin(bucket), .toVisit = {}, .index = index, .listed = 0, .scope = from};
  } while (from.next());
  return {};
}

/// The first node behind `scope`; the end if there is none.
template <class MapType>
auto HashMap2018IteratorGeneric<MapType>::leave(Scope scope) const -> Position {
  return scope.next() ? enter(scope) : Position{};
}

/// The next node of the scope in the one bucket that covers it (which may be null); else the end.
template <class MapType>
auto HashMap2018IteratorGeneric<MapType>::nextInCover(Header* cover, bool coverIsWider) const
    -> Position {
  if (!cover) return {};
  U32 const from =
      cover == position_.bucket.get() ? position_.index + 1 : Map::upperBound(cover, node()->key());
  U32 const index = nextInScope(cover, from, position_.scope, coverIsWider);
  if (index == none) return {};
  return {
      .bucket = Pin(cover), .toVisit = {}, .index = index, .listed = 0, .scope = position_.scope};
}

/// The next node of the scope, which is spread over several buckets, by the list of its keys; else
/// the end. A list that is just begun is the bucket of `list` itself.
template <class MapType>
auto HashMap2018IteratorGeneric<MapType>::nextListed(Position const& list) const -> Position {
  Pin const& keys = list.toVisit ? list.toVisit : list.bucket;
  U32 listed = list.toVisit ? list.listed : list.index;
  while ((listed = nextInScope(keys.get(), listed + 1, list.scope, true)) != none) {
    auto const* const wanted = Map::Layout::nodes(keys.get()) + listed;
    U32 const hash = Map::hashOf(wanted->key());
    Position next = at(list.scope, map_->bucketOf(hash), wanted->key(), hash);
    if (!next.bucket) continue;
    next.toVisit = keys;
    next.listed = listed;
    return next;
  }
  return {};
}

}  // namespace Zarn
