// The unsigned integers of the whole system, and the string type that contracts name.

#pragma once

#include <cstdint>
#include <string>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

namespace Vell {

/// Names handed to tables and plug-ins. Owned by value; no sharing is needed at the
/// rates at which names travel.
using String = std::string;

}  // namespace Vell
