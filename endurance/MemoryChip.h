// The hooks of a chip that is an array in memory: as quick as one can be, and each hook may call back.
//
// A row holds numbers alone, as hardware does: of an entry that points at another, that one's index.
// A chip may refuse a write, which then leaves its row as it was; it refuses none that empties a row.
// Writes are acknowledged when the trial asks for it, in an order of its choice.
//
// At every operation the truth must hold: no row that was written, or was found to be right, points at one
// that is not there (endurance/RowTruth.h).

#pragma once

#include <array>
#include <functional>
#include <vector>

#include "config/DlbControlSwTable.h"
#include "config/DlbEcmpQualityMapSwTable.h"
#include "endurance/RowTruth.h"
#include "endurance/Told.h"
#include "forwarding/NextHopSwTable.h"
#include "group/EcmpGroup1DlbSwTable.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "group/VxlanEcmpGroup1DlbSwTable.h"
#include "group/VxlanEcmpGroup1SelectiveDlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace Endurance {

using Direct = TessarLoadBalance::DlbControlTable;
using NextHops = Forwarding::NextHopTable;
using Members = TessarLoadBalance::DlbEcmpMember1Table;
using Groups = TessarLoadBalance::EcmpGroup1DlbTable;
using Selectives = TessarLoadBalance::EcmpGroup1SelectiveDlbTable;
using Qualities = TessarLoadBalance::DlbEcmpQualityMapTable;
using VxlanGroups = TessarLoadBalance::VxlanEcmpGroup1DlbTable;
using VxlanSelectives = TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable;

template <class T>
constexpr bool isDirectTable = std::same_as<T, Direct> || std::same_as<T, Qualities>;
template <class T>
constexpr bool isPlainGroupTable = std::same_as<T, Groups> || std::same_as<T, VxlanGroups>;
template <class T>
constexpr bool isSelectiveTable = std::same_as<T, Selectives> || std::same_as<T, VxlanSelectives>;

/// What a row holds: the value of its entry, and where it points; no value is what an entry without one
/// leaves.
struct Row {
  U32 value = 0;
  U32 pointer = 0;
  friend bool operator==(Row const&, Row const&) = default;
};

template <class T>
Row rowOf(typename T::Entry const& entry) {
  if constexpr (std::same_as<T, Direct>)
    return {entry.portLoadingWeight, 0};
  else if constexpr (std::same_as<T, Qualities>)
    return {entry.assignedQuality, 0};
  else if constexpr (std::same_as<T, NextHops>)
    return {entry.port, 0};
  else if constexpr (std::same_as<T, Members>)
    return {entry.weightIdx, entry.ecmpNextHopEntry};
  else if constexpr (isPlainGroupTable<T>)
    return {entry.lbMode, 0};
  else
    return {static_cast<U32>(entry.countSecondary.value()), entry.ecmpSecondaryBlockPtr};
}
template <class T>
typename T::Entry entryOf(Row const& row) {
  typename T::Entry entry;
  if constexpr (std::same_as<T, Direct>) {
    entry.portLoadingWeight = row.value;
  } else if constexpr (std::same_as<T, Qualities>) {
    entry.assignedQuality = row.value;
  } else if constexpr (std::same_as<T, NextHops>) {
    entry.port = static_cast<U16>(row.value);
  } else if constexpr (std::same_as<T, Members>) {
    entry.weightIdx = static_cast<U8>(row.value);
    entry.ecmpNextHopEntry = row.pointer;
  } else if constexpr (isPlainGroupTable<T>) {
    entry.lbMode = row.value;
  } else {
    entry.countSecondary = Zarn::U12(row.value);
    entry.ecmpSecondaryBlockPtr = row.pointer;
  }
  return entry;
}

/// Where a row points once it holds the entry: how many rows of which floor below, from `Row::pointer` on.
template <class T>
Target targetOf(typename T::Entry const& entry) {
  if constexpr (std::same_as<T, Members>) {
    if (entry.ecmpNextHopEntryHandle) return {entry.ecmpNextHopEntry, 1};
  } else if constexpr (isSelectiveTable<T>) {
    if (auto const& handle = entry.ecmpSecondaryBlockPtrHandle)
      return {entry.ecmpSecondaryBlockPtr,
              static_cast<Members::EntryHandle const&>(*handle).key().blockSize()};
  }
  return {};
}
template <class T>
constexpr Floor floorOf = std::same_as<T, NextHops>  ? Floor::hops
                          : std::same_as<T, Members> ? Floor::members
                          : isSelectiveTable<T>      ? Floor::groups
                                                     : Floor::none;

