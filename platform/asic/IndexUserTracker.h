// Use counts of hardware indices: how many keys use an index, and how many of them with a value.
//
// A hardware table has one tracker, made on first use. A chip plug-in moves it in its hook
// `updateHwIndexRefCountTracker`, always before it touches the hardware, and seeds it during sync
// with the rows that it finds.
//
// Invariants
//  1. users >= active, for each index; an index without users is not held.
//  2. A recovered index has one use that no key has claimed. The first `userAdd` claims it and adds
//     none. Whether it is an active one is not known before its first operation tells, since a key
//     that matched its row told nothing.
//  3. A recovered index that keys claimed and gave up again takes one more `userRemove` until the
//     recovery has ended: the purge may still find its row and say so.
//  4. An operation on any other use that is not there is a fatal assertion.

#pragma once

#include <iosfwd>
#include <unordered_map>
#include <unordered_set>

#include "platform/asic/Index.h"
#include "platform/vell/Types.h"

namespace Asic {

class HwTable;

class IndexUserTracker {
 public:
  enum class OpType : U8 {
    userAdd = 0,             ///< a key with a value begins to use the index
    userActivate = 1,        ///< a key without a value gets one
    userRemove = 2,          ///< a key with a value goes
    userDeactivate = 3,      ///< a key loses its value and stays
    userRemoveInactive = 4,  ///< a key without a value goes
  };

  struct Uses {
    U32 users = 0;
    U32 active = 0;
    bool recovered = false;  ///< found, and nobody has operated on it yet
    bool found = false;      ///< recovery held a row there
  };

  void update(Index index, OpType operation);
  /// Notes that the hardware holds a row at `index` from before (invariant 2).
  void recover(Index index);
  /// An entry that was put over the recovered row at `index` has a use of its own beside the
  /// recovered one (invariant 2 took them for one): the purge is about to take that one away.
  void recoveredUseStands(Index index);
  /// The recovered use at `index`, if nobody has operated on it yet, is that of a key whose entry was
  /// found there: another `userAdd` is a use of its own.
  void recoveredUseClaimed(Index index);
  /// Nothing that was recovered will be purged any more (invariant 3).
  void recoveryEnded() {
    recovering_ = false;
    givenUp_.clear();
  }
  /// The uses of an index; none if it is not held.
  Uses uses(Index index) const;
  /// Indices in use.
  std::size_t indices() const { return uses_.size(); }

  /// The road to a hardware table's tracker for code that knows no more than the table.
  class Stub {
   public:
    /// The tracker of `hwTable`, made if there is none.
    static IndexUserTracker& tracker(HwTable& hwTable);
    /// Tells the tracker of `hwTable`, which may be null, that a recovered use stands for itself.
    static void recoveredUseStands(HwTable* hwTable, Index index);
    /// The same of a recovered use that a key has without having told it.
    static void recoveredUseClaimed(HwTable* hwTable, Index index);
    /// Tells the tracker of `hwTable`, which may be null, that the recovery has ended.
    static void recoveryEnded(HwTable* hwTable);
    /// Drops the tracker numbered `instance` of `hwTable`, which may be null; a table has one,
    /// number 0. With `keepIfUsed` it stays while an index is in use.
    static void deleteTracker(HwTable* hwTable, U32 instance, bool keepIfUsed);
  };

 private:
  std::unordered_map<U32, Uses> uses_;
  bool recovering_ = false;          ///< from the first row found to the end of the recovery
  std::unordered_set<U32> givenUp_;  ///< the indices of invariant 3
};

std::ostream& operator<<(std::ostream& out, IndexUserTracker::OpType operation);

}  // namespace Asic
