// The generic logic of direct tables: what has to reach the hardware after a key changed, what
// becomes of the hardware's rows after a restart, and how entries leave.
//
// Invariants
//  1. Every change reaches the chip hooks inside the call that made it, unless the value did not
//     change, the hardware matches during replay, there are no chip hooks, or the key is the
//     exhausted index.
//  2. The index tracker is told before the hardware is touched.
//  3. A key's synced record goes with the key's first commit during replay.
//  4. A change that was overtaken touches the hardware no more (frame/KeyOperation.h).

#pragma once

#include "frame/AccessorBase.h"
#include "frame/KeyOperation.h"
#include "frame/Trait.h"

namespace Asic {

template <class T>
class DirectAccessor : public AccessorBase<T> {
 public:
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Value = typename T::Value;
  using Util = typename T::Util;
  using Operation = KeyOperation<T>;

  using AccessorBase<T>::AccessorBase;

  /// Carries a change of the key in `resolvedEntry`, which holds it by now, to the hardware. `value` is
  /// null if the key has gone.
  void handleEntry(Operation& operation, Value const* value) noexcept;
  /// Compares a key with what the hardware holds there.
  ReconciliationStatus reconcileSyncedEntry(Key key, Value const& value);
  /// Writes the key's value: `inProgress` as a use of its own, `indexReconciled` over a row that
  /// the tracker knows already.
  void programHwEntry(Operation& operation, Value const& value, SwTableBase::EntryState entryState);

  void syncEntries() noexcept { this->sync(swTable_->entrys(), "!swTable_->resolvedEntrys()"); }
  void autoCommitSyncedEntries();
  void handleStaleEntries() noexcept;

  /// Removes one key; `resolvedKeyPrior` is set by a look-up.
  void deleteResolvedEntry(Key key);
  void entryRemoveAll();
  /// Removes every key and drops the tracker, at the end of the table.
  void cleanup();

 private:
  using Tracker = IndexUserTracker::OpType;
  using Stage = SwTable::KeyOperation::Stage;
  using AccessorBase<T>::swTable_;
  using AccessorBase<T>::trace;

  static constexpr bool keyIsHwIndex = Trait::isKnownIndexTable<T>;

  void replayEntry(Operation& operation, Value const& value);
  void removeHwEntry(Operation& operation);
  void hwTableEntryIs(Util const& util, Operation& operation, Value const& value);
  /// False if the row is wanted again, and stays.
  bool hwTableEntryDel(Util const& util, Operation& operation);
  void traceHwIndex(Key key) const;
  /// The key names no hardware entry. Never true of a structured key.
  static bool isExhausted(Key key);
  /// The tracker operation of a write, if any.
  Zarn::Optional<Tracker> trackerOfWrite(bool hasValue) const;
};

}  // namespace Asic
