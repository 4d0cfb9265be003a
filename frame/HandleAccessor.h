// The generic logic of every table whose entries have handles: how an entry leaves when its last
// user has gone, what the handles' hooks do, the shared allocator, and the end of the table. What an
// entry's key means in the hardware is the affair of the classes derived from this one.
//
// Invariants
//  1. Removing an entry takes back the table's claim and no more; its rows go when the last use of
//     its handle goes, inside the call that dropped it.
//  2. An entry that is committed anew while it leaves, from a watcher of that, stays.
//  3. No walk over the handles lets one of them go before it has ended.

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
  /// The index that a dependent row must write.
  Index hwIndexForDependentField(EntryHandle const& handle) const;

  // Removal.

  /// Takes back the commit of one entry.
  void entryRemove(Key const& key);
  /// Removes an entry whose last user has gone.
  void cleanup(EntryHandle& handle);
  /// Takes back every commit.
  void entryRemoveAll();
  /// Ends the table.
  void cleanup();

  // Indices.

  /// Joins the shared allocator of the table's kind.
  void doInitAllocator();
  /// The key's index, which may be the exhausted one. Never allocates.
  Zarn::Optional<Index> doRetrieveHwIndex(Key const& key) const;
  /// Ends a write with the handle's final state if the environment asks for that: the variable
  /// PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE is a number other than 0, as first read.
  void doCompleteEntryHandleForTesting(Key const& key);

 protected:
  using AccessorBase<T>::swTable_;

  /// A watcher may commit once more what is going; one that never stops is at fault.
  static constexpr U32 mostCleanupWalks = 100;

  void traceHwIndex(Index hwIndex) const {
    trace(traceKey, "traceHwIndex", " Acquired hwIndex : ", hwIndex);
  }

 private:
  static bool publishEntryHandleProgrammedState();
  void entryHandleRemoveAll();
  bool removeEntryOf(EntryHandle& handle, Key const& key);
  void leaveAllocator();
};

}  // namespace Asic
