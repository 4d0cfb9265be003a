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
  return util ? hook([&] { return util->hwIndexForDependentField(handle); }) : handle.hwIndex();
}

// ---- wishes ----

template <class T>
auto HandleAccessor<T>::refused(std::string_view operation, Key const& key) const -> HandlePtr {
  this->refuse(operation, T::keyText(key));
  return new EntryHandle(key, nullptr);
}

/// The client's attribute of a handle starts anew with whoever is the first to claim it.
template <class T>
auto HandleAccessor<T>::claimedHandle(Operation const& wish) const -> Vell::Ptr<EntryHandle> {
  constexpr bool hasBlockSize = T::handleFields.blockSize != 0;
  auto handle = swTable_->entryHandleIs(wish.key(), swTable_);
  if (wish.isRevoked()) return handle;
  bool const isFirst = handle->entryType() == SwTableBase::EntryType::unset;
  if (wish.stage() == Stage::commit) {
    if (hasBlockSize && isFirst) handle->blockSizeIs(0);
    if (!wish.isRevoked()) handle->committed();
  } else if (handle->referenced() && hasBlockSize) {
    handle->blockSizeIs(0);
  }
  return handle;
}

template <class T>
bool HandleAccessor<T>::waits(Key const& key) const {
  if constexpr (Trait::needsEntries<T>)
    if (auto const record = swTable_->unresolved(key))
      return record->neededEntryHandleSms() != 0;  // else it is the one that is being resolved
  return false;
}

template <class T>
void HandleAccessor<T>::recordDel(Key const& key) {
  if (!swTable_->unresolvedHas(key)) return;
  swTable_->unresolvedDel(key);
  unusedIndexDel(key);
}

// ---- one key ----

template <class T>
void HandleAccessor<T>::handleEntry(Operation& operation, Value const* value) {
  this->template message<"handleEntry">();
  trace(traceKey, "handleEntry", " key: ", T::keyText(operation.key()),
        ", configReplayComplete: ", swTable_->configReplayComplete());
  if (!value)
    removeHwEntry(operation);
  else if (swTable_->configReplayComplete())
    self().template programHwEntry<Fennlog::Time::asMessageBefore>(operation, *value,
                                                                   EntryState::inProgress);
  else
    replayEntry(operation, *value);
}

template <class T>
void HandleAccessor<T>::removeHwEntry(Operation& operation) {
  auto const& key = operation.key();
  auto const hwIndex = doRetrieveHwIndex(key).value();
  traceHwIndex(hwIndex);
  auto const util = this->utilIfExists();
  // From here on the handle leads no dependent there, also none that comes from a hook.
  auto const life = endLife(key, hwIndex);
  // An entry that was never written has nothing here, also if another table has given its key an
  // index meanwhile.
  bool const isInHardware =
      util && !hwIndex.isExhausted() && life.tracked != EntryLife::Tracked::no;
  if (isInHardware)
    self().hwTableEntryDel(*util, operation, hwIndex, life);
  else if (util)
    trace(traceKey, "handleEntry", "No entry in HwTable for this key. Skip delete");
  if (hwIndex.isExhausted() || operation.isOvertaken()) return;  // who came back has the index
  if (isInHardware && !swTable_->configReplayComplete())
    swTable_->updateStatistic(ReconciliationStatus::reconcileDeleted);
  // The rows are gone before the index is free.
  releaseIndex(key);
}

template <class T>
void HandleAccessor<T>::replayEntry(Operation& operation, Value const& value) {
  using enum ReconciliationStatus;
  constexpr auto partOfHandleEntry = Fennlog::Time::asMessageBefore;
  if constexpr (Trait::tableNeedsDeleteDance<T>)
    if (!value) return self().writeWithoutValue(operation, value);
  auto const& key = operation.key();
  auto const status = self().reconcileSyncedEntry(operation, value);
  trace(traceKey, "handleEntry", ": reconcileStatus: ", status);
  if (operation.isOvertaken()) return;
  // Taken after the comparison, which may have given the key its index.
  auto const hwIndex = doRetrieveHwIndex(key).value();
  switch (status) {
    case reconcileRewritten:
      adoptIndex(operation, hwIndex, status);
      self().template programHwEntry<partOfHandleEntry>(operation, value,
                                                        EntryState::indexReconciled);
      self().syncedRowsDel(hwIndex, T::blockSizeOf(key));
      break;
    case reconcileMatched:
      adoptIndex(operation, hwIndex, status);
      self().syncedRowsDel(hwIndex, T::blockSizeOf(key));
      break;
    case reconcileNone:
      return waitForPlace(key, hwIndex);
    case reconcileAdded:
      self().template programHwEntry<partOfHandleEntry>(operation, value, EntryState::inProgress);
      break;
    default:
      VELL_ASSERT(false, "false", T::names.qualified, ": a replay cannot end in ", status);
  }
  swTable_->reconcilingEntryIs(false);
  swTable_->updateStatistic(status);
}

/// For a suggestion, or for the end of the replay, in the state that both look for.
template <class T>
void HandleAccessor<T>::waitForPlace(Key const& key, Index hwIndex) const {
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  if (handle && hwIndex.isExhausted() && !waits(key)) handle->entryStateIs(EntryState::unresolved);
}

