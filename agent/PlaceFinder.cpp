#include "agent/PlaceFinder.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace DlbAgent {
namespace {

/// Rows of one value that are looked at for each row of a block: beyond that a value tells little,
/// and looking at all of them would take time in proportion to the square of the hardware.
constexpr std::size_t mostOccurrences = 64;

}  // namespace

// Blocks all of whose rows are there come before those that have changed. Then larger ones come first: a
// small one may be equal to a part of a large one.
PlaceFinder::PlaceFinder(WantedChain const& wanted, IsOpen const& isOpen,
                         HeldRows<NextHopTable> const& nextHops,
                         HeldRows<MemberTable> const& members, PointedAt pointedAt, Settled settled)
    : wanted_(wanted),
      members_(members),
      pointedAt_(std::move(pointedAt)),
      nextHopRows_(nextHopRows(wanted, nextHops, std::move(settled))) {
  U32 end = 0;
  for (auto const& [first, rows] : pointedAt_) {
    end = std::max(end, first + static_cast<U32>(rows));
    pointedUpTo_[first] = end;
  }
  std::set<NextHopTable::Entry> isWanted;
  for (auto const& each : wanted.nextHops) isWanted.insert(each.second);
  for (auto const& each : nextHops)
    if (isWanted.contains(each.second)) inPlace_.insert(each.second);
  for (auto const& [row, entry] : members)
    if (auto const value = valueAt(nextHops, entry)) rowsOf_[*value].insert(row);

  struct Turn {
    std::size_t size;
    std::size_t places;
    decltype(wanted.blocks)::const_iterator block;
  };
  std::vector<Turn> whole, changed;
  for (auto at = wanted.blocks.begin(); at != wanted.blocks.end(); ++at)
    if (isOpen(at->first))
      if (auto const places = placesOf(at->second); !places.firsts.empty()) {
        auto const size = at->second.size();
        (places.votes == size ? whole : changed).push_back({size, places.firsts.size(), at});
      }
  auto const sort = [](std::vector<Turn>& turns) {
    std::ranges::stable_sort(turns, [](Turn const& a, Turn const& b) {
      return std::tuple(b.size, a.places) < std::tuple(a.size, b.places);
    });
  };
  auto const take = [&](Turn const& turn, Places const& places) {
    auto const first = places.firsts.front();
    blocks_[turn.block->first] = first;
    for (U32 row = first; row < first + turn.size; ++row) {
      taken_.insert(row);
      if (auto const value = valueAt(nextHops, members.at(row))) rowsOf_.at(*value).erase(row);
    }
  };
  sort(whole);
  for (auto const& turn : whole) {
    // One that was whole in the rows of another only is one of the changed.
    auto const left = placesOf(turn.block->second);
    left.votes == turn.size ? take(turn, left) : changed.push_back(turn);
  }
  sort(changed);
  for (auto const& turn : changed)
    if (auto const left = placesOf(turn.block->second); !left.firsts.empty()) take(turn, left);
}

/// None if the row's next hop is not there.
auto PlaceFinder::valueAt(HeldRows<NextHopTable> const& nextHops,
                          MemberTable::Entry const& row) const -> std::optional<RowValue> {
  auto const nextHop = nextHops.find(row.ecmpNextHopEntry);
  if (nextHop == nextHops.end()) return {};
  return valueOf(nextHop->second, row.weightIdx);
}

auto PlaceFinder::nextHopRows(WantedChain const& wanted, HeldRows<NextHopTable> const& nextHops,
                              Settled settled) -> Settled {
  std::set<U32> taken;
  for (auto const& each : settled) taken.insert(each.second);
  std::map<NextHopTable::Entry, std::vector<U32>> rowsOfValue;  // the highest first
  for (auto at = nextHops.rbegin(); at != nextHops.rend(); ++at)
    if (!taken.contains(at->first)) rowsOfValue[at->second].push_back(at->first);
  for (auto const& [name, entry] : wanted.nextHops) {
    if (settled.contains(name)) continue;
    auto const rows = rowsOfValue.find(entry);
    if (rows == rowsOfValue.end() || rows->second.empty()) continue;
    settled[name] = rows->second.back();
    rows->second.pop_back();
  }
  return settled;
}

/// The best places for a block: each row votes for where the block would begin, and more than half of
/// them must agree. Of places with equal votes those are best that a group points at as a whole, and worst
/// those in which a group points at something else. Of those again rows should point at the very next
/// hops, and not at others of their values.
auto PlaceFinder::placesOf(std::vector<WantedRow> const& rows) const -> Places {
  struct Votes {
    std::size_t equal = 0;
    std::size_t same = 0;
  };
  std::map<U32, Votes> votes;
  for (U32 i = 0; i < rows.size(); ++i) {
    auto const found =
        rowsOf_.find(valueOf(wanted_.nextHops.at(rows[i].nextHop), rows[i].weightIdx));
    if (found == rowsOf_.end()) continue;
    auto const nextHop = nextHopRows_.find(rows[i].nextHop);
    auto looked = std::size_t{0};
    for (auto at = found->second.lower_bound(i);
         at != found->second.end() && looked < mostOccurrences; ++at, ++looked) {
      auto& votesOfPlace = votes[*at - i];
      ++votesOfPlace.equal;
      if (nextHop != nextHopRows_.end() && members_.at(*at).ecmpNextHopEntry == nextHop->second)
        ++votesOfPlace.same;
    }
  }
  Places best;
  std::tuple most{rows.size() / 2, Use::ofItself, rows.size()};
  for (auto const& [first, count] : votes) {
    std::tuple const weight{count.equal, useOf(first, rows.size()), count.same};
    if (weight < most || count.equal * 2 <= rows.size() || !isRunOfRows(first, rows.size()))
      continue;
    if (weight > most) best.firsts.clear();
    most = weight;
    best.votes = count.equal;
    best.firsts.push_back(first);
  }
  return best;
}

auto PlaceFinder::useOf(U32 first, std::size_t rows) const -> Use {
  if (pointedAt_.contains({first, rows})) return Use::ofItself;
  auto const before = pointedUpTo_.lower_bound(first);
  if (before != pointedUpTo_.begin() && std::prev(before)->second > first) return Use::ofAnother;
  auto const inside = pointedAt_.lower_bound({first + 1, 0});
  if (inside != pointedAt_.end() && inside->first < first + rows) return Use::ofAnother;
  auto const part = pointedAt_.lower_bound({first, 0});
  return part != inside && part->second < rows ? Use::ofPart : Use::ofNobody;
}

bool PlaceFinder::isRunOfRows(U32 first, std::size_t rows) const {
  for (U32 row = first; row < first + rows; ++row)
    if (!members_.contains(row) || taken_.contains(row)) return false;
  return true;
}

}  // namespace DlbAgent
