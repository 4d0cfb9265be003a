// What a map needs to know of a key type: its hash, its equality and its order.
//
// A class key brings a member `hash(U32 seed) -> U32`; integers, enumerations and index types that
// convert to U32 are hashed by their number. Its `operator<=>` may return a standard ordering or an
// int (negative, 0, positive). A key type that fits none of these gets a specialisation of
// KeyTraits with the same three functions.
//
// Invariants that a key type must keep
//  1. Equal keys have equal hashes under every seed.
//  2. `compare` is a total order, and 0 exactly for equal keys.
//
// Threading: no state.

#pragma once

#include <concepts>
#include <type_traits>

#include "platform/vell/Types.h"
#include "platform/zarn/Hash.h"

namespace Zarn {

template <class Key>
concept HashesItself = requires(Key const& key, U32 seed) {
  { key.hash(seed) } -> std::convertible_to<U32>;
};

template <class Key>
struct KeyTraits {
  /// The hash of `key` under `seed`.
  static U32 hash(Key const& key, U32 seed) {
    if constexpr (HashesItself<Key>) {
      return key.hash(seed);
    } else if constexpr (std::is_enum_v<Key>) {
      using Number = std::make_unsigned_t<std::underlying_type_t<Key>>;
      return hashSingleAttr(seed, static_cast<Number>(key));
    } else if constexpr (std::integral<Key> && !std::same_as<Key, bool>) {
      return hashSingleAttr(seed, static_cast<std::make_unsigned_t<Key>>(key));
    } else {
      return hashSingleAttr(seed, static_cast<U32>(key));
    }
  }

  static bool isEq(Key const& a, Key const& b) {
    if constexpr (std::equality_comparable<Key>) {
      return a == b;
    } else {
      return compare(a, b) == 0;
    }
  }

  /// Negative, 0 or positive as `a` sorts before, with or behind `b`.
  static int compare(Key const& a, Key const& b) {
    if constexpr (std::is_arithmetic_v<Key> || std::is_enum_v<Key>) {
      return (a > b) - (a < b);  // without branches, which the three-way form of compilers takes
    } else {
      auto const order = a <=> b;
      return (order > 0) - (order < 0);
    }
  }
};

}  // namespace Zarn
