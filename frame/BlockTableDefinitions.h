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

/// The handle of a block that waits or is resolved; null for any other.
template <class T, class Sheet>
auto BlockTable<T, Sheet>::knownHandle(EntryBlock const& key, std::string_view operation)
    -> Vell::Ptr<EntryHandle> {
  AccessorT const accessor(this->table());
  if (!this->unresolvedHas(key) && !resolvedHas(key)) {
    accessor.trace(traceClient, operation, " : Writing new entry : ", key);
    return nullptr;
  }
  accessor.trace(traceClient, operation, " : Found an existing entry : ", key);
  auto eh = this->entryHandle(key);
  VELL_ASSERT(eh, "eh", "expect a valid entryHandle, key: ", key);
  return eh;
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
  if (auto const known = knownHandle(entryBlock, "entryBlockCommit")) {
    known->committed();
    return known;
  }
  Vell::Ptr<EntryHandle> const eh = this->entryHandleIs(entryBlock, &this->table());
  if (eh->entryType() == SwTableBase::EntryType::unset) eh->blockSizeIs(0);
  eh->committed();
  return startNewBlock(*eh);
}

template <class T, class Sheet>
auto BlockTable<T, Sheet>::entryBlockRef(EntryBlock const& entryBlock) -> HandlePtr {
  AccessorT::template message<"entryBlockRef">();
  validateEntryBlockSize(entryBlock);
  SwTable::OperationScope const scope(*this);
  if (auto const known = knownHandle(entryBlock, "entryBlockRef")) return known;
  Vell::Ptr<EntryHandle> const eh = this->entryHandleIs(entryBlock, &this->table());
  if (eh->referenced()) eh->blockSizeIs(0);
  return startNewBlock(*eh);
}

template <class T, class Sheet>
auto BlockTable<T, Sheet>::startNewBlock(EntryHandle& handle) -> HandlePtr {
  HandlePtr const held(&handle);
  handle.entryStateIs(SwTableBase::EntryState::unresolved);
  auto const ue = unresolvedEntryBlockIs(handle.key());
  AccessorT(this->table()).initUnresolved(*ue);
  return held;
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
  auto const copied = key;
  AccessorT(this->table()).handleEntry(copied);
}

// ---- the collections ----

template <class T, class Sheet>
auto BlockTable<T, Sheet>::resolvedRows(EntryBlock const& key) const -> Rows {
  auto const* node = resolvedEntryBlock_.lookupNodeG(key);
  return node ? node->key() : Rows{};
}

template <class T, class Sheet>
void BlockTable<T, Sheet>::resolvedEntryBlockIs(EntryBlock const& key) {
  if (resolvedHas(key)) return;
  SwTable::OperationScope const scope(*this);
  auto const copied = key;
  Vell::Ptr<EntryHandle> const handle = this->entryHandle(copied);  // to the end of the telling
  resolvedEntryBlock_.newMemberG(copied, {copied});
  AccessorT(this->table()).handleEntry(copied);
  this->publish(resolvedEntryBlockField, copied, nullptr);
}

template <class T, class Sheet>
bool BlockTable<T, Sheet>::resolvedEntryBlockDel(EntryBlock const& key) {
  SwTable::OperationScope const scope(*this);
  HN_ResolvedEntryBlock removed;
  if (!resolvedEntryBlock_.deleteMemberG(key, &removed)) return false;
  AccessorT(this->table()).handleEntry(removed.key());
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
