// What a fuzz target checks beyond "nothing crashes": a property that does not hold stops the process, and
// the fuzzer keeps the input.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace Fuzz {

/// `about` is shown behind what was expected.
inline void expect(bool holds, std::string_view what, std::string_view about = "") {
  if (holds) return;
  std::fprintf(stderr, "expected: %.*s\n%.*s\n", static_cast<int>(what.size()), what.data(),
               static_cast<int>(about.size()), about.data());
  std::abort();
}

inline std::string_view textOf(std::uint8_t const* data, std::size_t size) {
  return {reinterpret_cast<char const*>(data), size};
}

}  // namespace Fuzz
