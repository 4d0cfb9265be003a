// The balanced tree below ordered maps: red-black and intrusive, so that it allocates nothing. It
// knows neither members nor keys: who searches compares, and hands over the place that it found.
//
// Invariants
//  1. The root is black, below a red node there are only black ones, and every way from the root
//     down to a missing child has the same number of black nodes: so no way is more than twice as
//     long as another.
//  2. Insertion and removal relink nodes and never move them; next and previous nodes are reached
//     through links alone, without comparing.
//  3. A node is in one tree or one chain at most. Nodes whose tree was emptied at once wait in a
//     chain, in order, and can leave it from any place.
//  4. Nothing here recurses (but `check`, as deep as the tree is high).
//
// Threading: none of its own; one owner.

#pragma once

#include "platform/vell/Assert.h"
#include "platform/vell/Types.h"

namespace Zarn {

/// What a node needs: a base of the members of an ordered map.
struct RbTreeLinks {
  RbTreeLinks() = default;
  RbTreeLinks(RbTreeLinks const&) = delete;
  RbTreeLinks& operator=(RbTreeLinks const&) = delete;
  ~RbTreeLinks() {
    if constexpr (Vell::checksInvariants)
      VELL_ASSERT(state_ == State::alone, "state_ == State::alone", "a node dies in its tree");
  }

  bool inTree() const { return state_ == State::red || state_ == State::black; }

 private:
  friend class RbTree;
  friend class RbTreeChain;

  enum class State : U8 { alone, chained, red, black };

  RbTreeLinks* parent_ = nullptr;
  RbTreeLinks* child_[2]{};  ///< left and right; in a chain, the one before and the one behind
  State state_ = State::alone;
};

class RbTree {
 public:
  using Links = RbTreeLinks;
  enum Side : U8 { left, right };

  RbTree() = default;
  RbTree(RbTree const&) = delete;
  RbTree& operator=(RbTree const&) = delete;

  Links* root() const { return root_; }
  /// The child of `node` on the left or on the right; null if there is none.
  static Links* child(Links const& node, bool onTheRight) { return node.child_[onTheRight]; }

  /// The ends of the order, and the neighbours in it of a node in a tree; null if there is none.
  Links* first() const { return root_ ? outermost(root_, left) : nullptr; }
  Links* last() const { return root_ ? outermost(root_, right) : nullptr; }
  static Links* next(Links const& node) { return neighbour(node, right); }
  static Links* previous(Links const& node) { return neighbour(node, left); }

  /// Puts `node`, which is alone, where `parent` has no child; as the root if `parent` is null.
  void insert(Links& node, Links* parent, Side side);
  /// Takes out `node`, which is in this tree.
  void erase(Links& node);
  /// Whether `node` is in this very tree; as many steps as it is deep.
  bool has(Links const& node) const;

  /// Stops the process if links or colours break an invariant.
  void check() const;

 private:
  friend class RbTreeChain;
  using State = Links::State;

  static Side opposite(Side side) { return side == left ? right : left; }
  static bool isRed(Links const* node) { return node && node->state_ == State::red; }
  static Side sideOf(Links const& node) {
    return node.parent_->child_[right] == &node ? right : left;
  }
  static Links* outermost(Links* node, Side side);
  static Links* neighbour(Links const& node, Side side);
  static U32 checkedHeight(Links const* node, Links const* parent);

  Links*& linkTo(Links const& node) {
    return node.parent_ ? node.parent_->child_[sideOf(node)] : root_;
  }
  void rotate(Links& top, Side side);
  void splitRedPair(Links& lower);
  void cutOut(Links& node);
  void fillUp(Links* parent, Side side);
  void takePlace(Links& node, Links& leaving);

  Links* root_ = nullptr;
};

/// Nodes that left their tree together. Whoever empties a tree lets them go one after the other,
/// while the tree is in use again; one that is wanted in a tree before its turn leaves first.
class RbTreeChain {
 public:
  using Links = RbTreeLinks;

  /// Empties `tree`.
  explicit RbTreeChain(RbTree& tree);
  RbTreeChain(RbTreeChain const&) = delete;
  RbTreeChain& operator=(RbTreeChain const&) = delete;

  /// Lets the first node out; null if there is none.
  Links* takeFirst();
  /// Lets `node` out of the chain that it waits in; false if it waits in none.
  static bool leave(Links& node);

 private:
  Links head_;  ///< closes the ring
};

}  // namespace Zarn
