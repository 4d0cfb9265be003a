// The operations of the generic logic of group tables. Included by the sources that instantiate
// tables.

#pragma once

#include "frame/GroupAccessor.h"
#include "frame/HandleAccessorDefinitions.h"
#include "platform/zarn/Mutator.h"

namespace Asic {

// ---- programming ----

template <class T>
auto GroupAccessor<T>::write(std::string_view operation, Key const& key, Entry const& entry,
                             AutoRemoveType autoRemove) -> HandlePtr {
  trace(traceClient, operation, " : Writing entry : ", entry, ", at key : ", T::keyText(key));
  return entryWriteHelper(key, entry, autoRemove);
}

template <class T>
auto GroupAccessor<T>::entryWriteHelper(Key const& key, Entry const& entry,
                                        AutoRemoveType autoRemove) -> HandlePtr {
  Entry const wanted = entry;  // it may lie in what a watcher is about to change
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandleIs(key, swTable_);
  // First of all, and also for a value that is there already.
  autoRemove == AutoRemoveType::committed ? handle->committed() : void(handle->referenced());
  auto prior = swTable_->priorUnlessValue(key, wanted);
  if (prior && *prior != SwTable::KeyPrior::noKey) {
    trace(traceClient, "entryWriteHelper", " : Writing new entry : ", wanted,
          ", at key : ", T::keyText(key), "; setting entryState to unresolved",
          " to ensure callback gets triggered by entryState change.");
    handle->entryStateIs(EntryState::unresolved);
    prior = swTable_->priorUnlessValue(key, wanted);  // a watcher of that may have written the key
  }
  if (!prior) return handle;
  swTable_->resolvedKeyPriorIs(*prior);
  swTable_->store(key, wanted);
  return handle;
}

template <class T>
void GroupAccessor<T>::programHwEntry(Key const& key, EntryState entryState) {
  using enum SwTableBase::EntryState;
  // Part of `handleEntry`, whose message is just written.
  this->template message<"programHwEntry", Fennlog::Time::asMessageBefore>();
  trace(traceKey, "programHwEntry", " key: ", T::keyText(key), ", entryState:", entryState);
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  bool const isWatched = handle && handle->publisher()->hasWatchers();
  auto const priorToTelling = isWatched ? swTable_->keyPrior(key) : SwTable::KeyPrior::noKey;
  // A watcher removed it, or put another handle in this one's place, or let its removal begin: that
  // was carried.
  auto const isOvertaken = [&] {
    if (!isWatched) return false;
    auto const prior = swTable_->keyPrior(key);
    return prior == SwTable::KeyPrior::noKey || swTable_->entryHandle(key) != handle ||
           (Trait::tableNeedsDeleteDance<T> && prior != priorToTelling);
  };
  if (handle) {
    handle->writeBegins();
    if (swTable_->configReplayComplete() || !this->waitsAnew(key)) handle->entryStateIs(entryState);
    if (isOvertaken()) return;
    handle->resolvedEntryStateIs(entryState);
  }
  if (isOvertaken()) return;
  auto const hwIndex = this->allocator().newIndexForKey(T::keyType(), &key);
  this->traceHwIndex(hwIndex);
  if (auto const util = this->utilIfExists()) {
    if (hwIndex.isExhausted()) {
      VELL_ASSERT(entryState != indexReconciled, "entryState != indexReconciled()",
                  T::names.qualified, " key ", T::keyText(key));
      if (handle) handle->resolvedEntryStateIs(failedNoIndex);
      return;
    }
    swTable_->reconcilingEntryIs(entryState == indexReconciled);
    hwTableEntryIs(*util, key, hwIndex, handle.get());
    // A hook may have removed it: its index may be another's by now.
    if (handle && util->indexKnownAtWrite() && this->doRetrieveHwIndex(key) == hwIndex)
      handle->hwIndexIs(hwIndex);
  }
  this->doCompleteEntryHandleForTesting(key);
}

template <class T>
void GroupAccessor<T>::hwTableEntryIs(Util const& util, Key const& key, Index hwIndex,
                                      EntryHandle* handle) {
  trace(traceKey, "hwTableEntryIs", " : key: ", T::keyText(key));
  auto const value = swTable_->resolvedEntry(key);
  bool const wasTold = tellWrite(util, hwIndex, handle, value.has_value());
  // The hook changed the key: that change was carried.
  if (wasTold && (!swTable_->resolvedHas(key) || swTable_->resolvedEntry(key) != value)) return;
  // The number goes to the chip with the write, so that the answer finds it again.
  if (auto* const hwTable = swTable_->hwTable(); hwTable && swTable_->hwResponseNeeded())
    hwTable->writeIs(hwIndex);
  util.hwTableEntryIs(*swTable_, hwIndex.value(), value);
}

/// Tells the index tracker of a write, if it is of its concern. Whether anything was told.
template <class T>
bool GroupAccessor<T>::tellWrite(Util const& util, Index hwIndex, EntryHandle* handle,
                                 bool hasValue) {
  using enum SwTable::KeyPrior;
  bool wasTold = false;
  auto const tell = [&](Tracker operation) {
    wasTold = true;
    util.updateHwIndexRefCountTracker(swTable_->hwTable(), hwIndex.value(), operation);
  };
  auto const prior = swTable_->resolvedKeyPrior();
  // The first write that has an index, whatever came of writes before it.
  bool const isFirst = handle ? !handle->isTracked() : prior == noKey;
  if (handle) handle->trackedIs(true);
  if (swTable_->reconcilingEntry() && swTable_->syncedEntryMap().lookup(hwIndex)) return false;
  VELL_ASSERT(hasValue || prior == value, "false", T::names.qualified,
              ": an empty value was stored over a key that held none");
  // Told by what the tracker knows of the entry: another write may have come in the midst of this one.
  bool const isActive = handle ? handle->isActive() : isFirst || prior != noValue;
  if (handle) handle->activeIs(hasValue);
  if (isFirst) tell(Tracker::userAdd);
  if (!hasValue && isActive)
    tell(Tracker::userDeactivate);
  else if (hasValue && !isActive)
    tell(Tracker::userActivate);
  return wasTold;
}

template <class T>
void GroupAccessor<T>::removeHwEntry(Key const& key) {
  auto const hwIndex = this->doRetrieveHwIndex(key).value();
  this->traceHwIndex(hwIndex);
  auto const util = this->utilIfExists();
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  // An entry that was never written has nothing here, also if another table has given its key an
  // index meanwhile.
  bool const neverWritten = util && handle && !handle->isTracked();
  if (hwIndex.isExhausted() || neverWritten) {
    if (util) trace(traceKey, "handleEntry", "No entry in HwTable for this key. Skip delete");
    if (hwIndex.isExhausted()) return;
  }
  // From here on the handle must lead no dependent there, also none that comes from a hook.
  if (handle) handle->hwIndexIs(Index());
  if (util && !neverWritten) {
    hwTableEntryDel(*util, key, hwIndex);
    if (swTable_->resolvedHas(key)) return;  // a hook wrote the key again: it keeps its index
    if (!swTable_->configReplayComplete())
      swTable_->updateStatistic(ReconciliationStatus::reconcileDeleted);
  }
  releaseIndex(key);
}

/// An index that was asked for ahead, for an entry that waited and never came.
template <class T>
void GroupAccessor<T>::releaseUnusedIndex(Key const& key) {
  if (swTable_->resolvedHas(key) || swTable_->unresolvedHas(key)) return;
  if (!this->doRetrieveHwIndex(key).value().isExhausted()) releaseIndex(key);
}

template <class T>
void GroupAccessor<T>::releaseIndex(Key const& key) {
  Vell::Ptr<typename T::IndexAllocator> const allocator = swTable_->indexAllocator();
  allocator->releaseIndexFromTable(T::keyType(), &key, *swTable_);
}

template <class T>
void GroupAccessor<T>::hwTableEntryDel(Util const& util, Key const& key, Index hwIndex) {
  trace(traceKey, "hwTableEntryDel", ": Deleting entry at key:", T::keyText(key));
  auto operation = this->trackerOfDelete();
  if (Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key)) {
    if (handle->isTracked())
      operation = handle->isActive() ? Tracker::userRemove : Tracker::userRemoveInactive;
    handle->trackedIs(false);
  }
  util.updateHwIndexRefCountTracker(swTable_->hwTable(), hwIndex.value(), operation);
  // The hook wrote the key anew, or let another table free the index and wrote another key there.
  if (auto const owner = swTable_->swKeyFromHwIndex(hwIndex);
      owner && swTable_->resolvedHas(*owner) && isRowOf(*owner))
    return;
  deleteRow(util, hwIndex);
}

