#include "agent/GroupFinder.h"

namespace DlbAgent {

GroupFinder::GroupFinder(WantedChain const& wanted, HeldRows<AdjacencyTable> const& adjacencies,
                         IsHeld const& isHeld) {
  std::map<std::string, std::map<U32, U64>> votes;  // by group and row
  for (auto const& each : wanted.adjacencies) {
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
  std::vector<std::pair<U64, Adjacency const*>> weighed;  // how many agree with each
  for (auto const& each : wanted.adjacencies) {
    auto const held = adjacencies.find(each.second.id);
    auto const claim = claims_.find(each.second.group);
    bool const agrees = held != adjacencies.end() && claim != claims_.end() &&
                        held->second.group == claim->second.row;
    weighed.emplace_back(agrees ? claim->second.votes : 0, &each);
  }
  std::ranges::stable_sort(weighed, std::ranges::greater(),
                           [](auto const& each) { return each.first; });
  for (auto const& each : weighed) adjacencies_.push_back(each.second);
}

}  // namespace DlbAgent
