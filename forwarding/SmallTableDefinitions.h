// The operations of the agent's own tables. Included by the sources that instantiate them.

#pragma once

#include "forwarding/SmallTable.h"
#include "forwarding/SmallTableReflection.h"
#include "frame/BlockAccessorDefinitions.h"
#include "frame/HandleTableDefinitions.h"

namespace Forwarding {

template <class T, class Sheet>
template <class Place>
void SmallTable<T, Sheet>::store(Key key, Entry const& entry, Place place) {
  // A row that was never written, or is being deleted, has yet to be told to the tracker, whatever the
  // table holds.
  Vell::Ptr<typename T::EntryHandle> const handle = this->entryHandle(key);
  bool const isWritten = handle && handle->isTracked();
  this->resolvedKeyPriorIs(isWritten ? Asic::SwTable::KeyPrior::value
                                     : Asic::SwTable::KeyPrior::noKey);
  place();
  Zarn::Optional<Entry> previous;
  if (auto* const node = resolvedEntry_.lookupNodeG(key))
    previous = std::exchange(node->value_, Entry(entry));
  else
    resolvedEntry_.newMemberG(key, {entry, key});
  AccessorT(this->table()).handleEntry(key);
  this->publish(resolvedEntryField, key, previous ? &*previous : nullptr);
}

template <class T, class Sheet>
void SmallTable<T, Sheet>::entryRemove(Key key) {
  Asic::SwTable::OperationScope const scope(*this);
  AccessorT(this->table()).entryRemove(key);
}

template <class T, class Sheet>
void SmallTable<T, Sheet>::entryRemoveAll() {
  Asic::SwTable::OperationScope const scope(*this);
  AccessorT(this->table()).entryRemoveAll();
}

template <class T, class Sheet>
auto SmallTable<T, Sheet>::resolvedRows(Key const& key) const -> Rows {
  auto const* const node = resolvedEntry_.lookupNodeG(key);
  return {node ? node->value_ : Entry{}};
}

template <class T, class Sheet>
void SmallTable<T, Sheet>::resolvedDel(Key const& key) {
  Asic::SwTable::OperationScope const scope(*this);
  typename ResolvedEntryMap::Node removed;
  if (!resolvedEntry_.deleteMemberG(key, &removed)) return;
  AccessorT(this->table()).handleEntry(removed.key());
  this->publish(resolvedEntryField, removed.key(), &removed.value_);
}

template <class T, class Sheet>
void SmallTable<T, Sheet>::resolvedDelAll() {
  Asic::SwTable::OperationScope const scope(*this);
  for (Zarn::HashMap2018IteratorGeneric at(resolvedEntry_); at; at.advance())
    resolvedDel(at.currNodeMaybeStale()->key());
}

}  // namespace Forwarding
