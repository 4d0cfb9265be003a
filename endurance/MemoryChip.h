// The hooks of a chip that is an array in memory: as quick as one can be, and each hook may call back.
//
// A row holds numbers alone, as hardware does: of an entry that points at another, that one's index.
// A chip may refuse a write, which then leaves its row as it was; it refuses none that empties a row.
// Writes are acknowledged when the trial asks for it, in an order of its choice.

#pragma once

#include <array>
#include <functional>
#include <vector>

#include "config/DlbControlSwTable.h"
#include "endurance/Told.h"
#include "forwarding/NextHopSwTable.h"
#include "group/EcmpGroup1DlbSwTable.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace Endurance {

using Direct = TessarLoadBalance::DlbControlTable;
using NextHops = Forwarding::NextHopTable;
using Members = TessarLoadBalance::DlbEcmpMember1Table;
using Groups = TessarLoadBalance::EcmpGroup1DlbTable;
using Selectives = TessarLoadBalance::EcmpGroup1SelectiveDlbTable;

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
  else if constexpr (std::same_as<T, NextHops>)
    return {entry.port, 0};
  else if constexpr (std::same_as<T, Members>)
    return {entry.weightIdx, entry.ecmpNextHopEntry};
  else if constexpr (std::same_as<T, Groups>)
    return {entry.lbMode, 0};
  else
    return {static_cast<U32>(entry.countSecondary.value()), entry.ecmpSecondaryBlockPtr};
}
template <class T>
typename T::Entry entryOf(Row const& row) {
  typename T::Entry entry;
  if constexpr (std::same_as<T, Direct>) {
    entry.portLoadingWeight = row.value;
  } else if constexpr (std::same_as<T, NextHops>) {
    entry.port = static_cast<U16>(row.value);
  } else if constexpr (std::same_as<T, Members>) {
    entry.weightIdx = static_cast<U8>(row.value);
    entry.ecmpNextHopEntry = row.pointer;
  } else if constexpr (std::same_as<T, Groups>) {
    entry.lbMode = row.value;
  } else {
    entry.countSecondary = Zarn::U12(row.value);
    entry.ecmpSecondaryBlockPtr = row.pointer;
  }
  return entry;
}

/// What the hooks of all tables of a trial have in common.
struct ChipSide {
  std::function<void()> onHook;   ///< the watchers' hour
  std::function<bool()> refuses;  ///< whether the chip refuses the next write
};

template <class T>
class MemoryChip final : public T::Util {
 public:
  using Key = typename T::UtilKey;
  using Entry = typename T::Entry;
  struct Place {
    Zarn::Optional<Row> row;
    bool used = false;
  };
  static constexpr U32 room = 8;

  MemoryChip(ChipSide const& side, U32 entries, bool tellsIndexAtWrite)
      : side_(side), entries_(entries) {
    this->indexKnownAtWriteIs(tellsIndexAtWrite);
  }

  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return room - 1; }
  U32 numEntries() const override { return entries_; }
  void hwTableEntryIs(T& table, Key key, Zarn::Optional<Entry> const& entry) const override {
    auto const index = Asic::Index(key).value();
    bool const isAnswered = table.hwTable()->newestWrite(index) != 0;
    bool const isRefused = isAnswered && entry && side_.refuses();
    if (!isRefused) {
      auto& place = places_[index];
      place.used = true;
      place.row.reset();
      if (entry) place.row = rowOf<T>(*entry);
    }
    if (isAnswered)
      answers_.push_back(
          {table.hwTable()->newestWrite(index), index,
           isRefused ? Asic::WriteResponse::refused : Asic::SwTableBase::EntryState::success});
    side_.onHook();
  }
  void hwTableEntryDel(T&, Key key) const override {
    places_[Asic::Index(key).value()] = {};
    side_.onHook();
  }
  void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Key key,
                                    Asic::IndexUserTracker::OpType operation) const override {
    Asic::IndexUserTracker::Stub::tracker(*hwTable).update(key, operation);
    side_.onHook();
  }
  bool compareHwEntries(T&, Key key, Entry const& wanted) const override {
    auto const& place = places_[Asic::Index(key).value()];
    bool const isEqual = place.used && place.row == Zarn::Optional<Row>(rowOf<T>(wanted));
    side_.onHook();
    return isEqual;
  }
  void syncEntries(Asic::HwTable& hwTable, Vell::Ptr<T> const& table) const override {
    for (U32 index = 0; index < room; ++index) {
      if (!places_[index].used) continue;
      Asic::IndexUserTracker::Stub::tracker(hwTable).recover(index);
      table->syncedEntryIs(index, entryOf<T>(places_[index].row.value_or(Row{})));
    }
  }

  Place const& at(U32 index) const { return places_[index]; }
  U32 rows() const {
    return static_cast<U32>(
        std::count_if(places_.begin(), places_.end(), [](auto const& each) { return each.used; }));
  }
  /// A row as an earlier life left it.
  void hold(U32 index, Row const& row) { places_[index] = {row, true}; }
  std::vector<Asic::WriteResponse>& answers() { return answers_; }

 private:
  ChipSide const& side_;
  U32 entries_;
  mutable std::array<Place, room> places_;
  mutable std::vector<Asic::WriteResponse> answers_;
};

}  // namespace Endurance
