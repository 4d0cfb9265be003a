// The operations of entry handles. Included by the sources that instantiate tables.

#pragma once

#include "frame/TableEntryHandle.h"

namespace Asic {

template <class T>
constinit Zarn::AllocTrackTypeInfo TableEntryHandle<T>::memAllocationTracker_{
    NestedName<T, "::EntryHandle">::view};

template <class T>
TableEntryHandle<T>::~TableEntryHandle() {
  this->nodeFlagSet(Vell::Node::freedAtZeroFlag, false);
  if (swTable_) swTable_->outsiderForget(*this);
  pendingEntry_.doClear(PendingEntry::Numbering::dropped);
  key_ = Key();
}

template <class T>
void TableEntryHandle<T>::lastUserGone() {
  Vell::Node::lastUserGone();
  cleanup();
}

template <class T>
void TableEntryHandle<T>::cleanup() {
  if (Vell::Ptr<T> const table = swTable_) table->cleanupEntry(*this);
}

template <class T>
void TableEntryHandle<T>::handleEntryState() {
  auto const key = key_;
  if (Vell::Ptr<T> const table = swTable_) AccessorT(*table).handleEntryState(*this, key);
}

template <class T>
void TableEntryHandle<T>::handleResolvedEntryState() {
  if (Vell::Ptr<T> const table = swTable_)
    AccessorT(*table).handleResolvedEntryState(*this);
  else
    this->entryStateIs(this->resolvedEntryState());
}

template <class T>
Index TableEntryHandle<T>::hwIndexForDependentField() const {
  Vell::Ptr<T> const table = swTable_;
  return table ? AccessorT(*table).hwIndexForDependentField(*this) : this->hwIndex();
}

template <class T>
void TableEntryHandle<T>::handleIndexSuggestions(IndexSet const& indices) const {
  auto const copied = indices;
  if (Vell::Ptr<T> const table = swTable_)
    table->suggestIndices(const_cast<TableEntryHandle&>(*this), copied);
}

template <class T>
void TableEntryHandle<T>::swTableIs(T* table) {
  if (table == swTable_) return;
  auto const* const previous = std::exchange(swTable_, table);
  publishAttribute(fields.swTable, &previous);
}

template <class T>
void TableEntryHandle<T>::blockSizeIs(BlockSize size) {
  if (size == blockSize_) return;
  auto const previous = std::exchange(blockSize_, size);
  publishAttribute(fields.blockSize, &previous);
}

template <class T>
void TableEntryHandle<T>::publishPending(U32 sequence) {
  this->publisher()->publishChange(
      fields.pendingEntry, &sequence, [](void const* a, void const* b) {
        return *static_cast<U32 const*>(a) == *static_cast<U32 const*>(b);
      });
}

template <class T>
void TableEntryHandle<T>::pendingEntryEnq(Entry const& entry) {
  publishPending(pendingEntry_.enq(entry));
}

template <class T>
auto TableEntryHandle<T>::pendingEntryDeq() -> Entry {
  if (pendingEntry_.empty()) return {};
  auto const sequence = pendingEntry_.firstSequence();
  auto taken = pendingEntry_.deq();
  publishPending(sequence);
  return taken;
}

template <class T>
void TableEntryHandle<T>::pendingEntryDelAll() {
  Vell::Ptr<TableEntryHandle> const held(this);
  if (!this->publisher()->hasWatchers()) {
    pendingEntry_.doClear(PendingEntry::Numbering::kept);
    return;
  }
  while (!pendingEntry_.empty()) pendingEntryDeq();
}

}  // namespace Asic
