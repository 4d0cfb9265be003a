// The operations of the generic logic of tables with entry handles. Included by the sources that
// instantiate tables.

#pragma once

#include <cstdlib>
#include <vector>

#include "containers/HashMap2018Iterator.h"
#include "frame/HandleAccessor.h"
#include "platform/asic/UnresolvedEntry.h"

namespace Asic {

// ---- hooks of handles ----

template <class T>
void HandleAccessor<T>::handleEntryState(EntryHandle const& handle, Key const& key) const {
  using enum SwTableBase::EntryState;
  auto const state = handle.entryState();
  trace(traceLife, "handleEntryState", " entryhandle state: ", state,
        " at key : ", T::keyText(key));
  switch (state) {
    case frameworkComplete:
    case failedNeededEntry:
    case failedNoIndex:
      VELL_ASSERT(handle.entryType() != SwTableBase::EntryType::inDeletion,
                  "entryHandle->entryType() != EntryHandle::inDeletion()", T::names.qualified,
                  " key ", T::keyText(key), " state ", state);
      break;
    default:
      VELL_ASSERT(state <= failedNoIndex, "0", T::names.qualified, ": an entry state ",
                  static_cast<U32>(state), " that does not exist");
  }
  trace(traceLife, "handleEntryState", " entryhandle state: COMPLETE  ", state,
        " at key : ", T::keyText(key));
}

template <class T>
void HandleAccessor<T>::handleResolvedEntryState(EntryHandle& handle) const {
  handle.entryStateIs(handle.resolvedEntryState());
}

template <class T>
Index HandleAccessor<T>::hwIndexForDependentField(EntryHandle const& handle) const {
  auto const util = this->utilIfExists();
  return util ? util->hwIndexForDependentField(handle) : handle.hwIndex();
}

// ---- one key ----

template <class T>
void HandleAccessor<T>::handleEntry(Key const& key) {
  this->template message<"handleEntry">();
  trace(traceKey, "handleEntry", " key: ", T::keyText(key),
        ", configReplayComplete: ", swTable_->configReplayComplete());
  if (!swTable_->resolvedHas(key))
    self().removeHwEntry(key);
  else if (swTable_->configReplayComplete())
    self().programHwEntry(key, SwTableBase::EntryState::inProgress);
  else
    replayEntry(key);
}

template <class T>
void HandleAccessor<T>::replayEntry(Key const& key) {
  using enum ReconciliationStatus;
  if constexpr (Trait::tableNeedsDeleteDance<T>)
    if (!swTable_->hasValue(key)) return self().writeWithoutValue(key);
  auto const status = self().reconcileSyncedEntry(key);
  trace(traceKey, "handleEntry", ": reconcileStatus: ", status);
  if (!swTable_->resolvedHas(key)) return;  // a hook removed it, and that was carried
  // Taken after the comparison, which may have given the key its index.
  auto const hwIndex = doRetrieveHwIndex(key).value();
  switch (status) {
    case reconcileRewritten:
      adoptIndex(key, hwIndex, status);
      placeWasFoundWhole_ = isFoundWhole(key, hwIndex);
      self().programHwEntry(key, SwTableBase::EntryState::indexReconciled);
      self().syncedRowsDel(hwIndex, T::blockSizeOf(key));
      break;
    case reconcileMatched:
      adoptIndex(key, hwIndex, status);
      self().syncedRowsDel(hwIndex, T::blockSizeOf(key));
      break;
    case reconcileNone:
      // It waits for a suggestion, or for the end of the replay, in the state that both look for.
      if (Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
          handle && hwIndex.isExhausted())
        handle->entryStateIs(SwTableBase::EntryState::unresolved);
      return;
    case reconcileAdded:
      self().programHwEntry(key, SwTableBase::EntryState::inProgress);
      break;
    default:
      VELL_ASSERT(false, "false", T::names.qualified, ": a replay cannot end in ", status);
  }
  swTable_->reconcilingEntryIs(false);
  swTable_->updateStatistic(status);
}

// ---- suggestions, and the end of the replay ----

template <class T>
void HandleAccessor<T>::handleIndexSuggestions(EntryHandle& handle, IndexSet const& indices) {
  VELL_ASSERT(handle.entryState() == SwTableBase::EntryState::unresolved,
              "eh->entryState() == unresolved()", T::names.qualified, " key ",
              T::keyText(handle.key()), " state ", handle.entryState());
  VELL_ASSERT(!swTable_->configReplayComplete(), "swTable_->configReplayInProgress()",
              T::names.qualified, ": suggestions are for the replay");
  constexpr std::string_view name = "handleIndexSuggestions";
  trace(traceKey, name, ": eh:", static_cast<void const*>(&handle),
        ", key:", T::keyText(handle.key()), ", numSuggestions:", indices.size());
  Vell::Ptr<EntryHandle> const held(&handle);
  auto const util = this->utilIfExists();
  VELL_ASSERT(util, "util", T::names.qualified, ": a suggestion, and no hooks that found rows");
  auto const helper = swTable_->indexHelperIs(handle);
  helper->allocatorIs(swTable_->indexAllocator());
  for (auto const value : indices) {
    if (handle.entryState() != SwTableBase::EntryState::unresolved)
      return;  // settled by what was called
    auto const index = util->dependentFieldValueToHwIndex(value);
    if (helper->indexHas(index)) continue;  // dealt with
    helper->indexIs(index);
    trace(traceKey, name, ": hwIndex:", index);
    if (self().processIndexSuggestion(handle, index)) return;
  }
}

template <class T>
bool HandleAccessor<T>::awaitsIndex(EntryHandle const& handle) const {
  // One that waits for what it needs keeps a former value as it is, and so does one that did.
  auto const& key = handle.key();
  return handle.entryState() == SwTableBase::EntryState::unresolved && swTable_->hasValue(key) &&
         !swTable_->unresolvedHas(key) && !swTable_->entryInHwTable(key);
}

/// A value that waited was taken back, and the former one is in place.
template <class T>
bool HandleAccessor<T>::isInPlaceUntold(EntryHandle const& handle) const {
  return Trait::tableNeedsDeleteDance<T> &&
         handle.entryState() == SwTableBase::EntryState::unresolved && T::isInHwTable(handle) &&
         swTable_->hasValue(handle.key()) && !swTable_->unresolvedHas(handle.key());
}

template <class T>
void HandleAccessor<T>::doInitComplete() {
  AccessorBase<T>::doInitComplete();
  // First those that have candidates, so that no new index takes one of them away.
  forEachHandle([this](EntryHandle& handle) {
    if (awaitsIndex(handle) && swTable_->indexHelper(handle)) settleCandidates(handle);
  });
  forEachHandle([this](EntryHandle& handle) {
    if (awaitsIndex(handle))
      programAsAdded(handle.key());
    else if (isInPlaceUntold(handle))
      handle.entryStateIs(handle.resolvedEntryState());
  });
  swTable_->indexHelperDelAll();  // also those of entries that need no place any more
  swTable_->reconcilingEntryIs(false);
}

template <class T>
void HandleAccessor<T>::settleCandidates(EntryHandle& handle) {
  auto const hwIndex = doRetrieveHwIndex(handle.key()).value();
  hwIndex.isExhausted() ? placeAtCandidate(handle) : placeAtKnownIndex(handle, hwIndex);
  swTable_->indexHelperDel(handle);
}

/// Overwrites the first candidate that the allocator accepts, whatever the hardware holds there.
template <class T>
void HandleAccessor<T>::placeAtCandidate(EntryHandle& handle) {
  auto const key = handle.key();
  auto const index = self().reconcileUsingIndexHelper(key, Compare::no);
  // A watcher may have removed it, and its index may be another's.
  if (index.isExhausted() || doRetrieveHwIndex(key) != index) return;
  handle.hwIndexIs(index);
  // The record of the row has gone: only the entry itself can tell whether the tracker knows it.
  swTable_->resolvedKeyPriorIs(SwTable::KeyPrior::noKey);
  self().programHwEntry(key, SwTableBase::EntryState::indexReconciled);
  swTable_->updateStatistic(ReconciliationStatus::reconcileRewritten);
}

template <class T>
void HandleAccessor<T>::placeAtKnownIndex(EntryHandle& handle, Index hwIndex) {
  auto const key = handle.key();
  handle.hwIndexIs(hwIndex);
  if (swTable_->syncedEntryMap().lookup(hwIndex)) {
    handle.overFoundRowIs(true);
    placeWasFoundWhole_ = isFoundWhole(key, hwIndex);
    self().programHwEntry(key, SwTableBase::EntryState::indexReconciled);
    swTable_->updateStatistic(ReconciliationStatus::reconcileRewritten);
  } else {
    programAsAdded(key);
  }
  for (U32 i = 0; i < T::blockSizeOf(key); ++i) swTable_->syncedEntryDel(hwIndex.value() + i);
}

template <class T>
void HandleAccessor<T>::programAsAdded(Key const& key) {
  auto const copied = key;
  swTable_->resolvedKeyPriorIs(SwTable::KeyPrior::noKey);
  self().programHwEntry(copied, SwTableBase::EntryState::inProgress);
  swTable_->updateStatistic(ReconciliationStatus::reconcileAdded);
}

// ---- what an entry needs ----

template <class T>
template <class Record>
void HandleAccessor<T>::watchNeeded(Record& record, SwTableBase::EntryHandle const* needed) const {
  if (needed && !SwTable::UnresolvedEntry::isUsable(*needed, this->utilIfExists().get()))
    record.neededEntryHandleSmIs(*needed);
}

template <class T>
template <class Record>
void HandleAccessor<T>::markFailedNeededEntry(Record& record) const {
  auto const key = record.key();
  if (Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key))
    handle->entryStateIs(SwTableBase::EntryState::failedNeededEntry);
}

