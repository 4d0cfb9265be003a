// The simulated chip's hooks for tables that write their hardware.
//
// Blocks are written to the end by their table, so their index is known at the write; that of a group
// is known when the chip acknowledges the write.
//
// A key without a value keeps its row: valid, with every field 0. A write of that is never refused:
// it takes something out, for which there is always room. The next process finds it as a
// row like any other, so that it is claimed by a commit or deleted as stale, and never forgotten.
//
// A table that puts an entry over rows that sync had found writes all of them; those that hold the
// same already are left alone.
//
// Without a hardware table nothing is programmed: the table works on its collections alone.

#pragma once

#include <algorithm>

#include "chips/sim/KeyRows.h"
#include "chips/sim/RowCodec.h"
#include "chips/sim/SimHwTable.h"
#include "frame/TableUtil.h"
#include "frame/Variants.h"

namespace Sim {

template <class T>
class SimUtil final : public Asic::TableUtil<T> {
 public:
  using Key = typename T::UtilKey;
  using Entry = typename T::Entry;
  using Codec = RowCodec<Entry>;
  using Rows = KeyRows<Key>;

  explicit SimUtil(U32 rows) : rows_(rows) { this->indexKnownAtWriteIs(Asic::BlockTableClass<T>); }

  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return rows_ - 1; }
  U32 numEntries() const override { return rows_; }

  void hwTableEntryIs(T& swTable, Key key, Zarn::Optional<Entry> const& entry) const override {
    using enum SimHwTable::Refusable;
    auto* const hwTable = swTable.hwTable();
    if (!hwTable) return;
    auto& chipTable = SimHwTable::of(*hwTable);
    if (!entry) return chipTable.rowIs(Rows::row(key), Codec::blank(), no);
    auto const bytes = Codec::pack(*entry);
    if (wasFound(swTable, key) && std::ranges::equal(chipTable.row(Rows::row(key)), bytes))
      chipTable.rowStays(Rows::row(key));
    else
      chipTable.rowIs(Rows::row(key), bytes, yes);
  }

  void hwTableEntryDel(T& swTable, Key key) const override {
    if (auto* const hwTable = swTable.hwTable()) SimHwTable::of(*hwTable).rowDel(Rows::row(key));
  }

  void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Key key,
                                    Asic::IndexUserTracker::OpType operation) const override {
    if (hwTable) Asic::IndexUserTracker::Stub::tracker(*hwTable).update(Rows::row(key), operation);
  }

  /// Bit by bit: true says that a write would change nothing.
  bool compareHwEntries(T& swTable, Key key, Entry const& resolvedEntry) const override {
    auto* const hwTable = swTable.hwTable();
    return hwTable && std::ranges::equal(SimHwTable::of(*hwTable).row(Rows::row(key)),
                                         Codec::pack(resolvedEntry));
  }

  void syncEntries(Asic::HwTable& hwTable, Vell::Ptr<T> const& swTable) const override {
    for (U32 row = 0; row < rows_; ++row) {
      auto const bytes = SimHwTable::of(hwTable).row(row);
      if (bytes.empty()) continue;
      Asic::IndexUserTracker::Stub::tracker(hwTable).recover(row);
      swTable->syncedEntryIs(Rows::key(row), Codec::unpack(bytes));
    }
  }

  bool doCopyHwTable(Asic::HwTable const& from, Asic::HwTable& to) const override {
    for (U32 row = 0; row < rows_; ++row) {
      auto const bytes = SimHwTable::of(from).row(row);
      auto& target = SimHwTable::of(to);
      if (std::ranges::equal(bytes, target.row(row))) continue;
      bytes.empty() ? target.rowDel(row) : target.rowIs(row, bytes);
    }
    return true;
  }

 private:
  /// Whether sync had found the row that is written now.
  static bool wasFound(T const& swTable, Key key) {
    if constexpr (!Asic::DirectTableClass<T>)
      if (swTable.syncedEntryMap().lookup(key)) return true;
    return swTable.reconcilingEntry();
  }

  U32 rows_;
};

}  // namespace Sim
