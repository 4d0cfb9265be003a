// Hashing of keys: 32-bit results that are mixed fully, so that a container may take its bucket
// from any of their bits. Not a cryptographic hash.
//
// Invariants
//  1. Equal seeds and values give equal results in one build of the library on every machine.
//  2. Keys that differ in one bit, or step by a power of two, spread as random ones do; but for
//     single numbers, four neighbours of which (4n to 4n + 3) share the low 30 bits of the result.
//  3. The seed of the process never changes once a static object of a source that includes this
//     header can see it.
//
// Threading: no shared state but the constant seed.

#pragma once

#include <concepts>

#include "platform/vell/Types.h"

namespace Zarn {

class HashHelper {
 public:
  /// The seed of this process: random, or the number in the environment variable ZARN_HASH_SEED (32
  /// bits, written as a number in C is), so that a test can repeat a run.
  static U32 hashSeed32() { return hashSeed32_; }

 private:
  static U32 initialSeed();
  // Inline, so that it is set before any static object defined behind this header.
  inline static U32 const hashSeed32_ = initialSeed();
};

/// The state of a hash over several values, in the order in which they are mixed in.
class Hash {
 public:
  explicit Hash(U32 seed) : state_((U64{seed} + 1) * spread_) {}

  /// Mixes in one value of `N` bytes; higher bits of `value` than those do not count.
  template <unsigned N>
  void hashMix(U64 value) {
    static_assert(N == 1 || N == 2 || N == 4 || N == 8, "values are mixed in whole machine words");
    if constexpr (N < 8) value &= (U64{1} << (8 * N)) - 1;
    state_ = fold((state_ ^ value) * spread_);
  }

  /// The hash of all that was mixed in so far; more may follow.
  U32 result() const { return static_cast<U32>((state_ * last_) >> 32); }

 private:
  // Odd 64-bit constants with about half of their bits set: the golden ratio's fraction, and the
  // multiplier of a well-tested 64-bit finaliser.
  static constexpr U64 spread_ = 0x9E3779B97F4A7C15;
  static constexpr U64 last_ = 0xD6E8FEB86659FD93;

  // A product's high half knows all bits of its factor, its low half only lower ones.
  static U64 fold(U64 product) { return product ^ (product >> 32); }

  U64 state_;
};

/// Hash of one unsigned number. It is mixed fully but for its two lowest bits, which only go into
/// the two highest bits of the result. Four neighbouring keys thus share what a map takes its
/// bucket from, and differ in what it tells them apart by: they lie side by side, and a table of
/// dense indices is walked and replayed through a quarter of the cache lines.
template <std::unsigned_integral Number>
U32 hashSingleAttr(U32 seed, Number key) {
  constexpr unsigned neighbourBits = 2;
  constexpr U32 neighbourMask = (1u << neighbourBits) - 1;
  Hash hash(seed);
  hash.hashMix<sizeof(Number)>(static_cast<Number>(key >> neighbourBits));
  return hash.result() ^ (static_cast<U32>(key) & neighbourMask) << (32 - neighbourBits);
}

}  // namespace Zarn
