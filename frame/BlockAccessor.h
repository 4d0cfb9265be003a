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
//  3. During replay an entry is written only where the allocator, or a candidate that another table
//     suggested, says that it was, or when no row was found at all; anything else waits for the end
//     of the replay.
//  4. The handle and the record of the entry in hand are held for as long as an operation calls out.
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
  using AccessorBase<T>::trace;

  // Programming.

  /// Carries a change of the key's resolved value to the hardware.
  void handleEntry(Key const& key);
  /// Gets the key an index, writes its rows, tells its handle.
  void programHwEntry(Key const& key, SwTableBase::EntryState entryState);

  // What an entry needs.

  /// Watches what the record needs, or resolves it at once.
  template <class Record>
  void initUnresolved(Record& record);
  /// Everything that the record needs is usable: fills in its indices and moves it on.
  template <class Record>
  void doResolve(Record& record);
  template <class Record>
  void markFailedNeededEntry(Record& record);

  // Restart.

  void syncEntries() noexcept;
  /// Takes candidates for the place of the handle's entry, as values of a dependent field.
  void handleIndexSuggestions(EntryHandle& handle, IndexSet const& indices);
  /// Compares a key with what the hardware holds at its place, if that is known.
  ReconciliationStatus reconcileSyncedEntry(Key const& key);
  /// Whether the entry sits at `hwIndex`, or, for `compare` no, may be put there. If so the
  /// allocator has given it that index.
  enum class Compare : bool { no, yes };
  bool reconcileUsingHwIndex(Key const& key, Index hwIndex, Compare compare);
  /// Tries the candidates of the key; the one that fitted, or the exhausted index.
  Index reconcileUsingIndexHelper(Key const& key, Compare compare);
  void doInitComplete();
  void purgeStaleEntries();

 private:
  using Tracker = IndexUserTracker::OpType;
  using EntryState = SwTableBase::EntryState;
  using AccessorBase<T>::swTable_;

  void replayEntry(Key const& key);
  void adoptIndex(Key const& key, Index hwIndex, ReconciliationStatus status);
  void removeHwEntry(Key const& key);
  void writeRows(Util const& util, Key const& key, Index hwIndex);
  void syncedRowsDel(Index hwIndex, U32 rows);
  bool processIndexSuggestion(EntryHandle& handle, Index index);
  bool adoptSuggestion(EntryHandle& handle, Index index);
  void suggestIndexToNeededTable(Rows block, Index baseIndex);
  bool awaitsIndex(EntryHandle const& handle) const;
  void settleCandidates(EntryHandle& handle);
  void placeAtCandidate(EntryHandle& handle);
  void placeAtKnownIndex(EntryHandle& handle, Index hwIndex);
  void programAsAdded(Key const& key);
  void syncedEntryRemoveAll();
  void handleStaleEntries() noexcept;
  void staleBlock(Util const& util, Index index);
  void staleRow(Util const& util, Index index);
  template <class Visitor>
  void forEachHandle(Visitor&& visitor);
};

}  // namespace Asic