/// Whether the key, which has an index, has its row there: that of an entry that was never written is what
/// it was before.
template <class T>
bool GroupAccessor<T>::isRowOf(Key const& key) const {
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  return !handle || handle->isTracked();
}

template <class T>
void GroupAccessor<T>::deleteRow(Util const& util, Index hwIndex) {
  if (auto* const hwTable = swTable_->hwTable()) hwTable->writesOvertaken(hwIndex);
  util.hwTableEntryDel(*swTable_, hwIndex.value());
}

/// A chip that refuses a write leaves the row as it was, at the index that the key still has.
template <class T>
bool GroupAccessor<T>::wasRefused(Key const& key, EntryState outcome) const {
  return outcome == EntryState::failedNoIndex &&
         !this->doRetrieveHwIndex(key).value().isExhausted();
}

/// A value that waits came after the one that is being written, from a watcher of its state.
template <class T>
bool GroupAccessor<T>::hasNewerWish(EntryHandle const& handle) const {
  return (handle.entryState() == EntryState::unresolved ||
          handle.entryState() == EntryState::failedNeededEntry) &&
         swTable_->unresolvedHas(handle.key());
}

template <class T>
void GroupAccessor<T>::dropPending(EntryHandle& handle, U32 last) {
  if (last == handle.pendingEntry().lastSequence() && !handle.publisher()->hasWatchers())
    return handle.pendingEntryDelAll();
  while (handle.pendingEntryHas(last)) handle.pendingEntryDeq();
}

