// The operations of the agent's own tables. Included by the sources that instantiate them.

#pragma once

#include "forwarding/SmallTable.h"
#include "forwarding/SmallTableReflection.h"
#include "frame/BlockAccessorDefinitions.h"
#include "frame/HandleTableDefinitions.h"

namespace Forwarding {

template <class T, class Sheet>
void SmallTable<T, Sheet>::store(Key key, Entry const& entry) {
  Zarn::Optional<Entry> previous;
  if (auto* const node = resolvedEntry_.lookupNodeG(key))
    previous = std::exchange(node->value_, Entry(entry));
  else
    resolvedEntry_.newMemberG(key, {entry, key});
  Rows const rows{entry};
  typename AccessorT::Operation operation(this->table(), key, AccessorT::Stage::programming);
  AccessorT(this->table()).handleEntry(operation, &rows);
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
  typename AccessorT::Operation operation(this->table(), removed.key(),
                                          AccessorT::Stage::programming);
  AccessorT(this->table()).handleEntry(operation, nullptr);
  this->publish(resolvedEntryField, removed.key(), &removed.value_);
}

template <class T, class Sheet>
void SmallTable<T, Sheet>::resolvedDelAll() {
  Asic::SwTable::OperationScope const scope(*this);
  for (Zarn::HashMap2018IteratorGeneric at(resolvedEntry_); at; at.advance())
    resolvedDel(at.currNodeMaybeStale()->key());
}

}  // namespace Forwarding
