// A queue of nodes that bring their own link: circular, known by its tail alone, whose link is the
// head. `Node` has a pointer `link_`, null while it is in no queue.

#pragma once

#include <utility>

#include "platform/vell/Assert.h"

namespace Vell {

template <class Node>
class IntrusiveLinkedTailQueue {
 public:
  bool empty() const { return tail_ == nullptr; }
  /// Null if the queue is empty.
  Node* head() const { return tail_ ? tail_->link_ : nullptr; }
  Node* tail() const { return tail_; }

  void enq(Node* node) {
    VELL_ASSERT(!node->link_, "!linked()", "a node is in one queue at a time");
    node->link_ = tail_ ? tail_->link_ : node;
    if (tail_) tail_->link_ = node;
    tail_ = node;
  }
  Node* deq() {
    VELL_ASSERT(tail_ != nullptr, "tail_ != nullptr", "the queue is empty");
    auto* const node = tail_->link_;
    if (node == tail_)
      tail_ = nullptr;
    else
      tail_->link_ = node->link_;
    node->link_ = nullptr;
    return node;
  }

 private:
  Node* tail_ = nullptr;
};

}  // namespace Vell
