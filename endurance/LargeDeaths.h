// Deaths of an agent that brings up a whole switch: the configuration that `dlb-agent generate` prints by default, on
// empty hardware or over that of another one.

#pragma once

#include <optional>

#include "endurance/Draft.h"
#include "endurance/Life.h"

namespace Endurance {

class LargeDeaths {
 public:
  LargeDeaths(DlbAgent::Catalogue const& catalogue, std::string const& folder)
      : place_{catalogue, "sim", folder + "/large.hw"} {}

  /// One death after a random operation, and the agent that comes next. Throws a `Fault`.
  void play(Random& random);
  U64 deaths() const { return deaths_; }

 private:
  /// What an agent finds, and how many operations it makes then.
  struct Start {
    Image hardware;
    U64 operations;
  };

  void prepare();
  Start startOn(Image hardware);

  Place place_;
  DlbAgent::Configuration wanted_;
  Picture cold_;
  std::vector<Start> starts_;  ///< on empty hardware, and on another's; made for the first death
  U64 deaths_ = 0;
};

}  // namespace Endurance
