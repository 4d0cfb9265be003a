// The operations of tables of groups that stand on entries of other tables. Included by the source
// that instantiates the table, and nowhere else.

#pragma once

#include "frame/GroupTableDefinitions.h"
#include "frame/SelectiveGroupAccessorDefinitions.h"
#include "frame/SelectiveGroupTable.h"
#include "frame/UnresolvedEntriesDefinitions.h"

namespace Asic {

template <class T>
constinit Zarn::AllocTrackTypeInfo UnresolvedGroupEntry<T>::memAllocationTracker_{
    NestedName<T, "::UnresolvedEntry">::view};

template <class T>
UnresolvedGroupEntry<T>::~UnresolvedGroupEntry() {
  this->nodeFlagSet(Vell::Node::freedAtZeroFlag, false);
  entry_ = Entry();
}

template <class T, class Sheet>
auto SelectiveGroupTable<T, Sheet>::entry(Key key) const -> Entry {
  if (auto const record = this->unresolved(key)) return record->entry();
  return Resolved::entry(key);
}

template <class T, class Sheet>
bool SelectiveGroupTable<T, Sheet>::entryHas(Key key) const {
  Vell::Ptr<EntryHandle> const handle = this->entryHandle(key);
  if (!handle || handle->entryType() == SwTableBase::EntryType::inDeletion) return false;
  return this->unresolvedHas(key) || this->resolvedHas(key);
}

template <class T, class Sheet>
void SelectiveGroupTable<T, Sheet>::unresolvedEntryIs(UnresolvedEntry& record, Entry const& entry) {
  SwTable::OperationScope const scope(*this);
  record.neededEntryHandleSmDelAll();
  typename Group::AccessorT(this->table()).initUnresolvedEntry(record, entry);
}

}  // namespace Asic