template <class T>
template <class Entry>
void HandleAccessor<T>::suggestIndexToNeededTable(Entry const& swEntry,
                                                  Entry const& syncedEntry) const {
  trace(traceKey, "suggestIndexToNeededTable", ": swEntry:", swEntry,
        ", syncedEntry:", syncedEntry);
  auto const needed = swEntry.neededEntryHandle();  // held until it has been told
  if (needed && needed->entryState() == SwTableBase::EntryState::unresolved)
    SwTableBase::suggestIndicesToNeededEntryHandle(*needed, {syncedEntry.neededIndex()});
}

// ---- removal ----

template <class T>
void HandleAccessor<T>::entryRemove(Key const& key) {
  using enum SwTableBase::EntryType;
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  int const type = handle ? static_cast<int>(handle->entryType()) : -1;
  U32 const refCnt = handle ? handle->useCount() : 0;
  static constinit Fennlog::Site site("{}: {} entryType: {}, refCnt: {}", T::names.brief(),
                                      "entryRemove");
  Fennlog::write(site, type, refCnt);
  trace(traceClient, "entryRemove", ": key:", T::keyText(key), ", entryType:", type,
        ", refCnt:", refCnt);
  if (!handle || handle->entryType() == referenceOnly || handle->entryType() == inDeletion) {
    trace(traceClient, "entryRemove", " : Found no committed entry at key : ", T::keyText(key));
    return;
  }
  if (handle->entryType() == unset) {
    swTable_->entryHandleDel(key);
    return;
  }
  trace(traceClient, "entryRemove", " : Removing entry at key : ", T::keyText(key));
  auto const commits = handle->commits();
  // First of all, so that an entry that waits can resolve no more.
  swTable_->unresolvedDel(key);
  if (handle->commits() != commits) return;  // a watcher of that committed it anew
  if constexpr (Trait::tableNeedsDeleteDance<T>) self().releaseUnusedIndex(key);
  handle->entryTypeIs(referenceOnly);
  handle->tableUseIs(EntryHandle::TableUse::uncounted);
  // If nobody else holds the handle, the use held here is the last: its end removes the entry.
}

