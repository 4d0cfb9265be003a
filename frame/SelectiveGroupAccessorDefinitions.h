// The operations of the generic logic of groups that stand on entries of other tables. Included by
// the sources that instantiate tables.

#pragma once

#include "frame/GroupAccessorDefinitions.h"
#include "frame/SelectiveGroupAccessor.h"

namespace Asic {

// ---- the way in ----

template <class T>
auto SelectiveGroupAccessor<T>::write(std::string_view operation, Key const& key,
                                      Entry const& entry, AutoRemoveType keeper) -> HandlePtr {
  static_cast<void>(this->allocator());  // from the start to the end of the table's life
  if (auto handle = existing(operation, key, entry, keeper)) return handle;
  Entry const wanted = entry;  // it may lie in what a watcher is about to change
  for (U32 attempts = 0;; ++attempts) {
    VELL_ASSERT(attempts < this->mostCleanupWalks, "attempts < mostCleanupWalks",
                T::names.qualified, ": its watchers write the key without end while it is written");
    if (swTable_->unresolvedHas(key)) {
      trace(traceClient, operation,
            " : Deleting existing unresolved entry at key : ", T::keyText(key));
      swTable_->unresolvedDel(key);
      if (auto handle = existing(operation, key, wanted, keeper)) return handle;
      if (swTable_->unresolvedHas(key)) continue;  // a watcher of that wrote the key
    }
    if (keeper == AutoRemoveType::committed)
      trace(traceClient, operation, " : Writing new entry at key: ", T::keyText(key));
    else
      trace(traceClient, operation, " : Writing new entry at key: ", T::keyText(key),
            ", entry:", wanted);
    Vell::Ptr<EntryHandle> const handle = swTable_->entryHandleIs(key, swTable_);
    keeper == AutoRemoveType::committed ? handle->committed() : void(handle->referenced());
    handle->entryStateIs(EntryState::unresolved);
    if (mayHaveCalledOut(*handle)) {
      if (auto written = existing(operation, key, wanted, keeper)) return written;
      if (swTable_->unresolvedHas(key) || handle->entryState() != EntryState::unresolved) continue;
    }
    auto const claims = handle->claims();
    auto const unresolved = swTable_->unresolvedIs(key);
    if (unresolved->swTable())
      initUnresolvedEntry(*unresolved, wanted);
    else if (handle->claims() != claims)
      continue;  // a watcher of the record itself wrote the key
    return handle;
  }
}

/// Whether anybody could have heard of a change of the handle.
template <class T>
bool SelectiveGroupAccessor<T>::mayHaveCalledOut(EntryHandle& handle) const {
  return handle.publisher()->hasWatchers() ||
         static_cast<SwTable&>(*swTable_).publisher()->hasWatchers();
}

/// The handle of a key that waits with just that entry, or has it and waits with none; else null.
template <class T>
auto SelectiveGroupAccessor<T>::existing(std::string_view operation, Key const& key,
                                         Entry const& entry, AutoRemoveType keeper) -> HandlePtr {
  if (auto const unresolved = swTable_->unresolved(key)) {
    if (!(unresolved->entry() == entry)) return nullptr;
    trace(traceClient, operation, " : Found existing unresolved entry at key : ", T::keyText(key),
          ", entry : ", entry);
    auto const handle = boundHandle(key);
    if (handle && keeper == AutoRemoveType::committed) handle->committed();
    return handle;
  }
  if (!swTable_->isValue(key, entry)) return nullptr;
  trace(traceClient, operation,
        " : Found already existing resolved entry at key : ", T::keyText(key), ", entry : ", entry);
  auto const handle = boundHandle(key);
  if (!handle) return nullptr;
  keeper == AutoRemoveType::committed ? handle->committed() : void(handle->referenced());
  handle->entryStateIs(handle->resolvedEntryState());
  return handle;
}

/// The handle of a key that has an entry. One that was about to leave stays; null if a watcher of that
/// claimed the entry.
template <class T>
auto SelectiveGroupAccessor<T>::boundHandle(Key const& key) const -> Vell::Ptr<EntryHandle> {
  auto const handle = validEntryHandle(key);
  auto const claims = handle->claims();
  if (!handle->swTable()) handle->swTableIs(swTable_);
  return handle->claims() == claims ? handle : nullptr;
}

template <class T>
auto SelectiveGroupAccessor<T>::validEntryHandle(Key const& key) const -> Vell::Ptr<EntryHandle> {
  auto eh = swTable_->entryHandle(key);
  VELL_ASSERT(eh, "eh", "expect a valid entryHandle, key: ", T::keyText(key));
  return eh;
}

template <class T>
void SelectiveGroupAccessor<T>::initUnresolvedEntry(UnresolvedEntry& unresolved,
                                                    Entry const& entry) {
  this->template message<"initUnresolvedEntry">();
  trace(traceLife, "initUnresolvedEntry", ": key:", T::keyText(unresolved.key()));
  unresolved.entryIs(entry);
  initUnresolvedEntry(unresolved);
}

template <class T>
void SelectiveGroupAccessor<T>::initUnresolvedEntry(UnresolvedEntry& unresolved) {
  Vell::Ptr<UnresolvedEntry> const held(&unresolved);
  this->watchNeeded(unresolved, unresolved.entry().neededEntryHandle().get());
  if (unresolved.neededEntryHandleSms() == 0) return doResolve(unresolved);
  // One that failed before the watch began will not fail again, and has no place to be told of.
  if (unresolved.neededEntryHasFailed()) return this->markFailedNeededEntry(unresolved);
  if (!swTable_->configReplayComplete()) suggestFromSyncedRows(unresolved);
}

/// Where the key lay before the restart, or may have lain, its row says where the needed entry lay.
template <class T>
void SelectiveGroupAccessor<T>::suggestFromSyncedRows(UnresolvedEntry const& unresolved) {
  auto const key = unresolved.key();
  auto const entry = unresolved.entry();
  if (auto const hwIndex = this->doRetrieveHwIndex(key).value(); !hwIndex.isExhausted()) {
    if (auto const synced = swTable_->syncedEntryGet(hwIndex))
      this->suggestIndexToNeededTable(entry, *synced);
    return;
  }
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  auto const helper = handle ? swTable_->indexHelper(*handle) : nullptr;
  if (!helper) return;
  for (Zarn::HashMap2018IteratorGeneric at(helper->indices()); at; at.advance()) {
    Index const candidate = at.currNodeMaybeStale()->key().value();
    if (auto const synced = swTable_->syncedEntryGet(candidate))
      this->suggestIndexToNeededTable(entry, *synced);
    else
      helper->indexDel(candidate);
    if (!unresolved.swTable()) return;  // what was suggested resolved it
  }
}

template <class T>
void SelectiveGroupAccessor<T>::doResolve(UnresolvedEntry& unresolved) {
  VELL_ASSERT(unresolved.neededEntryHandleSms() == 0, "ue->neededEntryHandleSms() == 0",
              "function should not have been called ", static_cast<void const*>(&unresolved));
  this->template message<"doResolve">();
  Vell::Ptr<UnresolvedEntry> const held(&unresolved);
  auto const key = unresolved.key();
  auto const handle = validEntryHandle(key);
  // What the hardware still shows needs what it points at until the next write is acknowledged.
  if (auto const shown = swTable_->resolvedEntry(key);
      shown && static_cast<bool>(*shown) &&
      handle->resolvedEntryState() != EntryState::unresolved) {
    handle->pendingEntryEnq(*shown);
    if (!unresolved.swTable()) return;  // a watcher dropped it, or wrote another one
  }
  auto entry = unresolved.entry();
  if (auto const& needed = entry.neededEntryHandle()) {
    entry.neededIndexIs(SwTableBase::getHwIndexForDependentField(*needed));
    if (!unresolved.swTable()) return;  // a hook of the needed table did
    unresolved.entryIs(entry);
  }
  trace(traceLife, "doResolve", ": key:", T::keyText(key));
  setResolvedEntry(key, entry);
  if (unresolved.swTable()) swTable_->unresolvedDel(key);  // else another one has its place
}

template <class T>
void SelectiveGroupAccessor<T>::setResolvedEntry(Key const& key,
                                                 Zarn::Optional<Entry> const& value) {
  auto prior = swTable_->keyPrior(key);
  // A value that found no index never reached the hardware.
  if (prior == SwTable::KeyPrior::value &&
      validEntryHandle(key)->resolvedEntryState() == EntryState::failedNoIndex)
    prior = SwTable::KeyPrior::noKey;
  swTable_->resolvedKeyPriorIs(prior);
  swTable_->resolvedEntryIs(key, value);
}

// ---- the way out ----

template <class T>
auto SelectiveGroupAccessor<T>::removeEntryOf(EntryHandle& handle, Key const& key) -> Removal {
  using enum SwTableBase::EntryType;
  using enum SwTableBase::EntryState;
  auto const claims = handle.claims();
  auto const isClaimed = [&] { return handle.claims() != claims; };
  swTable_->unresolvedDel(key);
  if (isClaimed()) return Removal::cameBack;
  if (!swTable_->configReplayComplete() && handle.resolvedEntryState() == unresolved)
    return this->removeAtOnce(handle, key);  // nothing was written
  VELL_ASSERT(handle.entryType() == referenceOnly,
              "eh->entryType() == EntryHandle::referenceOnly()", "unexpected entryType ",
              handle.entryType(), " of ", T::names.qualified, " key ", T::keyText(key));
  if (auto const value = swTable_->resolvedEntry(key)) {
    handle.pendingEntryEnq(*value);
    if (isClaimed()) return Removal::cameBack;
  }
  if (handle.pendingEntry().empty() || !T::isInHwTable(handle))
    return this->removeAtOnce(handle, key);
  trace(traceLife, "cleanup", " begin delete dance, key : ", T::keyText(key));
  handle.doAmendReferences();
  handle.entryTypeIs(inDeletion);
  handle.entryStateIs(unresolved);
  if (isClaimed()) return Removal::cameBack;
  if (swTable_->hasValue(key)) {
    setResolvedEntry(key, {});
  } else {  // the write without a value is under way, from before the entry came back and went again
    VELL_ASSERT(handle.resolvedEntryState() == inProgress,
                "eh->resolvedEntryState() == inProgress()", T::names.qualified, " key ",
                T::keyText(key), " state ", handle.resolvedEntryState());
    handle.entryStateIs(inProgress);
  }
  return isClaimed() ? Removal::cameBack : Removal::leaves;
}

template <class T>
void SelectiveGroupAccessor<T>::endDeleteDance(EntryHandle& handle, Key const& key,
                                               EntryState stateBefore) {
  SwTable::OperationScope const scope(*swTable_);  // it may come in the midst of another operation
  auto const lastFormer = handle.pendingEntry().lastSequence();
  // The row goes before what it pointed at can.
  this->deleteResolvedEntry(key);
  this->dropPending(handle, lastFormer);
  // Else a commit or a reference has claimed it.
  if (stateBefore == EntryState::inProgress &&
      handle.entryType() == SwTableBase::EntryType::inDeletion)
    swTable_->entryHandleDel(key);
}

template <class T>
void SelectiveGroupAccessor<T>::handleOutsideGone(EntryHandle& handle, Key const& key) {
  using enum SwTableBase::EntryType;
  bool const keyHasHandle = swTable_->entryHandle(key) != nullptr;
  switch (handle.entryType()) {
    case inDeletion:
      trace(traceLife, "cleanup", " delete dance complete, key : ", T::keyText(key));
      swTable_->leaverForget(handle);
      return;
    case unset:
      VELL_ASSERT(!keyHasHandle, "!swTable_->entryHandleHas( key )", T::names.qualified, " key ",
                  T::keyText(key));
      this->deleteResolvedEntry(key);
      return;
    case referenceOnly:
      VELL_ASSERT(keyHasHandle, "swTable_->entryHandleHas( key )", T::names.qualified, " key ",
                  T::keyText(key));
      return;  // that one has the entry
    default:
      VELL_ASSERT(false, "0", T::names.qualified, ": a handle of type ", handle.entryType(),
                  " that is not in the table lost its last use, key ", T::keyText(key));
  }
}

// ---- restart ----

template <class T>
void SelectiveGroupAccessor<T>::writeWithoutValue(Key const& key) {
  auto const hwIndex = this->doRetrieveHwIndex(key).value();
  this->programHwEntry(key, EntryState::inProgress);
  if (!hwIndex.isExhausted()) swTable_->syncedEntryDel(hwIndex);  // the row is the key's now
}

template <class T>
bool SelectiveGroupAccessor<T>::processIndexSuggestion(EntryHandle& handle, Index hwIndex) {
  auto const key = handle.key();
  // An entry that waits has nothing to compare yet; the candidate stays for when it has.
  if (auto const unresolved = swTable_->unresolved(key))
    this->suggestIndexToNeededTable(unresolved->entry(), swTable_->syncedEntry(hwIndex));
  return swTable_->hasValue(key) && GroupAccessor<T>::processIndexSuggestion(handle, hwIndex);
}

template <class T>
void SelectiveGroupAccessor<T>::purgeStaleEntries() {
  refusedRowsDel();
  GroupAccessor<T>::purgeStaleEntries();
}

/// Rows that sync found, and where the chip refused what is wanted: they show what an earlier life put
/// there, and may point at rows that nobody claims and that are about to go.
template <class T>
void SelectiveGroupAccessor<T>::refusedRowsDel() {
  auto const util = this->utilIfExists();
  if (!util) return;
  this->forEachHandle([&](EntryHandle& handle) {
    auto const hwIndex = this->doRetrieveHwIndex(handle.key()).value();
    if (handle.resolvedEntryState() != EntryState::failedNoIndex || hwIndex.isExhausted() ||
        !handle.isOverFoundRow())
      return;
    handle.overFoundRowIs(false);
    trace(traceKey, "purgeStaleEntries", ": Deleting refused hwEntry at index:", hwIndex);
    handle.trackedIs(false);  // the next write is the first
    util->updateHwIndexRefCountTracker(swTable_->hwTable(), hwIndex.value(),
                                       IndexUserTracker::OpType::userRemove);
    this->deleteRow(*util, hwIndex);
  });
}

}  // namespace Asic
