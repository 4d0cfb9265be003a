// A table whose key is a block of rows: the block's contents are its key, and it is programmed whole
// or not at all. `T` is the concrete table, `Sheet` its data sheet.
//
// How a block gets to the hardware
//
//   entryBlockCommit, entryBlockRef          a block comes in: it has a handle and a record
//     -> unresolvedEntryBlock                it waits until every next hop is usable
//     -> resolvedEntryBlock                  the next hops' indices are filled in
//     -> programHwEntry                      its rows have an index and are written
//     -> the handle's entryState: success    those that wait for the block hear of it
//
// Without anything to wait for, all of it happens inside the call.
//
// Invariants
//  1. A block is in at most one of `unresolvedEntryBlock` and `resolvedEntryBlock`, except inside
//     its resolution; in either case it has a handle.
//  2. A change of a collection is stored first, then carried to the hardware, then told to the
//     watchers, all inside the call.
//  3. What is written to the hardware is the copy in `resolvedEntryBlock`: the handle's key keeps
//     what the client gave.
//
// Neither commit nor ref tells whether the block reached the hardware: watch the handle.
//
// Threading: the thread of the owning agent.

#pragma once

#include "frame/HandleTable.h"
#include "frame/UnresolvedEntries.h"

namespace Asic {

template <class T>
struct BlockTableReflection;

/// The record of one block that waits for its next hops.
template <class T>
class UnresolvedEntryBlock final : public TableRecord<T, UnresolvedEntryBlock<T>> {
 public:
  using Key = typename T::Key;

  static constexpr U32 entryBlockField = 0x182;
  static Zarn::AllocTrackTypeInfo memAllocationTracker_;

  explicit UnresolvedEntryBlock(Key const& key) : entryBlock_(key) {}
  Vell::ZarnType typeData() const override {
    return {&T::module(), T::unresolvedEntryBlockTypeNumber};
  }

  /// The block; its next hops' indices are filled in when it resolves, which leaves it equal.
  Key const& entryBlock() const { return entryBlock_; }
  Key const& key() const { return entryBlock_; }
  Key& rows() { return entryBlock_; }
  Key const& rows() const { return entryBlock_; }

 private:
  Key entryBlock_;
};

template <class T, class Sheet>
class BlockTable : public HandleTable<T, Sheet>, public UnresolvedEntries<T, Sheet> {
  using Waiting = UnresolvedEntries<T, Sheet>;

 public:
  using Base = HandleTable<T, Sheet>;
  using EntryBlock = typename Sheet::Key;
  using Key = EntryBlock;
  using Rows = EntryBlock;
  using Value = Rows;  ///< of a key, as the generic logic carries it
  using EntryHandle = typename Base::EntryHandle;
  using HandlePtr = Vell::Ptr<SwTableBase::EntryHandle const>;
  using UnresolvedEntryBlock = Asic::UnresolvedEntryBlock<T>;
  using HN_ResolvedEntryBlock = Zarn::HNKeyOnly<EntryBlock, Sheet::maps.resolvedEntryBlock>;
  using ResolvedEntryBlockMap = Zarn::HashMap2018<HN_ResolvedEntryBlock>;

  /// Numbers of the table's types in its module.
  static constexpr U32 entryTypeNumber = 0;
  static constexpr U32 entryBlockTypeNumber = 1;
  static constexpr U32 entryHandleTypeNumber = 2;
  static constexpr U32 unresolvedEntryBlockTypeNumber = 3;
  static constexpr U32 utilTypeNumber = 4;
  static constexpr U32 utilLoaderTypeNumber = 5;
  static constexpr U32 typeNumber = 6;
  static constexpr U32 syncedEntryTypeNumber = 7;
  /// Field ids of the publications, and what their former value is.
  static constexpr U32 resolvedEntryBlockField = 0x286;                     ///< the block, or null
  static constexpr U32 unresolvedEntryBlockField = Sheet::unresolvedField;  ///< the record, or null

  // What clients ask.

