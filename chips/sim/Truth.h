// What must be true of the hardware by itself, whatever software does: a row that holds the index of a
// row of another table points at a row that is valid. `PointerRule` says which rows do.
//
// Invariants
//  1. `checked` stands around every operation that changes a row, so that a breach is seen at the
//     operation that makes it, and told with its number.
//  2. Rows that the hardware was found with may break the truth already: that is told by
//     `contradictions`, and no breach of an operation.
//
// Threading: that of the hardware.

#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "chips/sim/FileLayout.h"

namespace Sim {

/// Rows of one table, from the first on.
struct RowRun {
  U32 first = 0;
  U32 rows = 0;
};

/// Rows of one table that point at rows of another.
struct PointerRule {
  U32 from;
  U32 to;
  /// Where a valid row of `from` points; no rows if it points nowhere.
  RowRun (*target)(std::span<U8 const> row);
};

class Truth {
 public:
  /// The bytes of a valid row, or none.
  using RowAt = std::function<std::span<U8 const>(U32 table, U64 row)>;

  /// `layout` and `rules` stay as long as this. Reads nothing before the first question.
  Truth(FileLayout const& layout, std::span<PointerRule const> rules, RowAt rowAt);

  /// Does `change` to the row, and keeps count of who points where. Returns what that broke, in a
  /// clause; empty if nothing.
  template <class Change>
  std::string checked(U32 table, U64 row, Change const& change) {
    if (!isConcerned(table)) {
      change();
      return {};
    }
    countAll();
    count(table, row, -1);
    change();
    count(table, row, 1);
    return breachOf(table, row);
  }

  /// A clause for each row that points at one that is not valid.
  std::vector<std::string> contradictions() const;

 private:
  bool isConcerned(U32 table) const;
  void countAll();
  void count(U32 table, U64 row, int change);
  std::string breachOf(U32 table, U64 row) const;
  std::string danglerOf(PointerRule const& rule, U64 row) const;

  FileLayout const& layout_;
  std::span<PointerRule const> rules_;
  RowAt rowAt_;
  std::vector<std::vector<U32>> pointers_;  ///< by rule: who points at each row of `to`
};

}  // namespace Sim
