// Entries and what they need, as a tree: the text and the JSON.

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace DlbAgent {

/// What is needed more than once is drawn with all that it needs the first time, and later alone.
struct ChainNode {
  std::string entry;  ///< "adjacency a1"
  std::string place;  ///< "row 3"; empty if it has none
  std::string state;
  std::vector<ChainNode> needs;
};

/// [{"entry": "adjacency a1", "place": "row 3", "state": ..., "needs": [...]}]; `needs` is left out
/// where nothing is needed, as is `place` where there is none.
nlohmann::ordered_json treeJson(std::vector<ChainNode> const& nodes);
/// A line for each entry, what it needs indented below it.
std::string treeText(std::vector<ChainNode> const& nodes);

}  // namespace DlbAgent
