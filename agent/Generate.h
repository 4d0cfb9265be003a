// Configurations of any size, made up from a seed: a switch's whole chain with values that are random
// and fit together. The same sizes and seed give the same text on every machine.

#pragma once

#include <string>

#include "agent/Room.h"
#include "platform/vell/Types.h"

namespace DlbAgent {

/// How much of everything a generated configuration has. The defaults are those of a spine switch.
struct Sizes {
  U64 ports = 128;       ///< from 0 on; next hops and DLB groups are spread over them
  U64 dlbGroups = 128;   ///< each with 4 to 16 of the ports, or all if there are fewer
  U64 flowsets = 32768;  ///< dealt out to the DLB groups in equal parts
  U64 nextHops = 2000;
  U64 groups = 256;         ///< selective groups, every fourth of them a VXLAN one
  U64 width = 64;           ///< rows of the largest block, and a quarter of that of the smallest
  bool even = false;        ///< a block for each group, all of `width` rows; else some share one
  U64 plainGroups = 4000;   ///< groups without blocks, every fourth of them a VXLAN one
  U64 adjacencies = 10000;  ///< the first of them go to one group each
};

/// Throws a `Failure` with a line for each size that the chip has no room for.
void checkRoom(Sizes const& sizes, Room const& room);

/// A configuration, as JSON with one entry or row a line. Throws a `Failure` with a line for each size
/// that makes no sense beside the others, on whichever chip.
std::string generated(Sizes const& sizes, U64 seed);

}  // namespace DlbAgent
