// How flowsets spread over the ports of their groups: what `read-flowsets` prints.

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "agent/FlowsetReader.h"
#include "agent/Row.h"

namespace DlbAgent {

/// One group of the hardware, and where its flowsets are.
struct GroupSpread {
  /// The flowsets on one port as one member.
  struct Share {
    U64 port;
    U64 member;
    bool inGroup;  ///< the group has that port as that member
    U64 flowsets;
  };

  U64 group;
  U64 base;  ///< the first flowset of the group's block
  U64 size;
  U64 assigned;
  std::vector<Share> shares;  ///< by port and member; those of the group also if they have none

  bool has(Flowset const& flowset) const {
    return flowset.index >= base && flowset.index - base < size;
  }
};

/// The groups of these rows of the group table, with no flowset in them yet.
std::vector<GroupSpread> groupsOf(Rows const& rows);
/// Counts the flowsets of the groups; groups may overlap.
void addFlowsets(std::vector<GroupSpread>& groups, std::vector<Flowset> const& flowsets);

/// {"flowsets": [{"index": n, "assigned": true, "port": n, "member": n}],
///  "groups": {GROUP: {"flowSetBase": n, "flowSetSize": n, "assigned": n,
///                     "ports": [{"port": n, "member": n, "inGroup": bool, "flowsets": n}]}},
///  "assigned": n, "unassigned": n}
/// The list is of the assigned flowsets alone; the last two count all of `flowsets`.
nlohmann::ordered_json spreadJson(std::vector<GroupSpread> const& groups,
                                  std::vector<Flowset> const& flowsets);
/// A line for each group, and under it a bar for each share, at most `width` columns wide.
std::string spreadText(std::vector<GroupSpread> const& groups, std::vector<Flowset> const& flowsets,
                       std::size_t width);

/// {"flowsets": [{"index": n, "assigned": false}]}: that one, with port and member if it is
/// assigned.
nlohmann::ordered_json flowsetJson(Flowset const& flowset);
std::string flowsetText(std::vector<GroupSpread> const& groups, Flowset const& flowset);

}  // namespace DlbAgent
