// The generic logic of every table whose entries have handles: how an entry leaves when its last
// user has gone, what the handles' hooks do, the shared allocator, and the end of the table. What an
// entry's key means in the hardware is the affair of the classes derived from this one.
//
// Of a class derived from this one it calls `programHwEntry`, `removeHwEntry`, `reconcileSyncedEntry`,
// `reconcileUsingIndexHelper`, `processIndexSuggestion`, `syncedRowsDel` and `handleStaleEntries`.
//
// Invariants
//  1. Removing an entry takes back the table's claim and no more; its rows go when the last use of
//     its handle goes, inside the call that dropped it.
//  2. An entry that is committed anew while it leaves, from a watcher of that, stays.
//  3. No walk over the handles lets one of them go before it has ended.
//  4. During replay an entry is written only where the allocator, or a candidate that another table
//     suggested, says that it was, or when no row was found at all; anything else waits for the end
//     of the replay.

#pragma once

#include "frame/AccessorBase.h"
#include "frame/Trait.h"
#include "platform/asic/GenericIndexAllocatorStub.h"
#include "platform/zarn/Optional.h"

namespace Asic {

template <class T>
class HandleAccessor : public AccessorBase<T> {
 public:
  using Key = typename T::Key;
  using EntryHandle = typename T::EntryHandle;

  using AccessorBase<T>::AccessorBase;
  using AccessorBase<T>::trace;

  // Hooks of handles.

  /// Traces a new state; a state that an entry in deletion must not fall back to stops the process.
  void handleEntryState(EntryHandle const& handle, Key const& key) const;
  /// The outcome of a write: watchers of the entry hear of it.
  void handleResolvedEntryState(EntryHandle& handle) const;
  /// The index that a dependent row must write.
  Index hwIndexForDependentField(EntryHandle const& handle) const;

  // One key.

  /// Carries a change of the key's resolved value to the hardware.
  void handleEntry(Key const& key);

  // Removal.

  /// Takes back the commit of one entry.
  void entryRemove(Key const& key);
  /// Removes an entry whose last user has gone.
  void cleanup(EntryHandle& handle);
  /// Takes back every commit.
  void entryRemoveAll();
  /// Ends the table.
  void cleanup();

  // Restart.

  /// Takes candidates for the place of the handle's entry, as values of a dependent field.
  void handleIndexSuggestions(EntryHandle& handle, IndexSet const& indices);
  /// Whether a candidate has to hold the entry already, or is overwritten.
  enum class Compare : bool { no, yes };
  void doInitComplete();

  // Indices.

  /// Joins the shared allocator of the table's kind.
  void doInitAllocator();
  /// The key's index, which may be the exhausted one. Never allocates.
  Zarn::Optional<Index> doRetrieveHwIndex(Key const& key) const;
  /// Ends a write with the handle's final state if the environment asks for that: the variable
  /// PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE is a number other than 0, as first read.
  void doCompleteEntryHandleForTesting(Key const& key);

  /// How the removal of an entry went on.
  enum class Removal {
    done,      ///< its handle is the next to go
    cameBack,  ///< a watcher of that claimed the entry
    leaves,    ///< it leaves in steps; its handle stays until the last of them
  };
  /// Removes the record and the value of the key, as `cleanup` of its handle does.
  Removal removeEntryOf(EntryHandle& handle, Key const& key);

  // What an entry needs, in tables whose entries wait for others in records.

  /// Watches an entry that the record needs, unless it is usable already.
  template <class Record>
  void watchNeeded(Record& record, SwTableBase::EntryHandle const* needed) const;
  /// The state of the record's entry when one that it needs has failed.
  template <class Record>
  void markFailedNeededEntry(Record& record) const;
  /// Tells the table of the entry that `swEntry` needs where the hardware held it, as far as
  /// `syncedEntry` says.
  template <class Entry>
  void suggestIndexToNeededTable(Entry const& swEntry, Entry const& syncedEntry) const;

 protected:
  using AccessorBase<T>::swTable_;
  using AccessorBase<T>::self;

  /// A watcher may commit once more what is going; one that never stops is at fault.
  static constexpr U32 mostCleanupWalks = 100;

  /// Binds the handle to the place where the hardware holds its entry.
  void adoptIndex(Key const& key, Index hwIndex, ReconciliationStatus status);
  /// Whether a later value than the one in hand waits: a hook of a comparison may have brought it, and the
  /// entry's state is that one's.
  bool waitsAnew(Key const& key) const;
  /// Whether sync found every row of an entry of that key at that place, and nobody has claimed one.
  bool isFoundWhole(Key const& key, Index hwIndex) const;
  /// Visits the handles that are there now; each is held while it is visited.
  template <class Visitor>
  void forEachHandle(Visitor&& visitor);

  /// The table's allocator, which must be there.
  typename T::IndexAllocator& allocator() const;
  void traceHwIndex(Index hwIndex) const {
    trace(traceKey, "traceHwIndex", " Acquired hwIndex : ", hwIndex);
  }

  /// The same of the place that the entry in hand is about to be written over (`indexReconciled`).
  bool placeWasFoundWhole_ = true;

 private:
  void replayEntry(Key const& key);
  bool awaitsIndex(EntryHandle const& handle) const;
  bool isInPlaceUntold(EntryHandle const& handle) const;
  void settleCandidates(EntryHandle& handle);
  void placeAtCandidate(EntryHandle& handle);
  void placeAtKnownIndex(EntryHandle& handle, Index hwIndex);
  void programAsAdded(Key const& key);
  static bool publishEntryHandleProgrammedState();
  /// Whether somebody holds an entry that was claimed while its removal went on.
  static bool isHeldAnew(EntryHandle& handle);
  void entryHandleRemoveAll();
  void leaveAllocator();
};

}  // namespace Asic
