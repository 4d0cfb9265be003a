// Where the groups of a configuration may lie in the hardware after a restart: what the rows of
// adjacencies say, taken together, and what the rows of groups hold.
//
// An adjacency may have been moved to another group since, and a row may be damaged. So each votes for
// its group's place, and those are heard first that most agree with: a table believes the first
// suggestion whose value fits, and the values of groups are often equal.

#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "agent/Chain.h"
#include "agent/NamedTable.h"

namespace DlbAgent {

class GroupFinder {
 public:
  using Adjacency = std::pair<std::string const, WantedAdjacency>;

  /// Whether the table of the group of that name was found to hold the row.
  using IsHeld = std::function<bool(std::string const& group, U32 row)>;

  /// `wanted` outlives this.
  GroupFinder(WantedChain const& wanted, HeldRows<AdjacencyTable> const& adjacencies,
              IsHeld const& isHeld);

  /// All adjacencies, in the order in which they are to be committed.
  std::vector<Adjacency const*> const& adjacencies() const { return adjacencies_; }
  /// Rows for groups that no adjacency has led to their place. `open` are such groups with their
  /// values, `unclaimed` the rows of their table that are left; a value is what the hardware sees.
  template <class Value>
  std::map<std::string, U32> placesOf(std::map<std::string, Value> const& open,
                                      std::map<U32, Value> const& unclaimed) const;

 private:
  /// The row that most adjacencies of a group say it lies at.
  struct Claim {
    U32 row = 0;
    U64 votes = 0;
  };

  std::vector<Adjacency const*> adjacencies_;
  std::map<std::string, Claim> claims_;  ///< by the names of groups
};

// A group that was changed in place keeps the row that is claimed for it. One of which nothing is known
// takes a row of its value that is claimed for nobody. A claim of one vote alone yields, if both that
// group and one of which nothing is known then find rows of their values.
template <class Value>
std::map<std::string, U32> GroupFinder::placesOf(std::map<std::string, Value> const& open,
                                                 std::map<U32, Value> const& unclaimed) const {
  std::map<std::string, U32> places;
  std::map<std::string, Claim> claimed;
  std::set<U32> ledTo;
  for (auto const& each : open)
    if (auto const at = claims_.find(each.first);
        at != claims_.end() && unclaimed.contains(at->second.row)) {
      claimed.insert(*at);
      ledTo.insert(at->second.row);
    }
  std::map<Value, std::vector<U32>> rowsOf;  // the highest first
  for (auto at = unclaimed.rbegin(); at != unclaimed.rend(); ++at)
    if (!ledTo.contains(at->first)) rowsOf[at->second].push_back(at->first);
  std::map<Value, std::vector<std::string>> homeless;
  auto const take = [&](std::string const& name, Value const& value) {
    auto const rows = rowsOf.find(value);
    if (rows == rowsOf.end() || rows->second.empty()) return false;
    places[name] = rows->second.back();
    rows->second.pop_back();
    return true;
  };
  for (auto const& [name, value] : open)
    if (!claimed.contains(name) && !take(name, value)) homeless[value].push_back(name);
  for (auto const& [name, claim] : claimed) {
    auto const others = homeless.find(unclaimed.at(claim.row));
    if (claim.votes > 1 || others == homeless.end() || others->second.empty()) continue;
    if (!take(name, open.at(name))) continue;
    places[others->second.back()] = claim.row;
    others->second.pop_back();
  }
  return places;
}

}  // namespace DlbAgent
