// A VLAN as a field: an id from 1 to 4094, or 0 for untagged.

#pragma once

#include <compare>
#include <ostream>
#include <string_view>

#include "platform/zarn/CharRange.h"
#include "platform/zarn/Fields.h"

namespace Forwarding {

class VlanId {
 public:
  static constexpr U32 bits = 12;
  /// IEEE 802.1Q reserves the id above.
  static constexpr U16 last = 4094;

  constexpr VlanId() = default;
  /// The lowest 12 bits of `value`, as a row of the hardware holds them.
  constexpr explicit VlanId(U64 value) : value_(value & ((U64{1} << bits) - 1)) {}

  constexpr U64 value() const { return value_; }
  void deserialize(Zarn::CharRange& range, std::string_view name);

  friend constexpr auto operator<=>(VlanId, VlanId) = default;
  friend std::ostream& operator<<(std::ostream& out, VlanId vlan) { return out << vlan.value_; }

 private:
  U16 value_ = 0;
};

}  // namespace Forwarding

/// An id is told as its number. What is no id is refused, with words that say the range.
template <>
struct Zarn::FieldType<Forwarding::VlanId> : Zarn::FieldType<U16> {
  static Vell::Value toValue(Forwarding::VlanId vlan) { return vlan.value(); }
  static void fromValue(Forwarding::VlanId& field, Vell::Value const& value);
};
