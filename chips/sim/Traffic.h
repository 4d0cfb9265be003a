// Simulated traffic: random flows that find their flowset, and a port for it, by the rules that the
// hardware is programmed with. A simulation to look at, not a model of a chip:
//
//  - A flow picks an enabled group, a flowset of it, a rate (1 to 400 Mbit/s, mostly little) and
//    the time since the flowset's last packet (up to twice the longest inactivity duration), at
//    random.
//  - It adds its rate to the flowset for good. There is no time: flows do not end, and no load is
//    averaged, so weights and caps of the load measures have no effect.
//  - A flowset is assigned anew if it has no port, or one that left the group; in mode 0 after the
//    group's inactivity duration, in mode 1 with every flow, in mode 2 never. An active one of mode
//    0 moves if another port is better by the rebalance delta, with the probability of the
//    threshold / 255.
//  - The best port is that of the highest quality; of equals, a random one. Members from the
//    primary group size on are taken only if no primary one has a quality above 0.
//  - A port's quality is what the quality map assigns to its three levels and its profile; 0 if
//    nothing. A level is the number of the highest band of the profile whose scaled threshold, a
//    lower bound, the load reaches.
//  - The load of a port is the rate of its flowsets in Mbit/s; its total queue what goes beyond the
//    port's speed in one sampling period (in microseconds), in cells of 256 bytes; its ITM queue
//    half of that, since the chip has two ingress halves.
//
// Scaling factors 0 to 7 stand for ports of 1, 10, 25, 40, 50, 100, 200 and 400 Gbit/s; thresholds
// are those of a port of 1 Gbit/s.

#pragma once

#include <map>
#include <random>
#include <vector>

#include "chips/sim/SimReadTable.h"
#include "config/DlbEcmpGroupSwTable.h"
#include "platform/asic/Chip.h"

namespace Sim {

class Traffic {
 public:
  /// Reads what the hardware is programmed with.
  Traffic(Hardware& hardware, U64 seed);

  /// Plays that many flows and counts what became of them.
  Asic::Chip::Traffic played(U64 flows);

 private:
  static constexpr U32 measures = 3;  ///< port loading, total queue size, ITM queue size
  static constexpr U32 levels = 8;
  using Thresholds = std::array<std::vector<U64>, measures>;

  struct Port {
    U64 speed = 0;  ///< in Mbit/s
    std::array<U64, measures> scales{};
    U32 profile = 0;
    U64 load = 0;     ///< in Mbit/s
    U32 quality = 0;  ///< at that load
  };
  struct Candidate {
    U16 number;
    U8 member;
    bool primary;
    Port* port;
  };
  struct Group {
    TessarLoadBalance::DlbEcmpGroupTable::Entry entry;
    U32 size;  ///< of the block, as far as there are flowsets
    std::vector<Candidate> candidates;

    Candidate const* find(FlowsetState const& state) const;
  };
  struct Flow {
    U32 flowset;
    U32 rate;  ///< in Mbit/s
    U64 idle;  ///< in microseconds
  };
  enum class Outcome { assigned, moved, kept, unserved };

  void readProfiles(Hardware const& hardware);
  void readGroups(Hardware const& hardware);
  Port& port(Hardware const& hardware, U16 number);
  void loadPorts();

  Flow flowIn(Group const& group);
  Outcome play(Group const& group, Flow const& flow);
  bool mayMove(Group const& group, FlowsetState const& state, Flow const& flow);
  Candidate const* best(Group const& group);
  void loadIs(Port& port, U64 load) const;
  U32 levelOf(Port const& port, U32 measure, U64 value) const;
  U64 random(U64 below) { return random_() % below; }

  Flowsets flowsets_;
  std::mt19937_64 random_;
  bool frozen_;
  U64 selectionSeed_ = 0;
  U64 samplingPeriod_ = 0;
  U64 longestIdle_ = 0;
  std::vector<Thresholds> profiles_;
  std::vector<U32> qualities_;  ///< by the row of the quality map
  std::map<U16, Port> ports_;
  std::vector<Group> groups_;  ///< the enabled ones that have flowsets
};

}  // namespace Sim
