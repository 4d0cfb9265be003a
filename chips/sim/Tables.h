// The tables of the simulated chip with their sizes: one line each. The hardware file's layout and
// the plug-in's features follow from this list.

#pragma once

#include <array>

#include "chips/sim/FileLayout.h"
#include "chips/sim/SimUtil.h"
#include "config/DlbControlSwTable.h"
#include "config/DlbEcmpControlSwTable.h"

namespace Sim {

/// A table of the chip, and its rows; indices run from 0.
template <class T, U32 rowCount>
struct SimTable {
  using Table = T;
  static constexpr U32 rows = rowCount;
};

template <class... Each>
struct SimTables {
  /// Calls `visitor(line)` for each line of the list.
  template <class Visitor>
  static constexpr void forEach(Visitor&& visitor) {
    (visitor(Each{}), ...);
  }

  static constexpr std::array shapes{TableShape{
      Each::Table::names.qualified, Each::rows, RowCodec<typename Each::Table::Entry>::bytes,
      RowCodec<typename Each::Table::Entry>::fingerprint}...};
};

using Tables = SimTables<SimTable<TessarLoadBalance::DlbControlTable, 16>,       //
                         SimTable<TessarLoadBalance::DlbEcmpControlTable, 16>>;  //

/// The hooks' class for a kind of table.
template <class T>
struct UtilClass;

template <Asic::DirectTableClass T>
struct UtilClass<T> {
  using Type = SimUtil<T>;
};

}  // namespace Sim
