#include "chips/sim/Traffic.h"

#include <algorithm>
#include <limits>

#include "chips/sim/Tables.h"

namespace Sim {
namespace {

using namespace TessarLoadBalance;

constexpr std::array<U64, 8> speedOfFactor{1, 10, 25, 40, 50, 100, 200, 400};  // in Gbit/s
constexpr U64 mbitPerGbit = 1000;
constexpr U64 bitsPerCell = 256 * 8;

enum AssignmentMode : U8 { everyPacket = 1, fixed = 2 };  // any other one: after inactivity

template <class T>
std::optional<typename T::Entry> entryOf(Hardware const& hardware, U32 row) {
  auto const bytes = hardware.row(Tables::numberOf<T>, row);
  if (bytes.empty()) return {};
  return RowCodec<typename T::Entry>::unpack(bytes);
}

template <class T>
typename T::Entry entryOrDefault(Hardware const& hardware, U32 row) {
  return entryOf<T>(hardware, row).value_or(typename T::Entry{});
}

bool isEnabled(Hardware const& hardware, U32 group) {
  auto const bitmap = group < 64
                          ? entryOrDefault<DlbEcmpDlbId0To63EnableTable>(hardware, 0).bitmap
                          : entryOrDefault<DlbEcmpDlbId64To127EnableTable>(hardware, 0).bitmap;
  return (bitmap >> group % 64 & 1) != 0;
}

}  // namespace

Traffic::Traffic(Hardware& hardware, U64 seed)
    : flowsets_(hardware, Tables::numberOf<DlbEcmpFlowsetTable>,
                Tables::numberOf<DlbEcmpFlowsetTableRead>),
      random_(seed),
      frozen_(hardware.isFrozen()),
      selectionSeed_(entryOrDefault<DlbEcmpControlTable>(hardware, 0).randomSelectionSeed),
      samplingPeriod_(entryOrDefault<DlbControlTable>(hardware, 0).samplingPeriod) {
  readProfiles(hardware);
  readGroups(hardware);
  loadPorts();
}

void Traffic::readProfiles(Hardware const& hardware) {
  for (U32 profile = 0; profile < profiles; ++profile) {
    auto& bands = profiles_.emplace_back();
    for (U32 band = 0; band < levels; ++band) {
      auto const row =
          entryOf<DlbEcmpQuantizationThresholdTable>(hardware, profile * levels + band);
      if (!row) break;  // the profile ends here
      bands[0].push_back(row->portLoadingThreshold);
      bands[1].push_back(row->totalPortQsizeThreshold);
      bands[2].push_back(row->itmPortQsizeThreshold);
    }
  }
  for (U32 row = 0; row < hardware.rows(Tables::numberOf<DlbEcmpQualityMapTable>); ++row)
    qualities_.push_back(entryOrDefault<DlbEcmpQualityMapTable>(hardware, row).assignedQuality);
}

void Traffic::readGroups(Hardware const& hardware) {
  for (U32 number = 0; number < groups; ++number) {
    auto const entry = entryOf<DlbEcmpGroupTable>(hardware, number);
    if (!entry || !isEnabled(hardware, number) || entry->flowSetBase >= flowsets_.rows()) continue;
    auto const size = std::min<U32>(entry->flowSetSize, flowsets_.rows() - entry->flowSetBase);
    if (size == 0) continue;
    auto& group = groups_.emplace_back(Group{*entry, size, {}});
    for (auto const& [portNumber, member] : Zarn::sortedElements(entry->portToMemberMap())) {
      auto const number16 = static_cast<U16>(portNumber);
      bool const primary = entry->primaryGroupSize == 0 || member < entry->primaryGroupSize;
      group.candidates.push_back(
          {number16, static_cast<U8>(member), primary, &port(hardware, number16)});
    }
    longestIdle_ = std::max<U64>(longestIdle_, entry->inactivityDuration);
  }
}

Traffic::Port& Traffic::port(Hardware const& hardware, U16 number) {
  auto const [at, isNew] = ports_.try_emplace(number);
  if (!isNew) return at->second;
  auto& made = at->second;
  auto const control = entryOrDefault<DlbEcmpPortControlTable>(hardware, number);
  std::array const factors{control.portLoadThresholdScalingFac,
                           control.totalPortQsizeThresholdScalingFac,
                           control.itmPortQsizeThresholdScalingFac};
  for (U32 measure = 0; measure < measures; ++measure)
    made.scales[measure] = speedOfFactor[factors[measure] % speedOfFactor.size()];
  made.speed = made.scales[0] * mbitPerGbit;
  made.profile = control.qualityMappingProfilePtr;
  return made;
}

/// What earlier traffic left.
void Traffic::loadPorts() {
  for (U32 flowset = 0; flowset < flowsets_.rows(); ++flowset)
    if (auto const state = flowsets_.state(flowset))
      if (auto const at = ports_.find(state->port); at != ports_.end())
        at->second.load += state->rate;
  for (auto& each : ports_) loadIs(each.second, each.second.load);
}

Asic::Chip::Traffic Traffic::played(U64 flows) {
  Asic::Chip::Traffic counts;
  counts.flows = flows;
  if (groups_.empty() || frozen_) {
    counts.unserved = flows;
    return counts;
  }
  for (U64 played = 0; played < flows; ++played) {
    auto const& group = groups_[random(groups_.size())];
    switch (play(group, flowIn(group))) {
      case Outcome::assigned:
        ++counts.assigned;
        break;
      case Outcome::moved:
        ++counts.moved;
        break;
      case Outcome::kept:
        ++counts.kept;
        break;
      case Outcome::unserved:
        ++counts.unserved;
    }
  }
  return counts;
}

Traffic::Flow Traffic::flowIn(Group const& group) {
  auto const flowset = group.entry.flowSetBase + static_cast<U32>(random(group.size));
  // The cube of a number spread evenly over 0 to 1: half of the flows have an eighth of the most or
  // less.
  constexpr U64 steps = 1000, mostAbove = 399;
  auto const step = random(steps);
  auto const rate = static_cast<U32>(1 + step * step * step * mostAbove / (steps * steps * steps));
  return {flowset, rate, random(2 * longestIdle_ + 1)};
}

Traffic::Outcome Traffic::play(Group const& group, Flow const& flow) {
  auto const before = flowsets_.state(flow.flowset);
  auto const* const current = before ? group.find(*before) : nullptr;
  auto const* chosen = current;
  if (!current || mayMove(group, *before, flow)) chosen = best(group);
  if (!chosen) return Outcome::unserved;

  U64 const rate = before ? before->rate : 0;
  U64 const newRate = std::min<U64>(rate + flow.rate, std::numeric_limits<U32>::max());
  if (chosen != current) {
    if (before)
      if (auto const left = ports_.find(before->port); left != ports_.end())
        loadIs(left->second, left->second.load - std::min(left->second.load, rate));
    loadIs(*chosen->port, chosen->port->load + newRate);
  } else {
    loadIs(*chosen->port, chosen->port->load + newRate - rate);
  }
  flowsets_.stateIs(
      flow.flowset,
      {.port = chosen->number, .member = chosen->member, .rate = static_cast<U32>(newRate)});
  if (!before) return Outcome::assigned;
  return chosen == current ? Outcome::kept : Outcome::moved;
}

/// Whether a flowset that is on a port of its group may be assigned anew.
bool Traffic::mayMove(Group const& group, FlowsetState const& state, Flow const& flow) {
  auto const& entry = group.entry;
  if (entry.portAssignmentMode == fixed) return false;
  if (entry.portAssignmentMode == everyPacket || flow.idle >= entry.inactivityDuration) return true;
  if (entry.rebalanceDelta == 0) return false;
  U32 highest = 0;
  for (auto const& each : group.candidates) highest = std::max(highest, each.port->quality);
  bool const better = highest >= U64{group.find(state)->port->quality} + entry.rebalanceDelta;
  return better && random(255) < entry.rebalanceProbabilityThreshold;
}

auto Traffic::Group::find(FlowsetState const& state) const -> Candidate const* {
  auto const found = std::ranges::find_if(candidates, [&](Candidate const& each) {
    return each.number == state.port && each.member == state.member;
  });
  return found == candidates.end() ? nullptr : &*found;
}

auto Traffic::best(Group const& group) -> Candidate const* {
  auto const goodPrimary = [](Candidate const& each) {
    return each.primary && each.port->quality > 0;
  };
  bool const primaryOnly = std::ranges::any_of(group.candidates, goodPrimary);
  Candidate const* chosen = nullptr;
  U64 equals = 0;
  for (auto const& each : group.candidates) {
    if (primaryOnly && !each.primary) continue;
    if (chosen && each.port->quality < chosen->port->quality) continue;
    bool const higher = !chosen || each.port->quality > chosen->port->quality;
    equals = higher ? 1 : equals + 1;
    // Each of n equals is taken with a chance of 1 in n.
    if (higher || (random_() ^ selectionSeed_) % equals == 0) chosen = &each;
  }
  return chosen;
}

void Traffic::loadIs(Port& port, U64 load) const {
  port.load = load;
  U64 const beyond = load > port.speed ? load - port.speed : 0;
  U64 const cells = beyond * samplingPeriod_ / bitsPerCell;
  DlbEcmpQualityMapKey const key{.portLoading = static_cast<U8>(levelOf(port, 0, load)),
                                 .totalPortQsize = static_cast<U8>(levelOf(port, 1, cells)),
                                 .itmPortQsize = static_cast<U8>(levelOf(port, 2, cells / 2)),
                                 .profile = static_cast<U8>(port.profile)};
  auto const row = QualityMapRows::row(key);
  port.quality = row < qualities_.size() ? qualities_[row] : 0;
}

U32 Traffic::levelOf(Port const& port, U32 measure, U64 value) const {
  if (port.profile >= profiles_.size()) return 0;
  auto const& bounds = profiles_[port.profile][measure];
  U32 level = 0;
  for (U32 band = 0; band < bounds.size(); ++band)
    if (value >= bounds[band] * port.scales[measure]) level = band;
  return level;
}

}  // namespace Sim