template <class T>
auto HandleAccessor<T>::removeEntryOf(EntryHandle& handle, Key const& key) -> Removal {
  auto const claims = handle.claims();
  // Also by a reference to an entry that has no value yet.
  auto const isKnown = [&] {
    return swTable_->unresolvedHas(key) || swTable_->resolvedHas(key) || handle.claims() != claims;
  };
  bool const waited = swTable_->unresolvedHas(key);
  swTable_->unresolvedDel(key);
  if (waited && isKnown()) return Removal::cameBack;
  VELL_ASSERT(handle.entryType() == SwTableBase::EntryType::referenceOnly,
              "eh->entryType() == EntryHandle::referenceOnly()", "unexpected entryType ",
              handle.entryType(), " of ", T::names.qualified, " key ", T::keyText(key));
  swTable_->resolvedDel(key);
  return isKnown() ? Removal::cameBack : Removal::done;
}

template <class T>
void HandleAccessor<T>::cleanup(EntryHandle& handle) {
  handle.doAmendReferences();
  static constinit Fennlog::Site site("{}: {} entryHandle : 0x{:x}", T::names.brief(), "cleanup");
  Fennlog::write(site, reinterpret_cast<std::uintptr_t>(&handle));
  auto const key = handle.key();
  trace(traceLife, "cleanup", " : entryhandle cleanup, eh : ", static_cast<void const*>(&handle),
        ", key :", T::keyText(key), ", refCnt:", handle.useCount());
  auto const isOwn = [&] { return swTable_->entryHandle(key).get() == &handle; };
  if (!isOwn()) {
    // A handle that is not the table's own for its key has nothing to remove.
    if constexpr (Trait::tableNeedsDeleteDance<T>) self().handleOutsideGone(handle, key);
    return;
  }
  for (U32 walks = 0;; ++walks) {
    VELL_ASSERT(walks < mostCleanupWalks, "walks < mostCleanupWalks", T::names.qualified,
                ": its watchers bring an entry back without end while it goes");
    auto const removal = self().removeEntryOf(handle, key);
    if (removal == Removal::done) break;
    if (removal == Removal::cameBack && !isHeldAnew(handle) && isOwn()) continue;
    // What began to leave may have left by now; nobody else's last use will end that.
    if constexpr (Trait::tableNeedsDeleteDance<T>)
      if (!isOwn() && handle.entryType() == SwTableBase::EntryType::inDeletion &&
          handle.useCount() == 1)
        self().handleOutsideGone(handle, key);
    return;
  }
  swTable_->entryHandleDel(key);
}

