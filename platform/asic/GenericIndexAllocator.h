// Index allocators: who holds which hardware index, for tables whose keys do not say.
//
// A key passes as the type of its class and a pointer, so that keys of several types lie side by
// side in one allocator. The allocator keeps a copy of each key that holds an index; two keys are
// the same if their types and their values are.
//
// Several tables of one hardware table share an allocator. Each enters with the type of its keys
// and a way to ask whether it has a key, and leaves when it ends.
//
// Invariants
//  1. An index belongs to at most one key; a key holds at most one index, or one run of consecutive
//     ones. A key's index does not move.
//  2. An index is free only after the last table that has its key let go of it
//     (`releaseIndexFromTable`), or after `markIndexAvailable`.
//  3. No table gets an index that it has no row for. A key that several tables have gets one that
//     all of them have a row for, if there is one; a table that has none for it holds nothing of it.
//  4. A key's copy is destroyed when the allocator is whole again: its end may call back.
//
// Which indices a new key gets is the affair of the class derived from this one.
//
// Threading: the thread of the owning agent.

#pragma once

#include <functional>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/asic/Index.h"
#include "platform/asic/IndexKeyType.h"
#include "platform/asic/IndexRecords.h"
#include "platform/vell/Node.h"
#include "platform/vell/Ptr.h"

namespace Asic {

class SwTable;

/// How one table takes part in an allocator.
struct TableAttr {
  Vell::ZarnType keyType;
  IndexKeyType const* keys = nullptr;
  /// Whether the table's key collection has the key.
  std::function<bool(void const* key)> holds;
  /// Rows of the table, whose indices begin at 0; 0 if its chip does not tell: any index will do.
  U32 rows = 0;

  bool hasRows(U64 end) const { return rows == 0 || end <= rows; }
};

class GenericIndexAllocator : public Vell::Node {
 public:
  /// Indices of a hardware table whose chip does not say how many it has.
  static constexpr U32 sizeIfUnknown = 1u << 20;

  /// A key as an allocator gives it out: good until the allocator is next changed.
  class Gif {
   public:
    Vell::ZarnType type() const { return type_; }
    /// The key, if it is of that type; else null.
    void const* voidPtrIs(Vell::ZarnType type) const { return type == type_ ? key_ : nullptr; }

   private:
    friend class GenericIndexAllocator;
    Vell::ZarnType type_;
    void const* key_ = nullptr;
  };
  /// The answer to `keyForIndex`.
  class KeyForIndex {
   public:
    /// Null if no key holds the index.
    Gif const* getGif() const { return gif_.key_ ? &gif_ : nullptr; }

   private:
    friend class GenericIndexAllocator;
    Gif gif_;
  };

  // Set-up.

  /// Enters the table, or changes how it takes part.
  void setTableAttr(SwTable const& table, TableAttr attr);
  bool tableAttrHas(SwTable const& table) const { return tableAttr_.contains(&table); }
  U32 tableAttrs() const { return static_cast<U32>(tableAttr_.size()); }
  /// The table leaves: what it alone held is free.
  void tableAttrDel(SwTable const& table);
  /// The number of indices, as each table that enters says it. 0 if its chip does not tell, which
  /// stands for `sizeIfUnknown` unless another table knows more by the time of the first index. It
  /// may grow; fewer than there are now is ignored.
  void sizeIs(U32 indices);
  U32 size() const { return size_ == 0 && isSizeAsked_ ? sizeIfUnknown : size_; }
  /// Indices that the table has a row for, from 0 on.
  U32 sizeFor(SwTable const& table) const;
  /// Ends the set-up: settings are fixed from here on.
  void initializedIs(bool initialized) { initialized_ = initialized; }
  bool initialized() const { return initialized_; }

  // Keys and indices. The type of a key must have entered with a table. `asking` is the table that wants
  // the index, and gets none that it has no row for; null for nobody in particular.

