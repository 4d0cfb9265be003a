// The operations of group tables. Included by the source that instantiates the table, and nowhere
// else.

#pragma once

#include "frame/GroupAccessorDefinitions.h"
#include "frame/GroupTable.h"
#include "frame/GroupTableReflection.h"
#include "frame/HandleTableDefinitions.h"
#include "frame/ResolvedEntriesDefinitions.h"

namespace Asic {

template <class T, class Sheet>
GroupTable<T, Sheet>::GroupTable(Vell::String name) : Handles(std::move(name)) {
  SwTable::hwResponseNeededIs(true);
}

// ---- what clients do ----

template <class T, class Sheet>
auto GroupTable<T, Sheet>::entryCommit(Key key, Entry const& entry) -> HandlePtr {
  SwTable::OperationScope const scope(*this);
  return AccessorT(this->table()).write("entryCommit", key, entry, AutoRemoveType::committed);
}

template <class T, class Sheet>
auto GroupTable<T, Sheet>::entryRef(Key key, Entry const& entry) -> HandlePtr {
  AccessorT::template message<"entryRef">();
  SwTable::OperationScope const scope(*this);
  return AccessorT(this->table()).write("entryRef", key, entry, AutoRemoveType::referenced);
}

template <class T, class Sheet>
auto GroupTable<T, Sheet>::entryWriteAtIndex(Index hwIndex, Key key, Entry const& entry)
    -> HandlePtr {
  SwTable::OperationScope const scope(*this);
  if (!SwTable::isGoing())
    AccessorT(this->table()).allocator().requestIndexForKey(hwIndex, keyType(), &key, this);
  auto handle =
      AccessorT(this->table()).write("entryCommit", key, entry, AutoRemoveType::committed);
  // The commit may have been taken back from inside of it.
  AccessorT(this->table()).unusedIndexDel(key);
  return handle;
}

template <class T, class Sheet>
void GroupTable<T, Sheet>::entryRemove(Key key) {
  SwTable::OperationScope const scope(*this);
  AccessorT(this->table()).entryRemove(key);
}

template <class T, class Sheet>
void GroupTable<T, Sheet>::entryRemoveAll() {
  SwTable::OperationScope const scope(*this);
  AccessorT(this->table()).entryRemoveAll();
}

template <class T, class Sheet>
void GroupTable<T, Sheet>::resolvedDelAll() {
  SwTable::OperationScope const scope(*this);
  for (Zarn::HashMap2018IteratorGeneric at(this->resolvedEntryMap()); at; at.advance())
    AccessorT(this->table()).deleteResolvedEntry(at.currNodeMaybeStale()->key());
}

// ---- acknowledgements ----

template <class T, class Sheet>
auto GroupTable<T, Sheet>::getEntryHandle(Index index) -> Vell::Ptr<SwTableBase::EntryHandle> {
  auto const key = this->swKeyFromHwIndex(index);
  if (!key) return nullptr;
  return this->entryHandle(*key);
}

}  // namespace Asic
