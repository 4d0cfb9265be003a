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
  if (swTable_->isGoing()) return this->refused(operation, key);
  Entry const wanted = entry;  // it may lie in what a watcher is about to change
  Operation const wish(*swTable_, key, stageOf(autoRemove));
  trace(traceClient, operation, " : Writing entry : ", wanted, ", at key : ", T::keyText(key));
  return entryWriteHelper(wish, wanted);
}

template <class T>
auto GroupAccessor<T>::entryWriteHelper(Operation const& wish, Entry const& wanted) -> HandlePtr {
  auto const& key = wish.key();
  // First of all, and also for a value that is there already.
  auto const handle = this->claimedHandle(wish);
  if (wish.isOvertaken()) return handle;
  auto const prior = swTable_->priorUnlessValue(key, wanted);
  if (!prior) return handle;
  if (*prior != SwTable::KeyPrior::noKey) {
    trace(traceClient, "entryWriteHelper", " : Writing new entry : ", wanted,
          ", at key : ", T::keyText(key), "; setting entryState to unresolved",
          " to ensure callback gets triggered by entryState change.");
    if (!wish.isOvertaken()) handle->entryStateIs(EntryState::unresolved);
    if (wish.isOvertaken()) {
      // What the newer wish found in place was told to be changing.
      if (handle->entryState() == EntryState::unresolved)
        handle->entryStateIs(handle->resolvedEntryState());
      return handle;
    }
  }
  swTable_->store(key, wanted);
  return handle;
}

template <class T>
template <Fennlog::Time time>
void GroupAccessor<T>::programHwEntry(Operation& operation, Value const& value,
                                      EntryState entryState) {
  using enum SwTableBase::EntryState;
  auto const& key = operation.key();
  this->template message<"programHwEntry", time>();
  trace(traceKey, "programHwEntry", " key: ", T::keyText(key), ", entryState:", entryState);
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  if (handle && !operation.isOvertaken()) {
    handle->life().isTried = true;
    if (!this->waits(key)) handle->entryStateIs(entryState);
    if (!operation.isOvertaken()) handle->resolvedEntryStateIs(entryState);
  }
  if (operation.isOvertaken()) return;
  auto const hwIndex = this->allocator().newIndexForKey(T::keyType(), &key, swTable_);
  this->traceHwIndex(hwIndex);
  if (operation.isOvertaken()) return;
  auto const util = this->utilIfExists();
  if (util && hwIndex.isExhausted()) {
    VELL_ASSERT(entryState != indexReconciled, "entryState != indexReconciled()",
                T::names.qualified, " key ", T::keyText(key));
    if (handle) handle->resolvedEntryStateIs(failedNoIndex);
    return;
  }
  if (util) {
    swTable_->reconcilingEntryIs(entryState == indexReconciled);
    hwTableEntryIs(*util, operation, value, hwIndex, handle.get());
    if (operation.isOvertaken()) return;
    if (handle && util->indexKnownAtWrite()) handle->hwIndexIs(hwIndex);
  }
  this->doCompleteEntryHandleForTesting(key);
}

template <class T>
void GroupAccessor<T>::hwTableEntryIs(Util const& util, Operation& operation, Value const& value,
                                      Index hwIndex, EntryHandle* handle) {
  trace(traceKey, "hwTableEntryIs", " : key: ", T::keyText(operation.key()));
  if (operation.isOvertaken()) return;
  tellWrite(util, hwIndex, handle, value.has_value());
  if (operation.isOvertaken()) return;
  // The number goes to the chip with the write, so that the answer finds it again.
  if (auto* const hwTable = swTable_->hwTable(); hwTable && swTable_->hwResponseNeeded())
    hwTable->writeIs(hwIndex);
  hook([&] { util.hwTableEntryIs(*swTable_, hwIndex.value(), value); });
}

template <class T>
void GroupAccessor<T>::tellTracker(Util const& util, Index hwIndex, Tracker operation) const {
  hook([&] { util.updateHwIndexRefCountTracker(swTable_->hwTable(), hwIndex.value(), operation); });
}

/// Tells the index tracker of a write, by what it knows of the entry: another write may have come in the
/// midst of this one.
template <class T>
void GroupAccessor<T>::tellWrite(Util const& util, Index hwIndex, EntryHandle* handle,
                                 bool hasValue) {
  using enum EntryLife::Tracked;
  using Prior = SwTable::KeyPrior;
  auto const prior = swTable_->resolvedKeyPrior();
  auto const ofKey = prior == Prior::noKey ? no : prior == Prior::noValue ? inactive : active;
  auto const wanted = hasValue ? active : inactive;
  auto const known = handle ? std::exchange(handle->life().tracked, wanted) : ofKey;
  if (swTable_->reconcilingEntry() && swTable_->syncedEntryMap().lookup(hwIndex)) return;
  VELL_ASSERT(hasValue || prior == Prior::value, "false", T::names.qualified,
              ": an empty value was stored over a key that held none");
  if (known == no) tellTracker(util, hwIndex, Tracker::userAdd);
  if (known != inactive && !hasValue) tellTracker(util, hwIndex, Tracker::userDeactivate);
  if (known == inactive && hasValue) tellTracker(util, hwIndex, Tracker::userActivate);
}

