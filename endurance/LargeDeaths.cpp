#include "endurance/LargeDeaths.h"

#include <fmt/format.h>

#include "agent/Generate.h"

namespace Endurance {
namespace {

/// A block that is written in part is written elsewhere, and what there is of it deleted.
constexpr U64 mostOfOneBlock = 64;

}  // namespace

void LargeDeaths::prepare() {
  auto const configured = [&](U64 seed) {
    DlbAgent::Session const session(place_.catalogue, place_.chip);
    return DlbAgent::Configuration::fromText(DlbAgent::generated({}, seed), "generated",
                                             place_.catalogue, session.room());
  };
  wanted_ = configured(1);
  starts_.push_back(startOn(Image()));
  cold_ = pictureOf(place_.chip, place_.hardware);
  Image().restoreTo(place_.hardware);
  Life(place_).run(configured(2));
  starts_.push_back(startOn(Image(place_.hardware)));
}

auto LargeDeaths::startOn(Image hardware) -> Start {
  hardware.restoreTo(place_.hardware);
  Life life(place_);
  life.run(wanted_);
  life.checkTruth("in a life without death");
  life.checkFinished("in a life without death");
  return {std::move(hardware), life.operationCount()};
}

void LargeDeaths::play(Random& random) {
  if (starts_.empty()) prepare();
  auto const number = below(starts_.size(), random);
  auto const& [hardware, operations] = starts_[number];
  auto const after = below(operations + 1, random);
  auto const when = fmt::format("{}, after operation {} of {}",
                                number == 0 ? "large, from empty hardware" : "large, over another",
                                after, operations);
  hardware.restoreTo(place_.hardware);
  {
    Life life(place_, {{"freeze-after", std::to_string(after)}});
    life.run(wanted_);
    life.checkTruthOnTheWay(when);
  }
  {
    Life life(place_);
    life.run(wanted_);
    life.checkTruth(when);
    life.checkFinished(when);
    auto const most = operations - after + 2 * mostOfOneBlock;
    if (life.operationCount() > most)
      throw Fault(fmt::format("{}: the next agent made {} operations, where {} were to come", when,
                              life.operationCount(), operations - after));
  }
  if (auto const difference = Picture::difference(pictureOf(place_.chip, place_.hardware), cold_);
      !difference.empty())
    throw Fault(when + ": not what a cold start gives: " + difference);
  ++deaths_;
}

}  // namespace Endurance
