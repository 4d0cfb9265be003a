// Configurations drawn at random, small and full of what is hard: equal values, blocks and groups that
// share, keys that are in two tables, entries that come and go.
//
// A draft has a place for each entry that there may be, so that a changed one differs from it by a few.

#pragma once

#include <array>
#include <optional>
#include <random>
#include <vector>

#include "agent/Configuration.h"

namespace Endurance {

using Random = std::mt19937_64;

class Draft {
 public:
  /// Places of each kind.
  struct Sizes {
    U32 rows = 3;  ///< in each of the tables by index that take part
    U32 nextHops = 6;
    U32 blocks = 4;
    U32 width = 4;  ///< rows of a block, at most
    U32 groups = 8;
    U32 adjacencies = 10;
    /// Next hops may be equal, blocks alike, groups share a key, or go from one table to another.
    bool twins = true;
  };

  /// Nothing at all.
  Draft() = default;
  Draft(Sizes const& sizes, Random& random) { redraw(sizes, 100, random); }

  /// One in which each place is drawn anew with a chance of so many percent.
  Draft changed(Sizes const& sizes, U32 percent, Random& random) const {
    auto draft = *this;
    draft.redraw(sizes, percent, random);
    return draft;
  }
  /// What names nothing that is there is left out.
  DlbAgent::Configuration configuration(DlbAgent::Catalogue const& catalogue) const;

 private:
  struct Row {
    U32 nextHop;
    U8 weight;
  };
  struct Group {
    U32 section;  ///< groups, vxlanGroups, selectiveGroups, vxlanSelectiveGroups
    U32 adjId;
    U32 block;
    U32 value;
  };

  static constexpr std::size_t rowTables = 4;

  void redraw(Sizes const& sizes, U32 percent, Random& random);
  template <class T>
  void addGroup(DlbAgent::WantedChain& chain, U32 number, Group const& group) const;

  std::array<std::vector<std::optional<U32>>, rowTables> rows_;
  std::vector<std::optional<U32>> nextHops_;
  std::vector<std::optional<std::vector<Row>>> blocks_;
  std::vector<std::optional<Group>> groups_;
  std::vector<std::optional<U32>> adjacencies_;
};

}  // namespace Endurance
