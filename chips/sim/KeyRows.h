// Which row of the hardware belongs to a key, and back. A kind of key brings a specialisation.

#pragma once

#include <string>

#include "platform/asic/SwTableBase.h"
#include "platform/l3/DlbEcmpQualityMapKey.h"
#include "platform/vell/Assert.h"

namespace Sim {

/// A row that no table has, for keys that the chip has no place for.
inline constexpr U32 noRow = 0xFFFFFFFF;

template <class Key>
struct KeyRows;

/// An index is the number of its row.
template <>
struct KeyRows<Asic::SwTableBase::Index> {
  static U32 row(Asic::SwTableBase::Index key) { return key.value(); }
  static Asic::SwTableBase::Index key(U32 row) { return row; }
  /// Why the key has no row in a table of that many, or nothing.
  static std::string misfit(Asic::SwTableBase::Index key, U32 rows) {
    if (key.value() < rows) return {};
    return Vell::concatenate("the highest index is ", rows - 1, "; take a lower one");
  }
};

/// Profile by profile; in a profile by port loading, then by total queue size, then by ITM queue
/// size.
template <>
struct KeyRows<TessarLoadBalance::DlbEcmpQualityMapKey> {
  using Key = TessarLoadBalance::DlbEcmpQualityMapKey;

  static constexpr U32 levels = 8;
  static constexpr U32 rowsOfProfile = levels * levels * levels;

  static U32 row(Key key) {
    if (key.portLoading >= levels || key.totalPortQsize >= levels || key.itmPortQsize >= levels)
      return noRow;
    return ((U32{key.profile} * levels + key.portLoading) * levels + key.totalPortQsize) * levels +
           key.itmPortQsize;
  }
  static Key key(U32 row) {
    return {.portLoading = static_cast<U8>(row / (levels * levels) % levels),
            .totalPortQsize = static_cast<U8>(row / levels % levels),
            .itmPortQsize = static_cast<U8>(row % levels),
            .profile = static_cast<U8>(row / rowsOfProfile)};
  }
  static std::string misfit(Key key, U32 rows) {
    if (row(key) < rows) return {};
    return Vell::concatenate("load levels go up to ", levels - 1, " and profiles up to ",
                             rows / rowsOfProfile - 1, "; leave the key out");
  }
};

}  // namespace Sim
