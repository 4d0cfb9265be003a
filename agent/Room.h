// What the hardware has room for, as far as that is known before it is opened.

#pragma once

#include <functional>
#include <string>

#include "agent/Catalogue.h"
#include "agent/Row.h"

namespace DlbAgent {

/// Valid indices of a table.
struct IndexLimits {
  U64 lowest;
  U64 highest;
};

struct Room {
  std::function<IndexLimits(TableType const&)> limits;
  /// Why there is no place for the entry at that key, with the mend; empty if there is one.
  std::function<std::string(TableType const&, Key const&, Vell::Record const&)> misfit;
};

}  // namespace DlbAgent