  /// Whether the block's next hops are all usable, and it is programmed or about to be.
  bool entryBlockHas(EntryBlock const& key) const { return resolvedHas(key); }
  /// Blocks known, committed or only referenced.
  U32 entryBlocks() const { return this->entryHandleMap().count(); }
  /// The waiting record of the block, or null.
  Vell::Ptr<UnresolvedEntryBlock> unresolvedEntryBlock(EntryBlock const& key) const {
    return this->unresolved(key);
  }

  // What clients do. Both throw `std::logic_error`, with nothing changed, for a block whose rows
  // are not as many as its block size says.

  /// The table shall own this block: it lives until it is removed, and its handle is the result.
  HandlePtr entryBlockCommit(EntryBlock const& entryBlock);
  /// The caller needs this block for as long as it keeps the result; the table does not own it.
  HandlePtr entryBlockRef(EntryBlock const& entryBlock);
  /// Takes back the commit. The rows go when nobody holds the handle any more.
  void entryBlockRemove(EntryBlock const& key);
  /// Takes back every commit. Stale rows must have been purged before.
  void entryBlockRemoveAll();

  // The collections, for the generic logic.

  Vell::Ptr<UnresolvedEntryBlock> unresolvedEntryBlockIs(EntryBlock const& key) {
    return this->unresolvedIs(key);
  }
  /// Takes the record out, watching nothing any more, and gives it; null if there was none.
  Vell::Ptr<UnresolvedEntryBlock> unresolvedEntryBlockDel(EntryBlock const& key) {
    return this->unresolvedDel(key);
  }
  void unresolvedEntryBlockDelAll() { this->unresolvedDelAll(); }
  /// Stores the block with its next hops' indices filled in; nothing if it is there.
  void resolvedEntryBlockIs(EntryBlock const& key);
  /// False if it was not there.
  bool resolvedEntryBlockDel(EntryBlock const& key);
  void resolvedEntryBlockDelAll();
  /// Runs the hardware logic for the block anew.
  void handleEntryBlock(EntryBlock const& key);

  ResolvedEntryBlockMap const& resolvedEntryBlockMap() const { return resolvedEntryBlock_; }

  // What the generic logic calls these collections, and their operations in its lines.

  static constexpr std::string_view initUnresolvedName = "initUnresolvedEntryBlock";

  static Vell::ZarnType keyType() { return {&Base::module(), entryBlockTypeNumber}; }
  static U32 blockSizeOf(EntryBlock const& key) { return key.blockSize(); }
  Index newIndex(typename Base::IndexAllocator& allocator, EntryBlock const& key) const {
    return allocator.newIndexForBlock(keyType(), &key, this);
  }
  static void setUpAllocator(typename Base::IndexAllocator& allocator);
  bool resolvedHas(EntryBlock const& key) const {
    return resolvedEntryBlock_.lookupNodeG(key) != nullptr;
  }
  bool hasValue(EntryBlock const& key) const { return resolvedHas(key); }
  U32 resolvedCount() const { return resolvedEntryBlock_.count(); }
  /// The block with its next hops' indices filled in; an empty one if it is not resolved.
  Rows resolvedRows(EntryBlock const& key) const;
  Value valueOf(EntryBlock const& key) const { return resolvedRows(key); }
  void resolvedIs(UnresolvedEntryBlock const& record) { resolvedEntryBlockIs(record.entryBlock()); }
  void resolvedDel(EntryBlock const& key) { resolvedEntryBlockDel(key); }
  void resolvedDelAll() { resolvedEntryBlockDelAll(); }
  using Waiting::unresolvedDel;
  using Waiting::unresolvedDelAll;
  using Waiting::unresolvedHas;

 protected:
  using AccessorT = SwTable::Accessor<T>;

  BlockTable() = default;
  ~BlockTable() override = default;

 private:
  void validateEntryBlockSize(EntryBlock const& key) const;

  ResolvedEntryBlockMap resolvedEntryBlock_{1, false};
};

}  // namespace Asic
