// The generic logic of tables where a key takes one index, which an allocator gives, and where the
// hardware acknowledges each write: how an entry is written and what its handle goes through, how it
// finds its index again after a restart, and how it leaves.
//
// The states of an entry's handle (E: `entryState`, S: `resolvedEntryState`)
//
//   first write, or a changed value        E, S inProgress     the row is written
//   the allocator has no index             E, S failedNoIndex  nothing is written; the value stays
//   the row was found, and is right        E, S indexReconciled, and no write
//   the row was found, and is rewritten    E, S indexReconciled
//   the hardware acknowledges the write    E, S the outcome
//   it does, and E was reset meanwhile     S success           E stays as it is
//
// Invariants
//  1. No table stores an index of its own: each write and each delete asks the allocator afresh, so
//     that tables with the same key work at the same index.
//  2. The index tracker hears of an entry once: with its first write that has an index, unless sync
//     had found its row. It is told before the hardware is touched.
//  3. A write is not held back by an earlier one that is not acknowledged.
//  4. The row is gone before the index is free.

#pragma once

#include "frame/HandleAccessor.h"
#include "platform/asic/SwTableEntryHandle.h"

namespace Asic {

template <class T>
class GroupAccessor : public HandleAccessor<T> {
 public:
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Value = typename T::Value;
  using EntryHandle = typename T::EntryHandle;
  using Util = typename T::Util;
  using typename HandleAccessor<T>::Compare;
  using typename HandleAccessor<T>::EntryState;
  using typename HandleAccessor<T>::HandlePtr;
  using typename HandleAccessor<T>::Operation;
  using typename HandleAccessor<T>::Stage;

  using HandleAccessor<T>::HandleAccessor;
  using HandleAccessor<T>::cleanup;
  using AccessorBase<T>::trace;

  // Programming.

  /// The table shall keep the entry, or whoever holds the result. Traces as `operation`.
  HandlePtr write(std::string_view operation, Key const& key, Entry const& entry,
                  AutoRemoveType autoRemove);
  /// What commits and references have in common: classifies the handle, stores the value if it is
  /// another one, and carries it to the hardware.
  HandlePtr entryWriteHelper(Operation const& wish, Entry const& wanted);
  /// Gets the key an index and writes it: as a write of its own (`inProgress`), or over the row that
  /// the entry had before a restart (`indexReconciled`).
  template <Fennlog::Time time = Fennlog::Time::now>
  void programHwEntry(Operation& operation, Value const& value, EntryState entryState);
  /// Deletes the row of an entry whose life has ended.
  void hwTableEntryDel(Util const& util, Operation& operation, Index hwIndex,
                       EntryLife const& life);
  /// The outcome of a write, on its way from `resolvedEntryState` to `entryState`.
  void handleResolvedEntryState(EntryHandle& handle);

  // Removal.

  void deleteResolvedEntry(Key const& key);
  void removeEntryOf(Operation const& removal, EntryHandle& handle);

  // Restart.

  void syncEntries() noexcept {
    this->sync(swTable_->resolvedCount(), "!swTable_->resolvedEntrys()");
  }
  /// Compares a key with what the hardware holds at its index, if that is known.
  ReconciliationStatus reconcileSyncedEntry(Operation const& operation, Value const& value);
  /// Whether the entry sits at `hwIndex`, or, for `compare` no, may be put there. If so the allocator
  /// has given it that index.
  bool reconcileUsingHwIndex(Operation const& operation, Value const& value, Index hwIndex,
                             Compare compare);
  bool processIndexSuggestion(EntryHandle& handle, Index hwIndex);
  void syncedRowsDel(Index hwIndex, U32 rows);
  /// Settles what is open, and begins to take acknowledgements.
  void doInitComplete();
  void handleStaleEntries() noexcept;

 protected:
  using AccessorBase<T>::swTable_;
  using AccessorBase<T>::hook;
  using Tracker = IndexUserTracker::OpType;

  static Stage stageOf(AutoRemoveType autoRemove) {
    return autoRemove == AutoRemoveType::committed ? Stage::commit : Stage::reference;
  }
  /// Drops the values of the queue up to that one: what comes meanwhile, from watchers, belongs to a
  /// later write.
  static void dropPending(EntryHandle& handle, U32 last);
  void tellTracker(Util const& util, Index hwIndex, Tracker operation) const;
  void deleteRow(Util const& util, Index hwIndex);
  /// Takes out value and index of an entry, and then its handle.
  void removeAtOnce(Operation const& removal, EntryHandle& handle);

 private:
  bool wasRefused(Key const& key, EntryState outcome) const;
  void outcomeTold(Operation const& operation, EntryHandle& handle, EntryState outcome);
  void hwTableEntryIs(Util const& util, Operation& operation, Value const& value, Index hwIndex,
                      EntryHandle* handle);
  void tellWrite(Util const& util, Index hwIndex, EntryHandle* handle, bool hasValue);
  bool isFreeFor(Key const& key, Index hwIndex) const;
  bool isOwnRow(Index hwIndex) const;
};

}  // namespace Asic
