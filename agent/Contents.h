// What the hardware holds, what it did, what simulated traffic did to it, and what an earlier agent
// had to say: the texts and the JSON of `show`, `journal`, `simulate-traffic` and `messages`.

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "agent/Catalogue.h"
#include "agent/Row.h"
#include "platform/asic/Chip.h"
#include "platform/fennlog/Reader.h"

namespace DlbAgent {

/// The rows of one table: {KEY: {FIELD: value}}.
nlohmann::ordered_json rowsJson(TableType const& table, Rows const& rows);
std::string rowsText(TableType const& table, Rows const& rows);

/// {"journal": [{"number": n, "table": NAME, "operation": ..., "row": n}]}
nlohmann::ordered_json journalJson(std::vector<Asic::Chip::JournalEntry> const& journal);
std::string journalText(std::vector<Asic::Chip::JournalEntry> const& journal);

/// {"traffic": {"flows": n, "assigned": n, "moved": n, "kept": n, "unserved": n}}
nlohmann::ordered_json trafficJson(Asic::Chip::Traffic const& traffic);
std::string trafficText(Asic::Chip::Traffic const& traffic);

/// {"messages": [{"time": ..., "text": ...}]}; times are UTC, to the microsecond.
nlohmann::ordered_json messagesJson(std::vector<Fennlog::Message> const& messages);
std::string messagesText(std::vector<Fennlog::Message> const& messages);

}  // namespace DlbAgent
