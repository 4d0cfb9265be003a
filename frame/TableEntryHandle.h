// The handle of one entry of a table whose indices come from an allocator: how the rest of the
// world holds on to the entry, in which state the entry is, and where in the hardware it lies. The
// last use of it going away is what removes the entry.
//
// Invariants
//  1. `key` is the copy made at construction and is never updated.
//  2. The handle holds no use of its table. `swTable` is null once the table is going away; the
//     handle may outlive it.
//  3. Elements that are pending when the handle goes are dropped without notice.
//
// `T` is the table's class. It brings `T::HandleKey`, `T::Entry`, the queue's traits
// `T::QE_PendingEntry`, and `T::handleFields`, the field ids of the handle.
//
// Threading: the thread of the owning agent. The last use can go inside any call that drops one.

#pragma once

#include "containers/RQueue.h"
#include "frame/Variants.h"
#include "platform/asic/SwTableEntryHandle.h"
#include "platform/bruvel/Slab.h"
#include "platform/zarn/AllocTrack.h"

namespace Asic {

/// Field ids of a handle's own attributes. `blockSize` is 0 in tables without it.
struct HandleFields {
  U32 key = 0x182;
  U32 swTable = 0x183;
  U32 blockSize;
  U32 pendingEntry;
  U32 cleanup;
};

template <class T>
class TableEntryHandle final : public SwTable::EntryHandle,
                               public Bruvel::Allocated<TableEntryHandle<T>> {
 public:
  using Key = typename T::HandleKey;
  using Entry = typename T::Entry;
  using PendingEntry = Vell::RQueue<Entry, true, typename T::QE_PendingEntry>;
  using BlockSize = U32;

  static constexpr HandleFields fields = T::handleFields;
  static Zarn::AllocTrackTypeInfo memAllocationTracker_;

  TableEntryHandle(Key key, T* table) : key_(std::move(key)), swTable_(table) {}
  ~TableEntryHandle() override;
  /// The same as an object of its own, in no table.
  static Vell::Ptr<TableEntryHandle> EntryHandleIs(Key key, T* table) {
    Vell::Ptr<TableEntryHandle> const made = new TableEntryHandle(std::move(key), table);
    if (table) table->outsiderIs(*made);
    return made;
  }

  void lastUserGone() override;
  Vell::ZarnType typeData() const override { return {&T::module(), T::entryHandleTypeNumber}; }
  void handleEntryState() override;
  Index hwIndexForDependentField() const override;
  void handleIndexSuggestions(IndexSet const& indices) const override;
  void handleResolvedEntryState() override;

  Key const& key() const { return key_; }
  T* swTable() const { return swTable_; }
  /// Stores another table, or none, and tells the watchers of the handle; the same one is nothing.
  void swTableIs(T* table);
  /// The same without telling anybody, for a handle that is about to go.
  void swTableForget() { swTable_ = nullptr; }
  /// A free attribute for clients.
  BlockSize blockSize() const { return blockSize_; }
  void blockSizeIs(BlockSize size);
  /// Removes the entry as if the last user had gone.
  void cleanup();

  // The queue of pending entries; its numbers start at 1 and never repeat within 2^32.

  PendingEntry const& pendingEntry() const { return pendingEntry_; }
  void pendingEntryEnq(Entry const& entry);
  /// Takes the first element; a default entry, and nothing told, if there is none.
  Entry pendingEntryDeq();
  Entry pendingEntryFront() const { return pendingEntry_.front(); }
  Entry pendingEntryBack() const { return pendingEntry_.back(); }
  /// The element of that number; a default entry if it was taken, or is not there yet.
  Entry pendingEntry(U32 sequence) const { return pendingEntry_.at(sequence); }
  bool pendingEntryHas(U32 sequence) const { return pendingEntry_.has(sequence); }
  /// Drops all elements, and tells each of them if anybody watches.
  void pendingEntryDelAll();

 private:
  using AccessorT = SwTable::Accessor<T>;

  void publishAttribute(U32 fieldId, void const* previous) {
    this->publisher()->publishChangeRecursive(fieldId, nullptr, previous, nullptr);
  }
  void publishPending(U32 sequence);

  Key key_;
  T* swTable_;
  BlockSize blockSize_ = 0;
  PendingEntry pendingEntry_;
};

}  // namespace Asic
