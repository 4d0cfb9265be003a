#include "agent/FlowsetSpread.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <tuple>

#include "agent/TextTable.h"
#include "agent/Words.h"
#include "config/DlbEcmpGroupSwTable.h"

namespace DlbAgent {
namespace {

using nlohmann::ordered_json;
using Share = GroupSpread::Share;
using GroupEntry = TessarLoadBalance::DlbEcmpGroupTable::Entry;

GroupSpread groupOf(U64 group, GroupEntry const& entry) {
  GroupSpread spread{group, entry.flowSetBase, entry.flowSetSize, 0, {}};
  for (auto const& [port, member] : Zarn::sortedElements(entry.portToMemberMap()))
    spread.shares.push_back({port, member, true, 0});
  return spread;
}

void addFlowset(GroupSpread& group, Flowset const& flowset) {
  auto const place = [](Share const& share) { return std::tuple(share.port, share.member); };
  std::tuple const wanted(flowset.port, flowset.member);
  auto share = std::ranges::lower_bound(group.shares, wanted, {}, place);
  if (share == group.shares.end() || place(*share) != wanted)
    share = group.shares.insert(share, {flowset.port, flowset.member, false, 0});
  ++share->flowsets;
  ++group.assigned;
}

U64 assignedOf(std::vector<Flowset> const& flowsets) {
  return static_cast<U64>(std::ranges::count(flowsets, true, &Flowset::assigned));
}

ordered_json flowsetObject(Flowset const& flowset) {
  ordered_json json{{"index", flowset.index}, {"assigned", flowset.assigned}};
  if (flowset.assigned) json.update({{"port", flowset.port}, {"member", flowset.member}});
  return json;
}

ordered_json groupObject(GroupSpread const& group) {
  auto ports = ordered_json::array();
  for (auto const& share : group.shares)
    ports.push_back({{"port", share.port},
                     {"member", share.member},
                     {"inGroup", share.inGroup},
                     {"flowsets", share.flowsets}});
  return {{"flowSetBase", group.base},
          {"flowSetSize", group.size},
          {"assigned", group.assigned},
          {"ports", std::move(ports)}};
}

/// Bars of one group, of one scale: a mark a flowset where there is room.
class Bars {
 public:
  Bars(GroupSpread const& group, std::size_t width) : width_(width) {
    for (auto const& share : group.shares) most_ = std::max(most_, share.flowsets);
  }

  /// Never nothing for something.
  std::string bar(U64 flowsets) const {
    auto const length =
        most_ <= width_ ? flowsets : std::max<U64>((flowsets * width_ + most_ / 2) / most_, 1);
    return std::string(flowsets == 0 ? 0 : length, '#');
  }

 private:
  std::size_t width_;
  U64 most_ = 1;
};

/// A share's line up to its bar, which is as long on all lines.
std::string beforeBar(Share const& share) {
  return fmt::format("  port {:>5}  member {:>3}  {:>5}  ", share.port, share.member,
                     share.flowsets);
}

constexpr std::string_view strangerMark = " (not in the group)";

std::string shareLine(Share const& share, Bars const& bars) {
  auto line = beforeBar(share) + bars.bar(share.flowsets);
  line.erase(line.find_last_not_of(' ') + 1);
  return share.inGroup ? line : emphasised(fmt::format("{}{}", line, strangerMark), Emphasis::bad);
}

std::string groupTitle(GroupSpread const& group) {
  auto const title = emphasised(fmt::format("Group {}", group.group), Emphasis::heading);
  if (group.size == 0) return fmt::format("{}: no flowsets\n", title);
  return fmt::format("{}: flowsets {} to {}, {} of {} assigned\n", title, group.base,
                     group.base + group.size - 1, group.assigned, group.size);
}

std::string groupText(GroupSpread const& group, std::size_t width) {
  auto text = groupTitle(group);
  bool const strangers = !std::ranges::all_of(group.shares, &Share::inGroup);
  auto const taken = beforeBar({}).size() + (strangers ? strangerMark.size() : 0);
  Bars const bars(group, std::max<std::size_t>(width, taken + 10) - taken);
  for (auto const& share : group.shares) text += shareLine(share, bars) + '\n';
  if (group.shares.empty()) text += "  no ports\n";
  return text;
}

/// Flowsets that are assigned, and no group has them.
U64 groupless(std::vector<GroupSpread> const& groups, std::vector<Flowset> const& flowsets) {
  return static_cast<U64>(std::ranges::count_if(flowsets, [&](Flowset const& flowset) {
    auto const has = [&](GroupSpread const& group) { return group.has(flowset); };
    return flowset.assigned && std::ranges::none_of(groups, has);
  }));
}

}  // namespace

std::vector<GroupSpread> groupsOf(Rows const& rows) {
  std::vector<GroupSpread> groups;
  for (auto const& [key, record] : rows)
    groups.push_back(
        groupOf(*key.value().number(), Asic::EntryReflection<GroupEntry>::fromValue(record)));
  return groups;
}

void addFlowsets(std::vector<GroupSpread>& groups, std::vector<Flowset> const& flowsets) {
  for (auto& group : groups)
    for (auto const& flowset : flowsets)
      if (flowset.assigned && group.has(flowset)) addFlowset(group, flowset);
}

ordered_json spreadJson(std::vector<GroupSpread> const& groups,
                        std::vector<Flowset> const& flowsets) {
  auto list = ordered_json::array();
  for (auto const& flowset : flowsets)
    if (flowset.assigned) list.push_back(flowsetObject(flowset));
  auto groupsJson = ordered_json::object();
  for (auto const& group : groups) groupsJson[std::to_string(group.group)] = groupObject(group);
  auto const assigned = assignedOf(flowsets);
  return {{"flowsets", std::move(list)},
          {"groups", std::move(groupsJson)},
          {"assigned", assigned},
          {"unassigned", flowsets.size() - assigned}};
}

std::string spreadText(std::vector<GroupSpread> const& groups, std::vector<Flowset> const& flowsets,
                       std::size_t width) {
  std::string text;
  for (auto const& group : groups) text += groupText(group, width) + '\n';
  if (groups.empty()) text = "The hardware has no groups.\n";
  text += fmt::format("{} of {} assigned", assignedOf(flowsets),
                      counted(flowsets.size(), "flowset is", "flowsets are"));
  if (auto const without = groupless(groups, flowsets); without > 0)
    text += fmt::format(", {} of them in no group", without);
  return text + ".\n";
}

ordered_json flowsetJson(Flowset const& flowset) {
  return {{"flowsets", ordered_json::array({flowsetObject(flowset)})}};
}

std::string flowsetText(std::vector<GroupSpread> const& groups, Flowset const& flowset) {
  std::vector<std::string> owners;
  for (auto const& group : groups)
    if (group.has(flowset)) owners.push_back(fmt::format("group {}", group.group));
  auto const owner = owners.empty() ? "no group" : fmt::format("{}", fmt::join(owners, " and "));
  return flowset.assigned ? fmt::format("Flowset {} of {}: port {}, member {}\n", flowset.index,
                                        owner, flowset.port, flowset.member)
                          : fmt::format("Flowset {} of {}: not assigned\n", flowset.index, owner);
}

}  // namespace DlbAgent
