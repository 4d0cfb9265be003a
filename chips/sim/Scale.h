// The sources of the simulated chip make two chips: "sim", and "simlet", which has a fraction of the rows.
// Who opens and reads a chip ten thousand times waits for it no longer than for the tables.

#pragma once

#include "platform/vell/Types.h"

#ifndef DLB_SIM_SHRINK
#define DLB_SIM_SHRINK 1
#endif

namespace Sim {

/// How many rows of "sim" there are for one of this chip, in the large tables.
inline constexpr U32 shrink = DLB_SIM_SHRINK;

}  // namespace Sim