template <class T>
void GroupAccessor<T>::hwTableEntryDel(Util const& util, Operation& operation, Index hwIndex,
                                       EntryLife const& life) {
  trace(traceKey, "hwTableEntryDel", ": Deleting entry at key:", T::keyText(operation.key()));
  bool const isActive = life.tracked == EntryLife::Tracked::active;
  tellTracker(util, hwIndex, isActive ? Tracker::userRemove : Tracker::userRemoveInactive);
  if (!this->isRowTaken(hwIndex)) deleteRow(util, hwIndex);
}

template <class T>
void GroupAccessor<T>::deleteRow(Util const& util, Index hwIndex) {
  if (auto* const hwTable = swTable_->hwTable()) hwTable->writesOvertaken(hwIndex);
  hook([&] { util.hwTableEntryDel(*swTable_, hwIndex.value()); });
}

/// A chip that refuses a write leaves the row as it was, at the index that the key still has.
template <class T>
bool GroupAccessor<T>::wasRefused(Key const& key, EntryState outcome) const {
  return outcome == EntryState::failedNoIndex &&
         !this->doRetrieveHwIndex(key).value().isExhausted();
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
  auto const key = handle.key();
  if (outcome == inProgress || outcome == indexReconciled) {  // a write is under way
    if (!this->waits(key)) handle.entryStateIs(outcome);
    return;
  }
  if (outcome == success) handle.life().isOverFound = false;
  auto const held = swTable_->keyPrior(key);
  VELL_ASSERT(held != SwTable::KeyPrior::noKey, "swTable_->resolvedEntryHas( key )",
              T::names.qualified, " key ", T::keyText(key), " outcome ", outcome);
  Operation const operation(*swTable_, key, Stage::finding);
  if (held == SwTable::KeyPrior::value) return outcomeTold(operation, handle, outcome);
  VELL_ASSERT(outcome == success, "resolvedEntryState == success()", T::names.qualified, " key ",
              T::keyText(key), " outcome ", outcome);
  if constexpr (Trait::tableNeedsDeleteDance<T>)
    this->self().endDeleteDance(handle, key);
  else
    VELL_ASSERT(false, "Trait::tableNeedsDeleteDance", T::names.qualified, " key ", T::keyText(key),
                " has lost its value");
}

