#include "agent/Summary.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "agent/TextTable.h"
#include "agent/Words.h"

namespace DlbAgent {
namespace {

nlohmann::ordered_json figuresJson(Figures const& figures) {
  nlohmann::ordered_json json;
  for (auto const& each : figureNames) json[std::string(each.name)] = figures.*each.figure;
  return json;
}

void addRow(TextTable& table, std::string_view name, Figures const& figures) {
  std::vector<std::string> cells{std::string(name)};
  for (auto const& each : figureNames) cells.push_back(std::to_string(figures.*each.figure));
  table.rowIs(std::move(cells));
}

std::string operationsOf(Figures const& figures) {
  return fmt::format("{}, {}", counted(figures.hardwareWrites, "hardware write", "hardware writes"),
                     counted(figures.hardwareDeletes, "hardware delete", "hardware deletes"));
}

/// "2 entries added, 1 rewritten"
std::string changesOf(Figures const& figures, Mood mood) {
  std::vector<std::string> parts;
  auto const add = [&](U64 count, std::string_view participle) {
    if (count == 0) return;
    parts.push_back(parts.empty() ? fmt::format("{}{} {}", counted(count, "entry", "entries"),
                                                mood == Mood::done ? "" : " would be", participle)
                                  : fmt::format("{} {}", count, participle));
  };
  add(figures.added, "added");
  add(figures.rewritten, "rewritten");
  add(figures.deleted, "deleted");
  return fmt::format("{}", fmt::join(parts, ", "));
}

std::string sentence(Figures const& figures, Mood mood) {
  auto const changed = figures.rewritten + figures.added + figures.deleted;
  bool const done = mood == Mood::done;
  if (changed + figures.matched == 0)
    return fmt::format("No entries are wanted and the hardware {} none: {}.",
                       done ? "held" : "holds", operationsOf(figures));
  if (changed == 0)
    return fmt::format("Everything {} in place: {}.", done ? "was" : "is", operationsOf(figures));
  if (figures.deleted == changed + figures.matched)
    return fmt::format("{}; nothing {} left.", changesOf(figures, mood), done ? "is" : "would be");
  auto const inPlace =
      figures.matched == 0
          ? fmt::format("none {} in place", done ? "was" : "is")
          : fmt::format("{} of {} {} in place", figures.matched, changed + figures.matched,
                        figures.matched == 1 ? (done ? "was" : "is") : (done ? "were" : "are"));
  return fmt::format("{}; {}.", changesOf(figures, mood), inPlace);
}

}  // namespace

nlohmann::ordered_json summaryJson(Report const& report) {
  auto tables = nlohmann::ordered_json::object();
  for (auto const& [table, figures] : report.tables)
    tables[std::string(table)] = figuresJson(figures);
  nlohmann::ordered_json json{{"tables", std::move(tables)},
                              {"totals", figuresJson(report.totals())}};
  auto const add = [&](char const* name, std::vector<std::string> const& lines) {
    if (!lines.empty()) json[name] = lines;
  };
  add("unfinished", report.unfinished);
  add("contradictions", report.contradictions);
  add("breaches", report.breaches);
  return json;
}

std::string summaryText(Report const& report, Mood mood) {
  TextTable table;
  table.columnIs("table", TextTable::Align::left);
  for (auto const& each : figureNames) table.columnIs(each.heading);
  for (auto const& each : report.tables) addRow(table, each.table, each.figures);
  table.ruleIs();
  auto const totals = report.totals();
  addRow(table, "all tables", totals);
  bool const unchanged = totals.rewritten + totals.added + totals.deleted == 0;
  auto const unfinished = report.unfinished.empty()
                              ? std::string()
                              : fmt::format(" Not in place after that: {}.",
                                            counted(report.unfinished.size(), "entry", "entries"));
  return fmt::format("{}\n{}\n", table.text(),
                     emphasised(sentence(totals, mood) + unfinished,
                                unchanged ? Emphasis::good : Emphasis::changed));
}

}  // namespace DlbAgent
