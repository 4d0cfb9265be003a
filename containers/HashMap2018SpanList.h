// The list of node spans from which a bucket is assembled: one span per node.
//
// Invariant: holds at most the number of nodes told at construction. Lists for buckets of usual
// length live on the stack.
//
// Threading: none of its own; a local of one operation.

#pragma once

#include <array>
#include <span>
#include <vector>

#include "containers/HashMap2018Bucket.h"

namespace Zarn {

template <class Node>
class HashMap2018SpanList {
 public:
  using Header = HashMap2018BucketHeader;
  using Span = HashMap2018NodeSpan<Node>;

  explicit HashMap2018SpanList(U32 mostNodes) {
    if (mostNodes >= usual_.size()) {
      many_.resize(mostNodes + 1);
      first_ = many_.data();
    }
  }
  HashMap2018SpanList(HashMap2018SpanList const&) = delete;
  HashMap2018SpanList& operator=(HashMap2018SpanList const&) = delete;

  /// Appends `node` if `wanted`, without a branch: what is wanted follows no pattern.
  void appendIf(bool wanted, Span const& node) {
    first_[size_] = node;
    size_ += wanted;
  }

  U32 nodes() const { return size_; }
  std::span<Span const> spans() const { return {first_, size_}; }

 private:
  std::array<Span, 16> usual_;
  std::vector<Span> many_;
  Span* first_ = usual_.data();
  U32 size_ = 0;
};

}  // namespace Zarn