/// What the row still shows must not go yet where a write was refused.
template <class T>
void GroupAccessor<T>::outcomeTold(Operation const& operation, EntryHandle& handle,
                                   EntryState outcome) {
  using enum SwTableBase::EntryState;
  auto const& key = operation.key();
  auto const stateBefore = handle.entryState();
  bool const rowIsFormer = Trait::tableNeedsDeleteDance<T> && wasRefused(key, outcome);
  if (!rowIsFormer) dropPending(handle, handle.pendingEntry().lastSequence());
  if (operation.isOvertaken()) return;
  auto const state = handle.entryState();
  if (state != stateBefore && state == outcome) return;  // a wish for this value has told it by now
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
void GroupAccessor<T>::removeEntryOf(Operation const& removal, EntryHandle& handle) {
  this->needReferenceOnly(handle);
  removeAtOnce(removal, handle);
}

template <class T>
void GroupAccessor<T>::removeAtOnce(Operation const& removal, EntryHandle& handle) {
  auto const& key = removal.key();
  handle.swTableIs(nullptr);
  if (removal.isOvertaken()) return;
  bool const isStored = swTable_->resolvedHas(key);
  deleteResolvedEntry(key);
  if (removal.isOvertaken()) return;
  if (!isStored) this->unusedIndexDel(key);
  swTable_->entryHandleDel(key);
}

// ---- restart ----

template <class T>
ReconciliationStatus GroupAccessor<T>::reconcileSyncedEntry(Operation const& operation,
                                                            Value const& value) {
  using enum ReconciliationStatus;
  if (swTable_->syncedEntryMap().empty()) return reconcileAdded;
  auto const hwIndex = this->doRetrieveHwIndex(operation.key()).value();
  if (hwIndex.isExhausted())
    return this->reconcileUsingIndexHelper(operation, value, Compare::yes).isExhausted()
               ? reconcileNone
               : reconcileMatched;
  // A key without a value in the middle of a replay is a fault of whoever stored it.
  if (!value) Zarn::Impl::throwBadOptionalAccess();
  if (!swTable_->syncedEntryMap().lookup(hwIndex)) return reconcileAdded;
  auto const util = this->utilIfExists();
  bool const isEqual =
      hook([&] { return util->compareHwEntries(*swTable_, hwIndex.value(), *value); });
  return isEqual ? reconcileMatched : reconcileRewritten;
}

/// Whether the key, if it has no index yet, can have that one.
template <class T>
bool GroupAccessor<T>::isFreeFor(Key const& key, Index hwIndex) const {
  auto const& allocator = this->allocator();
  return hwIndex.value() < allocator.sizeFor(*swTable_) &&
         !allocator.keyForIndex(hwIndex, T::keyType()).getGif() &&
         this->doRetrieveHwIndex(key).value().isExhausted();
}

template <class T>
bool GroupAccessor<T>::reconcileUsingHwIndex(Operation const& operation, Value const& value,
                                             Index hwIndex, Compare compare) {
  auto const& key = operation.key();
  if (!isFreeFor(key, hwIndex)) {
    trace(traceKey, "reconcileUsingHwIndex", ": Index:", hwIndex, " not free");
    return false;
  }
  if (!value) Zarn::Impl::throwBadOptionalAccess();
  auto const util = this->utilIfExists();
  if (compare == Compare::yes &&
      !hook([&] { return util->compareHwEntries(*swTable_, hwIndex.value(), *value); }))
    return false;
  // The hook may have changed and settled it, or given the index away.
  if (operation.isOvertaken() || !isFreeFor(key, hwIndex)) return false;
  VELL_ASSERT(this->allocator().recoverIndexForKey(hwIndex, T::keyType(), &key, swTable_),
              "swTable_->indexAllocator()->recoverIndexForKey( hwIndex, zarnType< EntryKeyT >(), "
              "&key )",
              T::names.qualified, " key ", T::keyText(key), " index ", hwIndex);
  return true;
}

/// True if the suggestion settled the entry's index.
template <class T>
bool GroupAccessor<T>::processIndexSuggestion(EntryHandle& handle, Index hwIndex) {
  constexpr std::string_view name = "processIndexSuggestion";
  if (!swTable_->resolvedHas(handle.key())) return false;  // stored for the commit
  Operation const finding(*swTable_, handle.key(), Stage::finding);
  auto const& key = finding.key();
  trace(traceKey, name, ": eh:", static_cast<void const*>(&handle), ", key:", T::keyText(key),
        ", hwIndex:", hwIndex);
  auto const found = this->foundRows(key, hwIndex);
  if (!reconcileUsingHwIndex(finding, swTable_->valueOf(key), hwIndex, Compare::yes)) return false;
  Operation operation(*swTable_, key, Stage::programming);  // one that went on before it is settled
  this->placeIs(handle, found, ReconciliationStatus::reconcileMatched);
  if (found == EntryLife::Found::no)  // sync has told the tracker of nothing there
    tellTracker(*this->utilIfExists(), hwIndex, Tracker::userAdd);
  swTable_->updateStatistic(ReconciliationStatus::reconcileMatched);
  trace(traceKey, name, ": Deleting syncedEntry reconciled at index:", hwIndex);
  swTable_->syncedEntryDel(hwIndex);
  swTable_->indexHelperDel(handle);
  if (operation.isOvertaken()) return true;
  handle.hwIndexIs(hwIndex);
  this->tellReconciled(operation, handle);
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

/// Whether an entry lies there that this table has in its hardware, or another kind of key.
template <class T>
bool GroupAccessor<T>::isOwnRow(Index hwIndex) const {
  auto const& allocator = this->allocator();
  if (!allocator.isIndexAssigned(hwIndex, T::keyType()) ||
      allocator.isIndexVerticallyShared(hwIndex, T::keyType(), *swTable_))
    return false;
  auto const key = swTable_->swKeyFromHwIndex(hwIndex);
  return !key || this->isWritten(*key);
}

template <class T>
void GroupAccessor<T>::handleStaleEntries() noexcept {
  constexpr std::string_view name = "handleStaleEntries";
  auto const util = this->utilIfExists();
  Vell::Ptr<typename T::IndexAllocator> const allocator = swTable_->indexAllocator();
  for (typename T::SyncedEntryMap::Iterator at(swTable_->syncedEntryMap()); at; at.advance()) {
    Index const index = at.key();
    // An entry that was written over what sync found has a use of its own.
    if (isOwnRow(index)) IndexUserTracker::Stub::recoveredUseStands(swTable_->hwTable(), index);
    tellTracker(*util, index, Tracker::userRemove);
    if (isOwnRow(index)) {
      trace(traceKey, name, " Skip index:", index);
      continue;
    }
    deleteRow(*util, index);
    trace(traceKey, name, ": Deleting stale hwEntry at index:", index);
    swTable_->updateStatistic(ReconciliationStatus::reconcileDeleted);
    if (allocator->isIndexAssigned(index, T::keyType())) continue;
    allocator->markIndexAvailable(index, T::keyType());
    trace(traceKey, name, ": Marking index available in allocator");
  }
}

}  // namespace Asic
