#include "agent/Contents.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "agent/FieldValue.h"
#include "agent/TextTable.h"
#include "agent/Words.h"

namespace DlbAgent {
namespace {

using nlohmann::ordered_json;

/// How long a collection may read in a cell, where a row has many.
constexpr std::size_t longestCell = 24;

std::string timeText(std::chrono::system_clock::time_point time) {
  auto const seconds = std::chrono::floor<std::chrono::seconds>(time);
  auto const rest = std::chrono::floor<std::chrono::microseconds>(time - seconds);
  return fmt::format("{:%FT%T}.{:06}Z", fmt::gmtime(std::chrono::system_clock::to_time_t(seconds)),
                     rest.count());
}

/// A count of simulated traffic: how JSON calls it, and what it means.
struct TrafficCount {
  std::string_view name;
  std::string_view meaning;
  U64 Asic::Chip::Traffic::*count;
};
constexpr TrafficCount trafficCounts[] = {
    {"flows", "flows came", &Asic::Chip::Traffic::flows},
    {"assigned", "found their flowset without a port, and it was given one",
     &Asic::Chip::Traffic::assigned},
    {"moved", "found their flowset on a port, and it moved to another one",
     &Asic::Chip::Traffic::moved},
    {"kept", "went the way of their flowset", &Asic::Chip::Traffic::kept},
    {"unserved", "were not served: no group, or no port of it, could take them",
     &Asic::Chip::Traffic::unserved},
};

std::string_view shortName(std::string_view table) { return table.substr(table.rfind(':') + 1); }

}  // namespace

ordered_json rowsJson(TableType const& table, Rows const& rows) {
  auto json = ordered_json::object();
  for (auto const& [key, entry] : rows) {
    auto& fields = json[key.text()] = ordered_json::object();
    for (auto const* field : table.fields())
      fields[std::string(field->name)] = valueJson(fieldOf(entry, *field));
  }
  return json;
}

std::string rowsText(TableType const& table, Rows const& rows) {
  auto const title = emphasised(table.name(), Emphasis::heading);
  if (rows.empty()) return fmt::format("{}: no entries\n", title);
  TextTable text;
  text.columnIs(table.keyIsIndex() ? "index" : "key");
  for (auto const* field : table.fields()) text.columnIs(brokenName(field->name));
  text.ruleIs();
  for (auto const& [key, entry] : rows) {
    std::vector<std::string> cells{key.text()};
    for (auto const* field : table.fields())
      cells.push_back(valueText(*field, fieldOf(entry, *field), longestCell));
    text.rowIs(std::move(cells));
  }
  return fmt::format("{}: {}\n\n{}", title, counted(rows.size(), "entry", "entries"), text.text());
}

ordered_json journalJson(std::vector<Asic::Chip::JournalEntry> const& journal) {
  auto list = ordered_json::array();
  for (auto const& each : journal)
    list.push_back({{"number", each.number},
                    {"table", shortName(each.table)},
                    {"operation", each.operation},
                    {"row", each.row}});
  return {{"journal", std::move(list)}};
}

std::string journalText(std::vector<Asic::Chip::JournalEntry> const& journal) {
  if (journal.empty()) return "The journal is empty: no operation has reached this hardware.\n";
  TextTable text;
  text.columnIs("number");
  text.columnIs("table", TextTable::Align::left);
  text.columnIs("operation", TextTable::Align::left);
  text.columnIs("row");
  text.ruleIs();
  for (auto const& each : journal)
    text.rowIs({std::to_string(each.number), std::string(shortName(each.table)), each.operation,
                std::to_string(each.row)});
  return text.text();
}

ordered_json trafficJson(Asic::Chip::Traffic const& traffic) {
  ordered_json counts;
  for (auto const& each : trafficCounts) counts[std::string(each.name)] = traffic.*each.count;
  return {{"traffic", std::move(counts)}};
}

std::string trafficText(Asic::Chip::Traffic const& traffic) {
  TextTable text;
  text.columnIs("");
  text.columnIs("", TextTable::Align::left);
  for (auto const& each : trafficCounts)
    text.rowIs({std::to_string(traffic.*each.count), std::string(each.meaning)});
  return text.text();
}

ordered_json messagesJson(std::vector<Fennlog::Message> const& messages) {
  auto list = ordered_json::array();
  for (auto const& each : messages)
    list.push_back({{"time", timeText(each.time)}, {"text", each.text}});
  return {{"messages", std::move(list)}};
}

std::string messagesText(std::vector<Fennlog::Message> const& messages) {
  if (messages.empty()) return "No messages.\n";
  std::string text;
  for (auto const& each : messages) text += fmt::format("{}  {}\n", timeText(each.time), each.text);
  return text;
}

}  // namespace DlbAgent
