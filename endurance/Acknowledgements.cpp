// A chip that loses, doubles, delays and reorders what it says of writes, while an agent goes through
// changes.
//
// On the way no row may point at one that is not there. Then the chip behaves again. If it lost nothing,
// all that is wanted is in place, and nothing else. What it lost an acknowledgement of may be in the
// hardware as well as not: the agent says so, by the name of the entry that it keeps from its end, and the
// next agent makes an end of it.

#include <fmt/format.h>

#include <algorithm>

#include "endurance/Draft.h"
#include "endurance/Life.h"

namespace Endurance {
namespace {

using DlbAgent::Configuration;

/// The poll from which on the chip behaves; by far later than the changes end.
constexpr U64 behavesFrom = 400;

class Schedule {
 public:
  Schedule(Place const& place, Random& random) : place_(place), random_(random) {
    for (auto const* fault : {"delay-acks", "reorder-acks", "duplicate-acks", "lose-acks"})
      faults_[fault] = std::to_string(number(2) == 0 ? number(51) : 0);
    losesNone_ = faults_["lose-acks"] == "0";
    faults_["fault-seed"] = std::to_string(random());
    faults_["faults-until"] = std::to_string(behavesFrom);
  }

  /// How many entries did not come to their ends.
  U64 play() {
    Draft::Sizes const sizes{.rows = 1,
                             .nextHops = 1 + number(5),
                             .blocks = 1 + number(4),
                             .width = 1 + number(3),
                             .groups = 1 + number(6),
                             .adjacencies = number(8)};
    Draft draft(sizes, random_);
    auto wanted = draft.configuration(place_.catalogue);
    U64 unfinished = 0;
    Image().restoreTo(place_.hardware);
    {
      Life life(place_, faults_);
      life.run(wanted);
      U64 polls = 0;
      for (auto changes = 1 + number(8); changes > 0; --changes) {
        draft = draft.changed(sizes, 10 + number(60), random_);
        auto const former = std::exchange(wanted, draft.configuration(place_.catalogue));
        life.session.change(former, wanted);
        for (auto more = number(5); more > 0; --more, ++polls) life.session.chip().poll();
      }
      for (; polls < behavesFrom; ++polls) life.session.chip().poll();
      life.session.settle();
      life.checkTruth("once the chip behaves");
      unfinished = checkedEnd(life);
    }
    auto const warm = pictureOf(place_.chip, place_.hardware);
    {
      Life next(place_);
      next.run(wanted);
      next.checkTruth("after a restart");
      next.checkFinished("after a restart");
    }
    auto const restarted = pictureOf(place_.chip, place_.hardware);
    Image().restoreTo(place_.hardware);
    Life(place_).run(wanted);
    auto const cold = pictureOf(place_.chip, place_.hardware);
    compare(restarted, cold, "after a restart");
    if (losesNone_) compare(warm, cold, "once the chip behaves");
    return unfinished;
  }

 private:
  U32 number(U32 bound) { return static_cast<U32>(below(bound, random_)); }

  static void compare(Picture const& is, Picture const& shouldBe, std::string const& when) {
    if (auto const difference = Picture::difference(is, shouldBe); !difference.empty())
      throw Fault(when + ": not what a cold run gives: " + difference);
  }

  /// What did not end must say that it waits for an acknowledgement, and whose.
  U64 checkedEnd(Life const& life) const {
    auto const lines = life.session.chain().unfinished();
    if (losesNone_ && !lines.empty())
      throw Fault("no acknowledgement was lost, and " + lines.front());
    for (auto const& line : lines)
      if (line.find("has not acknowledged") == line.npos)
        throw Fault("not told what keeps an entry from its end: " + line);
    return lines.size();
  }

  Place const& place_;
  Random& random_;
  Switches faults_;
  bool losesNone_ = false;
};

}  // namespace

Summary acknowledgements(Trials const& trials) {
  DlbAgent::Catalogue const catalogue;
  Place const place{catalogue, "simlet", trials.folder + "/acknowledgements.hw"};
  U64 unfinished = 0;
  auto const made = trials.forEach([&](U64, Random& random) {
    auto const before = livingObjects();
    unfinished += Schedule(place, random).play();
    checkNothingLeaked(before);
  });
  return {fmt::format("{} schedules", made),
          fmt::format("{} entries whose acknowledgement was lost, each told by name", unfinished)};
}

}  // namespace Endurance