/// What the hooks of all tables of a trial have in common.
struct ChipSide {
  explicit ChipSide(Finding& finding) : truth(finding) {}

  std::function<void()> onHook;   ///< the watchers' hour
  std::function<bool()> refuses;  ///< whether the chip refuses the next write
  mutable RowTruth truth;
};

template <class T>
class MemoryChip final : public T::Util {
 public:
  using Key = typename T::UtilKey;
  using Entry = typename T::Entry;
  using AnyEntryHandle = Asic::SwTableBase::EntryHandle;
  struct Place {
    Zarn::Optional<Row> row;
    bool used = false;
  };
  static constexpr U32 room = std::same_as<T, Members> ? 16 : 8;

  MemoryChip(ChipSide const& side, U32 entries, bool tellsIndexAtWrite)
      : side_(side), entries_(entries), rows_(side.truth, floorOf<T>, T::names.qualified, room) {
    this->indexKnownAtWriteIs(tellsIndexAtWrite);
  }

  static U32 placeOf(Key const& key) {
    if constexpr (std::same_as<T, Qualities>)
      return key.portLoading;
    else
      return Asic::Index(key).value();
  }
  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return room - 1; }
  U32 numEntries() const override { return entries_; }
  void hwTableEntryIs(T& table, Key key, Zarn::Optional<Entry> const& entry) const override {
    auto const index = placeOf(key);
    bool const isAnswered = table.hwTable()->newestWrite(index) != 0;
    bool const isRefused = isAnswered && entry && side_.refuses();
    if (!isRefused) {
      auto& place = places_[index];
      place.used = true;
      place.row.reset();
      if (entry) place.row = rowOf<T>(*entry);
      rows_.rowIs(index, entry.has_value(), entry ? targetOf<T>(*entry) : Target{});
    }
    if (isAnswered)
      answers_.push_back(
          {table.hwTable()->newestWrite(index), index,
           isRefused ? Asic::WriteResponse::refused : Asic::SwTableBase::EntryState::success});
    side_.onHook();
  }
  void hwTableEntryDel(T&, Key key) const override {
    places_[placeOf(key)] = {};
    rows_.rowIs(placeOf(key), false, {});
    side_.onHook();
  }
  void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Key key,
                                    Asic::IndexUserTracker::OpType operation) const override {
    Asic::IndexUserTracker::Stub::tracker(*hwTable).update(placeOf(key), operation);
    side_.onHook();
  }
  bool compareHwEntries(T& table, Key key, Entry const& wanted) const override {
    auto const index = placeOf(key);
    auto const& place = places_[index];
    bool const isEqual = place.used && place.row == Zarn::Optional<Row>(rowOf<T>(wanted));
    if constexpr (!isDirectTable<T>)
      if (isEqual)  // the entry's, if the table then claims what it had found
        rows_.rowIsFound(index, targetOf<T>(wanted), [&table, index] {
          return table.syncedEntryMap().lookup(index) != nullptr;
        });
    side_.onHook();
    return isEqual;
  }
  void syncEntries(Asic::HwTable& hwTable, Vell::Ptr<T> const& table) const override {
    for (U32 index = 0; index < room; ++index) {
      if (!places_[index].used) continue;
      Asic::IndexUserTracker::Stub::tracker(hwTable).recover(index);
      auto const entry = entryOf<T>(places_[index].row.value_or(Row{}));
      if constexpr (std::same_as<T, Qualities>)
        table->syncedEntryIs({.portLoading = static_cast<U8>(index)}, entry);
      else
        table->syncedEntryIs(index, entry);
    }
  }
  Asic::Index hwIndexForDependentField(AnyEntryHandle const& handle) const override {
    side_.onHook();
    return T::Util::hwIndexForDependentField(handle);
  }
  Asic::Index dependentFieldValueToHwIndex(Asic::Index value) const override {
    side_.onHook();
    return value;
  }

  Place const& at(U32 index) const { return places_[index]; }
  U32 rows() const {
    return static_cast<U32>(
        std::count_if(places_.begin(), places_.end(), [](auto const& each) { return each.used; }));
  }
  /// A row as an earlier life left it.
  void hold(U32 index, Row const& row) {
    places_[index] = {row, true};
    rows_.rowIs(index, true, {});
  }
  std::vector<Asic::WriteResponse>& answers() { return answers_; }
  /// Nothing of the table can be asked any more.
  void tableIsGone() { rows_.claimAll(); }

 private:
  ChipSide const& side_;
  U32 entries_;
  mutable RowTruth::Rows rows_;
  mutable std::array<Place, room> places_;
  mutable std::vector<Asic::WriteResponse> answers_;
};

}  // namespace Endurance
