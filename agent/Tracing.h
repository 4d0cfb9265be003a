// The option --trace TABLE=LEVELS: which lines the tables write to standard error while they work.

#pragma once

#include <string>
#include <vector>

#include "agent/Catalogue.h"

namespace DlbAgent {

/// Switches the levels on; several options for one table add up. LEVELS is a list as
/// "5,6,8" or "0-9", TABLE a table's short or qualified name, or "SwTableStat" for the
/// summary of each restart. Throws a `Failure` with a line for each option that is wrong,
/// and switches nothing on then.
void traceIs(std::vector<std::string> const& options, Catalogue const& catalogue);

}  // namespace DlbAgent
