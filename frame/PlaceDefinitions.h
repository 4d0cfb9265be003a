// Where an entry with a handle has its rows after a restart: what sync found, candidates, the end of the
// replay. The end of frame/HandleAccessorDefinitions.h.

#pragma once

namespace Asic {

template <class T>
EntryLife::Found HandleAccessor<T>::foundRows(Key const& key, Index hwIndex) const {
  U32 const rows = T::blockSizeOf(key);
  U32 found = 0;
  for (U32 i = 0; i < rows; ++i)
    found += swTable_->syncedEntryMap().lookup(hwIndex.value() + i) != nullptr;
  if (found == 0) return EntryLife::Found::no;
  return found == rows ? EntryLife::Found::whole : EntryLife::Found::part;
}

/// The tracker knows what sync found. Of a block it is told row by row, since some may be missing.
template <class T>
void HandleAccessor<T>::placeIs(EntryHandle& handle, EntryLife::Found found,
                                ReconciliationStatus status) const {
  bool const isMatched = status == ReconciliationStatus::reconcileMatched;
  bool const wasFound = found != EntryLife::Found::no;
  bool const isKnown = isMatched || (wasFound && !Trait::isBlockTable<T>);
  handle.life() = {.tracked = isKnown ? EntryLife::Tracked::active : EntryLife::Tracked::no,
                   .trackedRows = isMatched ? T::blockSizeOf(handle.key()) : 0,
                   .found = found,
                   .isOverFound = wasFound && !isMatched,
                   .isTried = true};
}

/// First of all the uses that sync found for the entry, and nobody has told of, are its own: who brings it
/// back has another.
template <class T>
EntryLife HandleAccessor<T>::endLife(Key const& key, Index hwIndex) const {
  U32 const rows = T::blockSizeOf(key);
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  if (!handle) {  // it was stored without one
    using enum EntryLife::Tracked;
    bool const isActive =
        Trait::isBlockTable<T> || this->trackerOfDelete() == IndexUserTracker::OpType::userRemove;
    return {.tracked = isActive ? active : inactive, .trackedRows = rows};
  }
  if (handle->life().found != EntryLife::Found::no && !hwIndex.isExhausted())
    for (U32 i = 0; i < rows; ++i)
      IndexUserTracker::Stub::recoveredUseClaimed(swTable_->hwTable(), hwIndex.value() + i);
  return handle->lifeEnds();
}

/// Where rows are missing, the handle leads nobody there before they are written.
template <class T>
void HandleAccessor<T>::placeTold(EntryHandle& handle, Index hwIndex) const {
  if (!Trait::isBlockTable<T> || handle.life().found == EntryLife::Found::whole)
    handle.hwIndexIs(hwIndex);
}

template <class T>
void HandleAccessor<T>::adoptIndex(Operation& operation, Index hwIndex,
                                   ReconciliationStatus status) {
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(operation.key());
  if (!handle) return;
  bool const isMatched = status == ReconciliationStatus::reconcileMatched;
  // A candidate that fitted was noted as its place before its synced rows went, and one that was written
  // in this replay has its place.
  if (handle->life().tracked == EntryLife::Tracked::no)
    placeIs(*handle, foundRows(operation.key(), hwIndex), status);
  swTable_->indexHelperDel(*handle);
  placeTold(*handle, hwIndex);
  if (isMatched) tellReconciled(operation, *handle);
}

template <class T>
void HandleAccessor<T>::tellReconciled(Operation& operation, EntryHandle& handle) {
  if (!waits(operation.key())) handle.entryStateIs(EntryState::indexReconciled);
  if (operation.isOvertaken()) return;
  handle.resolvedEntryStateIs(EntryState::indexReconciled);
  if (!operation.isOvertaken()) doCompleteEntryHandleForTesting(operation.key());
}

// ---- suggestions, and the end of the replay ----

template <class T>
void HandleAccessor<T>::handleIndexSuggestions(EntryHandle& handle, IndexSet const& indices) {
  VELL_ASSERT(handle.entryState() == EntryState::unresolved, "eh->entryState() == unresolved()",
              T::names.qualified, " key ", T::keyText(handle.key()), " state ",
              handle.entryState());
  VELL_ASSERT(!swTable_->configReplayComplete(), "swTable_->configReplayInProgress()",
              T::names.qualified, ": suggestions are for the replay");
  constexpr std::string_view name = "handleIndexSuggestions";
  trace(traceKey, name, ": eh:", static_cast<void const*>(&handle),
        ", key:", T::keyText(handle.key()), ", numSuggestions:", indices.size());
  Vell::Ptr<EntryHandle> const held(&handle);
  auto const util = this->utilIfExists();
  VELL_ASSERT(util, "util", T::names.qualified, ": a suggestion, and no hooks that found rows");
  for (auto const value : indices) {
    auto const index = hook([&] { return util->dependentFieldValueToHwIndex(value); });
    // Settled by what was called, or in no table, where nobody would forget the candidate.
    if (handle.entryState() != EntryState::unresolved || !isOwn(handle)) return;
    auto const helper = swTable_->indexHelperIs(handle);
    helper->allocatorIs(swTable_->indexAllocator());
    if (helper->indexHas(index)) continue;  // dealt with
    helper->indexIs(index);
    trace(traceKey, name, ": hwIndex:", index);
    if (self().processIndexSuggestion(handle, index)) return;
  }
}

/// One that waits for what it needs keeps a former value as it is, and so does one that did.
template <class T>
bool HandleAccessor<T>::awaitsIndex(EntryHandle const& handle) const {
  auto const& key = handle.key();
  return handle.entryState() == EntryState::unresolved && swTable_->hasValue(key) &&
         !swTable_->unresolvedHas(key) && !T::isInHwTable(handle);
}

/// A value that waited was taken back, and the former one is in place.
template <class T>
bool HandleAccessor<T>::isInPlaceUntold(EntryHandle const& handle) const {
  return Trait::tableNeedsDeleteDance<T> && handle.entryState() == EntryState::unresolved &&
         T::isInHwTable(handle) && swTable_->hasValue(handle.key()) &&
         !swTable_->unresolvedHas(handle.key());
}

template <class T>
void HandleAccessor<T>::doInitComplete() {
  AccessorBase<T>::doInitComplete();
  // First those that have candidates, so that no new index takes one of them away.
  forEachHandle([this](EntryHandle& handle) {
    if (awaitsIndex(handle) && swTable_->indexHelper(handle)) settleCandidates(handle);
  });
  forEachHandle([this](EntryHandle& handle) {
    if (awaitsIndex(handle)) {
      Operation operation(*swTable_, handle.key(), Stage::programming);
      programAsAdded(operation, swTable_->valueOf(handle.key()));
    } else if (isInPlaceUntold(handle)) {
      handle.entryStateIs(handle.resolvedEntryState());
    }
  });
  swTable_->indexHelperDelAll();  // also those of entries that need no place any more
  swTable_->reconcilingEntryIs(false);
}

template <class T>
void HandleAccessor<T>::settleCandidates(EntryHandle& handle) {
  Operation operation(*swTable_, handle.key(), Stage::programming);
  auto const value = swTable_->valueOf(handle.key());
  auto const hwIndex = doRetrieveHwIndex(handle.key()).value();
  hwIndex.isExhausted() ? placeAtCandidate(operation, handle, value)
                        : placeAtKnownIndex(operation, handle, value, hwIndex);
  swTable_->indexHelperDel(handle);
}

/// Overwrites the first candidate that the allocator accepts, whatever the hardware holds there.
template <class T>
void HandleAccessor<T>::placeAtCandidate(Operation& operation, EntryHandle& handle,
                                         Value const& value) {
  auto const index = reconcileUsingIndexHelper(operation, value, Compare::no);
  if (index.isExhausted() || operation.isOvertaken()) return;
  placeTold(handle, index);
  // The record of the row has gone: only the entry itself can tell whether the tracker knows it.
  swTable_->resolvedKeyPriorIs(SwTable::KeyPrior::noKey);
  self().programHwEntry(operation, value, EntryState::indexReconciled);
  swTable_->updateStatistic(ReconciliationStatus::reconcileRewritten);
}

template <class T>
void HandleAccessor<T>::placeAtKnownIndex(Operation& operation, EntryHandle& handle,
                                          Value const& value, Index hwIndex) {
  using enum ReconciliationStatus;
  auto const& key = operation.key();
  if (swTable_->syncedEntryMap().lookup(hwIndex)) {
    placeIs(handle, foundRows(key, hwIndex), reconcileRewritten);
    placeTold(handle, hwIndex);
    self().programHwEntry(operation, value, EntryState::indexReconciled);
    swTable_->updateStatistic(reconcileRewritten);
  } else {
    handle.hwIndexIs(hwIndex);
    programAsAdded(operation, value);
  }
  for (U32 i = 0; i < T::blockSizeOf(key); ++i) swTable_->syncedEntryDel(hwIndex.value() + i);
}

template <class T>
void HandleAccessor<T>::programAsAdded(Operation& operation, Value const& value) {
  swTable_->resolvedKeyPriorIs(SwTable::KeyPrior::noKey);
  self().programHwEntry(operation, value, EntryState::inProgress);
  swTable_->updateStatistic(ReconciliationStatus::reconcileAdded);
}

template <class T>
Index HandleAccessor<T>::reconcileUsingIndexHelper(Operation const& operation, Value const& value,
                                                   Compare compare) {
  using enum ReconciliationStatus;
  constexpr std::string_view name = "reconcileUsingIndexHelper";
  auto const& key = operation.key();
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  auto const helper = handle ? swTable_->indexHelper(*handle) : nullptr;
  if (!helper) {
    trace(traceKey, name, "Index suggestions unavailable");
    return {};
  }
  trace(traceKey, name, ": key:", T::keyText(key));
  for (Zarn::HashMap2018IteratorGeneric at(helper->indices()); at && !operation.isOvertaken();
       at.advance()) {
    Index const index = at.currNodeMaybeStale()->key().value();
    auto const found = foundRows(key, index);
    // A comparison needs something found; a block says itself which of its rows was not.
    if (!Trait::isBlockTable<T> && compare == Compare::yes && found == EntryLife::Found::no)
      continue;
    if (!self().reconcileUsingHwIndex(operation, value, index, compare)) continue;
    placeIs(*handle, found, compare == Compare::yes ? reconcileMatched : reconcileRewritten);
    swTable_->indexHelperDel(*handle);
    if (!Trait::isBlockTable<T>)
      trace(traceKey, name, ": Deleting syncedEntry reconciled at index:", index);
    for (U32 i = 0; i < T::blockSizeOf(key); ++i) swTable_->syncedEntryDel(index.value() + i);
    if (!Trait::isBlockTable<T>)
      trace(traceKey, name, ": Reconciled key:", T::keyText(key), ", hwIndex:", index);
    return index;
  }
  return {};
}

}  // namespace Asic
