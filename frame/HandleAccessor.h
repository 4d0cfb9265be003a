// The generic logic of every table whose entries have handles: how an entry leaves when its last
// user has gone, what the handles' hooks do, where an entry goes at the end of the replay, the shared
// allocator, and the end of the table. What an entry's key means in the hardware is the affair of the
// classes derived from this one.
//
// Of a class derived from this one it calls `programHwEntry`, `hwTableEntryDel`, `reconcileSyncedEntry`,
// `reconcileUsingHwIndex`, `processIndexSuggestion`, `syncedRowsDel`, `removeEntryOf`,
// `removeOutside` and `handleStaleEntries`.
//
// Invariants
//  1. Removing an entry takes back the table's claim and no more; its rows go when the last use of
//     its handle goes, inside the call that dropped it.
//  2. An operation that called out goes on only if no newer one on its key has overtaken it
//     (frame/KeyOperation.h); an entry that is claimed while it leaves stays.
//  3. No walk over the handles lets one of them go before it has ended.
//  4. During replay an entry is written only where the allocator, or a candidate that another table
//     suggested, says that it was, or when no row was found at all; anything else waits for the end
//     of the replay.

#pragma once

#include "frame/AccessorBase.h"
#include "frame/KeyOperation.h"
#include "frame/Trait.h"
#include "platform/asic/GenericIndexAllocatorStub.h"
#include "platform/asic/SwTableEntryHandle.h"
#include "platform/zarn/Optional.h"

namespace Asic {

template <class T>
class HandleAccessor : public AccessorBase<T> {
 public:
  using Key = typename T::Key;
  using EntryHandle = typename T::EntryHandle;
  using Value = typename T::Value;
  using HandlePtr = Vell::Ptr<SwTableBase::EntryHandle const>;
  using Operation = KeyOperation<T>;
  using Stage = SwTable::KeyOperation::Stage;
  using EntryState = SwTableBase::EntryState;

  using AccessorBase<T>::AccessorBase;
  using AccessorBase<T>::trace;

  // Hooks of handles.

  /// Traces a new state; a state that an entry in deletion must not fall back to stops the process.
  void handleEntryState(EntryHandle const& handle, Key const& key) const;
  /// The outcome of a write: watchers of the entry hear of it.
  void handleResolvedEntryState(EntryHandle& handle) const;
  /// The index that a dependent row must write.
  Index hwIndexForDependentField(EntryHandle const& handle) const;

  // Wishes.

  /// A handle for a wish that came when the table was going: in no table, as is the entry.
  HandlePtr refused(std::string_view operation, Key const& key) const;
  /// The key's handle, made if there is none, with the claim of a commit or a reference on it, unless a
  /// newer operation has taken that back.
  Vell::Ptr<EntryHandle> claimedHandle(Operation const& wish) const;

  // One key.

  /// Carries a change of the key's value, which the collection holds by now, to the hardware. `value` is
  /// null if the key has gone.
  void handleEntry(Operation& operation, Value const* value);

  // Removal.

  /// Deletes the rows of a key that has gone, and gives up its index.
  void removeHwEntry(Operation& operation);
  /// Takes back the commit of one entry.
  void entryRemove(Key const& key);
  /// Removes an entry whose last user has gone.
  void cleanup(EntryHandle& handle);
  /// The last use of a handle has gone that is not the key's own, or not any more.
  void removeOutside(EntryHandle& handle, Key const& key);
  /// Takes back every commit.
  void entryRemoveAll();
  /// Ends the table.
  void cleanup();

  // Restart.

  /// Takes candidates for the place of the handle's entry, as values of a dependent field.
  void handleIndexSuggestions(EntryHandle& handle, IndexSet const& indices);
  /// Whether a candidate has to hold the entry already, or is overwritten.
  enum class Compare : bool { no, yes };
  /// Tries the candidates of the key; the one that fitted, or the exhausted index.
  Index reconcileUsingIndexHelper(Operation const& operation, Value const& value, Compare compare);
  void doInitComplete();

