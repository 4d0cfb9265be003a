// A set of hardware indices, ascending, in which index suggestions travel from table to table.

#pragma once

#include <set>

#include "platform/asic/Index.h"

namespace Asic {

using IndexSet = std::set<Index>;

}  // namespace Asic
