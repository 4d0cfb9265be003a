// The ordered map: counted members, ascending by key, in a red-black tree (containers/RbTree.h).
//
// A member is an object of its own that derives from RbTreeMember: it has its key for life, stays
// where it is in memory, and can be held beyond its time in the map.
//
// Invariants
//  1. The map holds one use of every member, from its insertion until it leaves. A member is in one
//     map at most, and an empty map owns no memory.
//  2. Before the map drops a use, it is whole again and the member has left: the end of a member
//     may look up, insert and delete in the same map, and insert the member itself anew. So may the
//     end of a member that an iterator was the last to hold.
//  3. `version()` changes with every insertion and removal, and once when the map is emptied.
//
// A walk with `Iterator`, whatever is inserted or removed meanwhile, the current member included,
// visits every member that is there throughout once, and no key twice. A member inserted meanwhile
// is visited if its key is greater than the current one; one removed before its turn is not.
//
// Iterators must not outlive the map.
//
// Threading: none of its own; one owner.

#pragma once

#include <type_traits>
#include <utility>

#include "containers/KeyTraits.h"
#include "containers/RbTree.h"
#include "platform/bruvel/Slab.h"
#include "platform/vell/Node.h"
#include "platform/vell/Ptr.h"

namespace Zarn {

/// The base of the members of an ordered map. `Derived` brings `typeData()` and the static tracker
/// `memAllocationTracker_`.
template <class Derived, class KeyType, class ValueType>
class RbTreeMember : public Vell::Node, public Bruvel::Allocated<Derived>, public RbTreeLinks {
 public:
  using Key = KeyType;
  using Value = ValueType;

  Key const& key() const { return key_; }

 protected:
  RbTreeMember(Key key, Value value) : key_(std::move(key)), value_(std::move(value)) {}

 private:
  Key const key_;  // beside the links: a search reads both

 public:
  Value value_;
};

template <class Member, class Key, class Value>
class RbTreeMap {
 public:
  class Iterator;

  static constexpr U32 versionMask = (1u << 23) - 1;

  RbTreeMap() = default;
  RbTreeMap(RbTreeMap const&) = delete;
  RbTreeMap& operator=(RbTreeMap const&) = delete;
  /// Removes all members, also those that the ends of members insert meanwhile.
  ~RbTreeMap() {
    while (count_ != 0) _memberDelAll();
  }

  /// The member of `key`, or null.
  Member* lookup(Key const& key) const;
  /// The members of the smallest and of the greatest key; null if the map is empty.
  Member* first() const { return memberOf(tree_.first()); }
  Member* last() const { return memberOf(tree_.last()); }
  /// The first member whose key is not less than `key`, or null.
  Member* lowerBound(Key const& key) const { return firstNotBelow(key, 1); }
  /// The first member whose key is greater than `key`, or null.
  Member* upperBound(Key const& key) const { return firstNotBelow(key, 0); }

  /// Inserts `member`, which is in no map and whose key is not in this one, and returns it.
  Member* memberIs(Vell::Ptr<Member> member);
  /// Removes the member of `key` and returns it with the map's use; null if there is none. `key`
  /// may lie in the member.
  Vell::Ptr<Member> memberDel(Key const& key) {
    Member* const member = lookup(key);
    return member ? takeOut(*member) : nullptr;
  }
  /// Removes `member`, which is in no other map, without a search; null if it is not in this one.
  Vell::Ptr<Member> memberDel(Member& member) {
    return member.inTree() ? takeOut(member) : nullptr;
  }
  /// Removes all members that are in the map now; members that their ends insert stay.
  void _memberDelAll();

  U32 count() const { return count_; }
  bool empty() const { return count_ == 0; }
  /// 23 bits that differ after every insertion and removal.
  U32 version() const { return static_cast<U32>(changes_) & versionMask; }

  /// Stops the process if the whole tree is not in order; for tests.
  void checkTree() const;

 private:
  using Links = RbTreeLinks;

  static Member* memberOf(Links* links) { return static_cast<Member*>(links); }
  static int compare(Key const& key, Links const& links) {
    return KeyTraits<Key>::compare(key, static_cast<Member const&>(links).key());
  }

  Member* firstNotBelow(Key const& key, int below) const;
  Vell::Ptr<Member> takeOut(Member& member);
  void checkNeighbours(Member const& member) const;

  RbTree tree_;
  U64 changes_ = 0;  ///< wide, so that no iterator takes a map of another time for unchanged
  U32 count_ = 0;
};

/// A walk in ascending order that may be held while the map changes in any way. It holds a use of
/// its member, which so stays readable when it has been removed.
template <class Member, class Key, class Value>
class RbTreeMap<Member, Key, Value>::Iterator {
 public:
  /// At the first member, or at the end if there is none.
  explicit Iterator(RbTreeMap const& map)
      : map_(&map), changes_(map.changes_), member_(map.first()) {}
  /// At the member of `key`, or at the end if there is none.
  Iterator(RbTreeMap const& map, Key const& key)
      : map_(&map), changes_(map.changes_), member_(map.lookup(key)) {}

