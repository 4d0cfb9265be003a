// The operations that tables with entry handles share. Included by the sources that instantiate
// tables.

#pragma once

#include "frame/HandleTable.h"
#include "frame/TableEntryHandleDefinitions.h"
#include "frame/TableReflection.h"
#include "platform/zarn/Mutator.h"

namespace Asic {

template <class T, class Entry>
constinit Zarn::AllocTrackTypeInfo SyncedEntryMember<T, Entry>::memAllocationTracker_{
    NestedName<T, "::ZarnSyncedEntry">::view};

template <class T, class Sheet>
constinit Zarn::AllocTrackTypeInfo HandleTable<T, Sheet>::memAllocationTracker_{
    Sheet::names.qualified};

template <class T, class Sheet>
Vell::ModuleInspectData& HandleTable<T, Sheet>::module() {
  return Sheet::template Reflection<T>::module;
}

template <class T, class Sheet>
auto HandleTable<T, Sheet>::EntryHandleKeyFunktor::operator()(
    Vell::Ptr<EntryHandle> const& handle) const -> Key const& {
  return handle->key();
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::tearDown() {
  SwTable::goingIs();
  SwTable::OperationScope const scope(*this);
  AccessorT(table()).cleanup();
  table().endResponses();
  if constexpr (Trait::tableNeedsDeleteDance<T>) table().unresolvedDelAll();
  entryHandleDelAll();
  table().unresolvedDelAll();
  outsidersForget();
  syncedEntry_._memberDelAll();  // what lies there may hold entries of other tables
}

// ---- what clients ask ----

template <class T, class Sheet>
auto HandleTable<T, Sheet>::entryHandle(Key const& key) const -> Vell::Ptr<EntryHandle> {
  auto const* node = entryHandle_.lookupNodeG(key);
  return node ? node->value_ : nullptr;
}

template <class T, class Sheet>
bool HandleTable<T, Sheet>::entryInHwTable(Key const& key) const {
  auto const* node = entryHandle_.lookupNodeG(key);
  return node && isInHwTable(*node->value_);
}

template <class T, class Sheet>
bool HandleTable<T, Sheet>::isInHwTable(EntryHandle const& handle) {
  using enum SwTableBase::EntryState;
  auto const state = handle.resolvedEntryState();
  return state == inProgress || state == indexReconciled || state == success;
}

template <class T, class Sheet>
auto HandleTable<T, Sheet>::syncedEntryGet(Index index) const -> Zarn::Optional<Entry> {
  auto const* member = syncedEntry_.lookup(index);
  return member ? Zarn::Optional<Entry>(member->value_) : Zarn::Optional<Entry>();
}

template <class T, class Sheet>
Index HandleTable<T, Sheet>::hwIndexOnlyForCrossAgentCommunication(Key const& key) const {
  auto const handle = entryHandle(key);
  return handle ? SwTableBase::getHwIndexForDependentField(*handle) : Index();
}

template <class T, class Sheet>
auto HandleTable<T, Sheet>::swKeyFromHwIndex(Index hwIndex) const -> Zarn::Optional<Key> {
  if (!indexAllocator_) return {};
  auto const found = indexAllocator_->keyForIndex(hwIndex, T::keyType());
  auto const* gif = found.getGif();
  if (!gif || !(gif->type() == T::keyType())) return {};
  return *static_cast<Key const*>(gif->voidPtrIs(T::keyType()));
}

// ---- the collections ----

template <class T, class Sheet>
auto HandleTable<T, Sheet>::entryHandleIs(Key const& key, T* swTable) -> Vell::Ptr<EntryHandle> {
  if (auto existing = entryHandle(key)) {
    // A handle that is leaving the collection stays if it is wanted again.
    if (!existing->swTable())
      existing->swTableIs(swTable);
    else if (existing->swTable() != swTable)
      Zarn::Impl::throwMutatorReinstantiating(existing->typeData().data().name,
                                              handleFields.swTable, swTable, existing->swTable());
    return existing;
  }
  if (SwTable::isGoing()) return new EntryHandle(key, nullptr);
  Vell::Ptr<EntryHandle> const made = new EntryHandle(key, swTable);
  lifeFound(*made);
  HN_EntryHandle node;
  node.value_ = made;
  entryHandle_.newMemberG(made->key(), std::move(node));
  publish(entryHandleField, made->key(), nullptr);
  auto const now = entryHandle(made->key());  // a watcher may have put another in its place
  return now ? now : made;
}

/// Of a key whose value was written without a handle, the tracker knows.
template <class T, class Sheet>
void HandleTable<T, Sheet>::lifeFound(EntryHandle& handle) {
  auto const& key = handle.key();
  if (!table().resolvedHas(key) || !indexAllocator_ ||
      indexAllocator_->indexForKey(T::keyType(), &key, this).isExhausted())
    return;
  using enum EntryLife::Tracked;
  handle.life() = {.tracked = table().hasValue(key) ? active : inactive,
                   .trackedRows = T::blockSizeOf(key),
                   .isTried = true};
}

template <class T, class Sheet>
auto HandleTable<T, Sheet>::entryHandleDel(Key const& key) -> Vell::Ptr<EntryHandle> {
  HN_EntryHandle removed;
  // The collection's use ends here, so it has to count, whatever the entry's type.
  if (auto const leaving = entryHandle(key)) leaving->doAmendReferences();
  if (!entryHandle_.deleteMemberG(key, &removed)) return nullptr;
  auto handle = std::move(removed.value_);
  this->indexHelperDel(*handle);  // its key is the handle's address, which may be another's soon
  using enum SwTableBase::EntryType;
  bool const hasEntry = table().resolvedHas(handle->key()) || table().unresolvedHas(handle->key());
  if (handle->swTable() &&
      (handle->entryType() == inDeletion || (handle->entryType() == unset && hasEntry)))
    outsiderIs(*handle);
  else
    handle->swTableIs(nullptr);
  publish(entryHandleField, handle->key(), handle.get());
  return handle;
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::outsiderForget(EntryHandle& handle) {
  std::erase(outsiders_, &handle);
  handle.swTableForget();
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::outsidersForget() {
  for (auto* const handle : std::exchange(outsiders_, {})) handle->swTableForget();
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::entryHandleDelAll() {
  Vell::Ptr<SwTable> const held(this);
  for (Zarn::HashMap2018IteratorGeneric at(entryHandle_); at; at.advance()) {
    Vell::Ptr<EntryHandle> const handle = at.currNodeMaybeStale()->value_;
    entryHandleDel(handle->key());
  }
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::publishSynced(Index index, Entry const& previous) {
  SwTable::publisher()->publishChangeRecursive(syncedEntryField, &index, &previous, &Index::isEq);
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::syncedEntryIs(Index index, Entry const& entry) {
  if (auto* const member = syncedEntry_.lookup(index)) {
    if (member->value_ == entry) return;
    Entry stored = entry;
    Entry const previous = std::exchange(member->value_, std::move(stored));
    publishSynced(index, previous);
  } else {
    syncedEntry_.memberIs(new ZarnSyncedEntry(index, entry));
    publishSynced(index, Entry{});
  }
}

template <class T, class Sheet>
auto HandleTable<T, Sheet>::syncedEntryDel(Index index) -> Entry {
  return taken(syncedEntry_.memberDel(index));
}

template <class T, class Sheet>
auto HandleTable<T, Sheet>::syncedEntryDel(typename SyncedEntryMap::Iterator const& at) -> Entry {
  return taken(syncedEntry_.memberDel(*at));
}

template <class T, class Sheet>
auto HandleTable<T, Sheet>::taken(Vell::Ptr<ZarnSyncedEntry> const& removed) -> Entry {
  if (!removed) return {};
  publishSynced(removed->key(), removed->value_);
  return removed->value_;
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::syncedEntryDelAll() {
  Vell::Ptr<SwTable> const held(this);
  if (!SwTable::publisher()->hasWatchers()) {
    syncedEntry_._memberDelAll();
    return;
  }
  for (typename SyncedEntryMap::Iterator at(syncedEntry_); at; at.advance())
    syncedEntryDel(at.key());
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::indexAllocatorIs(Vell::Ptr<IndexAllocator> allocator) {
  if (allocator == indexAllocator_) return;
  auto const previous = std::exchange(indexAllocator_, std::move(allocator));
  if (previous) previous->tableAttrDel(*this);  // it must not ask this table any more
  SwTable::publisher()->publishChangeRecursive(indexAllocatorField, nullptr, &previous, nullptr);
}

// ---- what handles and the framework call ----

template <class T, class Sheet>
void HandleTable<T, Sheet>::cleanupEntry(EntryHandle& handle) {
  SwTable::OperationScope const scope(*this);
  AccessorT(table()).cleanup(handle);
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::suggestIndices(EntryHandle& handle, IndexSet const& indices) {
  SwTable::OperationScope const scope(*this);
  AccessorT(table()).handleIndexSuggestions(handle, indices);
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::doCreateAllocator() {
  AccessorT(table()).doInitAllocator();
  if (auto* const hwTable = this->hwTable())
    for (U32 used = indexAllocator_->totalUsedIndices(); used > 0; --used)
      hwTable->usageCountInc(1);
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::syncEntries() {
  SwTable::OperationScope const scope(*this);
  AccessorT(table()).syncEntries();
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::doInitComplete() {
  SwTable::OperationScope const scope(*this);
  AccessorT(table()).doInitComplete();
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::purgeStaleEntries() {
  SwTable::OperationScope const scope(*this);
  AccessorT(table()).purgeStaleEntries();
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::doMountHwTableMountInfo(Mirel::MountGroup& mg) {
  SwTable::Util::doMountHwTableMountInfo({&module(), T::utilTypeNumber}, mg, {});
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::doMountHwTableRecoveryStatus(Mirel::MountGroup& mg) {
  SwTable::Util::doMountHwTableRecoveryStatus({&module(), T::utilTypeNumber}, mg, {});
}

template <class T, class Sheet>
void HandleTable<T, Sheet>::doRecoverHwTable(HwTableRecoverGroup& rg, UnitId unitId,
                                             Mirel::EntityManager& mirelEm,
                                             ChipInfo const& chipInfo) {
  SwTable::Util::doRecoverHwTable({&module(), T::typeNumber}, rg, unitId, mirelEm, chipInfo, {});
}

}  // namespace Asic
