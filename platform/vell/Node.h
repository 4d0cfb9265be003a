// The base of every counted object: tables, plug-in hooks, loaders, entry handles.
//
// A node carries one 32-bit word: a use count of 29 bits and three flags above it. Uses are held
// through `Vell::Ptr`.
//
// Invariants
//  1. When the count falls to 0 and `freedAtZeroFlag` is set, `lastUserGone()` runs with one use
//     held for its duration. A use taken and dropped inside it therefore cannot run
//     it a second time.
//  2. After `lastUserGone()` the node is freed only if the count is then still 0: a hook that hands
//     out a use that stays (an entry brought back for an ordered delete) keeps the node alive, and
//     the next fall to 0 runs the hook again.
//  3. A destructor clears `freedAtZeroFlag` before it lets anybody see the dying node, so that uses
//     taken and dropped meanwhile free nothing.
//  4. A constructor hands out no use of the node: the first use belongs to its maker.
//
// Threading: the count is changed atomically when `ThreadControl::tsp_` is set and
// plainly otherwise.

#pragma once

#include <atomic>

#include "platform/vell/Assert.h"
#include "platform/vell/ModuleInspectData.h"
#include "platform/vell/ThreadControl.h"
#include "platform/vell/Types.h"

namespace Vell {

class Publisher;

class Node {
 public:
  static constexpr U32 countMask = 0x1FFFFFFF;
  /// The node is freed when its count falls to 0. Set at construction, cleared by destructors.
  static constexpr U32 freedAtZeroFlag = 0x20000000;
  /// `lastUserGone` is running.
  static constexpr U32 inLastUserGoneFlag = 0x40000000;
  /// Free for the classes derived from a node.
  static constexpr U32 derivedFlag = 0x80000000;

  Node(Node const&) = delete;
  Node& operator=(Node const&) = delete;

  virtual ~Node() = default;
  /// Runs when the last use has gone (invariants 1 and 2). Must not throw: that ends the process.
  virtual void lastUserGone() {}
  /// Where the node's changes are told, or null if nobody can watch it.
  virtual Publisher* publisher() { return nullptr; }
  /// The reflection data of the node's class.
  virtual ZarnType typeData() const = 0;

  U32 useCount() const { return word_ & countMask; }
  bool nodeFlag(U32 flag) const { return (word_ & flag) != 0; }
  void nodeFlagSet(U32 flag, bool value) {
    if (ThreadControl::tsp_) [[unlikely]]
      value ? std::atomic_ref(word_).fetch_or(flag) : std::atomic_ref(word_).fetch_and(~flag);
    else
      word_ = value ? word_ | flag : word_ & ~flag;
  }

  void useTake() const {
    if (ThreadControl::tsp_) [[unlikely]] {
      std::atomic_ref(word_).fetch_add(1, std::memory_order_relaxed);
    } else {
      ++word_;
    }
  }
  void useDrop() const {
    if constexpr (checksInvariants)
      VELL_ASSERT(useCount() != 0, "useCount() != 0", "a use is dropped that nobody holds");
    if ((lessOne() & countMask) == 0) [[unlikely]]
      lastUseDropped();
  }

 protected:
  Node() = default;

 private:
  U32 lessOne() const {
    if (ThreadControl::tsp_) [[unlikely]]
      return std::atomic_ref(word_).fetch_sub(1, std::memory_order_acq_rel) - 1;
    return --word_;
  }
  void lastUseDropped() const noexcept;

  alignas(std::atomic_ref<U32>::required_alignment) mutable U32 word_ = freedAtZeroFlag;
};

}  // namespace Vell
