// What a chip plug-in implements for a table that writes its hardware.
//
// The life of a hook object, in the order of calls; `docs/plugin-guide.md` tells it with examples:
//
//  1. The framework makes one object per table from the plug-in's factory.
//  2. `minIndex`, `maxIndex`: at any time, also before the hardware is open.
//  3. `syncEntries`: once, before any commit. Tell each row that the hardware holds to
//     `swTable->syncedEntryIs(key, entry)`, and seed the index tracker with it.
//  4. `compareHwEntries`: during replay, for a key with a synced row; true if the hardware holds
//     the wanted entry already.
//  5. `updateHwIndexRefCountTracker`: before each write or delete that changes the use of an index.
//  6. `hwTableEntryIs`, `hwTableEntryDel`: after return the hardware holds, or no longer holds, the
//     entry. The table has its new value already; its watchers have not heard of it yet.
//
// In a table whose entries have handles, the key of every hook is the hardware index of one row: an
// entry that takes several rows is written, compared and deleted row by row, and the table alone
// knows which rows belong together. There a tracker operation comes before each row's write.
//
// No hook can fail as far as a table sees. A hook may call the table; it must not throw.

#pragma once

#include "frame/Sheet.h"
#include "platform/asic/SwTable.h"
#include "platform/zarn/Optional.h"

namespace Asic {

template <class T>
class TableUtil : public SwTable::Util {
 public:
  using Key = typename T::UtilKey;
  using Entry = typename T::Entry;

  explicit TableUtil(Vell::String name = Vell::String(T::names.qualified))
      : SwTable::Util(std::move(name)) {}

  Vell::ZarnType typeData() const override { return {&T::module(), T::utilTypeNumber}; }

  /// Lowest and highest valid index of the hardware table.
  virtual U32 minIndex() const = 0;
  virtual U32 maxIndex() const = 0;
  /// The hardware index behind a dependent field's value: the value itself.
  virtual Index dependentFieldValueToHwIndex(Index dependentField) const { return dependentField; }
  /// Writes the key's value; empty when the key is held without one.
  virtual void hwTableEntryIs(T& swTable, Key key, Zarn::Optional<Entry> const& entry) const = 0;
  /// Deletes the key's row.
  virtual void hwTableEntryDel(T& swTable, Key key) const = 0;
  /// Moves the use count of the key's index. `hwTable` is null while there is no hardware table.
  virtual void updateHwIndexRefCountTracker(HwTable* hwTable, Key key,
                                            IndexUserTracker::OpType updateOperation) const = 0;
  /// Whether the hardware holds `resolvedEntry` at the key.
  virtual bool compareHwEntries(T& swTable, Key key, Entry const& resolvedEntry) const = 0;
  /// Tells the table every row that the hardware holds.
  virtual void syncEntries(HwTable& hwTable, Vell::Ptr<T> const& swTable) const = 0;
  /// The index to write into a field that refers to `hdl`'s entry.
  virtual Index hwIndexForDependentField(SwTableBase::EntryHandle const& hdl) const {
    return SwTableBase::getHwEntryIndex(hdl);
  }

  static Index getHwIndex(SwTableBase::EntryHandle const& hdl) {
    return SwTableBase::getHwEntryIndex(hdl);
  }
};

}  // namespace Asic
