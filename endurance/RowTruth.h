// The core promise, looked at with every operation of a chip in memory: no row of a group points at member
// rows that are not there, and no member row at a next hop that is not there.
//
// What counts is who points by what was written. A row that sync found points nowhere as far as this knows,
// until its entry is found to be right; and it counts only once the table has claimed it, since a stale
// row may point anywhere until the purge.

#pragma once

#include <array>
#include <functional>
#include <string_view>
#include <vector>

#include "endurance/Told.h"

namespace Endurance {

/// Rows point one floor down.
enum class Floor : U8 { none, hops, members, groups };

/// Rows of the floor below, from the first on; none if there are 0.
struct Target {
  U32 first = 0;
  U32 rows = 0;
  bool covers(U32 index) const { return index >= first && index - first < rows; }
};

class RowTruth {
 public:
  explicit RowTruth(Finding& finding) : finding_(finding) {}

  /// The rows of one table.
  class Rows {
   public:
    Rows(RowTruth& truth, Floor floor, std::string_view name, U32 room)
        : truth_(truth), floor_(floor), name_(name), rows_(room) {
      truth_.tables_.push_back(this);
    }
    Rows(Rows const&) = delete;
    Rows& operator=(Rows const&) = delete;
    ~Rows() { std::erase(truth_.tables_, this); }

    void rowIs(U32 index, bool isValid, Target const& target) {
      rows_[index] = {isValid, target, {}};
      if (floor_ == Floor::none) return;
      if (isValid)
        truth_.needTarget(*this, index);
      else
        truth_.needNobodyAt(*this, index);
    }
    /// The row was found to hold its entry; `isUnclaimed` says whether the table has not taken it yet.
    void rowIsFound(U32 index, Target const& target, std::function<bool()> isUnclaimed) {
      if (target.rows == 0 || rows_[index].target.rows != 0) return;
      rows_[index].target = target;
      rows_[index].isUnclaimed = std::move(isUnclaimed);
    }
    /// The table is gone, and with it the question.
    void claimAll() {
      for (auto& row : rows_) row.isUnclaimed = nullptr;
    }

   private:
    friend class RowTruth;
    struct Row {
      bool isValid = false;
      Target target;
      std::function<bool()> isUnclaimed;
    };
    bool points(Row const& row, U32 index) const {
      return row.isValid && row.target.covers(index) && (!row.isUnclaimed || !row.isUnclaimed());
    }

    RowTruth& truth_;
    Floor floor_;
    std::string_view name_;
    std::vector<Row> rows_;
  };

 private:
  static Floor below(Floor floor) { return static_cast<Floor>(static_cast<U8>(floor) - 1); }

  void needTarget(Rows const& from, U32 index) {
    auto const& target = from.rows_[index].target;
    if (target.rows == 0) return;
    for (auto const* table : tables_)
      for (U32 at = target.first;
           table->floor_ == below(from.floor_) && at - target.first < target.rows; ++at)
        if (at >= table->rows_.size() || !table->rows_[at].isValid)
          finding_.add(from.name_, ": row ", index, " was written to point at row ", at, " of ",
                       table->name_, ", which is not there");
  }
  void needNobodyAt(Rows const& gone, U32 index) {
    for (auto const* table : tables_) {
      if (table->floor_ == Floor::none || below(table->floor_) != gone.floor_) continue;
      for (U32 at = 0; at < table->rows_.size(); ++at)
        if (table->points(table->rows_[at], index))
          finding_.add(gone.name_, ": row ", index, " was deleted, and row ", at, " of ",
                       table->name_, " points at it");
    }
  }

  Finding& finding_;
  std::vector<Rows*> tables_;
};

}  // namespace Endurance
