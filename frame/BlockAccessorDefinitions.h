// The operations of the generic logic of block tables. Included by the sources that instantiate
// tables.

#pragma once

#include "containers/HashMap2018Iterator.h"
#include "frame/BlockAccessor.h"
#include "frame/HandleAccessorDefinitions.h"
#include "platform/asic/UnresolvedEntry.h"

namespace Asic {

// ---- programming ----

template <class T>
void BlockAccessor<T>::syncedRowsDel(Index hwIndex, U32 rows) {
  for (U32 i = 0; i < rows; ++i) swTable_->syncedEntryDel(hwIndex.value() + i);
}

template <class T>
void BlockAccessor<T>::removeHwEntry(Key const& key) {
  auto const hwIndex = this->doRetrieveHwIndex(key).value();
  this->traceHwIndex(hwIndex);
  auto const util = this->utilIfExists();
  if (hwIndex.isExhausted()) {
    if (util) trace(traceKey, "handleEntry", "No entry in HwTable for this key. Skip delete");
    return;
  }
  // From here on the handle must lead no dependent there, also none that comes from a hook.
  if (Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key)) {
    handle->hwIndexIs(Index());
    handle->trackedIs(false);
  }
  if (util) {
    trace(traceKey, "hwTableEntryDel", ": Deleting entry at key:", key);
    // A hook may bring the entry back, which then has all its rows anew, at the index that it still had;
    // or bring it back and remove it. What the tracker had of it before ends all the same.
    auto const isLeaving = [&] {
      return !swTable_->resolvedHas(key) && this->doRetrieveHwIndex(key) == hwIndex;
    };
    for (U32 i = 0, rows = T::blockSizeOf(key); i < rows; ++i) {
      U32 const row = hwIndex.value() + i;
      util->updateHwIndexRefCountTracker(swTable_->hwTable(), row, Tracker::userRemove);
      if (isLeaving()) util->hwTableEntryDel(*swTable_, row);
    }
    if (!isLeaving()) return;
    if (!swTable_->configReplayComplete())
      swTable_->updateStatistic(ReconciliationStatus::reconcileDeleted);
  }
  // The rows are gone before the index is free.
  Vell::Ptr<typename T::IndexAllocator> const allocator = swTable_->indexAllocator();
  allocator->releaseIndexFromTable(T::keyType(), &key, *swTable_);
}

template <class T>
void BlockAccessor<T>::programHwEntry(Key const& key, EntryState entryState) {
  using enum SwTableBase::EntryState;
  // Part of `handleEntry`, whose message is just written.
  this->template message<"programHwEntry", Fennlog::Time::asMessageBefore>();
  trace(traceKey, "programHwEntry", " key: ", key, ", entryState:", entryState);
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  auto const util = this->utilIfExists();
  // In that state those that need the entry go on at once, and point at its rows: where these are not
  // all there yet, they hear of it when it is written.
  bool const isTooEarly = entryState == indexReconciled && util && !this->placeWasFoundWhole_;
  if (handle) handle->writeBegins();
  auto const writes = handle ? handle->writes() : 0;
  // A watcher or a hook wrote it anew, or removed it: that was carried.
  auto const isOvertaken = [&] {
    return handle && (handle->writes() != writes || !swTable_->resolvedHas(key));
  };
  if (handle && !isTooEarly) {
    handle->entryStateIs(entryState);
    if (isOvertaken()) return;
    handle->resolvedEntryStateIs(entryState);
    if (isOvertaken()) return;
  }
  auto const hwIndex = T::newIndex(*swTable_->indexAllocator(), key);
  this->traceHwIndex(hwIndex);
  if (util) {
    if (hwIndex.isExhausted() && T::blockSizeOf(key) != 0) {
      VELL_ASSERT(entryState != indexReconciled, "entryState != indexReconciled()",
                  T::names.qualified, " key ", key);
      if (handle) handle->resolvedEntryStateIs(failedNoIndex);
      return;
    }
    swTable_->reconcilingEntryIs(entryState == indexReconciled);
    if (handle) handle->trackedIs(true);
    if (!writeRows(*util, key, hwIndex, isOvertaken)) return;
    if (handle) {
      if (util->indexKnownAtWrite()) handle->hwIndexIs(hwIndex);
      handle->resolvedEntryStateIs(success);
    }
  }
  this->doCompleteEntryHandleForTesting(key);
}

