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
  if (wish.isRevoked() && !swTable_->entryHandle(wish.key()))
    return new EntryHandle(wish.key(), nullptr);
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
  if constexpr (Trait::needsEntries<T>) {
    bool const hasWaited = swTable_->unresolvedDel(key) != nullptr;
    if (hasWaited || Trait::tableNeedsDeleteDance<T>) unusedIndexDel(key);
  }
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
  if (operation.isOvertaken()) return;  // it is back, in the life that it had
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
  if (swTable_->isGoing()) return this->refuse("entryRemove", T::keyText(key));
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  if (!handle || handle->entryType() == referenceOnly || handle->entryType() == inDeletion) {
    Operation const recall(*swTable_, key, Stage::recall);
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
  if (revocation.isRevoked()) return;
  if constexpr (Trait::tableNeedsDeleteDance<T>)
    if (!revocation.isOvertaken() && handle->useCount() > 2) self().formerValueCounts(*handle);
  if (revocation.isRevoked()) return;
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
  auto const key = handle.key();
  if (!isOwn(handle)) {
    tellCleanup(handle, key);
    return self().removeOutside(handle, key);
  }
  for (U32 walks = 0; isOwn(handle); ++walks) {
    VELL_ASSERT(walks < mostCleanupWalks, "walks < mostCleanupWalks", T::names.qualified,
                ": its watchers bring an entry back without end while it goes");
    Operation const removal(*swTable_, key, Stage::removal);
    if (walks == 0) tellCleanup(handle, key);
    if (!removal.isOvertaken()) self().removeEntryOf(removal, handle);
    if (!removal.isOvertaken() || (isOwn(handle) && isHeldAnew(handle))) break;
    if (handle.entryType() == SwTableBase::EntryType::inDeletion) break;  // by a newer removal
  }
  // What began to leave in steps may have left by now; nobody else's last use will end that.
  if (!isOwn(handle) && handle.swTable() && handle.useCount() == 1)
    self().removeOutside(handle, key);
}

/// Of one that left the table before anybody had claimed it goes what the key has; any other handle that
/// is not the key's own has nothing to remove.
template <class T>
void HandleAccessor<T>::removeOutside(EntryHandle& handle, Key const& key) {
  bool const endsTheEntry =
      handle.entryType() == SwTableBase::EntryType::unset && !swTable_->entryHandle(key);
  swTable_->outsiderForget(handle);
  if (!endsTheEntry) return;
  Operation const removal(*swTable_, key, Stage::removal);
  recordDel(key);
  if (!removal.isOvertaken()) self().deleteResolvedEntry(key);
}

template <class T>
void HandleAccessor<T>::needReferenceOnly(EntryHandle const& handle) const {
  VELL_ASSERT(handle.entryType() == SwTableBase::EntryType::referenceOnly,
              "eh->entryType() == EntryHandle::referenceOnly()", "unexpected entryType ",
              handle.entryType(), " of ", T::names.qualified, " key ", T::keyText(handle.key()));
}

template <class T>
void HandleAccessor<T>::tellCleanup(EntryHandle const& handle, Key const& key) const {
  static constinit Fennlog::Site site("{}: {} entryHandle : 0x{:x}", T::names.brief(), "cleanup");
  Fennlog::write(site, reinterpret_cast<std::uintptr_t>(&handle));
  trace(traceLife, "cleanup", " : entryhandle cleanup, eh : ", static_cast<void const*>(&handle),
        ", key :", T::keyText(key), ", refCnt:", handle.useCount());
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

#include "frame/PlaceDefinitions.h"
