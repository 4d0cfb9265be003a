// A 64-bit number that tells two byte sequences apart (FNV-1a): for the check of a file's header,
// and for the shape of its rows. It finds accidents, not forgeries.

#pragma once

#include <span>
#include <string_view>

#include "platform/vell/Types.h"

namespace Sim {

class Fingerprint {
 public:
  constexpr void mix(U8 byte) { value_ = (value_ ^ byte) * 0x100000001B3; }
  constexpr void mix(std::span<U8 const> bytes) {
    for (U8 const byte : bytes) mix(byte);
  }
  /// A text, with a mark of its end.
  constexpr void mix(std::string_view text) {
    for (char const letter : text) mix(static_cast<U8>(letter));
    mix(U8{0});
  }
  constexpr void mix(U64 number) {
    for (int byte = 0; byte < 8; ++byte) mix(static_cast<U8>(number >> 8 * byte));
  }

  constexpr U64 value() const { return value_; }

 private:
  U64 value_ = 0xCBF29CE484222325;
};

}  // namespace Sim
