// The operations of HashMap2018 (containers/HashMap2018.h), which includes this file at its end.
//
// Wherever a bucket is replaced, the new one is in its slot before the reference on
// the old one goes.

#pragma once

#include "containers/HashMap2018.h"

namespace Zarn {

/// Asks for a cache line of `bucket`, which may be null: no harm is done then.
inline void prefetchLine(HashMap2018BucketHeader const* bucket, U32 line) {
  __builtin_prefetch(reinterpret_cast<void const*>(reinterpret_cast<std::uintptr_t>(bucket) +
                                                   std::uintptr_t{line} * 64));
}

template <class N, class Ne, NodeAllocMode m>
inline auto HashMap2018<N, Ne, m>::find(Header const* bucket, Key const& key, U32 hash) -> Node* {
  // The node often lies in the second line of the bucket: fetched while the tags are compared.
  prefetchLine(bucket, 1);
  if (!bucket) return nullptr;
  U8 const tag = Header::tagOf(hash);
  Node* nodes = Layout::nodes(bucket);
  for (U32 word = 0;;) {
    for (U64 matches = bucket->matches(word, tag); matches; matches &= matches - 1) {
      Node* const node = nodes + Header::firstMatch(matches);
      if (vt_.keyEqualsNode(key, *node)) [[likely]]
        return node;
    }
    if (++word * Header::tagsPerWord >= bucket->size) [[likely]]
      return nullptr;
    nodes += Header::tagsPerWord;
  }
}

template <class N, class Ne, NodeAllocMode m>
inline U32 HashMap2018<N, Ne, m>::upperBound(Header const* bucket, Key const& key) {
  Node const* const nodes = Layout::nodes(bucket);
  U32 from = 0;
  U32 to = bucket->size;
  while (to - from > Header::tagsPerWord) {
    U32 const middle = from + (to - from) / 2;
    (vt_.compareOrLruUnlink(key, nullptr, nodes[middle]) == 1 ? to : from) = middle;
  }
  // From behind, as `shift` will go: processors foresee the end of the second loop by the first.
  while (to != from && vt_.compareOrLruUnlink(key, nullptr, nodes[to - 1]) == 1) --to;
  return to;
}

/// Makes a bucket of the nodes of `spans`, `size` in all; a node that comes from no bucket gets
/// `newNodeTag`.
template <class N, class Ne, NodeAllocMode m>
auto HashMap2018<N, Ne, m>::assemble(U32 size, std::span<NodeSpan const> spans, U8 newNodeTag)
    -> Header* {
  Header* const bucket = emptyBucket(size);
  U32 target = 0;
  for (NodeSpan const& span : spans)
    for (U32 i = 0; i < span.count; ++i)
      bucket->tagIs(target++, span.bucket ? span.bucket->tag(span.first + i) : newNodeTag);
  vt_.newBucketAssemble(*this, bucket->capacity, Layout::nodes(bucket), spans);
  return bucket;
}

/// A bucket for `size` nodes, which do not exist yet; all tags are 0.
template <class N, class Ne, NodeAllocMode m>
auto HashMap2018<N, Ne, m>::emptyBucket(U32 size) -> Header* {
  U32 const capacity = capacityFor(size);
  std::size_t const headerBytes = Layout::headerBytes(capacity);
  void* const memory = Bruvel::slabAllocOrStdMalloc(headerBytes + Layout::nodeBytes(capacity));
  Header::memAllocationTracker().allocated(headerBytes);
  auto* const bucket = ::new (memory) Header{
      .references = 1, .size = static_cast<U16>(size), .capacity = static_cast<U16>(capacity)};
  std::fill_n(bucket->tags(), Header::tagWords(capacity), U64{0});
  return bucket;
}

template <class N, class Ne, NodeAllocMode m>
auto HashMap2018<N, Ne, m>::copyOf(Header const* bucket) -> Header* {
  Header* const copy = emptyBucket(bucket->size);
  std::copy_n(bucket->tags(), Header::tagWords(bucket->size), copy->tags());
  NodeSpan const all{bucket, 0, Layout::nodes(bucket), bucket->size, NodeSource::copy};
  vt_.newBucketAssemble(*this, copy->capacity, Layout::nodes(copy), {&all, 1});
  return copy;
}

template <class N, class Ne, NodeAllocMode m>
HashMap2018<N, Ne, m>::HashMap2018(HashMap2018 const& other) {
  if (U32 const reserved = other.directory_.reserved()) directory_.reserve(reserved);
  directory_.appendUpTo(other.directory_.size());
  for (U32 index = 0; index < directory_.size(); ++index)
    if (Header const* const bucket = other.directory_.slot(index))
      directory_.slot(index) = copyOf(bucket);
  count_ = other.count_;
}

template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::swapContents(HashMap2018& other) noexcept {
  directory_.swap(other.directory_);
  std::swap(count_, other.count_);
  changed();
  other.changed();
}

template <class N, class Ne, NodeAllocMode m>
auto HashMap2018<N, Ne, m>::newMemberG(Key const& key, U32 hash, Node&& node) -> Node* {
  if (bucketsFor(count_ + 1) > directory_.size())
    splitOne();
  else
    prefetchSplit();
  Node* const inserted = insertInto(directory_.slotOf(hash), key, hash, std::move(node));
  ++count_;
  changed();
  checkInvariants(hash);
  return inserted;
}

template <class N, class Ne, NodeAllocMode m>
auto HashMap2018<N, Ne, m>::insertInto(Header*& slot, Key const& key, U32 hash, Node&& node)
    -> Node* {
  U8 const tag = Header::tagOf(hash);
  NodeSpan const single{nullptr, 0, &node, 1, NodeSource::move};
  Header* const old = slot;
  if (!old) {
    slot = assemble(1, {&single, 1}, tag);
    return Layout::nodes(slot);
  }
  U32 const size = old->size;
  U32 const position = upperBound(old, key);
  Node* const nodes = Layout::nodes(old);
  VELL_ASSERT(position == 0 || !vt_.keyEqualsNode(key, nodes[position - 1]),
              "the key of a new member is not in the map", "member ", position - 1,
              " of a bucket of ", size, " has the same key");
  if (old->references == 1 && size < old->capacity) {
    old->insertTag(position, tag);
    vt_.shift(*this, nodes, &node, size, position, 1);
    ++old->size;
    return nodes + position;
  }
  NodeSpan const spans[]{span(old, 0, position), single, span(old, position, size)};
  slot = assemble(size + 1, spans, tag);
  vt_.bktHdrRefDec(old);
  return Layout::nodes(slot) + position;
}

template <class N, class Ne, NodeAllocMode m>
bool HashMap2018<N, Ne, m>::deleteMemberG(Key const& key, U32 hash, Node* out) {
  Header*& slot = directory_.slotOf(hash);
  Node* const node = find(slot, key, hash);
  if (!node) return false;
  auto const position = static_cast<U32>(node - Layout::nodes(slot));
  Node removed = takeOut(slot, position);
  closeGap(slot, position);
  --count_;
  changed();
  if (bucketsFor(count_) < directory_.size()) mergeOne();
  checkInvariants(hash);
  if (out) *out = std::move(removed);
  return true;
}

/// The node at `position`: moved out, or copied if an iterator may still read it there.
template <class N, class Ne, NodeAllocMode m>
auto HashMap2018<N, Ne, m>::takeOut(Header* bucket, U32 position) -> Node {
  Node& node = Layout::nodes(bucket)[position];
  if (sourceOf(bucket) == NodeSource::move) return std::move(node);
  return std::as_const(node);
}

/// Removes the node at `position`, of which a copy is held or which is moved from.
template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::closeGap(Header*& slot, U32 position) {
  Header* const old = slot;
  U32 const size = old->size;
  if (size > 1 && old->references == 1) {
    Node* const nodes = Layout::nodes(old);
    vt_.shift(*this, nodes, nullptr, size, position, -1);
    old->removeTag(position);
    --old->size;
    std::destroy_at(nodes + size - 1);
    return;
  }
  NodeSpan const spans[]{span(old, 0, position), span(old, position + 1, size)};
  slot = size > 1 ? assemble(size - 1, spans) : nullptr;
  vt_.bktHdrRefDec(old);
}

template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::splitOne() {
  directory_.append();
  U32 const last = directory_.size() - 1;
  U32 const partner = directory_.partnerOfLast();
  Header*& low = directory_.slot(partner);
  if (low) split(low, directory_.slot(last), last - partner);
}

/// Moves the nodes of `low` whose hash has `bit` to `high`, which is empty.
template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::split(Header*& low, Header*& high, U32 bit) {
  Header* const old = low;
  U32 const size = old->size;
  NodeSource const source = sourceOf(old);
  SpanList leaving(size);
  Node* const nodes = Layout::nodes(old);
  for (U32 i = 0; i < size; ++i)
    leaving.appendIf(hashOf(std::as_const(nodes[i]).key()) & bit, span(old, i, i + 1));
  U32 const staying = size - leaving.nodes();
  if (leaving.nodes() == 0) return;
  if (staying == 0) return std::swap(low, high);
  high = assemble(leaving.nodes(), leaving.spans());
  if (source == NodeSource::move && old->capacity <= 2 * Layout::roomFor(staying))
    return closeGaps(old, leaving.spans());
  low = assembleWithout(old, leaving.spans());
  vt_.bktHdrRefDec(old);
}

/// Closes the places of `gaps`, single nodes that are moved from, in `bucket`.
template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::closeGaps(Header* bucket, std::span<NodeSpan const> gaps) {
  Node* const nodes = Layout::nodes(bucket);
  auto const gapCount = static_cast<U32>(gaps.size());
  U32 const size = bucket->size - gapCount;
  for (U32 gap = 0; gap < gapCount; ++gap) {
    auto const first = gaps[gap].first;
    U32 const end = gap + 1 < gapCount ? gaps[gap + 1].first : bucket->size;
    bucket->removeTag(first - gap);
    vt_.shift(*this, nodes, nullptr, end, first - gap, -static_cast<int>(gap + 1));
  }
  std::destroy(nodes + size, nodes + bucket->size);
  bucket->size = static_cast<U16>(size);
}

/// A new bucket of the nodes of `bucket` between `gaps`.
template <class N, class Ne, NodeAllocMode m>
auto HashMap2018<N, Ne, m>::assembleWithout(Header const* bucket, std::span<NodeSpan const> gaps)
    -> Header* {
  U32 const size = bucket->size - static_cast<U32>(gaps.size());
  SpanList kept(bucket->size);
  auto gap = gaps.begin();
  for (U32 i = 0; i < bucket->size; ++i) {
    bool const isGap = gap != gaps.end() && gap->first == i;
    kept.appendIf(!isGap, span(bucket, i, i + 1));
    gap += isGap;
  }
  return assemble(size, kept.spans());
}

/// Fetches the bucket that will be split next, since it was touched long ago.
template <class N, class Ne, NodeAllocMode m>
inline void HashMap2018<N, Ne, m>::prefetchSplit() const {
  U32 const size = directory_.size();
  Header const* const next = directory_.slot(size - std::bit_floor(size));
  for (U32 line = 0; line < 3; ++line) prefetchLine(next, line);
}

template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::mergeOne() {
  Header*& low = directory_.slot(directory_.partnerOfLast());
  Header* const high = std::exchange(directory_.slot(directory_.size() - 1), nullptr);
  if (!low) {
    low = high;
  } else if (high) {
    merge(low, high);
  }
  directory_.removeLast();
}

/// Joins the nodes of `high` and `low` in key order in a new bucket in the place of `low`.
template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::merge(Header*& low, Header* high) {
  if (mergeInPlace(low, high)) return;
  Header* const old = low;
  SpanList merged(U32{old->size} + high->size);
  Node const* const lows = Layout::nodes(old);
  Node const* const highs = Layout::nodes(high);
  for (U32 a = 0, b = 0; a != old->size || b != high->size;) {
    bool const isLow =
        b == high->size ||
        (a != old->size && vt_.compareOrLruUnlink(highs[b].key(), highs + b, lows[a]) == 2);
    Header const* const from = isLow ? old : high;
    U32& next = isLow ? a : b;
    merged.appendIf(true, span(from, next, next + 1));
    ++next;
  }
  low = assemble(merged.nodes(), merged.spans());
  vt_.bktHdrRefDec(old);
  vt_.bktHdrRefDec(high);
}

/// `merge` without a new bucket, if both are the map's alone and `low` has the slots.
template <class N, class Ne, NodeAllocMode m>
bool HashMap2018<N, Ne, m>::mergeInPlace(Header* low, Header* high) {
  if (low->references > 1 || high->references > 1 || low->size + high->size > low->capacity)
    return false;
  Node* const target = Layout::nodes(low);
  Node* const source = Layout::nodes(high);
  for (U32 i = 0; i < high->size; ++i) {
    U32 const position = upperBound(low, std::as_const(source[i]).key());
    low->insertTag(position, high->tag(i));
    vt_.shift(*this, target, source + i, low->size++, position, 1);
  }
  vt_.bktHdrRefDec(high);
  return true;
}

template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::_memberDelAll() {
  if (count_ == 0) return;
  HashMap2018Directory detached;
  if (U32 const reserved = directory_.reserved()) detached.reserve(reserved);
  detached.swap(directory_);
  count_ = 0;
  changed();
  destroyBuckets(detached);
}

template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::destroyBuckets(HashMap2018Directory& detached) {
  for (U32 index = 0; index < detached.size(); ++index)
    if (Header* const bucket = detached.slot(index)) vt_.bktHdrRefDec(bucket);
}

template <class N, class Ne, NodeAllocMode m>
void HashMap2018<N, Ne, m>::emptyAllBuckets(bool last) {
  do {
    _memberDelAll();
  } while (last && count_ != 0);
  if (last) directory_.dropReservation();
}

/// In a build that checks: the number of buckets, and order and tags in the bucket of `hash`.
template <class N, class Ne, NodeAllocMode m>
inline void HashMap2018<N, Ne, m>::checkInvariants(U32 hash) const {
  if constexpr (Vell::checksInvariants) {
    VELL_ASSERT(directory_.size() >= bucketsFor(count_), "directory_.size() >= bucketsFor(count_)",
                directory_.size(), " buckets, ", count_, " keys");
    Header const* const bucket = directory_.slotOf(hash);
    for (U32 i = 0; bucket && i < bucket->size; ++i) {
      Node const* const node = Layout::nodes(bucket) + i;
      VELL_ASSERT(bucket->tag(i) == Header::tagOf(hashOf(node->key())), "tag(i) == tagOf(key)", i);
      VELL_ASSERT(i == 0 || vt_.compareOrLruUnlink(node->key(), nullptr, node[-1]) == 2,
                  "keys ascend", i);
    }
  }
}

}  // namespace Zarn