// ---- the place of an entry ----

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
  // A candidate that fitted was noted as its place before its synced rows went.
  if (!isMatched || !handle->life().isTried)
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
  auto const index = self().reconcileUsingIndexHelper(operation, value, Compare::no);
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
  if (needed && needed->entryState() == EntryState::unresolved)
    SwTableBase::suggestIndicesToNeededEntryHandle(*needed, {syncedEntry.neededIndex()});
}

// ---- removal ----

template <class T>
void HandleAccessor<T>::entryRemove(Key const& key) {
  using enum SwTableBase::EntryType;
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  if (!handle || handle->entryType() == referenceOnly || handle->entryType() == inDeletion) {
    tellRemove(key, handle.get());
    trace(traceClient, "entryRemove", " : Found no committed entry at key : ", T::keyText(key));
    return;
  }
  Operation const revocation(*swTable_, key, Stage::revocation);
  tellRemove(key, handle.get());
  if (handle->entryType() == unset) {
    swTable_->entryHandleDel(key);
    return;
  }
  trace(traceClient, "entryRemove", " : Removing entry at key : ", T::keyText(key));
  // First of all, so that an entry that waits can resolve no more.
  if (!revocation.isOvertaken()) recordDel(key);
  if (revocation.isOvertaken()) return;
  handle->entryTypeIs(referenceOnly);
  handle->tableUseIs(EntryHandle::TableUse::uncounted);
  // If nobody else holds the handle, the use held here is the last: its end removes the entry.
}

template <class T>
void HandleAccessor<T>::tellRemove(Key const& key, EntryHandle const* handle) const {
  int const type = handle ? static_cast<int>(handle->entryType()) : -1;
  U32 const refCnt = handle ? handle->useCount() : 0;
  static constinit Fennlog::Site site("{}: {} entryType: {}, refCnt: {}", T::names.brief(),
                                      "entryRemove");
  Fennlog::write(site, type, refCnt);
  trace(traceClient, "entryRemove", ": key:", T::keyText(key), ", entryType:", type,
        ", refCnt:", refCnt);
}

template <class T>
void HandleAccessor<T>::cleanup(EntryHandle& handle) {
  handle.doAmendReferences();
  static constinit Fennlog::Site site("{}: {} entryHandle : 0x{:x}", T::names.brief(), "cleanup");
  Fennlog::write(site, reinterpret_cast<std::uintptr_t>(&handle));
  auto const key = handle.key();
  bool const isOutside = !isOwn(handle);
  trace(traceLife, "cleanup", " : entryhandle cleanup, eh : ", static_cast<void const*>(&handle),
        ", key :", T::keyText(key), ", refCnt:", handle.useCount());
  if (isOutside) return self().removeOutside(handle, key);
  for (U32 walks = 0; isOwn(handle); ++walks) {
    VELL_ASSERT(walks < mostCleanupWalks, "walks < mostCleanupWalks", T::names.qualified,
                ": its watchers bring an entry back without end while it goes");
    Operation const removal(*swTable_, key, Stage::removal);
    self().removeEntryOf(removal, handle);
    if (!removal.isOvertaken() || (isOwn(handle) && isHeldAnew(handle))) break;
  }
  // What began to leave in steps may have left by now; nobody else's last use will end that.
  if (!isOwn(handle) && handle.swTable() && handle.useCount() == 1)
    self().removeOutside(handle, key);
}

/// Whether somebody holds an entry that was claimed while its removal went on.
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
  forEachHandle([](EntryHandle& handle) {
    handle.swTableIs(nullptr);
    handle.doAmendReferences();
  });
  swTable_->outsidersForget();
  swTable_->resolvedDelAll();  // nobody brings more: the table takes no wish now
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
  allocator->setTableAttr(*swTable_, {T::keyType(), &indexKeyType<Key>,
                                      [table = swTable_](auto* key) {
                                        auto const& asked = *static_cast<Key const*>(key);
                                        return table->resolvedHas(asked) ||
                                               table->unresolvedHas(asked);
                                      },
                                      swTable_->numEntries()});
  allocator->sizeIs(swTable_->numEntries());
  T::setUpAllocator(*allocator);
  allocator->initializedIs(true);
}

template <class T>
Zarn::Optional<Index> HandleAccessor<T>::doRetrieveHwIndex(Key const& key) const {
  return allocator().indexForKey(T::keyType(), &key, swTable_);
}

template <class T>
void HandleAccessor<T>::releaseIndex(Key const& key) {
  Vell::Ptr<typename T::IndexAllocator> const held = swTable_->indexAllocator();
  held->releaseIndexFromTable(T::keyType(), &key, *swTable_);
}

template <class T>
void HandleAccessor<T>::unusedIndexDel(Key const& key) {
  if (!swTable_->resolvedHas(key) && !swTable_->unresolvedHas(key) && swTable_->indexAllocator())
    releaseIndex(key);
}

template <class T>
bool HandleAccessor<T>::isWritten(Key const& key) const {
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  return !handle || handle->life().tracked != EntryLife::Tracked::no;
}

template <class T>
bool HandleAccessor<T>::isRowTaken(Index row) const {
  auto const owner = swTable_->swKeyFromHwIndex(row);
  return owner && swTable_->resolvedHas(*owner) && isWritten(*owner);
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
