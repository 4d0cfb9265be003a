#include "endurance/LargeDeaths.h"

#include <fmt/format.h>

namespace Endurance {
namespace {

/// A block that is written in part is written elsewhere, and what there is of it deleted.
constexpr U64 mostOfOneBlock = 64;

}  // namespace

DlbAgent::Configuration LargeDeaths::configured(DlbAgent::Sizes const& sizes, U64 seed) const {
  DlbAgent::Session const session(place_.catalogue, place_.chip);
  return DlbAgent::Configuration::fromText(DlbAgent::generated(sizes, seed), "generated",
                                           place_.catalogue, session.room());
}

void LargeDeaths::prepare() {
  DlbAgent::Sizes const even{
      .groups = 200, .width = 60, .even = true, .plainGroups = 0, .adjacencies = 200};
  addStart("from empty hardware", Image(), configured({}, 1));
  addStart("200 groups of 60 members", Image(), configured(even, 1));
  Image().restoreTo(place_.hardware);
  Life(place_).run(configured({}, 2));
  addStart("over another", Image(place_.hardware), configured({}, 1));
}

void LargeDeaths::addStart(std::string const& name, Image hardware,
                           DlbAgent::Configuration wanted) {
  Image().restoreTo(place_.hardware);
  Life(place_).run(wanted);
  auto cold = pictureOf(place_.chip, place_.hardware);
  hardware.restoreTo(place_.hardware);
  Start start{name, std::move(hardware), std::move(wanted), std::move(cold), 0};
  start.operations = recovered(start, name);
  starts_.push_back(std::move(start));
}

void LargeDeaths::die(Start const& start, U64 after, std::string const& when) const {
  Life life(place_, {{"freeze-after", std::to_string(after)}});
  life.run(start.wanted);
  life.checkTruthOnTheWay(when);
}

/// Runs a new agent to its end. How many operations it made.
U64 LargeDeaths::recovered(Start const& start, std::string const& when) const {
  Image const left(place_.hardware);
  U64 operations = 0;
  std::vector<Asic::Chip::JournalEntry> journal;
  {
    Life life(place_);
    life.run(start.wanted);
    life.checkTruth(when);
    life.checkFinished(when);
    operations = life.operationCount();
    journal = life.session.chip().journal(operations);
  }
  left.checkNeeded(journal, Image(place_.hardware), when);
  if (auto const difference =
          Picture::difference(pictureOf(place_.chip, place_.hardware), start.cold);
      !difference.empty())
    throw Fault(when + ": not what a cold start gives: " + difference);
  return operations;
}

void LargeDeaths::play(Random& random) {
  if (starts_.empty()) prepare();
  auto const before = livingObjects();
  auto const& start = starts_[below(starts_.size(), random)];
  auto const after = below(start.operations + 1, random);
  auto when =
      fmt::format("large, {}, after operation {} of {}", start.name, after, start.operations);
  start.hardware.restoreTo(place_.hardware);
  die(start, after, when);
  auto const left = start.operations - after;
  auto const second = below(left + 1, random);
  when += fmt::format(", then after {}", second);
  die(start, second, when);
  auto const operations = recovered(start, when);
  if (operations + second > left + 4 * mostOfOneBlock)
    throw Fault(fmt::format("{}: {} operations were to come, and two agents made {}", when, left,
                            operations + second));
  deaths_ += 2;
  checkNothingLeaked(before);
}

}  // namespace Endurance
