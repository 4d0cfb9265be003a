// The tables of the simulated chip with their sizes: one line each. The hardware file's layout and
// the plug-in's features follow from this list.

#pragma once

#include <array>
#include <concepts>

#include "chips/sim/FileLayout.h"
#include "chips/sim/Scale.h"
#include "chips/sim/SimReadTable.h"
#include "chips/sim/SimUtil.h"
#include "chips/sim/Truth.h"
#include "config/DlbControlSwTable.h"
#include "config/DlbEcmpControlSwTable.h"
#include "config/DlbEcmpDlbId0To63EnableSwTable.h"
#include "config/DlbEcmpDlbId64To127EnableSwTable.h"
#include "config/DlbEcmpFlowsetSwTable.h"
#include "config/DlbEcmpGroupSwTable.h"
#include "config/DlbEcmpPortControlSwTable.h"
#include "config/DlbEcmpQualityMapSwTable.h"
#include "config/DlbEcmpQuantizationThresholdSwTable.h"
#include "forwarding/AdjacencySwTable.h"
#include "forwarding/NextHopSwTable.h"
#include "group/EcmpGroup1DlbSwTable.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "group/VxlanEcmpGroup1DlbSwTable.h"
#include "group/VxlanEcmpGroup1SelectiveDlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace Sim {

/// A table of the chip, and its rows; indices run from 0. `StateTable` is where the chip keeps what
/// it makes of the rows by itself, if anywhere.
template <class T, U32 rowCount, class StateTable = void>
struct SimTable {
  using Table = T;
  using State = StateTable;
  static constexpr U32 rows = rowCount;
};

/// What lies in a row of a table's region: an entry, unless the region is the chip's own.
template <class T>
struct RowOf {
  using Type = typename T::Entry;
};
template <>
struct RowOf<TessarLoadBalance::DlbEcmpFlowsetTableRead> {
  using Type = FlowsetState;
};

template <class... Each>
struct SimTables {
  /// Calls `visitor(line)` for each line of the list.
  template <class Visitor>
  static constexpr void forEach(Visitor&& visitor) {
    (visitor(Each{}), ...);
  }

  /// Where a table stands in the list; `TableShape::none` if nowhere.
  template <class T>
  static constexpr U32 numberOf = [] {
    U32 number = 0, found = TableShape::none;
    ((std::same_as<T, typename Each::Table> ? void(found = number++) : void(++number)), ...);
    return found;
  }();

  static constexpr std::array shapes{
      TableShape{Each::Table::names.qualified, Each::rows,
                 RowCodec<typename RowOf<typename Each::Table>::Type>::bytes,
                 RowCodec<typename RowOf<typename Each::Table>::Type>::fingerprint,
                 numberOf<typename Each::State>}...};
};

using QualityMapRows = KeyRows<TessarLoadBalance::DlbEcmpQualityMapKey>;

inline constexpr U32 profiles = 4;  ///< of thresholds and of the quality map
inline constexpr U32 ports = 256;   ///< that can be controlled
inline constexpr U32 groups = 128;  ///< DLB ids: one bit each in the two enable tables
inline constexpr U32 flowsets = 32768 / shrink;
inline constexpr U32 members = 131072 / shrink;  ///< rows of blocks, in banks of a quarter each
inline constexpr U32 nextHops = 4096 / shrink;
inline constexpr U32 level1Groups =
    8192 / shrink;  ///< indices that the tables of level-1 groups share
inline constexpr U32 adjacencies = 16384 / shrink;

using Tables = SimTables<
    SimTable<TessarLoadBalance::DlbControlTable, 16>,
    SimTable<TessarLoadBalance::DlbEcmpControlTable, 16>,
    SimTable<TessarLoadBalance::DlbEcmpDlbId0To63EnableTable, 1>,
    SimTable<TessarLoadBalance::DlbEcmpDlbId64To127EnableTable, 1>,
    SimTable<TessarLoadBalance::DlbEcmpFlowsetTable, flowsets,
             TessarLoadBalance::DlbEcmpFlowsetTableRead>,
    SimTable<TessarLoadBalance::DlbEcmpFlowsetTableRead, flowsets>,
    SimTable<TessarLoadBalance::DlbEcmpGroupTable, groups>,
    SimTable<TessarLoadBalance::DlbEcmpPortControlTable, ports>,
    SimTable<TessarLoadBalance::DlbEcmpQualityMapTable, profiles * QualityMapRows::rowsOfProfile>,
    // A profile's thresholds, lowest band first.
    SimTable<TessarLoadBalance::DlbEcmpQuantizationThresholdTable,
             profiles * QualityMapRows::levels>,
    SimTable<TessarLoadBalance::DlbEcmpMember1Table, members>,
    SimTable<Forwarding::NextHopTable, nextHops>,
    SimTable<TessarLoadBalance::EcmpGroup1DlbTable, level1Groups>,
    SimTable<TessarLoadBalance::EcmpGroup1SelectiveDlbTable, level1Groups>,
    SimTable<TessarLoadBalance::VxlanEcmpGroup1DlbTable, level1Groups>,
    SimTable<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable, level1Groups>,
    SimTable<Forwarding::AdjacencyTable, adjacencies>>;

// ---- rows that point at rows ----

/// A member row points at its next hop.
inline RowRun nextHopOf(std::span<U8 const> row) {
  return {RowCodec<TessarLoadBalance::DlbEcmpMember1Entry>::unpack(row).ecmpNextHopEntry, 1};
}

/// A group whose pointer is valid points at the rows of its block, at one of them at least.
template <class GroupTable>
RowRun blockOf(std::span<U8 const> row) {
  auto const entry = RowCodec<typename GroupTable::Entry>::unpack(row);
  if (!entry.secondaryBlockValid) return {};
  auto const rows = static_cast<U32>(entry.countSecondary.value());
  return {entry.ecmpSecondaryBlockPtr, rows == 0 ? 1 : rows};
}

template <class From, class To>
constexpr PointerRule pointing(RowRun (*target)(std::span<U8 const>)) {
  return {Tables::numberOf<From>, Tables::numberOf<To>, target};
}

inline constexpr std::array pointerRules{
    pointing<TessarLoadBalance::DlbEcmpMember1Table, Forwarding::NextHopTable>(&nextHopOf),
    pointing<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
             TessarLoadBalance::DlbEcmpMember1Table>(
        &blockOf<TessarLoadBalance::EcmpGroup1SelectiveDlbTable>),
    pointing<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
             TessarLoadBalance::DlbEcmpMember1Table>(
        &blockOf<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable>)};

/// The hooks' class for a kind of table.
template <class T>
struct UtilClass;

template <Asic::DirectTableClass T>
struct UtilClass<T> {
  using Type = SimUtil<T>;
};

template <Asic::BlockTableClass T>
struct UtilClass<T> {
  using Type = SimUtil<T>;
};

template <Asic::GroupTableClass T>
struct UtilClass<T> {
  using Type = SimUtil<T>;
};

template <Asic::ReadTableClass T>
struct UtilClass<T> {
  using Type = SimReadUtil;
};

}  // namespace Sim
