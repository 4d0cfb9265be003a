// The operations of the generic logic of block tables. Included by the sources that instantiate
// tables.

#pragma once

#include "containers/HashMap2018Iterator.h"
#include "frame/BlockAccessor.h"
#include "frame/HandleAccessorDefinitions.h"
#include "platform/asic/UnresolvedEntry.h"

namespace Asic {

// ---- the way in ----

template <class T>
auto BlockAccessor<T>::write(std::string_view operation, Key const& key, Stage stage) -> HandlePtr {
  if (swTable_->isGoing()) return this->refused(operation, key);
  Operation const wish(*swTable_, key, stage);
  if (swTable_->unresolvedHas(key) || swTable_->resolvedHas(key)) {
    trace(traceClient, operation, " : Found an existing entry : ", key);
    auto eh = swTable_->entryHandle(key);
    VELL_ASSERT(eh, "eh", "expect a valid entryHandle, key: ", key);
    if (stage == Stage::commit) eh->committed();
    return eh;
  }
  trace(traceClient, operation, " : Writing new entry : ", key);
  auto const handle = this->claimedHandle(wish);
  if (!wish.isOvertaken()) handle->entryStateIs(EntryState::unresolved);
  if (wish.isOvertaken()) return handle;
  auto const record = swTable_->unresolvedIs(key);
  if (!record->hasLeft()) initUnresolved(*record);
  return handle;
}

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
  Vell::Ptr<Record> const held(&record);
  this->template message<"doResolve">();
  // In copies of its own: hooks of the needed tables may copy the record's, or end it.
  auto const wanted = std::as_const(record).rows();
  auto rows = wanted;
  wanted.forEach([&](SwTableBase::Index at, Entry const& row) {
    if constexpr (Trait::needsEntries<T>)
      if (auto const& needed = row.neededEntryHandle())
        rows.neededIndexIs(at, SwTableBase::getHwIndexForDependentField(*needed));
  });
  if (record.hasLeft()) return;
  record.rows() = rows;
  trace(traceLife, "doResolve", ": entryBlock: ", record.key());
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(record.key());
  if (!record.hasLeft()) swTable_->resolvedIs(record);
  if (!record.hasLeft()) swTable_->unresolvedDel(record.key());
}

// ---- programming ----

template <class T>
template <Fennlog::Time time>
void BlockAccessor<T>::programHwEntry(Operation& operation, Rows const& rows,
                                      EntryState entryState) {
  using enum SwTableBase::EntryState;
  auto const& key = operation.key();
  this->template message<"programHwEntry", time>();
  trace(traceKey, "programHwEntry", " key: ", key, ", entryState:", entryState);
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  auto const util = this->utilIfExists();
  // In that state those that need the entry go on at once, and point at its rows: where these are not
  // all there yet, they hear of it when it is written.
  bool const isTooEarly = entryState == indexReconciled && util && handle &&
                          handle->life().found != EntryLife::Found::whole;
  if (handle && !isTooEarly && !operation.isOvertaken()) handle->entryStateIs(entryState);
  if (handle && !isTooEarly && !operation.isOvertaken()) handle->resolvedEntryStateIs(entryState);
  if (operation.isOvertaken()) return;
  auto const hwIndex = swTable_->newIndex(this->allocator(), key);
  this->traceHwIndex(hwIndex);
  if (util) {
    if (hwIndex.isExhausted()) {
      VELL_ASSERT(entryState != indexReconciled, "entryState != indexReconciled()",
                  T::names.qualified, " key ", key);
      if (handle && !operation.isOvertaken()) handle->resolvedEntryStateIs(failedNoIndex);
      return;
    }
    swTable_->reconcilingEntryIs(entryState == indexReconciled);
    writeRows(*util, operation, rows, hwIndex, handle.get());
    if (operation.isOvertaken()) return;
    if (handle && (util->indexKnownAtWrite() || isTooEarly)) handle->hwIndexIs(hwIndex);
    if (handle) handle->resolvedEntryStateIs(success);
  }
  if (!operation.isOvertaken()) this->doCompleteEntryHandleForTesting(key);
}

template <class T>
void BlockAccessor<T>::writeRows(Util const& util, Operation& operation, Rows const& rows,
                                 Index hwIndex, EntryHandle* handle) {
  trace(traceKey, "hwTableEntryIs", " : key: ", operation.key());
  bool const isFirst = swTable_->resolvedKeyPrior() == SwTable::KeyPrior::noKey;
  bool const isReconciling = swTable_->reconcilingEntry();
  for (U32 i = 0, count = rows.blockSize(); i < count && !operation.isOvertaken(); ++i) {
    U32 const row = hwIndex.value() + i;
    bool const isTold = handle ? i < handle->life().trackedRows : !isFirst;
    if (handle && !isTold) {
      handle->life().tracked = EntryLife::Tracked::active;
      handle->life().trackedRows = i + 1;
    }
    if (!isTold && !(isReconciling && swTable_->syncedEntryMap().lookup(row)))
      hook([&] { util.updateHwIndexRefCountTracker(swTable_->hwTable(), row, Tracker::userAdd); });
    if (!operation.isOvertaken()) hook([&] { util.hwTableEntryIs(*swTable_, row, rows.entry(i)); });
  }
}

