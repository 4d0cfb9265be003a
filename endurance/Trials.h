// What every command here is given, and what it gives back.
//
// A command makes trials with the numbers `first` to `first + count - 1`. What a trial draws follows from
// the seed and its number alone, so that one that finds something can be made again by itself. (A soak is
// one long life: there all from the first on are made again.)

#pragma once

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/vell/Types.h"

namespace Endurance {

/// Something that must not be; the text says what and where. Ends the command.
class Fault : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Told to whoever waits; each line of it begins with a figure.
using Summary = std::vector<std::string>;

struct Trials {
  U64 first = 0;
  U64 count = 1;
  U64 seed = 1;
  U64 seconds = 0;     ///< trials end after so long, whatever their number; 0: they do not
  std::string folder;  ///< for files; empty at the start, removed at the end

  /// Calls `trial(number, random)` for each. What it throws ends the trials.
  template <class Trial>
  U64 forEach(Trial const& trial) const {
    U64 made = 0;
    for (; made < count && !isTimeUp(); ++made) {
      trialIs(first + made);
      std::seed_seq sequence{seed, seed >> 32, first + made, (first + made) >> 32};
      std::mt19937_64 random(sequence);
      trial(first + made, random);
    }
    return made;
  }

 private:
  bool isTimeUp() const;
  /// Noted for the case that the process is stopped inside of the trial.
  static void trialIs(U64 number);
};

/// A number below `bound`, which is not 0.
template <class Random>
U64 below(U64 bound, Random& random) {
  return random() % bound;
}

// ---- the commands ----

Summary crashes(Trials const& trials);
Summary pairs(Trials const& trials);
Summary acknowledgements(Trials const& trials);
Summary soak(Trials const& trials);
Summary watchers(Trials const& trials);

}  // namespace Endurance