template <class T>
bool HandleAccessor<T>::isHeldAnew(EntryHandle& handle) {
  if (handle.entryType() == SwTableBase::EntryType::committed) return true;
  // For the duration of this; and by the table, unless what watchers did took that back again.
  U32 const heldHere = handle.tableUse() == EntryHandle::TableUse::counted ? 2 : 1;
  if (handle.useCount() <= heldHere) return false;
  handle.tableUseIs(EntryHandle::TableUse::uncounted);
  return true;
}

template <class T>
void HandleAccessor<T>::entryHandleRemoveAll() {
  trace(traceClient, "entryHandleRemoveAll");
  std::vector<Vell::Ptr<EntryHandle>> held;
  held.reserve(swTable_->entryHandleMap().count());
  for (Zarn::HashMap2018IteratorGeneric at(swTable_->entryHandleMap()); at; at.advance()) {
    held.push_back(at.currNodeMaybeStale()->value_);
    auto const key = held.back()->key();
    entryRemove(key);
  }
  // Now that nobody walks the collection, the entries may go, in the order of the walk.
  for (auto& handle : held) handle = nullptr;
}

template <class T>
void HandleAccessor<T>::entryRemoveAll() {
  this->template message<"entryRemoveAll">();
  trace(traceClient, "entryRemoveAll");
  entryHandleRemoveAll();
  VELL_ASSERT(!this->utilIfExists() || swTable_->syncedEntryMap().empty(), "false",
              "Should call purgeStaleEntries instead: ", T::names.qualified, " holds ",
              swTable_->syncedEntryMap().count(), " rows that nobody claimed");
}

template <class T>
void HandleAccessor<T>::cleanup() {
  trace(traceLife, "cleanup");
  if constexpr (Trait::needsEntries<T>) swTable_->unresolvedWatchesEnd();
  for (Zarn::HashMap2018IteratorGeneric at(swTable_->entryHandleMap()); at; at.advance()) {
    Vell::Ptr<EntryHandle> const handle = at.currNodeMaybeStale()->value_;
    handle->swTableIs(nullptr);
    handle->doAmendReferences();
  }
  if constexpr (Trait::tableNeedsDeleteDance<T>) swTable_->leaversForget();
  for (U32 walks = 0; swTable_->resolvedCount() != 0; ++walks) {
    VELL_ASSERT(walks < mostCleanupWalks, "walks < mostCleanupWalks", T::names.qualified,
                ": its watchers commit without end while the table goes");
    swTable_->resolvedDelAll();
  }
  leaveAllocator();
  if (this->utilIfExists()) IndexUserTracker::Stub::deleteTracker(swTable_->hwTable(), 0, false);
}

// ---- indices ----

