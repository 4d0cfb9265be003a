// The operations of the collection of waiting records. Included by the sources that instantiate
// tables.

#pragma once

#include "frame/UnresolvedEntries.h"
#include "frame/Variants.h"

namespace Asic {

template <class T, class Sheet>
auto UnresolvedEntries<T, Sheet>::UnresolvedEntryKeyFunktor::operator()(
    Vell::Ptr<UnresolvedRecord> const& record) const -> Key const& {
  return record->key();
}

template <class T, class Sheet>
auto UnresolvedEntries<T, Sheet>::unresolved(Key const& key) const -> Vell::Ptr<UnresolvedRecord> {
  auto const* node = unresolved_.lookupNodeG(key);
  return node ? node->value_ : nullptr;
}

template <class T, class Sheet>
void UnresolvedEntries<T, Sheet>::publishUnresolved(UnresolvedRecord const& record,
                                                    UnresolvedRecord const* previous) {
  self().publisher()->publishChangeRecursive(Sheet::unresolvedField, &record.key(), previous,
                                             &Key::isEq);
}

template <class T, class Sheet>
auto UnresolvedEntries<T, Sheet>::unresolvedIs(Vell::Ptr<UnresolvedRecord> const& record)
    -> Vell::Ptr<UnresolvedRecord> {
  if (auto existing = unresolved(record->key())) return existing;
  HN_UnresolvedEntry node;
  node.value_ = record;
  unresolved_.newMemberG(record->key(), std::move(node));
  record->swTableIs(&self());
  publishUnresolved(*record, nullptr);
  return record;
}

template <class T, class Sheet>
auto UnresolvedEntries<T, Sheet>::unresolvedDel(Key const& key) -> Vell::Ptr<UnresolvedRecord> {
  HN_UnresolvedEntry removed;
  if (!unresolved_.deleteMemberG(key, &removed)) return nullptr;
  auto record = std::move(removed.value_);
  record->neededEntryHandleSmDelAll();
  record->swTableIs(nullptr);
  publishUnresolved(*record, record.get());
  return record;
}

template <class T, class Sheet>
void UnresolvedEntries<T, Sheet>::unresolvedDelAll() {
  Vell::Ptr<SwTable> const held(&self());
  for (Zarn::HashMap2018IteratorGeneric at(unresolved_); at; at.advance()) {
    Vell::Ptr<UnresolvedRecord> const record = at.currNodeMaybeStale()->value_;
    unresolvedDel(record->key());
  }
}

template <class T, class Sheet>
void UnresolvedEntries<T, Sheet>::unresolvedWatchesEnd() {
  for (Zarn::HashMap2018IteratorGeneric at(unresolved_); at; at.advance())
    at.currNodeMaybeStale()->value_->neededEntryHandleSmDelAll();
}

template <class T, class Sheet>
void UnresolvedEntries<T, Sheet>::resolveRecord(UnresolvedRecord& record) {
  SwTable::OperationScope const scope(self());
  SwTable::Accessor<T>(self()).doResolve(record);
}

template <class T, class Sheet>
void UnresolvedEntries<T, Sheet>::markFailedRecord(UnresolvedRecord& record) {
  SwTable::OperationScope const scope(self());
  SwTable::Accessor<T>(self()).markFailedNeededEntry(record);
}

}  // namespace Asic