template <class T>
void GroupAccessor<T>::handleResolvedEntryState(EntryHandle& handle) {
  using enum SwTableBase::EntryState;
  auto const outcome = handle.resolvedEntryState();
  if (outcome == inProgress || outcome == indexReconciled) {  // a write is under way
    if (!hasNewerWish(handle)) handle.entryStateIs(outcome);
    return;
  }
  if (outcome == success) handle.overFoundRowIs(false);
  auto const key = handle.key();
  auto const stateBefore = handle.entryState();
  auto const held = swTable_->keyPrior(key);
  VELL_ASSERT(held != SwTable::KeyPrior::noKey, "swTable_->resolvedEntryHas( key )",
              T::names.qualified, " key ", T::keyText(key), " outcome ", outcome);
  if (held == SwTable::KeyPrior::noValue) {
    VELL_ASSERT(outcome == success, "resolvedEntryState == success()", T::names.qualified, " key ",
                T::keyText(key), " outcome ", outcome);
    if constexpr (Trait::tableNeedsDeleteDance<T>)
      this->self().endDeleteDance(handle, key, stateBefore);
    else
      VELL_ASSERT(false, "Trait::tableNeedsDeleteDance", T::names.qualified, " key ",
                  T::keyText(key), " has lost its value");
    return;
  }
  // What the row still shows must not go yet.
  bool const rowIsFormer = Trait::tableNeedsDeleteDance<T> && wasRefused(key, outcome);
  auto const claims = handle.claims(), writes = handle.writes();
  if (!rowIsFormer) dropPending(handle, handle.pendingEntry().lastSequence());
  // A watcher of that, or of an entry that was let go, wrote it anew or wants it otherwise.
  if (handle.claims() != claims || handle.writes() != writes ||
      handle.resolvedEntryState() != outcome)
    return;
  auto const state = handle.entryState();
  if (state == inProgress || state == indexReconciled) {
    handle.entryStateIs(outcome);
    return;
  }
  VELL_ASSERT(state == unresolved || state == failedNeededEntry,
              "entryState == unresolved() || entryState == failedNeededEntry()", T::names.qualified,
              " key ", T::keyText(key), " state ", state, " outcome ", outcome);
  // A value that waits came in the midst of the write, which then found no index or was refused.
  bool const mayFail = Trait::tableNeedsDeleteDance<T> && outcome == failedNoIndex;
  VELL_ASSERT(outcome == success || mayFail, "resolvedEntryState == success()", T::names.qualified,
              " key ", T::keyText(key), " state ", state, " outcome ", outcome);
}

// ---- removal ----

template <class T>
void GroupAccessor<T>::deleteResolvedEntry(Key const& key) {
  swTable_->resolvedKeyPriorIs(swTable_->keyPrior(key));
  swTable_->resolvedEntryDel(key);
}

template <class T>
auto GroupAccessor<T>::removeEntryOf(EntryHandle& handle, Key const& key) -> Removal {
  VELL_ASSERT(handle.entryType() == SwTableBase::EntryType::referenceOnly,
              "eh->entryType() == EntryHandle::referenceOnly()", "unexpected entryType ",
              handle.entryType(), " of ", T::names.qualified, " key ", T::keyText(key));
  return removeAtOnce(handle, key);
}

