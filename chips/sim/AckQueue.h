// The acknowledgements of the writes of one table: what the chip has yet to tell.
//
// Invariants
//  1. Nothing is told inside a write.
//  2. Without fault switches each write is acknowledged once, by the poll after it, in the order of
//     the writes. The switches of Switches.h change that, each by chance.
//  3. The same seed, writes and polls make the same faults.
//
// Threading: that of the owner's polls.

#pragma once

#include <map>
#include <optional>
#include <random>
#include <utility>

#include "chips/sim/Switches.h"
#include "platform/asic/WriteResponse.h"

namespace Sim {

class AckQueue {
 public:
  /// Polls that a late acknowledgement is late at most.
  static constexpr U64 mostLate = 8;

  /// `number` tells the tables of one chip apart, so that each makes faults of its own.
  AckQueue(Switches const& switches, U32 number)
      : faults_(switches.writes), random_(switches.faultSeed + number) {}

  /// Whether the chip refuses the next write.
  bool refusesNext() { return happens(faults_.refused); }
  /// Takes the outcome of a write, to be told, or not, as the switches say.
  void post(Asic::WriteResponse const& outcome);
  /// The next acknowledgement that is due; none if none is.
  std::optional<Asic::WriteResponse> next();
  /// Lets the time of one poll pass.
  void tick() { ++now_; }
  /// Acknowledgements that are still to be given.
  U64 owed() const { return owed_.size(); }

 private:
  /// The poll at which it is due, and its place among those.
  using Turn = std::pair<U64, U64>;

  bool happens(U32 percent) {
    return percent > 0 && now_ < faults_.until && random_() % 100 < percent;
  }
  void postOnce(Asic::WriteResponse const& outcome);

  Switches::WriteFaults faults_;
  std::mt19937 random_;
  std::multimap<Turn, Asic::WriteResponse> owed_;
  U64 now_ = 0;
  U64 posted_ = 0;
};

}  // namespace Sim