/// False if it was overtaken by another write, which has written every row.
template <class T>
template <class Overtaken>
bool BlockAccessor<T>::writeRows(Util const& util, Key const& key, Index hwIndex,
                                 Overtaken const& isOvertaken) {
  trace(traceKey, "hwTableEntryIs", " : key: ", key);
  auto const rows = swTable_->resolvedRows(key);
  for (U32 i = 0, count = rows.blockSize(); i < count; ++i) {
    U32 const row = hwIndex.value() + i;
    bool const trackerKnowsIt =
        swTable_->reconcilingEntry() && swTable_->syncedEntryMap().lookup(row);
    if (!trackerKnowsIt && swTable_->resolvedKeyPrior() == SwTable::KeyPrior::noKey)
      util.updateHwIndexRefCountTracker(swTable_->hwTable(), row, Tracker::userAdd);
    if (isOvertaken()) return false;
    util.hwTableEntryIs(*swTable_, row, rows.entry(i));
    if (isOvertaken()) return false;
  }
  return true;
}

// ---- what an entry needs ----

template <class T>
template <class Record>
void BlockAccessor<T>::initUnresolved(Record& record) {
  std::as_const(record).rows().forEach([&](SwTableBase::Index, Entry const& row) {
    this->watchNeeded(record, row.neededEntryHandle().get());
  });
  if (record.neededEntryHandleSms() != 0) {
    // One that failed before the watch began will not fail again.
    if (record.neededEntryHasFailed()) this->markFailedNeededEntry(record);
    return;
  }
  trace(traceLife, T::initUnresolvedName, ": Resolved block: ", static_cast<void const*>(&record));
  doResolve(record);
}

template <class T>
template <class Record>
void BlockAccessor<T>::doResolve(Record& record) {
  VELL_ASSERT(record.neededEntryHandleSms() == 0, "ue->neededEntryHandleSms() == 0",
              "function should not have been called ", static_cast<void const*>(&record));
  this->template message<"doResolve">();
  record.rows().forEach([](SwTableBase::Index, Entry& row) {
    if (auto const& needed = row.neededEntryHandle())
      row.neededIndexIs(SwTableBase::getHwIndexForDependentField(*needed));
  });
  trace(traceLife, "doResolve", ": entryBlock: ", record.key());
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(record.key());
  swTable_->resolvedIs(record);
  if (record.swTable()) swTable_->unresolvedDel(record.key());  // else another one has its place
}

// ---- suggestions ----

/// True if the suggestion settled the entry's index.
template <class T>
bool BlockAccessor<T>::processIndexSuggestion(EntryHandle& handle, Index index) {
  constexpr std::string_view name = "processIndexSuggestion";
  if (swTable_->indexAllocator()->keyForIndex(index, T::keyType()).getGif()) {
    trace(traceKey, name, ": Index unavailable");
    return false;
  }
  // An entry cannot sit where the hardware has no row.
  for (U32 row = index.value(), i = 0; i < T::blockSizeOf(handle.key()); ++i, ++row) {
    if (swTable_->syncedEntryMap().lookup(row)) continue;
    trace(traceKey, name, "No synced entry at index:", row);
    return false;
  }
  if (swTable_->resolvedHas(handle.key())) return adoptSuggestion(handle, index);
  // A waiting entry has nothing to compare yet; the candidate stays for when it has.
  if constexpr (Trait::needsEntries<T>)
    if (auto const record = swTable_->unresolved(handle.key()))
      suggestIndicesToNeededTable(record->rows(), index);
  return false;
}

