// Where the blocks and next hops of a configuration may lie in the hardware after a restart.
//
// A block is found by the group that points at it. One that no group leads to is found by what its
// rows hold: it may lie where most of them would be as they are, and all of them exist; of such places
// it takes one that a group of the hardware points at. Blocks that are there whole choose first, then
// larger ones, then those that fit in the fewest places. Next hops that no block leads to are found by
// their value. What is found is a suggestion: the tables compare before they believe it, and rewrite in
// place what has changed.

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/Chain.h"
#include "agent/NamedTable.h"

namespace DlbAgent {

class PlaceFinder {
 public:
  /// First rows, each with the number of rows from there on that a group of the hardware uses.
  using PointedAt = std::set<std::pair<U32, std::size_t>>;

  /// Whether the block of that name has yet to find its place.
  using IsOpen = std::function<bool(std::string const& block)>;

  /// The rows of next hops that have found theirs, by name.
  using Settled = std::map<std::string, U32>;

  /// `members` are the rows that no block has claimed yet. `wanted` and `members` outlive this.
  PlaceFinder(WantedChain const& wanted, IsOpen const& isOpen,
              HeldRows<NextHopTable> const& nextHops, HeldRows<MemberTable> const& members,
              PointedAt pointedAt, Settled settled);

  /// The first row of each block that was found, by the block's name.
  std::map<std::string, U32> const& blocks() const { return blocks_; }
  /// The row of each next hop whose value the hardware holds: those that are settled keep theirs, and the
  /// others take what is left of their values, in the order of their names.
  static Settled nextHopRows(WantedChain const& wanted, HeldRows<NextHopTable> const& nextHops,
                             Settled settled);

 private:
  /// What the groups of the hardware make of a place for a block, the best last.
  enum class Use { ofAnother, ofNobody, ofPart, ofItself };
  /// The best places for a block: first rows, and how many of its rows each of them holds.
  struct Places {
    std::vector<U32> firsts;
    std::size_t votes = 0;
  };
  /// What a row says, without the hardware's own numbers: its next hop and its weight. A next hop
  /// that is only wanted and one that is only held look alike, as nothing: the one may have been the
  /// other before it changed.
  using RowValue = std::pair<std::optional<NextHopTable::Entry>, U8>;

  RowValue valueOf(NextHopTable::Entry const& nextHop, U8 weightIdx) const {
    return {inPlace_.contains(nextHop) ? std::optional(nextHop) : std::nullopt, weightIdx};
  }
  std::optional<RowValue> valueAt(HeldRows<NextHopTable> const& nextHops,
                                  MemberTable::Entry const& row) const;
  Places placesOf(std::vector<WantedRow> const& rows) const;
  Use useOf(U32 first, std::size_t rows) const;
  bool isRunOfRows(U32 first, std::size_t rows) const;

  WantedChain const& wanted_;
  HeldRows<MemberTable> const& members_;
  PointedAt pointedAt_;
  std::map<U32, U32> pointedUpTo_;  ///< by first row: the end of all that begin there or before
  std::map<std::string, U32> nextHopRows_;
  std::set<NextHopTable::Entry> inPlace_;     ///< values of next hops that are wanted and held
  std::map<RowValue, std::set<U32>> rowsOf_;  ///< those that are not taken
  std::set<U32> taken_;                       ///< rows of blocks that were found
  std::map<std::string, U32> blocks_;
};

}  // namespace DlbAgent