template <class T>
auto GroupAccessor<T>::removeAtOnce(EntryHandle& handle, Key const& key) -> Removal {
  auto const claims = handle.claims();
  auto const isBack = [&] { return handle.swTable() || handle.claims() != claims; };
  handle.swTableIs(nullptr);
  if (isBack()) return Removal::cameBack;
  bool const isStored = swTable_->resolvedHas(key);
  deleteResolvedEntry(key);
  if (isBack()) return Removal::cameBack;
  if (!isStored) releaseUnusedIndex(key);
  return Removal::done;
}

// ---- restart ----

template <class T>
void GroupAccessor<T>::syncEntries() noexcept {
  this->beginSyncEntries();
  VELL_ASSERT(swTable_->resolvedCount() == 0, "!swTable_->resolvedEntrys()", T::names.qualified,
              ": sync must precede every commit");
  if (auto const util = this->utilIfExists())
    util->syncEntries(*swTable_->hwTable(), Vell::Ptr<T>(swTable_));
}

/// A key without a value in the middle of a replay is a fault of whoever stored it.
template <class T>
auto GroupAccessor<T>::wantedValue(Key const& key) const -> Entry {
  auto const value = swTable_->resolvedEntry(key);
  if (!value) Zarn::Impl::throwBadOptionalAccess();
  return *value;
}

template <class T>
ReconciliationStatus GroupAccessor<T>::reconcileSyncedEntry(Key const& key) {
  using enum ReconciliationStatus;
  if (swTable_->syncedEntryMap().empty()) return reconcileAdded;
  auto const hwIndex = this->doRetrieveHwIndex(key).value();
  if (hwIndex.isExhausted())
    return reconcileUsingIndexHelper(key, Compare::yes).isExhausted() ? reconcileNone
                                                                      : reconcileMatched;
  auto const wanted = wantedValue(key);
  if (!swTable_->syncedEntryMap().lookup(hwIndex)) return reconcileAdded;
  bool const isEqual = this->utilIfExists()->compareHwEntries(*swTable_, hwIndex.value(), wanted);
  if (!swTable_->isValue(key, wanted)) return reconcileNone;  // the hook changed and settled it
  return isEqual ? reconcileMatched : reconcileRewritten;
}

/// Whether the key, if it has no index yet, can have that one.
template <class T>
bool GroupAccessor<T>::isFreeFor(Key const& key, Index hwIndex) const {
  auto const& allocator = this->allocator();
  return hwIndex.value() < allocator.size() &&
         !allocator.keyForIndex(hwIndex, T::keyType()).getGif() &&
         this->doRetrieveHwIndex(key).value().isExhausted();
}

template <class T>
bool GroupAccessor<T>::reconcileUsingHwIndex(Key const& key, Index hwIndex, Compare compare) {
  auto& allocator = this->allocator();
  if (!isFreeFor(key, hwIndex)) {
    trace(traceKey, "reconcileUsingHwIndex", ": Index:", hwIndex, " not free");
    return false;
  }
  auto const wanted = wantedValue(key);
  if (compare == Compare::yes) {
    if (!this->utilIfExists()->compareHwEntries(*swTable_, hwIndex.value(), wanted)) return false;
    // The hook may have changed and settled it, or given the index away.
    if (!swTable_->isValue(key, wanted) || !isFreeFor(key, hwIndex)) return false;
  }
  VELL_ASSERT(allocator.recoverIndexForKey(hwIndex, T::keyType(), &key),
              "swTable_->indexAllocator()->recoverIndexForKey( hwIndex, zarnType< EntryKeyT >(), "
              "&key )",
              T::names.qualified, " key ", T::keyText(key), " index ", hwIndex);
  return true;
}

template <class T>
Index GroupAccessor<T>::reconcileUsingIndexHelper(Key const& key, Compare compare) {
  constexpr std::string_view name = "reconcileUsingIndexHelper";
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  auto const helper = handle ? swTable_->indexHelper(*handle) : nullptr;
  if (!helper) {
    trace(traceKey, name, "Index suggestions unavailable");
    return {};
  }
  trace(traceKey, name, ": key:", T::keyText(key));
  for (Zarn::HashMap2018IteratorGeneric at(helper->indices()); at; at.advance()) {
    Index const index = at.currNodeMaybeStale()->key().value();
    bool const wasFound = swTable_->syncedEntryMap().lookup(index);
    if (compare == Compare::yes && !wasFound) continue;  // a comparison needs something found
    if (!reconcileUsingHwIndex(key, index, compare)) {
      if (!swTable_->hasValue(key)) return {};  // a hook took it away, and that was carried
      continue;
    }
    handle->trackedIs(wasFound);  // the tracker knows what sync found
    handle->overFoundRowIs(wasFound && compare == Compare::no);
    swTable_->indexHelperDel(*handle);
    trace(traceKey, name, ": Deleting syncedEntry reconciled at index:", index);
    swTable_->syncedEntryDel(index);
    trace(traceKey, name, ": Reconciled key:", T::keyText(key), ", hwIndex:", index);
    return index;
  }
  return {};
}

