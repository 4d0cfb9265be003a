// An unsigned number of 12 bits, held in 16.

#pragma once

#include <compare>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/zarn/CharRange.h"
#include "platform/zarn/Fields.h"

namespace Zarn {

class U12 {
 public:
  static constexpr U32 bits = 12;
  static constexpr U16 largest = (1 << bits) - 1;

  constexpr U12() = default;
  /// The lowest 12 bits of `value`.
  constexpr explicit U12(U64 value) : value_(value & largest) {}

  constexpr U64 value() const { return value_; }
  /// Reads a number of up to 12 bits; a larger one is a `Vell::RangeException` that names it.
  void deserialize(CharRange& range, std::string_view name);

  friend constexpr auto operator<=>(U12, U12) = default;
  friend std::ostream& operator<<(std::ostream& out, U12 number) {
    return out << std::to_string(number.value_);  // whatever base the stream is set to
  }

 private:
  U16 value_ = 0;
};

/// Told as its number. A larger one is refused, with words that say the range.
template <>
struct FieldType<U12> : FieldType<U16> {
  static constexpr U8 bits = U12::bits;
  static Vell::Value toValue(U12 number) { return number.value(); }
  static void fromValue(U12& field, Vell::Value const& value);
};

}  // namespace Zarn
