// Deaths of real processes: dlb-agent, killed after an operation of a run and of a change after it.

#pragma once

#include "endurance/Draft.h"
#include "endurance/Life.h"

namespace Endurance {

class ProcessDeaths {
 public:
  ProcessDeaths(DlbAgent::Catalogue const& catalogue, std::string const& folder)
      : folder_(folder), place_{catalogue, "simlet", folder + "/process.hw"} {}

  /// One death after a random operation, and the process that comes next. Throws a `Fault`.
  void play(Random& random);
  U64 deaths() const { return deaths_; }

 private:
  DlbAgent::Configuration written(std::string const& file, U64 seed) const;
  /// The exit code of `dlb-agent ARGUMENTS`, or 128 and the number of the signal that ended it.
  int agent(std::string const& arguments) const;

  std::string folder_;
  Place place_;
  U64 deaths_ = 0;
};

}  // namespace Endurance
