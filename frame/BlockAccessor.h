// The generic logic of tables where a key is an entry of one or more hardware rows, whose place an
// allocator gives, and which the table writes to the end by itself: how an entry waits for what it
// needs, reaches the hardware, finds its old place after a restart, and what becomes of rows that
// nobody claims.
//
// Invariants
//  1. An entry's rows are written in ascending order, the index tracker told before each, and the
//     handle told once, when the last row is written.
//  2. What reaches the hardware is the value in the resolved collection, with the indices of needed
//     entries filled in.
//  3. The handle and the record of the entry in hand are held for as long as an operation calls out.
//
// `T` brings its collection of resolved values: `resolvedHas`, `valueOf` (the rows of a key's value, as a
// copy), `resolvedDel`, `resolvedDelAll`, and, if entries wait, `unresolvedHas`, `unresolvedDel`.

#pragma once

#include "frame/HandleAccessor.h"

namespace Asic {

template <class T>
class BlockAccessor : public HandleAccessor<T> {
 public:
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Rows = typename T::Value;
  using EntryHandle = typename T::EntryHandle;
  using Util = typename T::Util;

  using HandleAccessor<T>::HandleAccessor;
  using HandleAccessor<T>::cleanup;
  using typename HandleAccessor<T>::Compare;
  using typename HandleAccessor<T>::EntryState;
  using typename HandleAccessor<T>::HandlePtr;
  using typename HandleAccessor<T>::Operation;
  using typename HandleAccessor<T>::Stage;
  using AccessorBase<T>::trace;

  // Programming.

  /// A commit or a reference of a block, whose key is its contents.
  HandlePtr write(std::string_view operation, Key const& key, Stage stage);
  /// Gets the key an index, writes its rows, tells its handle.
  template <Fennlog::Time time = Fennlog::Time::now>
  void programHwEntry(Operation& operation, Rows const& rows, EntryState entryState);
  /// Deletes the rows of an entry whose life has ended.
  void hwTableEntryDel(Util const& util, Operation& operation, Index hwIndex,
                       EntryLife const& life);

  // Removal.

  /// Removes record and value of an entry whose last user has gone, and then its handle.
  void removeEntryOf(Operation const& removal, EntryHandle& handle);
  void deleteResolvedEntry(Key const& key) { swTable_->resolvedDel(key); }

  // What an entry needs.

  /// Watches what the record needs, or resolves it at once.
  template <class Record>
  void initUnresolved(Record& record);
  /// Everything that the record needs is usable: fills in its indices and moves it on.
  template <class Record>
  void doResolve(Record& record);

  // Restart.

  void syncEntries() noexcept {
    this->sync(swTable_->resolvedCount(), "!swTable_->resolvedEntryBlocks()");
  }
  /// Compares a key with what the hardware holds at its place, if that is known.
  ReconciliationStatus reconcileSyncedEntry(Operation const& operation, Rows const& rows);
  /// Whether the entry sits at `hwIndex`, or, for `compare` no, may be put there. If so the
  /// allocator has given it that index.
  bool reconcileUsingHwIndex(Operation const& operation, Rows const& rows, Index hwIndex,
                             Compare compare);
  bool processIndexSuggestion(EntryHandle& handle, Index index);
  /// Drops the records of rows that sync had found.
  void syncedRowsDel(Index hwIndex, U32 rows);
  void handleStaleEntries() noexcept;

 private:
  using Tracker = IndexUserTracker::OpType;
  using AccessorBase<T>::swTable_;
  using AccessorBase<T>::hook;

  void writeRows(Util const& util, Operation& operation, Rows const& rows, Index hwIndex,
                 EntryHandle* handle);
  bool adoptSuggestion(EntryHandle& handle, Index index);
  void suggestIndicesToNeededTable(Rows const& rows, Index baseIndex);
  void staleBlock(Util const& util, Index index);
  void staleRow(Util const& util, Index index);
};

}  // namespace Asic
