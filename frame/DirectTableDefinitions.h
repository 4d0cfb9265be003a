// The operations of a direct table. Included by the source that instantiates the
// table, and nowhere else.

#pragma once

#include "frame/DirectAccessorDefinitions.h"
#include "frame/DirectTable.h"
#include "frame/DirectTableReflection.h"

namespace Asic {

template <class T, DirectSheet Sheet>
constinit Zarn::AllocTrackTypeInfo DirectTable<T, Sheet>::memAllocationTracker_{
    Sheet::names.qualified};

template <class T, DirectSheet Sheet>
DirectTable<T, Sheet>::DirectTable() : SwKnownIndexTable(Vell::String()) {}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::tearDown() {
  this->nodeFlagSet(Vell::Node::freedAtZeroFlag, false);
  cleanup();
}

template <class T, DirectSheet Sheet>
Vell::ModuleInspectData& DirectTable<T, Sheet>::module() {
  return DirectTableReflection<T>::module;
}

template <class T, DirectSheet Sheet>
auto DirectTable<T, Sheet>::resolvedEntry(Key key) const -> Zarn::Optional<Entry> {
  auto const* node = resolvedEntry_.lookupNodeG(key);
  return node ? node->value_ : Zarn::Optional<Entry>{};
}

template <class T, DirectSheet Sheet>
auto DirectTable<T, Sheet>::syncedEntry(Key key) const -> Entry {
  auto const* node = syncedEntry_.lookupNodeG(key);
  return node ? node->value_ : Entry{};
}

template <class T, DirectSheet Sheet>
auto DirectTable<T, Sheet>::keyPrior(typename ResolvedEntryMap::Node const* node) -> KeyPrior {
  if (!node) return KeyPrior::noKey;
  return node->value_ ? KeyPrior::value : KeyPrior::noValue;
}

// The look-up serves both the prior and the store: nothing is called between the two. The entry is
// not copied into an optional of its own either, since the store makes the one copy that is kept,
// before anything can change what `entry` refers to.
template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::entryCommit(Key key, Entry const& entry) {
  auto* const node = resolvedEntry_.lookupNodeG(key);
  auto const prior = keyPrior(node);
  if (holds(node, &entry)) {
    // The field belongs to the operation that this one runs inside of, if it does.
    if (!this->operationInProgress()) this->resolvedKeyPriorIs(prior);
    return;
  }
  OperationScope const scope(*this);
  this->resolvedKeyPriorIs(prior);
  storeResolved(node, key, &entry);
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::resolvedEntryIs(Key key, Zarn::Optional<Entry> const& value) {
  auto* const node = resolvedEntry_.lookupNodeG(key);
  Entry const* const entry = value ? &*value : nullptr;
  if (holds(node, entry)) return;
  OperationScope const scope(*this);
  storeResolved(node, key, entry);
}

template <class T, DirectSheet Sheet>
bool DirectTable<T, Sheet>::holds(typename ResolvedEntryMap::Node const* node, Entry const* value) {
  if (!node || node->value_.has_value() != (value != nullptr)) return false;
  return !value || *node->value_ == *value;
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::storeResolved(typename ResolvedEntryMap::Node* node, Key key,
                                          Entry const* value) {
  Zarn::Optional<Entry> old;
  if (node) {
    // `value` is not what the node holds, or `holds` had said so, and so does not lie in it.
    old = std::move(node->value_);
    value ? void(node->value_ = *value) : node->value_.reset();
  } else {
    auto stored = value ? Zarn::Optional<Entry>(*value) : Zarn::Optional<Entry>();
    node = resolvedEntry_.newMemberG(key, {std::move(stored), key});
  }
  // The collection holds the new state; watchers hear of it after the hardware.
  handleEntry(key, node);
  publish(resolvedEntryField, key, &old);
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::entryRemove(Key key) {
  OperationScope const scope(*this);
  AccessorT(table()).deleteResolvedEntry(key);
}

template <class T, DirectSheet Sheet>
auto DirectTable<T, Sheet>::resolvedEntryDel(Key key) -> Zarn::Optional<Entry> {
  OperationScope const scope(*this);
  typename ResolvedEntryMap::Node removed;
  if (!resolvedEntry_.deleteMemberG(key, &removed)) return {};
  handleEntry(key, nullptr);
  publish(resolvedEntryField, key, &removed.value_);
  return std::move(removed.value_);
}

template <class T, DirectSheet Sheet>
void DirectTable<T, Sheet>::resolvedEntryDelAll() {
  OperationScope const scope(*this);
  for (Zarn::HashMap2018IteratorGeneric at(resolvedEntry_); at; at.advance())
    resolvedEntryDel(at.currNodeMaybeStale()->key());
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
void DirectTable<T, Sheet>::handleEntry(Key key, typename ResolvedEntryMap::Node const* node) {
  AccessorT(table()).handleEntry(key, node);
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
