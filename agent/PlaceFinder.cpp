#include "agent/PlaceFinder.h"

#include <algorithm>

namespace DlbAgent {
namespace {

/// Rows of one value that are looked at for each row of a block: beyond that a value tells little,
/// and looking at all of them would take time in proportion to the square of the hardware.
constexpr std::size_t mostOccurrences = 64;

}  // namespace

// Larger blocks first: a small one may be equal to a part of a large one.
PlaceFinder::PlaceFinder(WantedChain const& wanted, IsOpen const& isOpen,
                         HeldRows<NextHopTable> const& nextHops,
                         HeldRows<MemberTable> const& members, PointedAt pointedAt)
    : wanted_(wanted), nextHops_(nextHops), members_(members), pointedAt_(std::move(pointedAt)) {
  std::set<NextHopTable::Entry> isWanted;
  for (auto const& each : wanted.nextHops) isWanted.insert(each.second);
  for (auto const& each : nextHops)
    if (isWanted.contains(each.second)) inPlace_.insert(each.second);
  for (auto const& [row, entry] : members)
    if (auto const nextHop = nextHops.find(entry.ecmpNextHopEntry); nextHop != nextHops.end())
      rowsOf_[valueOf(nextHop->second, entry.weightIdx)].push_back(row);

  struct Turn {
    std::size_t size;
    std::size_t places;
    decltype(wanted.blocks)::const_iterator block;
  };
  std::vector<Turn> turns;
  for (auto at = wanted.blocks.begin(); at != wanted.blocks.end(); ++at)
    if (isOpen(at->first))
      if (auto const places = placesOf(at->second); !places.empty())
        turns.push_back({at->second.size(), places.size(), at});
  std::ranges::stable_sort(turns, [](Turn const& a, Turn const& b) {
    return a.size != b.size ? a.size > b.size : a.places < b.places;
  });
  for (auto const& turn : turns) {
    auto const& [name, rows] = *turn.block;
    auto const places = placesOf(rows);  // those that are left
    if (places.empty()) continue;
    blocks_[name] = places.front();
    for (U32 i = 0; i < rows.size(); ++i) taken_.insert(places.front() + i);
  }
}

/// The best places for a block, those that a group points at if there are any: each row votes for where
/// the block would begin, and more than half of them must agree.
std::vector<U32> PlaceFinder::placesOf(std::vector<WantedRow> const& rows) const {
  std::map<U32, std::size_t> votes;
  for (U32 i = 0; i < rows.size(); ++i) {
    auto const found =
        rowsOf_.find(valueOf(wanted_.nextHops.at(rows[i].nextHop), rows[i].weightIdx));
    if (found == rowsOf_.end()) continue;
    auto looked = std::size_t{0};
    for (auto const row : found->second)
      if (row >= i && !taken_.contains(row) && looked++ < mostOccurrences) ++votes[row - i];
  }
  std::vector<U32> best;
  auto most = std::pair(rows.size() / 2, true);  // votes, and whether a group points there
  for (auto const& [first, count] : votes) {
    auto const weight = std::pair(count, pointedAt_.contains({first, rows.size()}));
    if (weight < most || count * 2 <= rows.size() || !isRunOfRows(first, rows.size())) continue;
    if (weight > most) best.clear();
    most = weight;
    best.push_back(first);
  }
  return best;
}

bool PlaceFinder::isRunOfRows(U32 first, std::size_t rows) const {
  for (U32 row = first; row < first + rows; ++row)
    if (!members_.contains(row) || taken_.contains(row)) return false;
  return true;
}

std::vector<U32> PlaceFinder::nextHops(NextHopTable::Entry const& value) const {
  std::vector<U32> found;
  for (auto const& [index, entry] : nextHops_)
    if (entry == value) found.push_back(index);
  return found;
}

}  // namespace DlbAgent
