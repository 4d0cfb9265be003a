// Next hops and member blocks as a configuration names them, and how they are read from it.
//
//   {"nextHops": {"nh1": {"port": 1, "mac": "02:00:00:00:00:01", "vlan": 10}},
//    "memberBlocks": {"b1": {"rows": [{"nextHop": "nh1", "weightIdx": 0}]}}}
//
// Names are the user's own; the hardware knows none of them.

#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "agent/Document.h"
#include "forwarding/NextHopSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace DlbAgent {

using NextHopTable = Forwarding::NextHopTable;
using MemberTable = TessarLoadBalance::DlbEcmpMember1Table;

struct WantedRow {
  std::string nextHop;
  U8 weightIdx = 0;
};

struct WantedChain {
  std::map<std::string, NextHopTable::Entry> nextHops;
  std::map<std::string, std::vector<WantedRow>> blocks;
};

/// One reader for each of the two sections; each adds a problem for whatever is wrong in it.
void readNextHops(std::string const& path, JsonValue const& value, Problems& problems,
                  WantedChain& chain);
void readMemberBlocks(std::string const& path, JsonValue const& value, Problems& problems,
                      WantedChain& chain);
/// Adds a problem for each name that stands for nothing; `blocksPath` is the section of the blocks.
void checkNames(std::string_view blocksPath, WantedChain const& chain, Problems& problems);

}  // namespace DlbAgent
