// Deaths of an agent that brings up a whole switch: the configuration that `dlb-agent generate` prints by
// default, on empty hardware or over that of another one, and 200 groups of 60 members each.

#pragma once

#include <vector>

#include "agent/Generate.h"
#include "endurance/Draft.h"
#include "endurance/Life.h"

namespace Endurance {

class LargeDeaths {
 public:
  LargeDeaths(DlbAgent::Catalogue const& catalogue, std::string const& folder)
      : place_{catalogue, "sim", folder + "/large.hw"} {}

  /// A death after a random operation, another one in the restart after it, and the agent that comes
  /// then. Throws a `Fault`.
  void play(Random& random);
  U64 deaths() const { return deaths_; }

 private:
  /// What an agent finds and is asked, and how many operations it makes then.
  struct Start {
    std::string name;
    Image hardware;
    DlbAgent::Configuration wanted;
    Picture cold;
    U64 operations;
  };

  void prepare();
  DlbAgent::Configuration configured(DlbAgent::Sizes const& sizes, U64 seed) const;
  void addStart(std::string const& name, Image hardware, DlbAgent::Configuration wanted);
  void die(Start const& start, U64 after, std::string const& when) const;
  U64 recovered(Start const& start, std::string const& when) const;

  Place place_;
  std::vector<Start> starts_;  ///< made for the first death
  U64 deaths_ = 0;
};

}  // namespace Endurance
