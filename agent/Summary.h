// The summary of a pass over the tables: figures by table, totals, and one sentence; as JSON
//   {"tables": {TABLE: {"matched": n, ...}}, "totals": {"matched": n, ...}}.

#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "agent/Report.h"

namespace DlbAgent {

/// Whether the pass was made in the hardware, or on a copy to see what it would do.
enum class Mood { done, wouldBe };

nlohmann::ordered_json summaryJson(Report const& report);
std::string summaryText(Report const& report, Mood mood);

}  // namespace DlbAgent
