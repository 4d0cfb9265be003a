// The operations of a direct table. Included by the source that instantiates the
// table, and nowhere else.

#pragma once

#include "frame/DirectAccessorDefinitions.h"
#include "frame/DirectTable.h"
#include "frame/DirectTableReflection.h"
#include "frame/ResolvedEntriesDefinitions.h"

namespace Asic {

template <class T, DirectSheet Sheet>
constinit Zarn::AllocTrackTypeInfo DirectTable<T, Sheet>::memAllocationTracker_{
    Sheet::names.qualified};

template <class T, DirectSheet Sheet>
DirectTable<T, Sheet>::DirectTable() : SwKnownIndexTable(Vell::String()) {}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::tearDown() {
  SwTable::goingIs();
  cleanup();
}

template <class T, DirectSheet Sheet>
Vell::ModuleInspectData& DirectTable<T, Sheet>::module() {
  return DirectTableReflection<T>::module;
}

template <class T, DirectSheet Sheet>
auto DirectTable<T, Sheet>::syncedEntry(Key key) const -> Entry {
  auto const* node = syncedEntry_.lookupNodeG(key);
  return node ? node->value_ : Entry{};
}

// The look-up serves both the prior and the store: nothing is called between the two. The entry is
// not copied into an optional of its own either, since the store makes the one copy that is kept,
// before anything can change what `entry` refers to.
template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::entryCommit(Key key, Entry const& entry) {
  auto* const node = this->resolvedNode(key);
  auto const prior = Resolved::keyPrior(node);
  if (SwTable::isGoing()) return AccessorT(table()).refuse("entryCommit", key);
  if (this->holds(node, &entry)) {
    // The field belongs to the operation that this one runs inside of, if it does.
    if (!this->operationInProgress()) this->resolvedKeyPriorIs(prior);
    return;
  }
  OperationScope const scope(*this);
  this->resolvedKeyPriorIs(prior);
  this->storeResolved(node, key, &entry);
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::entryRemove(Key key) {
  OperationScope const scope(*this);
  AccessorT(table()).deleteResolvedEntry(key);
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::syncedEntryIs(Key key, Entry const& entry) {
  if (auto* const node = syncedEntry_.lookupNodeG(key)) {
    if (node->value_ == entry) return;
    Entry stored = entry;
    Entry const previous = std::exchange(node->value_, std::move(stored));
    publish(syncedEntryField, key, &previous);
  } else {
    syncedEntry_.newMemberG(key, {entry, key});
    publish(syncedEntryField, key, nullptr);
  }
}

template <class T, DirectSheet Sheet>
auto DirectTable<T, Sheet>::syncedEntryDel(Key key) -> Entry {
  typename SyncedEntryMap::Node removed;
  if (syncedEntry_.deleteMemberG(key, &removed)) publish(syncedEntryField, key, &removed.value_);
  return std::move(removed.value_);
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::syncedEntryDelAll() {
  Vell::Ptr<SwTable> const held(this);
  if (!this->publisher()->hasWatchers()) {
    syncedEntry_._memberDelAll();
    return;
  }
  for (Zarn::HashMap2018IteratorGeneric at(syncedEntry_); at; at.advance())
    syncedEntryDel(at.currNodeMaybeStale()->key());
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::publish(U32 fieldId, Key key, void const* previous) {
  SwTable::publisher()->publishChangeRecursive(fieldId, &key, previous, &Key::isEq);
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::entryRemoveAll() {
  OperationScope const scope(*this);
  AccessorT(table()).entryRemoveAll();
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::autoCommitSyncedEntries() {
  OperationScope const scope(*this);
  AccessorT(table()).autoCommitSyncedEntries();
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::cleanup() {
  OperationScope const scope(*this);
  AccessorT(table()).cleanup();
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::syncEntries() {
  OperationScope const scope(*this);
  AccessorT(table()).syncEntries();
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::doInitComplete() {
  OperationScope const scope(*this);
  AccessorT(table()).doInitComplete();
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::purgeStaleEntries() {
  OperationScope const scope(*this);
  AccessorT(table()).purgeStaleEntries();
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::doMountHwTableMountInfo(Mirel::MountGroup& mg) {
  SwTable::Util::doMountHwTableMountInfo({&module(), utilTypeNumber}, mg, {});
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::doMountHwTableRecoveryStatus(Mirel::MountGroup& mg) {
  SwTable::Util::doMountHwTableRecoveryStatus({&module(), utilTypeNumber}, mg, {});
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::doRecoverHwTable(HwTableRecoverGroup& rg, UnitId unitId,
                                             Mirel::EntityManager& mirelEm,
                                             ChipInfo const& chipInfo) {
  SwTable::Util::doRecoverHwTable({&module(), typeNumber}, rg, unitId, mirelEm, chipInfo, {});
}

}  // namespace Asic
