#include "agent/GroupFinder.h"

namespace DlbAgent {

GroupFinder::GroupFinder(WantedChain const& wanted, HeldRows<AdjacencyTable> const& adjacencies,
                         IsHeld const& isHeld) {
  std::map<std::string, std::map<U32, U64>> votes;  // by group and row
  for (auto const& each : wanted.adjacencies) {
    adjacencies_.push_back(&each);
    auto const& group = each.second.group;
    auto const held = adjacencies.find(each.second.id);
    if (held == adjacencies.end()) continue;
    U32 const row = held->second.group;
    if (isHeld(group, row)) ++votes[group][row];
  }
  for (auto const& [group, rows] : votes) {
    auto const best =
        std::ranges::max_element(rows, {}, [](auto const& each) { return each.second; });
    claims_[group] = {best->first, best->second};
  }
  auto const weight = [&](Adjacency const* each) -> U64 {
    auto const held = adjacencies.find(each->second.id);
    auto const claim = claims_.find(each->second.group);
    bool const agrees = held != adjacencies.end() && claim != claims_.end() &&
                        held->second.group == claim->second.row;
    return agrees ? claim->second.votes : 0;
  };
  std::ranges::stable_sort(adjacencies_, std::ranges::greater(), weight);
}

}  // namespace DlbAgent
