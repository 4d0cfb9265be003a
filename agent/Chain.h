// What a configuration knows by name: next hops, member blocks, level-1 groups and adjacencies, and
// how they are read from it.
//
//   {"nextHops": {"nh1": {"port": 1, "mac": "02:00:00:00:00:01", "vlan": 10}},
//    "memberBlocks": {"b1": {"rows": [{"nextHop": "nh1", "weightIdx": 0}]}},
//    "groups": {"g1": {"adjId": 7, "lbMode": 1}},
//    "vxlanGroups": {"v1": {"adjId": 7, "type": "tunnel", "fastLinkFailover": true}},
//    "selectiveGroups": {"s1": {"adjId": 9, "block": "b1"}},
//    "vxlanSelectiveGroups": {"t1": {"adjId": 9, "block": "b1", "countSecondary": 1}},
//    "adjacencies": {"a1": {"id": 3, "group": "g1"}}}
//
// Names are the user's own; the hardware knows none of them. A group's `adjId` and `type` are its
// key, by which the tables know it; `type` is "ecmpGroup" unless it is given. A selective group uses
// all rows of its block, as far as it can count, unless its `countSecondary` says otherwise; its
// `secondaryBlockValid` is true unless it is given. An adjacency's `id` is its place in the hardware.
//
// A group and a selective group of the same `adjId` and `type` are one key of two tables: one group, with
// two rows at one index, and an adjacency that points at either points at both. So are a VXLAN group and
// a VXLAN selective group.

#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/ChainTables.h"
#include "agent/Document.h"
#include "agent/Room.h"

namespace DlbAgent {

struct WantedRow {
  std::string nextHop;
  U8 weightIdx = 0;
};

template <class T>
struct WantedGroup {
  typename T::Key key;
  typename T::Entry entry;
  // Of groups that stand on a block.
  std::string block = {};
  bool countsAllRows = true;
};
template <class T>
using WantedGroups = std::map<std::string, WantedGroup<T>>;

struct WantedAdjacency {
  U32 id = 0;
  std::string group;
};

struct WantedChain {
  std::map<std::string, NextHopTable::Entry> nextHops;
  std::map<std::string, std::vector<WantedRow>> blocks;
  OfGroupTables<WantedGroups> groups;
  std::map<std::string, WantedAdjacency> adjacencies;

  template <class T>
  WantedGroups<T> const& groupsOf() const {
    return std::get<WantedGroups<T>>(groups);
  }
};

/// Calls `visitor(each)` for each element of a tuple.
template <class Tuple, class Visitor>
void forEachOf(Tuple&& tuple, Visitor&& visitor) {
  std::apply([&](auto&... each) { (visitor(each), ...); }, tuple);
}

/// What the readers of the sections share: each adds a problem for whatever is wrong in its own.
struct ChainCheck {
  Room const& room;
  Problems& problems;
  WantedChain& chain;
};

struct ChainSection {
  std::string_view name;
  void (*read)(ChainCheck const&, std::string const& path, JsonValue const&);
};
std::span<ChainSection const> chainSections();

/// Adds a problem for each name that stands for nothing, or for two things. Sections may stand in
/// any order, so this comes when all have been read.
void checkNames(WantedChain const& chain, Problems& problems);

}  // namespace DlbAgent
