// The reads of one table that are under way in the chip.
//
// Invariants
//  1. Nothing is answered inside `begin`.
//  2. A read of the whole table answers each row in ascending order, then its end; a read of one
//     row answers that row, or with an end if the table has no such row.
//  3. Reads are served one after the other, or by turns if the switch says so.
//
// Threading: that of the owner's polls.

#pragma once

#include <deque>
#include <optional>

#include "chips/sim/Switches.h"
#include "platform/asic/TransactionId.h"

namespace Sim {

/// What the chip answers next.
struct ReadAnswer {
  Asic::TransactionId id;
  std::optional<U32> row;  ///< none: the end of the read
};

class ReadEngine {
 public:
  /// Answers that one poll brings at most.
  static constexpr U32 answersPerPoll = 256;

  ReadEngine(U32 rows, Switches const& switches)
      : rows_(rows),
        delay_(switches.delayReads),
        interleaved_(switches.interleaveReads),
        endsToLose_(switches.loseReadEnds) {}

  /// Begins a read of one row, or of all, and names it.
  Asic::TransactionId begin(std::optional<U32> row);
  /// Lets the time of one poll pass.
  void tick();
  /// The next answer that is due, which counts as given then; none if none is.
  std::optional<ReadAnswer> next();
  /// Answers that are still to be given.
  U64 owed() const;

 private:
  struct Read {
    Asic::TransactionId id;
    U32 nextRow;
    U32 endRow;     ///< behind the last row to answer
    bool tellsEnd;  ///< an end follows the rows
    U64 delay;      ///< polls that have to pass

    U64 owed() const { return endRow - nextRow + (tellsEnd ? 1 : 0); }
  };

  ReadAnswer answerOf(Read& read);

  U32 rows_;
  U64 delay_;
  bool interleaved_;
  U64 endsToLose_;
  U64 lastId_ = 0;
  std::deque<Read> reads_;  ///< in the order of their turns
};

}  // namespace Sim