template <class T>
bool BlockAccessor<T>::adoptSuggestion(EntryHandle& handle, Index index) {
  auto const key = handle.key();
  trace(traceKey, "processIndexSuggestion", ": eh:", static_cast<void const*>(&handle),
        ", key:", key, ", hwIndex:", index);
  if (!reconcileUsingHwIndex(key, index, Compare::yes)) return false;
  swTable_->updateStatistic(ReconciliationStatus::reconcileMatched);
  handle.writeBegins();
  handle.trackedIs(true);
  handle.hwIndexIs(index);
  handle.resolvedEntryStateIs(EntryState::indexReconciled);
  this->doCompleteEntryHandleForTesting(key);
  syncedRowsDel(index, T::blockSizeOf(key));
  swTable_->indexHelperDel(handle);
  return true;
}

/// By value: what is suggested may resolve the record that the block is part of.
template <class T>
void BlockAccessor<T>::suggestIndicesToNeededTable(Rows block, Index baseIndex) {
  U32 const size = block.getBlockSize();
  trace(traceKey, "suggestIndexToNeededTable", ": swEntry:", block, ", baseIndex:", baseIndex,
        ", blockSize:", size);
  for (U32 i = 0; i < size; ++i) {
    auto const synced = swTable_->syncedEntry(baseIndex.value() + i);
    this->suggestIndexToNeededTable(block.entry(i), synced);
  }
}

// ---- reconciliation ----

template <class T>
void BlockAccessor<T>::syncEntries() noexcept {
  this->beginSyncEntries();
  VELL_ASSERT(swTable_->resolvedCount() == 0, "!swTable_->resolvedEntryBlocks()",
              T::names.qualified, ": sync must precede every commit");
  if (auto const util = this->utilIfExists())
    util->syncEntries(*swTable_->hwTable(), Vell::Ptr<T>(swTable_));
}

template <class T>
ReconciliationStatus BlockAccessor<T>::reconcileSyncedEntry(Key const& key) {
  using enum ReconciliationStatus;
  if (swTable_->syncedEntryMap().empty()) return reconcileAdded;
  auto const hwIndex = this->doRetrieveHwIndex(key).value();
  if (!hwIndex.isExhausted()) {
    auto const rows = swTable_->resolvedRows(key);
    bool const isEqual = reconcileUsingHwIndex(key, hwIndex, Compare::yes);
    if (!isValue(key, rows)) return reconcileNone;  // the hook changed and settled it
    return isEqual ? reconcileMatched : reconcileRewritten;
  }
  return reconcileUsingIndexHelper(key, Compare::yes).isExhausted() ? reconcileNone
                                                                    : reconcileMatched;
}

template <class T>
bool BlockAccessor<T>::isValue(Key const& key, Rows const& rows) const {
  return swTable_->resolvedHas(key) && swTable_->resolvedRows(key) == rows;
}

template <class T>
bool BlockAccessor<T>::reconcileUsingHwIndex(Key const& key, Index hwIndex, Compare compare) {
  constexpr std::string_view name = "reconcileUsingHwIndex";
  trace(traceKey, name, ": hwIndex:", hwIndex);
  auto const util = this->utilIfExists();
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  // With the indices filled in, so that a comparison sees what a write would write.
  auto const rows = swTable_->resolvedRows(key);
  U32 const size = rows.blockSize();
  for (U32 i = 0; compare == Compare::yes && i < size; ++i) {
    U32 const row = hwIndex.value() + i;
    if (!swTable_->syncedEntryMap().lookup(row)) {
      trace(traceKey, name, ": No synced entry at index:", row);
      return false;
    }
    auto const entry = rows.entry(i);
    if (!util->compareHwEntries(*swTable_, row, entry)) {
      trace(traceKey, name, ": Mismatch entry:", entry,
            ", syncedEntry:", swTable_->syncedEntry(row), ", hwIndex:", hwIndex, ", offset:", i,
            ", blockSize:", size);
      return false;
    }
    if (!isValue(key, rows)) return false;  // the hook changed it
  }
  if (swTable_->indexAllocator()->recoverIndexForKey(hwIndex, T::keyType(), &key)) return true;
  trace(traceKey, name, ": BlockSize: ", size, " not available at: ", hwIndex);
  return false;
}

