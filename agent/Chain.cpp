#include "agent/Chain.h"

#include <fmt/format.h>

#include "agent/ChainTables.h"
#include "agent/EntryReader.h"
#include "agent/Words.h"

namespace DlbAgent {
namespace {

/// The members of an object; a problem and none if it is something else.
JsonValue::Object const& membersOf(std::string_view path, JsonValue const& value,
                                   std::string_view what, Problems& problems) {
  static JsonValue::Object const none;
  if (auto const* object = value.as<JsonValue::Object>()) return *object;
  problems.add(path, fmt::format("must be an object of {}, not {}", what, value.described()));
  return none;
}

WantedRow readRow(std::string const& path, JsonValue const& value, Problems& problems) {
  WantedRow row;
  for (auto const& [name, field] : membersOf(path, value, "fields", problems)) {
    auto const fieldPath = pathTo(path, name);
    if (name == "nextHop") {
      if (auto const* text = field.as<std::string>())
        row.nextHop = *text;
      else
        problems.add(fieldPath,
                     fmt::format("must be the name of a next hop, not {}", field.described()));
    } else if (name == "weightIdx") {
      auto const* number = field.as<U64>();
      if (number && *number <= 0xFF)
        row.weightIdx = static_cast<U8>(*number);
      else
        problems.add(fieldPath,
                     fmt::format("must be a number up to 255, not {}", field.described()));
    } else {
      problems.add(fieldPath, "no such field; " + hintFor(name, {"nextHop", "weightIdx"}));
    }
  }
  if (row.nextHop.empty()) problems.add(path, "names no next hop; add \"nextHop\": NAME");
  return row;
}

std::vector<WantedRow> readRows(std::string const& path, JsonValue const& value,
                                Problems& problems) {
  std::vector<WantedRow> rows;
  auto const* list = value.as<JsonValue::List>();
  if (!list)
    problems.add(path, fmt::format("must be a list of rows, not {}", value.described()));
  else
    for (auto const& each : *list)
      rows.push_back(readRow(elementOf(path, rows.size()), each, problems));
  return rows;
}

}  // namespace

void readNextHops(std::string const& path, JsonValue const& value, Problems& problems,
                  WantedChain& chain) {
  for (auto const& [name, fields] : membersOf(path, value, "next hops by name", problems))
    if (auto const record = readEntry(nextHopType(), pathTo(path, name), fields, problems))
      chain.nextHops[name] = Asic::EntryReflection<NextHopTable::Entry>::fromValue(*record);
}

void readMemberBlocks(std::string const& path, JsonValue const& value, Problems& problems,
                      WantedChain& chain) {
  for (auto const& [name, block] : membersOf(path, value, "blocks by name", problems)) {
    auto const blockPath = pathTo(path, name);
    auto& rows = chain.blocks[name];
    for (auto const& [field, content] : membersOf(blockPath, block, "\"rows\"", problems))
      if (field == "rows")
        rows = readRows(pathTo(blockPath, field), content, problems);
      else
        problems.add(pathTo(blockPath, field), "no such field; " + hintFor(field, {"rows"}));
  }
}

void checkNames(std::string_view blocksPath, WantedChain const& chain, Problems& problems) {
  std::vector<std::string_view> known;
  for (auto const& each : chain.nextHops) known.push_back(each.first);
  for (auto const& [name, rows] : chain.blocks)
    for (std::size_t i = 0; i < rows.size(); ++i) {
      auto const& nextHop = rows[i].nextHop;
      if (nextHop.empty() || chain.nextHops.contains(nextHop)) continue;
      auto const rowsPath = pathTo(pathTo(blocksPath, name), "rows");
      problems.add(
          pathTo(elementOf(rowsPath, i), "nextHop"),
          fmt::format("no next hop named \"{}\"; {}", clipped(nextHop),
                      known.empty() ? "the section nextHops names none" : hintFor(nextHop, known)));
    }
}

}  // namespace DlbAgent
