// A member row of load-balanced groups, and the block of rows that is the member table's key.
//
// Invariants
//  1. `ecmpNextHopEntry` is a result and no part of the identity of a row or a block: the table
//     writes the resolved index into a stored block without disturbing any map that it is a key of.
//  2. Copies of a block share their rows until one of them changes, so that a copy costs the same
//     whatever the block's size. To its users each copy is a value of its own.
//  3. A copy keeps the next hops that its rows name alive.
//
// Threading: that of the table.

#pragma once

#include <array>

#include "containers/HashMap2018.h"
#include "containers/HashMap2018Iterator.h"
#include "frame/FieldEntry.h"
#include "platform/asic/SwTableBase.h"
#include "platform/bruvel/Slab.h"

namespace TessarLoadBalance {

class DlbEcmpMember1Entry : public Asic::FieldEntry<DlbEcmpMember1Entry> {
 public:
  static constexpr U64 numDependentFields = 1;

  /// The next hop that the row depends on, an entry of another table; may be null.
  Vell::Ptr<Asic::SwTableBase::EntryHandle const> ecmpNextHopEntryHandle;
  /// That next hop's hardware index, written by the table when the block resolves; without a handle
  /// it stays what the client gave.
  U32 ecmpNextHopEntry = 0;
  U8 weightIdx = 0;  ///< weight index of the row; only stored and handed on

  /// Of the identity alone.
  U32 hash(U32 seed) const;

  /// The entry that this one needs, and the index to fill in for it.
  auto const& neededEntryHandle() const { return ecmpNextHopEntryHandle; }
  Asic::Index neededIndex() const { return ecmpNextHopEntry; }
  void neededIndexIs(Asic::Index index) { ecmpNextHopEntry = index.value(); }

  static constexpr auto fields() {
    using Entry = DlbEcmpMember1Entry;
    return Zarn::fieldList(
        "TessarLoadBalance::DlbEcmpMember1Table::Entry",
        Zarn::field(0x84, "ecmpNextHopEntryHandle", &Entry::ecmpNextHopEntryHandle),
        Zarn::field(0x85, "ecmpNextHopEntry", &Entry::ecmpNextHopEntry, Zarn::FieldRole::result),
        Zarn::field(0x86, "weightIdx", &Entry::weightIdx));
  }
};

class DlbEcmpMember1EntryBlock final : public Asic::EntryBase {
 public:
  using Index = Asic::SwTableBase::Index;
  using Entry = DlbEcmpMember1Entry;
  using HN_EntryInternal = Zarn::HN<Index, Entry, 0xB904FC86>;
  using EntryInternalMap = Zarn::HashMap2018<HN_EntryInternal>;

  /// No rows.
  DlbEcmpMember1EntryBlock() = default;

  // By the row's offset in the block, 0 to n - 1 in a block of n rows.

  /// The row; a default one if the offset is absent.
  Entry entry(Index offset) const { return entryInternal(offset); }
  /// Stores the row, in place of the one that is there or as a new one.
  void entryIs(Index offset, Entry const& row) { entryInternalIs(offset, row); }
  /// Removes the row and gives it; a default one if the offset was absent.
  Entry entryDel(Index offset) { return entryInternalDel(offset); }

  // The same collection under its other name, which has what reflection needs beside.

  Entry entryInternal(Index offset) const;
  EntryInternalMap const& entryInternal() const { return rows_ ? rows_->map : noRows(); }
  bool entryInternalHas(Index offset) const { return entryInternal().lookupNodeG(offset); }
  void entryInternalIs(Index offset, Entry const& row);
  Entry entryInternalDel(Index offset);
  void entryInternalDelAll() { rows_ = nullptr; }

  /// Calls `visitor(offset, row)` for each row, in the order of the map. It must not change this block.
  template <class Visitor>
  void forEach(Visitor&& visitor) const {
    using Walk = Zarn::HashMap2018UnsafeIteratorConstGeneric<EntryInternalMap>;
    for (Walk at(entryInternal()); at; ++at) visitor(at.currNode()->key(), at.currNode()->value_);
  }
  /// Writes the index of what a row needs into it; nothing if the offset is absent.
  void neededIndexIs(Index offset, Asic::Index index);

  /// The rows held.
  U32 getBlockSize() const override { return entryInternal().count(); }
  /// Of offsets and rows, in the order of the map.
  U32 hash(U32 seed) const;

  /// The same object, or the same rows at the same offsets.
  static bool isEq(DlbEcmpMember1EntryBlock const& a, DlbEcmpMember1EntryBlock const& b);
  /// Key equality for publications, on two pointers to blocks.
  static bool isEq(void const* a, void const* b) {
    return isEq(*static_cast<DlbEcmpMember1EntryBlock const*>(a),
                *static_cast<DlbEcmpMember1EntryBlock const*>(b));
  }
  friend bool operator==(DlbEcmpMember1EntryBlock const& a, DlbEcmpMember1EntryBlock const& b) {
    return isEq(a, b);
  }
  /// -1, 0 or 1: the number of rows first, then offset and row in the order of the maps.
  friend int operator<=>(DlbEcmpMember1EntryBlock const& a, DlbEcmpMember1EntryBlock const& b);
  /// Whether the block differs from an empty one.
  explicit operator bool() const { return getBlockSize() != 0; }
  friend std::ostream& operator<<(std::ostream& out, DlbEcmpMember1EntryBlock const& block);
  /// A block is never read from a text: that is a fatal assertion.
  void deserialize(Zarn::CharRange& range, std::string_view name);

 private:
  /// The rows, and the block's hashes under the seeds that were asked for last: the maps that a
  /// block is a key of ask again and again.
  struct Rows : Bruvel::Allocated<Rows> {
    struct Hash {
      U32 seed;
      U32 hash;
    };
    static Zarn::AllocTrackTypeInfo memAllocationTracker_;

    Rows() = default;
    Rows(Rows const& other)
        : map(other.map),
          identity(other.identity),
          hashes(other.hashes),
          hashesKept(other.hashesKept) {}
    void useTake() { ++uses; }
    void useDrop() {
      if (--uses == 0) delete this;
    }

    EntryInternalMap map{1, false};
    U64 identity = 0;  ///< rows of one number are equal; a copy keeps it until its identity changes
    std::array<Hash, 4> hashes{};
    U8 hashesKept = 0;
    U8 hashToReplace = 0;
    U32 uses = 0;  ///< blocks that share these rows
  };

  static EntryInternalMap const& noRows();
  /// The rows for changing, shared with no other block.
  Rows& own();
  /// The same when the block's identity is about to change.
  Rows& ownChanging();
  U32 hashOfRows(U32 seed) const;
  /// Whether the two are known to be equal without a look at their rows.
  static bool areOneIdentity(DlbEcmpMember1EntryBlock const& a, DlbEcmpMember1EntryBlock const& b) {
    return &a == &b || a.rows_ == b.rows_ ||
           (a.rows_ && b.rows_ && a.rows_->identity == b.rows_->identity);
  }

  Vell::Ptr<Rows> rows_;  ///< null: no rows
};

}  // namespace TessarLoadBalance