template <class T>
Index BlockAccessor<T>::reconcileUsingIndexHelper(Key const& key, Compare compare) {
  constexpr std::string_view name = "reconcileUsingIndexHelper";
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  auto const helper = handle ? swTable_->indexHelper(*handle) : nullptr;
  if (!helper) {
    trace(traceKey, name, "Index suggestions unavailable");
    return {};
  }
  trace(traceKey, name, ": key:", key);
  for (Zarn::HashMap2018IteratorGeneric at(helper->indices()); at; at.advance()) {
    Index const candidate = at.currNodeMaybeStale()->key().value();
    if (!reconcileUsingHwIndex(key, candidate, compare)) continue;
    swTable_->indexHelperDel(*handle);
    this->placeWasFoundWhole_ = this->isFoundWhole(key, candidate);
    syncedRowsDel(candidate, T::blockSizeOf(key));
    return candidate;
  }
  return {};
}

// ---- purge ----

template <class T>
void BlockAccessor<T>::handleStaleEntries() noexcept {
  auto const util = this->utilIfExists();
  Vell::Ptr<typename T::IndexAllocator> const allocator = swTable_->indexAllocator();
  for (typename T::SyncedEntryMap::Iterator at(swTable_->syncedEntryMap()); at; at.advance()) {
    Index const index = at.key();
    if (!swTable_->syncedEntryMap().lookup(index)) continue;
    allocator->isIndexAssigned(index, T::keyType()) ? staleBlock(*util, index)
                                                    : staleRow(*util, index);
  }
}

/// Rows that an entry of the allocator's took without claiming what sync had found there: they
/// stay, and the record of them goes.
template <class T>
void BlockAccessor<T>::staleBlock(Util const& util, Index index) {
  auto const* const allocator = swTable_->indexAllocator();
  auto const found = allocator->keyForIndex(index, T::keyType());
  auto const type = found.getGif()->type();
  auto const* const key = found.getGif()->voidPtrIs(type);
  U32 const size = allocator->getBlockSize(type, key);
  // From the row on that the walk has come to, up to the end of the entry.
  U32 const end = allocator->indexForKey(type, key).value() + size;
  for (U32 row = index.value(); row < end; ++row) {
    if (!swTable_->syncedEntryMap().lookup(row)) continue;
    IndexUserTracker::Stub::recoveredUseStands(swTable_->hwTable(), row);
    util.updateHwIndexRefCountTracker(swTable_->hwTable(), row, Tracker::userRemove);
  }
  trace(traceKey, "handleStaleEntries", ": Deleting stale block from syncedEntry. size=", size,
        ", baseIndex:", index);
  for (U32 row = index.value(); row < end; ++row) swTable_->syncedEntryDel(row);
}

template <class T>
void BlockAccessor<T>::staleRow(Util const& util, Index index) {
  trace(traceKey, "handleStaleEntries", ": Deleting stale hwEntry at index:", index);
  // A watcher, or the hook, may bring an entry that the allocator puts here.
  auto const isTaken = [&] {
    return swTable_->indexAllocator()->isIndexAssigned(index, T::keyType());
  };
  swTable_->syncedEntryDel(index);
  if (isTaken()) IndexUserTracker::Stub::recoveredUseStands(swTable_->hwTable(), index);
  util.updateHwIndexRefCountTracker(swTable_->hwTable(), index.value(), Tracker::userRemove);
  if (isTaken()) return;
  util.hwTableEntryDel(*swTable_, index.value());
  swTable_->updateStatistic(ReconciliationStatus::reconcileDeleted);
}

}  // namespace Asic
