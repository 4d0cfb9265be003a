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
// `T` brings its collection of resolved values: `resolvedHas`, `resolvedRows` (the rows of a key's
// value, as a copy), `resolvedDel`, `resolvedDelAll`, and `unresolvedHas`, `unresolvedDel`.

#pragma once

#include "frame/HandleAccessor.h"

namespace Asic {

template <class T>
class BlockAccessor : public HandleAccessor<T> {
 public:
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Rows = typename T::Rows;
  using EntryHandle = typename T::EntryHandle;
  using Util = typename T::Util;

  using HandleAccessor<T>::HandleAccessor;
  using HandleAccessor<T>::cleanup;
  using typename HandleAccessor<T>::Compare;
  using AccessorBase<T>::trace;

  // Programming.

  /// Gets the key an index, writes its rows, tells its handle.
  void programHwEntry(Key const& key, SwTableBase::EntryState entryState);

  /// Deletes the rows of a key that has gone, and gives up its index.
  void removeHwEntry(Key const& key);

  // What an entry needs.

  /// Watches what the record needs, or resolves it at once.
  template <class Record>
  void initUnresolved(Record& record);
  /// Everything that the record needs is usable: fills in its indices and moves it on.
  template <class Record>
  void doResolve(Record& record);

  // Restart.

  void syncEntries() noexcept;
  /// Compares a key with what the hardware holds at its place, if that is known.
  ReconciliationStatus reconcileSyncedEntry(Key const& key);
  /// Whether the entry sits at `hwIndex`, or, for `compare` no, may be put there. If so the
  /// allocator has given it that index.
  bool reconcileUsingHwIndex(Key const& key, Index hwIndex, Compare compare);
  /// Tries the candidates of the key; the one that fitted, or the exhausted index.
  Index reconcileUsingIndexHelper(Key const& key, Compare compare);
  bool processIndexSuggestion(EntryHandle& handle, Index index);
  /// Drops the records of rows that sync had found.
  void syncedRowsDel(Index hwIndex, U32 rows);
  void handleStaleEntries() noexcept;

 private:
  using Tracker = IndexUserTracker::OpType;
  using EntryState = SwTableBase::EntryState;
  using AccessorBase<T>::swTable_;

  template <class Overtaken>
  bool writeRows(Util const& util, Key const& key, Index hwIndex, Overtaken const& isOvertaken);
  bool isValue(Key const& key, Rows const& rows) const;
  bool adoptSuggestion(EntryHandle& handle, Index index);
  void suggestIndicesToNeededTable(Rows block, Index baseIndex);
  void staleBlock(Util const& util, Index index);
  void staleRow(Util const& util, Index index);
};

}  // namespace Asic
