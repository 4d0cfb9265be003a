// The operations of block tables. Included by the source that instantiates the table, and nowhere
// else.

#pragma once

#include <stdexcept>

#include "frame/BlockAccessorDefinitions.h"
#include "frame/BlockTable.h"
#include "frame/BlockTableReflection.h"
#include "frame/HandleTableDefinitions.h"
#include "frame/UnresolvedEntriesDefinitions.h"
#include "platform/ostler/Utility.h"

namespace Asic {

// ---- records ----

template <class T>
constinit Zarn::AllocTrackTypeInfo UnresolvedEntryBlock<T>::memAllocationTracker_{
    NestedName<T, "::UnresolvedEntryBlock">::view};

// ---- what clients do ----

template <class T, class Sheet>
void BlockTable<T, Sheet>::validateEntryBlockSize(EntryBlock const& key) const {
  U32 const rows = key.entryInternal().count();
  U32 const blockSize = static_cast<EntryBase const&>(key).blockSize();
  if (rows != blockSize)
    Ostler::Utility::raise<std::logic_error>(Vell::concatenate(
        "Unsupported behavior: entryInternals: ", rows, ", blockSize: ", blockSize));
}

template <class T, class Sheet>
void BlockTable<T, Sheet>::setUpAllocator(typename Base::IndexAllocator& allocator) {
  allocator.splAllocationIs(keyType());
  allocator.bankCountIs(Sheet::banks);
  allocator.smallBlockRowsIs(Sheet::smallBlockRows);
}

template <class T, class Sheet>
auto BlockTable<T, Sheet>::entryBlockCommit(EntryBlock const& entryBlock) -> HandlePtr {
  AccessorT::template message<"entryBlockCommit">();
  validateEntryBlockSize(entryBlock);
  SwTable::OperationScope const scope(*this);
  auto const key = entryBlock;  // it may lie in what a watcher is about to change
  return AccessorT(this->table()).write("entryBlockCommit", key, AccessorT::Stage::commit);
}

template <class T, class Sheet>
auto BlockTable<T, Sheet>::entryBlockRef(EntryBlock const& entryBlock) -> HandlePtr {
  AccessorT::template message<"entryBlockRef">();
  validateEntryBlockSize(entryBlock);
  SwTable::OperationScope const scope(*this);
  auto const key = entryBlock;
  return AccessorT(this->table()).write("entryBlockRef", key, AccessorT::Stage::reference);
}

template <class T, class Sheet>
void BlockTable<T, Sheet>::entryBlockRemove(EntryBlock const& key) {
  SwTable::OperationScope const scope(*this);
  auto const copied = key;  // it may lie in what is about to go
  AccessorT(this->table()).entryRemove(copied);
}

template <class T, class Sheet>
void BlockTable<T, Sheet>::entryBlockRemoveAll() {
  SwTable::OperationScope const scope(*this);
  AccessorT(this->table()).entryRemoveAll();
}

template <class T, class Sheet>
void BlockTable<T, Sheet>::handleEntryBlock(EntryBlock const& key) {
  SwTable::OperationScope const scope(*this);
  KeyOperation<T> operation(this->table(), key, SwTable::KeyOperation::Stage::programming);
  Rows const rows = resolvedRows(operation.key());
  AccessorT(this->table()).handleEntry(operation, resolvedHas(operation.key()) ? &rows : nullptr);
}

// ---- the collections ----

template <class T, class Sheet>
auto BlockTable<T, Sheet>::resolvedRows(EntryBlock const& key) const -> Rows {
  auto const* node = resolvedEntryBlock_.lookupNodeG(key);
  return node ? node->key() : Rows{};
}

template <class T, class Sheet>
void BlockTable<T, Sheet>::resolvedEntryBlockIs(EntryBlock const& key) {
  if (resolvedHas(key) || SwTable::isGoing()) return;
  SwTable::OperationScope const scope(*this);
  Rows const rows = key;
  Vell::Ptr<EntryHandle> const handle = this->entryHandle(rows);  // to the end of the telling
  resolvedEntryBlock_.newMemberG(rows, {rows});
  KeyOperation<T> operation(this->table(), rows, SwTable::KeyOperation::Stage::programming);
  AccessorT(this->table()).handleEntry(operation, &rows);
  this->publish(resolvedEntryBlockField, rows, nullptr);
}

template <class T, class Sheet>
bool BlockTable<T, Sheet>::resolvedEntryBlockDel(EntryBlock const& key) {
  SwTable::OperationScope const scope(*this);
  HN_ResolvedEntryBlock removed;
  if (!resolvedEntryBlock_.deleteMemberG(key, &removed)) return false;
  KeyOperation<T> operation(this->table(), removed.key(),
                            SwTable::KeyOperation::Stage::programming);
  AccessorT(this->table()).handleEntry(operation, nullptr);
  this->publish(resolvedEntryBlockField, removed.key(), &removed.key_);
  return true;
}

template <class T, class Sheet>
void BlockTable<T, Sheet>::resolvedEntryBlockDelAll() {
  SwTable::OperationScope const scope(*this);
  for (Zarn::HashMap2018IteratorGeneric at(resolvedEntryBlock_); at; at.advance())
    resolvedEntryBlockDel(at.currNodeMaybeStale()->key());
}

}  // namespace Asic
