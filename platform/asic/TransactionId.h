// The name of one hardware read.

#pragma once

#include <compare>
#include <ostream>

#include "platform/vell/Types.h"

namespace Asic {

/// 64 bits, ordered as an unsigned number. Whoever starts a read chooses it: the chip hooks, or a
/// table that has none.
class TransactionId {
 public:
  constexpr TransactionId() = default;
  constexpr explicit(false) TransactionId(U64 value) : value_(value) {}

  constexpr U64 value() const { return value_; }
  /// Key equality for publications, on two pointers to ids.
  static bool isEq(void const* a, void const* b) {
    return *static_cast<TransactionId const*>(a) == *static_cast<TransactionId const*>(b);
  }

  friend constexpr auto operator<=>(TransactionId, TransactionId) = default;
  friend std::ostream& operator<<(std::ostream& out, TransactionId id) { return out << id.value_; }

 private:
  U64 value_ = 0;
};

}  // namespace Asic
