// The key of the quality map: a port's three quantized load levels, and the profile that says how
// levels are judged on ports of its kind.

#pragma once

#include <compare>
#include <ostream>

#include "platform/vell/Types.h"
#include "platform/zarn/Fields.h"
#include "platform/zarn/Hash.h"

namespace TessarLoadBalance {

struct DlbEcmpQualityMapKey {
  U8 portLoading = 0;     ///< level of the port loading; 0 is the lowest load
  U8 totalPortQsize = 0;  ///< level of the total port queue size
  U8 itmPortQsize = 0;    ///< level of the ITM port queue size
  U8 profile = 0;         ///< quality mapping profile, as port control names it

  static constexpr auto fields() {
    return Zarn::fieldList(
        "DlbEcmpQualityMapKey",
        Zarn::field(0x82, "portLoading", &DlbEcmpQualityMapKey::portLoading),
        Zarn::field(0x83, "totalPortQsize", &DlbEcmpQualityMapKey::totalPortQsize),
        Zarn::field(0x84, "itmPortQsize", &DlbEcmpQualityMapKey::itmPortQsize),
        Zarn::field(0x85, "profile", &DlbEcmpQualityMapKey::profile));
  }

  U32 hash(U32 seed) const {
    return Zarn::hashSingleAttr(seed, U32{profile} << 24 | U32{portLoading} << 16 |
                                          U32{totalPortQsize} << 8 | itmPortQsize);
  }
  /// Key equality for publications, on two pointers to keys.
  static bool isEq(void const* a, void const* b) {
    return *static_cast<DlbEcmpQualityMapKey const*>(a) ==
           *static_cast<DlbEcmpQualityMapKey const*>(b);
  }
  void deserialize(Zarn::CharRange& range, std::string_view name) {
    Zarn::FieldOps<DlbEcmpQualityMapKey>::read(range, *this, name);
  }

  friend auto operator<=>(DlbEcmpQualityMapKey const&, DlbEcmpQualityMapKey const&) = default;
  friend std::ostream& operator<<(std::ostream& out, DlbEcmpQualityMapKey const& key) {
    return Zarn::FieldOps<DlbEcmpQualityMapKey>::write(out, key);
  }
};

}  // namespace TessarLoadBalance
