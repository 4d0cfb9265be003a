#include "containers/RbTree.h"

#include <utility>

namespace Zarn {

auto RbTree::outermost(Links* node, Side side) -> Links* {
  while (node->child_[side]) node = node->child_[side];
  return node;
}

auto RbTree::neighbour(Links const& node, Side side) -> Links* {
  if (Links* const below = node.child_[side]) return outermost(below, opposite(side));
  Links const* at = &node;
  while (at->parent_ && at->parent_->child_[side] == at) at = at->parent_;
  return at->parent_;
}

/// Moves `top` down to `side`; its child on the other side takes its place.
void RbTree::rotate(Links& top, Side side) {
  Links& rising = *top.child_[opposite(side)];
  Links* const inner = rising.child_[side];
  linkTo(top) = &rising;
  rising.parent_ = top.parent_;
  rising.child_[side] = &top;
  top.parent_ = &rising;
  top.child_[opposite(side)] = inner;
  if (inner) inner->parent_ = &top;
}

void RbTree::insert(Links& node, Links* parent, Side side) {
  node.parent_ = parent;
  node.child_[left] = node.child_[right] = nullptr;
  node.state_ = State::red;
  (parent ? parent->child_[side] : root_) = &node;
  if (isRed(parent)) splitRedPair(node);
  root_->state_ = State::black;
}

/// Heals a red node `lower` below a red parent, which is not the root; may leave the root red.
void RbTree::splitRedPair(Links& lower) {
  for (Links* node = &lower; isRed(node->parent_);) {
    Links* const parent = node->parent_;
    Links* const top = parent->parent_;
    Side const side = sideOf(*parent);
    if (Links* const uncle = top->child_[opposite(side)]; isRed(uncle)) {
      parent->state_ = uncle->state_ = State::black;
      top->state_ = State::red;
      node = top;
      continue;
    }
    if (sideOf(*node) != side) rotate(*parent, side);
    top->child_[side]->state_ = State::black;
    top->state_ = State::red;
    return rotate(*top, opposite(side));
  }
}

void RbTree::erase(Links& node) {
  bool const isInner = node.child_[left] && node.child_[right];
  Links& cut = isInner ? *outermost(node.child_[right], left) : node;
  cutOut(cut);
  if (isInner) takePlace(cut, node);
  node.parent_ = node.child_[left] = node.child_[right] = nullptr;
  node.state_ = State::alone;
}

/// Takes out `node`, which has one child at most. Its own links stay as they were.
void RbTree::cutOut(Links& node) {
  Links* const parent = node.parent_;
  Links* const child = node.child_[node.child_[left] ? left : right];
  Side const side = parent ? sideOf(node) : left;
  (parent ? parent->child_[side] : root_) = child;
  if (child) {
    // An only child is red, or its side would be too high: its parent's black goes to it.
    child->parent_ = parent;
    child->state_ = State::black;
  } else if (!isRed(&node)) {
    fillUp(parent, side);
  }
}

/// Heals a tree that has one black node too few on every way through the `side` of `parent`.
void RbTree::fillUp(Links* parent, Side side) {
  while (parent) {
    Side const across = opposite(side);
    Links* sibling = parent->child_[across];
    if (isRed(sibling)) {
      rotate(*parent, side);
      sibling->state_ = State::black;
      parent->state_ = State::red;
      sibling = parent->child_[across];
    }
    if (!isRed(sibling->child_[left]) && !isRed(sibling->child_[right])) {
      sibling->state_ = State::red;
      if (std::exchange(parent->state_, State::black) == State::red) return;
      if (parent->parent_) side = sideOf(*parent);
      parent = parent->parent_;
      continue;
    }
    if (!isRed(sibling->child_[across])) {
      rotate(*sibling, across);
      sibling = sibling->parent_;
    }
    sibling->state_ = std::exchange(parent->state_, State::black);
    sibling->child_[across]->state_ = State::black;
    return rotate(*parent, side);
  }
}

/// Puts `node`, which was cut out, in the place and colour of `leaving`.
void RbTree::takePlace(Links& node, Links& leaving) {
  linkTo(leaving) = &node;
  node.parent_ = leaving.parent_;
  node.state_ = leaving.state_;
  for (Side const side : {left, right}) {
    node.child_[side] = leaving.child_[side];
    if (node.child_[side]) node.child_[side]->parent_ = &node;
  }
}

bool RbTree::has(Links const& node) const {
  if (!node.inTree()) return false;
  Links const* at = &node;
  while (at->parent_) at = at->parent_;
  return at == root_;
}

/// How many black nodes are on each way down from `node`, a child of `parent`.
U32 RbTree::checkedHeight(Links const* node, Links const* parent) {
  if (!node) return 0;
  VELL_ASSERT(node->inTree(), "node->inTree()", "a node without a colour");
  VELL_ASSERT(node->parent_ == parent, "node->parent_ == parent", "a child with another parent");
  VELL_ASSERT(!isRed(node) || !isRed(parent), "!isRed(node) || !isRed(parent)", "two in a row");
  U32 const leftHeight = checkedHeight(node->child_[left], node);
  U32 const rightHeight = checkedHeight(node->child_[right], node);
  VELL_ASSERT(leftHeight == rightHeight, "leftHeight == rightHeight", leftHeight, " and ",
              rightHeight, " black nodes");
  return leftHeight + !isRed(node);
}

void RbTree::check() const {
  VELL_ASSERT(!isRed(root_), "!isRed(root_)", "the root is red");
  checkedHeight(root_, nullptr);
}

RbTreeChain::RbTreeChain(RbTree& tree) {
  head_.child_[RbTree::left] = head_.child_[RbTree::right] = &head_;
  Links* last = &head_;
  for (Links* rest = std::exchange(tree.root_, nullptr); rest;) {
    // A left child comes up in its parent's place, once for each node: without a stack.
    if (Links* const smaller = rest->child_[RbTree::left]) {
      rest->child_[RbTree::left] = smaller->child_[RbTree::right];
      smaller->child_[RbTree::right] = rest;
      rest = smaller;
      continue;
    }
    Links* const greater = rest->child_[RbTree::right];
    rest->state_ = Links::State::chained;
    rest->parent_ = nullptr;
    rest->child_[RbTree::left] = last;
    last->child_[RbTree::right] = rest;
    last = rest;
    rest = greater;
  }
  last->child_[RbTree::right] = &head_;
  head_.child_[RbTree::left] = last;
}

auto RbTreeChain::takeFirst() -> Links* {
  Links* const first = head_.child_[RbTree::right];
  return leave(*first) ? first : nullptr;
}

bool RbTreeChain::leave(Links& node) {
  if (node.state_ != Links::State::chained) return false;
  Links* const before = node.child_[RbTree::left];
  Links* const behind = node.child_[RbTree::right];
  before->child_[RbTree::right] = behind;
  behind->child_[RbTree::left] = before;
  node.child_[RbTree::left] = node.child_[RbTree::right] = nullptr;
  node.state_ = Links::State::alone;
  return true;
}

}  // namespace Zarn