template <class T>
void HandleAccessor<T>::doInitAllocator() {
  using Allocator = typename T::IndexAllocator;
  trace(traceLife, "initAllocator",
        "Creating shared allocator of type: ", Allocator::type().data().name,
        " for table: ", T::names.qualified);
  VELL_ASSERT(swTable_, "table", T::names.qualified);
  auto const shalloc = GenericIndexAllocatorStub::createSharedAllocator(
      swTable_->typeData(), Allocator::type(), *swTable_);
  VELL_ASSERT(shalloc, "shalloc", T::names.qualified, ": no allocator of type ",
              Allocator::type().data().name);
  Vell::Ptr<Allocator> const allocator = static_cast<Allocator*>(shalloc.get());
  swTable_->indexAllocatorStore(allocator);
  allocator->setTableAttr(*swTable_,
                          {T::keyType(), &indexKeyType<Key>, [table = swTable_](auto* key) {
                             auto const& asked = *static_cast<Key const*>(key);
                             return table->resolvedHas(asked) || table->unresolvedHas(asked);
                           }});
  allocator->sizeIs(swTable_->numEntries());
  T::setUpAllocator(*allocator);
  allocator->initializedIs(true);
}

template <class T>
Zarn::Optional<Index> HandleAccessor<T>::doRetrieveHwIndex(Key const& key) const {
  return allocator().indexForKey(T::keyType(), &key);
}

template <class T>
bool HandleAccessor<T>::waitsAnew(Key const& key) const {
  if constexpr (Trait::needsEntries<T>)
    if (auto const record = swTable_->unresolved(key))
      return record->neededEntryHandleSms() != 0;  // else it is the one that is being resolved
  return false;
}

template <class T>
bool HandleAccessor<T>::isFoundWhole(Key const& key, Index hwIndex) const {
  for (U32 i = 0; i < T::blockSizeOf(key); ++i)
    if (!swTable_->syncedEntryMap().lookup(hwIndex.value() + i)) return false;
  return true;
}

template <class T>
void HandleAccessor<T>::adoptIndex(Key const& key, Index hwIndex, ReconciliationStatus status) {
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  if (!handle) return;
  handle->writeBegins();
  handle->trackedIs(true);
  swTable_->indexHelperDel(*handle);
  handle->hwIndexIs(hwIndex);
  handle->overFoundRowIs(status == ReconciliationStatus::reconcileRewritten);
  if (status != ReconciliationStatus::reconcileMatched) return;
  if (!waitsAnew(key)) handle->entryStateIs(SwTableBase::EntryState::indexReconciled);
  handle->resolvedEntryStateIs(SwTableBase::EntryState::indexReconciled);
  doCompleteEntryHandleForTesting(key);
}

template <class T>
template <class Visitor>
void HandleAccessor<T>::forEachHandle(Visitor&& visitor) {
  for (Zarn::HashMap2018IteratorGeneric at(swTable_->entryHandleMap()); at; at.advance()) {
    Vell::Ptr<EntryHandle> const handle = at.currNodeMaybeStale()->value_;
    visitor(*handle);
  }
}

template <class T>
auto HandleAccessor<T>::allocator() const -> typename T::IndexAllocator& {
  VELL_ASSERT(swTable_->indexAllocator(), "indexAllocator", T::names.qualified,
              ": entries can be written from doCreateAllocator on, until the table has gone");
  return *swTable_->indexAllocator();
}

template <class T>
void HandleAccessor<T>::leaveAllocator() {
  Vell::Ptr<typename T::IndexAllocator> const allocator = swTable_->indexAllocator();
  if (!allocator) return;
  if (allocator->tableAttrHas(*swTable_)) {
    trace(traceLife, "cleanup",
          "Trying to delete shared allocator for table:", static_cast<void const*>(swTable_));
    GenericIndexAllocatorStub::freeSharedAllocator(swTable_->typeData(), allocator->typeData(),
                                                   *swTable_);
  }
  swTable_->indexAllocatorIs(nullptr);
}

template <class T>
bool HandleAccessor<T>::publishEntryHandleProgrammedState() {
  static bool const publishEntryHandleProgrammedState = [] {
    char const* const text = std::getenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE");
    return text && static_cast<U32>(std::strtol(text, nullptr, 10)) != 0;
  }();
  return publishEntryHandleProgrammedState;
}

template <class T>
void HandleAccessor<T>::doCompleteEntryHandleForTesting(Key const& key) {
  using enum SwTableBase::EntryState;
  if (!publishEntryHandleProgrammedState()) return;
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  if (!handle || !swTable_->resolvedHas(key)) return;  // a hook may have removed it
  auto const hwIndex = doRetrieveHwIndex(key).value();
  handle->hwIndexIs(hwIndex);
  handle->resolvedEntryStateIs(hwIndex.isExhausted() ? failedNoIndex : success);
}

}  // namespace Asic
