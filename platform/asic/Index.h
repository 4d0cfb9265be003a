// A hardware table index.

#pragma once

#include <compare>
#include <ostream>

#include "platform/vell/Types.h"

namespace Asic {

/// 32 bits; 0xFFFFFFFF is the exhausted index, which names no hardware entry.
class Index {
 public:
  static constexpr U32 exhausted = 0xFFFFFFFF;

  constexpr Index() = default;
  constexpr explicit(false) Index(U32 value) : value_(value) {}

  constexpr U32 value() const { return value_; }
  constexpr bool isExhausted() const { return value_ == exhausted; }

  /// Key equality for publications, on two pointers to `Index`.
  static bool isEq(void const* a, void const* b) {
    return *static_cast<Index const*>(a) == *static_cast<Index const*>(b);
  }
  friend constexpr auto operator<=>(Index, Index) = default;
  friend std::ostream& operator<<(std::ostream& out, Index index) { return out << index.value_; }

 private:
  U32 value_ = exhausted;
};

}  // namespace Asic
