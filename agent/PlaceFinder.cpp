#include "agent/PlaceFinder.h"

#include <algorithm>
#include <functional>

namespace DlbAgent {
namespace {

/// Rows of one value that are looked at for each row of a block: beyond that a value tells little,
/// and looking at all of them would take time in proportion to the square of the hardware.
constexpr std::size_t mostOccurrences = 64;

}  // namespace

// Larger blocks first: a small one may be equal to a part of a large one.
PlaceFinder::PlaceFinder(WantedChain const& wanted, HeldRows<NextHopTable> const& nextHops,
                         HeldRows<MemberTable> const& members)
    : wanted_(wanted), nextHops_(nextHops), members_(members) {
  std::set<NextHopTable::Entry> isWanted;
  for (auto const& each : wanted.nextHops) isWanted.insert(each.second);
  for (auto const& each : nextHops)
    if (isWanted.contains(each.second)) inPlace_.insert(each.second);
  for (auto const& [row, entry] : members)
    if (auto const nextHop = nextHops.find(entry.ecmpNextHopEntry); nextHop != nextHops.end())
      rowsOf_[valueOf(nextHop->second, entry.weightIdx)].push_back(row);

  std::vector<decltype(wanted.blocks)::const_iterator> bySize;
  for (auto at = wanted.blocks.begin(); at != wanted.blocks.end(); ++at) bySize.push_back(at);
  std::ranges::stable_sort(bySize, std::greater(), [](auto at) { return at->second.size(); });
  for (auto const& block : bySize) {
    auto const place = placeOf(block->second);
    if (!place) continue;
    blocks_[block->first] = *place;
    for (U32 i = 0; i < block->second.size(); ++i) taken_.insert(*place + i);
  }
}

/// Each row votes for where the block would begin; more than half of them must agree.
std::optional<U32> PlaceFinder::placeOf(std::vector<WantedRow> const& rows) const {
  std::map<U32, std::size_t> votes;
  for (U32 i = 0; i < rows.size(); ++i) {
    auto const found =
        rowsOf_.find(valueOf(wanted_.nextHops.at(rows[i].nextHop), rows[i].weightIdx));
    if (found == rowsOf_.end()) continue;
    auto looked = std::size_t{0};
    for (auto const row : found->second)
      if (row >= i && !taken_.contains(row) && looked++ < mostOccurrences) ++votes[row - i];
  }
  std::optional<U32> best;
  for (auto const& [first, count] : votes)
    if (count * 2 > rows.size() && (!best || count > votes[*best]) &&
        isRunOfRows(first, rows.size()))
      best = first;
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