  // Indices.

  /// The table's allocator, which must be there.
  typename T::IndexAllocator& allocator() const;
  /// Joins the shared allocator of the table's kind.
  void doInitAllocator();
  /// The key's index, which may be the exhausted one. Never allocates.
  Zarn::Optional<Index> doRetrieveHwIndex(Key const& key) const;
  /// Gives up the index of a key that has neither a value nor a record.
  void unusedIndexDel(Key const& key);
  /// Ends a write with the handle's final state if the environment asks for that: the variable
  /// PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE is a number other than 0, as first read.
  void doCompleteEntryHandleForTesting(Key const& key);

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
  /// An entry is removed when nobody but its users holds it.
  void needReferenceOnly(EntryHandle const& handle) const;
  using AccessorBase<T>::swTable_;
  using AccessorBase<T>::self;
  using AccessorBase<T>::hook;

  /// A watcher may claim once more what is going; one that never stops is at fault.
  static constexpr U32 mostCleanupWalks = 100;

  static void claim(EntryHandle& handle, Stage wish) {
    wish == Stage::commit ? handle.committed() : void(handle.referenced());
  }
  bool isOwn(EntryHandle const& handle) const {
    return swTable_->entryHandle(handle.key()).get() == &handle;
  }

  /// Whether a value waits for what it needs: then `entryState` is that one's, whatever becomes of a
  /// former value.
  bool waits(Key const& key) const;
  /// Takes out the record of an entry that waits; an index that was only asked for ahead goes with it.
  void recordDel(Key const& key);
  void releaseIndex(Key const& key);
  /// Whether the row is by now that of an entry of this table: a hook may have freed the index, through
  /// another table too, and brought an entry there.
  bool isRowTaken(Index row) const;
  /// Whether the key, which has an index, has its rows there: where an entry was never written, they are
  /// what they were before.
  bool isWritten(Key const& key) const;

  /// Which rows sync found of an entry of that key at that place, and nobody has claimed.
  EntryLife::Found foundRows(Key const& key, Index hwIndex) const;
  /// Notes on the handle that the entry is where sync found its rows; first of all, before anybody hears
  /// of it.
  void placeIs(EntryHandle& handle, EntryLife::Found found, ReconciliationStatus status) const;
  void placeTold(EntryHandle& handle, Index hwIndex) const;
  /// Ends the life of an entry whose rows are about to go, and gives what was known of it; whoever brings
  /// it back finds the handle as new.
  EntryLife endLife(Key const& key, Index hwIndex) const;
  /// Binds the handle to the place where the hardware holds its entry.
  void adoptIndex(Operation& operation, Index hwIndex, ReconciliationStatus status);
  /// Tells that the entry is where it was before the restart.
  void tellReconciled(Operation& operation, EntryHandle& handle);
  /// Visits the handles that are there now; each is held while it is visited.
  template <class Visitor>
  void forEachHandle(Visitor&& visitor);

  void traceHwIndex(Index hwIndex) const {
    trace(traceKey, "traceHwIndex", " Acquired hwIndex : ", hwIndex);
  }

 private:
  void replayEntry(Operation& operation, Value const& value);
  void waitForPlace(Key const& key, Index hwIndex) const;
  bool awaitsIndex(EntryHandle const& handle) const;
  bool isInPlaceUntold(EntryHandle const& handle) const;
  void settleCandidates(EntryHandle& handle);
  void placeAtCandidate(Operation& operation, EntryHandle& handle, Value const& value);
  void placeAtKnownIndex(Operation& operation, EntryHandle& handle, Value const& value,
                         Index hwIndex);
  void programAsAdded(Operation& operation, Value const& value);
  static bool publishEntryHandleProgrammedState();
  void tellRemove(Key const& key, EntryHandle const* handle) const;
  void tellCleanup(EntryHandle const& handle, Key const& key) const;
  static bool isHeldAnew(EntryHandle& handle);
  void entryHandleRemoveAll();
  void leaveAllocator();
};

}  // namespace Asic
