// The kind of thing that an L3 adjacency stands for.

#pragma once

#include <ostream>

#include "platform/vell/Types.h"

namespace TessarL3Common {

enum class L3AdjIdKeyType : U8 {
  unknown = 0,
  nextHop = 1,
  ecmpGroup = 2,
  tunnel = 3,
};
constexpr L3AdjIdKeyType highestEnumerator(L3AdjIdKeyType) { return L3AdjIdKeyType::tunnel; }
/// By its name; one that has none by its number.
std::ostream& operator<<(std::ostream& out, L3AdjIdKeyType type);

}  // namespace TessarL3Common
