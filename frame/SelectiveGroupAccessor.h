// The generic logic of tables of groups whose rows hold the index of an entry of another table: how
// an entry waits for the one that it needs, and how it leaves without its row ever pointing at
// something gone. The rest is that of all groups (frame/GroupAccessor.h).
//
// The state of a key has six coordinates: its record (U: none, waiting), what `resolvedEntry` has of
// it (R: nothing, no value, a value), and of its handle the type (T), `entryState` (E),
// `resolvedEntryState` (S) and the queue of pending entries (Q).
//
// The way in
//
//   entryCommit, entryRef         U waiting, E unresolved         the needed entry is not usable
//   it becomes usable: doResolve  U none, R value, E, S inProgress         the row is written
//   acknowledged                  E, S success, Q empty
//
// A changed value goes the same way; what the row shows stays in R and then in Q until the write of
// the new value is acknowledged.
//
// The way out, the delete dance
//
//   entryRemove                   T referenceOnly                 the row stays while it is held
//   the last user goes: cleanup   T inDeletion, Q + value, R no value, E, S inProgress
//                                                                 the row is written without a value
//   acknowledged                  R nothing, Q empty, the handle leaves     the row is deleted
//   the handle's last use ends    cleanup once more               the handle is freed
//
// A needed entry that fails leaves E failedNeededEntry, and the entry waiting. A write that the chip
// refuses leaves E and S failedNoIndex, and Q as it is: the row shows what it did.
//
// A commit or a reference during the dance ends it: T committed or referenceOnly, and the way in
// again, over the same index if the needed entry is usable before the acknowledgement comes.
//
// Invariants
//  1. A row is written only when the needed entry is usable.
//  2. Whatever value the row may still show, R or Q holds a use of the entry that it needs.
//  3. The row is gone before the uses in Q are.

#pragma once

#include "frame/GroupAccessor.h"

namespace Asic {

template <class T>
class SelectiveGroupAccessor : public GroupAccessor<T> {
 public:
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Value = typename T::Value;
  using EntryHandle = typename T::EntryHandle;
  using UnresolvedEntry = typename T::UnresolvedEntry;
  using typename GroupAccessor<T>::EntryState;
  using typename GroupAccessor<T>::HandlePtr;
  using typename GroupAccessor<T>::Operation;
  using typename GroupAccessor<T>::Stage;

  using GroupAccessor<T>::GroupAccessor;
  using AccessorBase<T>::trace;

  // The way in.

  HandlePtr write(std::string_view operation, Key const& key, Entry const& entry,
                  AutoRemoveType keeper);
  /// The handle of a key that has an entry; without one the process stops.
  Vell::Ptr<EntryHandle> validEntryHandle(Key const& key) const;
  /// Gives the record its entry, and resolves it at once or watches what it needs.
  void initUnresolvedEntry(UnresolvedEntry& unresolved, Entry const& entry);
  void initUnresolvedEntry(UnresolvedEntry& unresolved);
  /// What the entry needs is usable: fills in its index and moves it to `resolvedEntry`.
  void doResolve(UnresolvedEntry& unresolved);
  /// The one way into `resolvedEntry`: notes what the key held, then stores.
  void setResolvedEntry(Key const& key, Value const& value);

  // The way out.

  void removeEntryOf(Operation const& removal, EntryHandle& handle);
  /// The row has been written without a value.
  void endDeleteDance(EntryHandle& handle, Key const& key);
  /// The last use of a handle has gone that is not the key's own, or not any more.
  void removeOutside(EntryHandle& handle, Key const& key);

  // Restart.

  /// A dance that begins before the replay has ended: the end of an entry is no reconciliation.
  void writeWithoutValue(Operation& operation, Value const& value);
  bool processIndexSuggestion(EntryHandle& handle, Index hwIndex);
  void purgeStaleEntries();

 private:
  friend class HandleAccessor<T>;
  using AccessorBase<T>::swTable_;

  HandlePtr writeNew(std::string_view operation, Operation const& wish, Entry const& wanted);
  HandlePtr waiting(Operation const& wish, Vell::Ptr<EntryHandle> const& held);
  HandlePtr inPlace(Operation const& wish, Vell::Ptr<EntryHandle> const& held);
  HandlePtr overtaken(Operation const& wish, Vell::Ptr<EntryHandle> const& held);
  void bind(Operation const& wish, Vell::Ptr<EntryHandle> const& handle) const;
  void formerValueCounts(EntryHandle& handle);
  void beginDeleteDance(Operation const& removal, EntryHandle& handle);
  void refusedRowsDel();
  void suggestFromSyncedRows(UnresolvedEntry const& unresolved);
};

}  // namespace Asic
