// An Ethernet address as a field: 48 bits, written as six bytes in hexadecimal, "02:00:00:00:00:01".

#pragma once

#include <compare>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/zarn/CharRange.h"
#include "platform/zarn/Fields.h"

namespace Forwarding {

class MacAddress {
 public:
  static constexpr U32 bits = 48;

  constexpr MacAddress() = default;
  /// The lowest 48 bits of `value`; the first byte of the text is the highest of them.
  constexpr explicit MacAddress(U64 value) : value_(value & ((U64{1} << bits) - 1)) {}
  /// The address of that text, or nothing.
  static std::optional<MacAddress> fromText(std::string_view text);

  constexpr U64 value() const { return value_; }
  std::string text() const;
  void deserialize(Zarn::CharRange& range, std::string_view name);

  friend constexpr auto operator<=>(MacAddress, MacAddress) = default;
  friend std::ostream& operator<<(std::ostream& out, MacAddress address) {
    return out << address.text();
  }

 private:
  U64 value_ = 0;
};

}  // namespace Forwarding

/// An address as a field is told as its text.
template <>
struct Zarn::FieldType<Forwarding::MacAddress> {
  static constexpr auto kind = Vell::AttributeKind::field;
  static constexpr auto shape = Vell::ValueShape::text;
  static constexpr U8 bits = 0;
  static Vell::Value toValue(Forwarding::MacAddress address) { return address.text(); }
  static void fromValue(Forwarding::MacAddress& field, Vell::Value const& value);
};
