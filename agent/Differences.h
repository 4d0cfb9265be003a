// The changes of a pass, entry by entry: what `plan` would do, what `clear` has done, and, read the
// other way round, where the hardware differs from what `check` was told.

#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "agent/Report.h"

namespace DlbAgent {

/// A list of {"table": ..., "index": ..., "change": "added" | "rewritten" | "deleted",
/// "fields": {FIELD: {"old": ..., "new": ...}}}; "old" or "new" is left out where there
/// is none, and rewritten entries list the fields that differ. A field that is a collection stands
/// as {FIELD: {KEY: {"old": ..., "new": ...}}} with the elements that differ.
nlohmann::ordered_json changesJson(Report const& report);
/// A line for each change under the name of its table: "+ 3  weight 64", "~ 0  weight 64 -> 60"; an
/// element of a collection as "members[7] 3 -> 4", "+members[8] 5", "-members[9] 6".
std::string changesText(Report const& report);

/// A list of {"table": ..., "index": ..., "difference": "missing" | "different" | "unexpected",
/// "fields": {FIELD: {"wanted": ..., "held": ...}}}, as above.
nlohmann::ordered_json differencesJson(Report const& report);
/// A line for each difference: "0  different: weight is 64, wanted 60".
std::string differencesText(Report const& report);

}  // namespace DlbAgent
