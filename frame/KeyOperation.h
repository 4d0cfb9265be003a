// The one rule for what comes back.
//
// Watchers, chip hooks, trace sinks and the last drop of a handle run inside operations, and may
// commit, reference or remove the very key that the operation is about. So every operation on a key
// stands in a `KeyOperation`, which names the key and what it does about it. One that begins marks
// those in progress on the same key that it overtakes (`SwTable::KeyOperation::overtakes` is the whole
// table of that). An operation that has called out asks `isOvertaken()`, and stops if so: the newer one
// has carried the key to where it is to be.
//
// What others do without an operation on the key in this table (an index that goes to another key, a row
// that another table takes over) is asked of the allocator: `HandleAccessor::isRowTaken`.
//
// It costs an entry nothing, and an operation that no other runs inside of a few words on the stack.
//
// Threading: the thread of the owning agent.

#pragma once

#include "platform/asic/SwTable.h"
#include "platform/vell/Assert.h"
#include "platform/zarn/Optional.h"

namespace Asic {

template <class T>
class KeyOperation final : public SwTable::KeyOperation {
 public:
  using Key = typename T::Key;

  KeyOperation(T& table, Key const& key, Stage stage)
      : SwTable::KeyOperation(table, stage), key_(key) {
    for (auto* at = outer(); at;) {
      auto& older = *static_cast<KeyOperation*>(at);
      at = older.outer();
      if (!(older.key_ == key_)) continue;
      VELL_ASSERT(!this->isTold(older), "!isTold( older )", T::names.qualified,
                  ": a reader of traces must leave alone the entry that its line is about");
      if (stage == Stage::programming && !tookOver_ && older.tracked_) {
        tracked_ = std::exchange(older.tracked_, {});
        tookOver_ = true;
      }
      older.overtakenBy(stage);
    }
  }

  Key const& key() const { return key_; }

  // What the index tracker knows of the key, in tables that have no handle to note it on. A change that
  // overtakes one of which the tracker has not been told yet goes on from where the tracker stands.

  /// What the tracker knows: what the key held before this change, or before the one that it overtook.
  SwTable::KeyPrior trackedPrior(SwTable::KeyPrior prior) {
    if (!tracked_) tracked_ = prior;
    return *tracked_;
  }
  /// Whether the change that this one overtook would have been the first that the tracker heard of.
  bool overtookTheFirst() const { return tookOver_ && tracked_ == SwTable::KeyPrior::noKey; }
  /// Whether it goes on from where the tracker stands.
  bool tookOver() const { return tookOver_; }
  /// The tracker knows of the key so far.
  void trackerKnows(SwTable::KeyPrior prior) { tracked_ = prior; }
  /// The tracker knows what it is to know of this change.
  void trackerKnows() {
    tracked_ = {};
    tookOver_ = false;
  }

 private:
  Key const key_;                              ///< a copy: what it was taken from may go
  Zarn::Optional<SwTable::KeyPrior> tracked_;  ///< empty once the tracker knows of this change
  bool tookOver_ = false;
};

}  // namespace Asic