  /// Indices in use, by all tables.
  U32 totalUsedIndices() const { return used_; }
  /// The key's index if it has one, else a new one; exhausted if there is none.
  Index newIndexForKey(Vell::ZarnType keyType, void const* key, SwTable const* asking = nullptr) {
    return newRun(keyType, key, 1, asking);
  }
  /// The key gets this index: true if it has it now. False, and nothing changed, if the index is
  /// another's, or the key holds another index, or there is no such index.
  bool requestIndexForKey(Index index, Vell::ZarnType keyType, void const* key,
                          SwTable const* asking = nullptr);
  /// The same, for an index at which the key's entry was found in the hardware.
  bool recoverIndexForKey(Index index, Vell::ZarnType keyType, void const* key,
                          SwTable const* asking = nullptr) {
    return requestIndexForKey(index, keyType, key, asking);
  }
  /// An entry of some table may have its old place at the index: as long as there are others, a new
  /// key gets another one. Told once more for each entry, and taken back as often.
  virtual void candidateIs(Index) {}
  virtual void candidateDel(Index) {}
  /// The key's index, the first of its run; exhausted if it has none.
  Index indexForKey(Vell::ZarnType keyType, void const* key, SwTable const* asking = nullptr) const;
  /// The key that holds the index, also inside a run, whatever its type.
  KeyForIndex keyForIndex(Index index, Vell::ZarnType keyType) const;
  /// Indices that the key takes.
  U32 getBlockSize(Vell::ZarnType keyType, void const* key) const;
  bool isIndexAssigned(Index index, Vell::ZarnType) const { return recordAt(index) != nullptr; }
  /// Whether a key that `asking` does not have owns the index through another table.
  bool isIndexVerticallyShared(Index index, Vell::ZarnType keyType, SwTable const& asking) const;
  /// The index is free; its key, if it has one, loses all that it holds.
  void markIndexAvailable(Index index, Vell::ZarnType keyType);
  /// The key holds no index for this table. Its index is free unless another table has the key.
  void releaseIndexFromTable(Vell::ZarnType keyType, void const* key, SwTable const& table);

 protected:
  GenericIndexAllocator() = default;
  ~GenericIndexAllocator() override;

  /// The key's index, or the first of a new run of `count`.
  Index newRun(Vell::ZarnType keyType, void const* key, U32 count, SwTable const* asking);
  bool hasUsedIndices() const { return used_ != 0; }

 private:
  /// A key with what is needed to look it up.
  struct Hashed {
    Vell::ZarnType type;
    IndexKeyType const* keys;
    void const* key;
    U32 hash;
  };

  // What the free indices are kept in.

  /// Takes a run of `count` free indices below `limit`; exhausted if there is none.
  virtual Index take(U32 count, U32 limit) = 0;
  /// Takes just these; false if one of them is not free, or the run may not lie there.
  virtual bool takeAt(Index first, U32 count) = 0;
  virtual void giveBack(Index first, U32 count) = 0;
  /// There are `size` indices from now on, `before` until now.
  virtual void grow(U32 before, U32 size) = 0;
  /// Indices that a key takes: 1 unless its type is allocated in blocks.
  virtual U32 runOf(Vell::ZarnType, IndexKeyType const&, void const*) const { return 1; }

  IndexKeyType const* findKeys(Vell::ZarnType type) const;
  IndexKeyType const& keysOf(Vell::ZarnType type) const;
  Hashed hashed(Vell::ZarnType type, void const* key) const;
  IndexRecord const* find(Hashed const& key) const;
  IndexRecord const* recordAt(Index index) const;
  void needSize();
  void smallestTableIs();
  bool hasRows(SwTable const* asking, U64 end) const;
  Index takeFor(Hashed const& key, U32 count, SwTable const* asking);
  void enter(Hashed const& key, Index first, U32 count);
  void release(IndexRecord const& record);
  static bool isHeldBy(TableAttr const& table, IndexRecord const& record);
  bool isHeldBeside(IndexRecord const& record, SwTable const* asking) const;

  std::unordered_map<SwTable const*, TableAttr> tableAttr_;
  std::vector<std::pair<Vell::ZarnType, IndexKeyType const*>> keyTypes_;  ///< a few
  IndexRecords records_;
  std::vector<IndexRecord const*> byIndex_;  ///< as long as the highest index that was ever held
  U32 used_ = 0;
  U32 smallestTable_ = ~U32{0};  ///< fewest rows that a table has told: all have these
  U32 size_ = 0;                 ///< 0 until a table has told, or an index was asked for
  bool isSizeAsked_ = false;
  bool initialized_ = false;
};

}  // namespace Asic