/// A hook may bring the entry back, which then has all its rows anew, at the index that it still has; or
/// bring it back and remove it. What the tracker had of the life that ends, ends all the same.
template <class T>
void BlockAccessor<T>::hwTableEntryDel(Util const& util, Operation& operation, Index hwIndex,
                                       EntryLife const& life) {
  trace(traceKey, "hwTableEntryDel", ": Deleting entry at key:", operation.key());
  for (U32 i = 0; i < life.trackedRows; ++i) {
    U32 const row = hwIndex.value() + i;
    hook([&] { util.updateHwIndexRefCountTracker(swTable_->hwTable(), row, Tracker::userRemove); });
    if (!this->isRowTaken(row)) hook([&] { util.hwTableEntryDel(*swTable_, row); });
  }
}

// ---- removal ----

template <class T>
void BlockAccessor<T>::removeEntryOf(Operation const& removal, EntryHandle& handle) {
  auto const& key = removal.key();
  this->recordDel(key);
  if (removal.isOvertaken()) return;
  this->needReferenceOnly(handle);
  swTable_->resolvedDel(key);
  if (!removal.isOvertaken()) swTable_->entryHandleDel(key);
}

// ---- suggestions ----

/// True if the suggestion settled the entry's index.
template <class T>
bool BlockAccessor<T>::processIndexSuggestion(EntryHandle& handle, Index index) {
  constexpr std::string_view name = "processIndexSuggestion";
  if (this->allocator().keyForIndex(index, T::keyType()).getGif()) {
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
      suggestIndicesToNeededTable(std::as_const(*record).rows(), index);
  return false;
}

template <class T>
bool BlockAccessor<T>::adoptSuggestion(EntryHandle& handle, Index index) {
  Operation const finding(*swTable_, handle.key(), Stage::finding);
  auto const& key = finding.key();
  trace(traceKey, "processIndexSuggestion", ": eh:", static_cast<void const*>(&handle),
        ", key:", key, ", hwIndex:", index);
  if (!reconcileUsingHwIndex(finding, swTable_->valueOf(key), index, Compare::yes)) return false;
  Operation operation(*swTable_, key, Stage::programming);  // one that went on before it is settled
  this->placeIs(handle, EntryLife::Found::whole, ReconciliationStatus::reconcileMatched);
  swTable_->updateStatistic(ReconciliationStatus::reconcileMatched);
  handle.hwIndexIs(index);
  handle.resolvedEntryStateIs(EntryState::indexReconciled);
  if (!operation.isOvertaken()) this->doCompleteEntryHandleForTesting(key);
  if (operation.isOvertaken()) return true;
  syncedRowsDel(index, T::blockSizeOf(key));
  swTable_->indexHelperDel(handle);
  return true;
}

template <class T>
void BlockAccessor<T>::suggestIndicesToNeededTable(Rows const& rows, Index baseIndex) {
  auto const block = rows;  // what is suggested may resolve the record that it is part of
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
void BlockAccessor<T>::syncedRowsDel(Index hwIndex, U32 rows) {
  for (U32 i = 0; i < rows; ++i) swTable_->syncedEntryDel(hwIndex.value() + i);
}

template <class T>
ReconciliationStatus BlockAccessor<T>::reconcileSyncedEntry(Operation const& operation,
                                                            Rows const& rows) {
  using enum ReconciliationStatus;
  if (swTable_->syncedEntryMap().empty()) return reconcileAdded;
  auto const hwIndex = this->doRetrieveHwIndex(operation.key()).value();
  if (!hwIndex.isExhausted())
    return reconcileUsingHwIndex(operation, rows, hwIndex, Compare::yes) ? reconcileMatched
                                                                         : reconcileRewritten;
  return this->reconcileUsingIndexHelper(operation, rows, Compare::yes).isExhausted()
             ? reconcileNone
             : reconcileMatched;
}

template <class T>
bool BlockAccessor<T>::reconcileUsingHwIndex(Operation const& operation, Rows const& rows,
                                             Index hwIndex, Compare compare) {
  auto const& key = operation.key();
  constexpr std::string_view name = "reconcileUsingHwIndex";
  trace(traceKey, name, ": hwIndex:", hwIndex);
  auto const util = this->utilIfExists();
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  U32 const size = rows.blockSize();
  for (U32 i = 0; compare == Compare::yes && i < size; ++i) {
    U32 const row = hwIndex.value() + i;
    if (!swTable_->syncedEntryMap().lookup(row)) {
      trace(traceKey, name, ": No synced entry at index:", row);
      return false;
    }
    // With the indices filled in, so that the comparison sees what a write would write.
    auto const entry = rows.entry(i);
    if (!hook([&] { return util->compareHwEntries(*swTable_, row, entry); })) {
      trace(traceKey, name, ": Mismatch entry:", entry,
            ", syncedEntry:", swTable_->syncedEntry(row), ", hwIndex:", hwIndex, ", offset:", i,
            ", blockSize:", size);
      return false;
    }
  }
  if (operation.isOvertaken()) return false;
  // Also asked of the rows that a hook may have given to another entry.
  if (this->allocator().recoverIndexForKey(hwIndex, T::keyType(), &key, swTable_)) return true;
  trace(traceKey, name, ": BlockSize: ", size, " not available at: ", hwIndex);
  return false;
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
    hook([&] { util.updateHwIndexRefCountTracker(swTable_->hwTable(), row, Tracker::userRemove); });
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