  /// False at the end.
  explicit operator bool() const { return static_cast<bool>(member_); }

  /// The member at the position, also if it has been removed since. Not at the end.
  Member& operator*() const { return *current(); }
  Member* operator->() const { return current(); }
  Key const& key() const { return current()->key(); }

  /// Moves to the next member, also if the current one has been removed. Not at the end.
  void advance();

 private:
  Member* current() const {
    VELL_ASSERT(member_, "member_", "the iterator is behind the last member");
    return member_.get();
  }

  RbTreeMap const* map_;
  U64 changes_;               ///< of the map, when the iterator reached its member
  Vell::Ptr<Member> member_;  // last, so that an assignment is through before a member's end runs
};

template <class Member, class Key, class Value>
Member* RbTreeMap<Member, Key, Value>::lookup(Key const& key) const {
  Links* at = tree_.root();
  while (at) {
    int const order = compare(key, *at);
    if (order == 0) break;
    at = RbTree::child(*at, order > 0);
  }
  return memberOf(at);
}

/// The first member that `key` does not compare with as `below` (1 or 0) or more.
template <class Member, class Key, class Value>
Member* RbTreeMap<Member, Key, Value>::firstNotBelow(Key const& key, int below) const {
  Links* found = nullptr;
  for (Links* at = tree_.root(); at;) {
    bool const isBelow = compare(key, *at) >= below;
    if (!isBelow) found = at;
    at = RbTree::child(*at, isBelow);
  }
  return memberOf(found);
}

template <class Member, class Key, class Value>
Member* RbTreeMap<Member, Key, Value>::memberIs(Vell::Ptr<Member> member) {
  static_assert(std::is_same_v<decltype(Member::value_), Value>);
  VELL_ASSERT(member && !member->inTree(), "member && !member->inTree()",
              "a new member exists and is in no map");
  // Perhaps all members are just leaving, and this one comes back before its turn.
  if (RbTreeChain::leave(*member)) member->useDrop();
  Links* parent = nullptr;
  auto side = RbTree::left;
  for (Links* at = tree_.root(); at; at = RbTree::child(*at, side == RbTree::right)) {
    int const order = compare(member->key(), *at);
    VELL_ASSERT(order != 0, "the key of a new member is not in the map",
                "one of its members has the same key, of ", count_);
    parent = at;
    side = order > 0 ? RbTree::right : RbTree::left;
  }
  tree_.insert(*member, parent, side);
  ++count_;
  ++changes_;
  if constexpr (Vell::checksInvariants) checkNeighbours(*member);
  return member.detach();
}

template <class Member, class Key, class Value>
Vell::Ptr<Member> RbTreeMap<Member, Key, Value>::takeOut(Member& member) {
  if constexpr (Vell::checksInvariants)
    VELL_ASSERT(tree_.has(member), "tree_.has(member)", "the member is in another map");
  tree_.erase(member);
  --count_;
  ++changes_;
  Vell::Ptr<Member> removed(&member);
  member.useDrop();  // the map's own, now that `removed` holds one
  return removed;
}

template <class Member, class Key, class Value>
void RbTreeMap<Member, Key, Value>::_memberDelAll() {
  if (count_ == 0) return;
  RbTreeChain leaving(tree_);
  count_ = 0;
  ++changes_;
  while (Links* const links = leaving.takeFirst()) memberOf(links)->useDrop();
}

/// That `member` sorts between its neighbours, and that the count tells whether it is the only one.
template <class Member, class Key, class Value>
void RbTreeMap<Member, Key, Value>::checkNeighbours(Member const& member) const {
  Links const* const before = RbTree::previous(member);
  Links const* const behind = RbTree::next(member);
  VELL_ASSERT(!before || compare(member.key(), *before) > 0, "keys ascend", "at a new member");
  VELL_ASSERT(!behind || compare(member.key(), *behind) < 0, "keys ascend", "at a new member");
  VELL_ASSERT((count_ > 1) == (before || behind), "(count_ > 1) == (before || behind)", count_);
}

template <class Member, class Key, class Value>
void RbTreeMap<Member, Key, Value>::checkTree() const {
  tree_.check();
  U32 walked = 0;
  Links const* before = nullptr;
  for (Links* at = tree_.first(); at; at = RbTree::next(*at)) {
    VELL_ASSERT(RbTree::previous(*at) == before, "previous(*at) == before", walked);
    VELL_ASSERT(!before || compare(memberOf(at)->key(), *before) > 0, "keys ascend", walked);
    VELL_ASSERT(memberOf(at)->useCount() != 0, "useCount() != 0", walked);
    before = at;
    ++walked;
  }
  VELL_ASSERT(tree_.last() == before, "last() == before", walked);
  VELL_ASSERT(walked == count_, "walked == count_", walked, " != ", count_);
}

template <class Member, class Key, class Value>
void RbTreeMap<Member, Key, Value>::Iterator::advance() {
  Member const& from = *current();
  Member* const next =
      changes_ == map_->changes_ ? memberOf(RbTree::next(from)) : map_->upperBound(from.key());
  changes_ = map_->changes_;
  member_ = next;
}

}  // namespace Zarn