/// True if the suggestion settled the entry's index.
template <class T>
bool GroupAccessor<T>::processIndexSuggestion(EntryHandle& handle, Index hwIndex) {
  constexpr std::string_view name = "processIndexSuggestion";
  auto const key = handle.key();
  if (!swTable_->resolvedHas(key)) return false;  // stored for the commit
  trace(traceKey, name, ": eh:", static_cast<void const*>(&handle), ", key:", T::keyText(key),
        ", hwIndex:", hwIndex);
  bool const wasFound = swTable_->syncedEntryMap().lookup(hwIndex);
  if (!reconcileUsingHwIndex(key, hwIndex, Compare::yes)) return false;
  handle.trackedIs(true);
  swTable_->updateStatistic(ReconciliationStatus::reconcileMatched);
  trace(traceKey, name, ": Deleting syncedEntry reconciled at index:", hwIndex);
  swTable_->syncedEntryDel(hwIndex);
  swTable_->indexHelperDel(handle);
  if (!wasFound)  // the hardware holds it, and sync has told the tracker of nothing there
    this->utilIfExists()->updateHwIndexRefCountTracker(swTable_->hwTable(), hwIndex.value(),
                                                       Tracker::userAdd);
  if (handle.entryState() != EntryState::unresolved || this->doRetrieveHwIndex(key) != hwIndex)
    return true;  // a watcher wrote it anew, or removed it
  handle.hwIndexIs(hwIndex);
  if (!hasNewerWish(handle)) handle.entryStateIs(EntryState::indexReconciled);
  handle.resolvedEntryStateIs(EntryState::indexReconciled);
  this->doCompleteEntryHandleForTesting(key);
  return true;
}

template <class T>
void GroupAccessor<T>::doInitComplete() {
  HandleAccessor<T>::doInitComplete();
  if (swTable_->hwTable()) swTable_->writeResponseSmIs(swTable_);
}

template <class T>
void GroupAccessor<T>::syncedRowsDel(Index hwIndex, U32) {
  VELL_ASSERT(!hwIndex.isExhausted(), "!isExhausted( hwIndex )", T::names.qualified,
              ": an entry was reconciled at no index");
  trace(traceKey, "operator()", ": Deleting syncedEntry reconciled at index:", hwIndex);
  swTable_->syncedEntryDel(hwIndex);
}

template <class T>
void GroupAccessor<T>::handleStaleEntries() noexcept {
  constexpr std::string_view name = "handleStaleEntries";
  auto const util = this->utilIfExists();
  Vell::Ptr<typename T::IndexAllocator> const allocator = swTable_->indexAllocator();
  auto const isOwn = [&](Index index) {
    if (!allocator->isIndexAssigned(index, T::keyType()) ||
        allocator->isIndexVerticallyShared(index, T::keyType(), *swTable_))
      return false;
    auto const key = swTable_->swKeyFromHwIndex(index);
    return !key || isRowOf(*key);
  };
  for (typename T::SyncedEntryMap::Iterator at(swTable_->syncedEntryMap()); at; at.advance()) {
    Index const index = at.key();
    // An entry that was written over what sync found has a use of its own.
    if (isOwn(index)) IndexUserTracker::Stub::recoveredUseStands(swTable_->hwTable(), index);
    util->updateHwIndexRefCountTracker(swTable_->hwTable(), index.value(), Tracker::userRemove);
    if (isOwn(index)) {
      trace(traceKey, name, " Skip index:", index);
      continue;
    }
    deleteRow(*util, index);
    trace(traceKey, name, ": Deleting stale hwEntry at index:", index);
    swTable_->updateStatistic(ReconciliationStatus::reconcileDeleted);
    if (allocator->isIndexAssigned(index, T::keyType())) continue;
    trace(traceKey, name, ": Marking index available in allocator");
    allocator->markIndexAvailable(index, T::keyType());
  }
}

}  // namespace Asic
