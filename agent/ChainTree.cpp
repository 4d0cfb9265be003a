#include "agent/ChainTree.h"

#include "agent/TextTable.h"

namespace DlbAgent {
namespace {

void addRows(TextTable& table, std::vector<ChainNode> const& nodes, std::size_t depth) {
  for (auto const& each : nodes) {
    table.rowIs({std::string(2 * depth, ' ') + each.entry, each.place, each.state});
    addRows(table, each.needs, depth + 1);
  }
}

}  // namespace

nlohmann::ordered_json treeJson(std::vector<ChainNode> const& nodes) {
  auto list = nlohmann::ordered_json::array();
  for (auto const& each : nodes) {
    nlohmann::ordered_json node{{"entry", each.entry}};
    if (!each.place.empty()) node["place"] = each.place;
    node["state"] = each.state;
    if (!each.needs.empty()) node["needs"] = treeJson(each.needs);
    list.push_back(std::move(node));
  }
  return list;
}

std::string treeText(std::vector<ChainNode> const& nodes) {
  TextTable table;
  for (auto const* heading : {"entry", "place", "state"})
    table.columnIs(heading, TextTable::Align::left);
  table.ruleIs();
  addRows(table, nodes, 0);
  return table.text();
}

}  // namespace DlbAgent
