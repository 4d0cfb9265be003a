// A long life, epoch by epoch, on one hardware: agents that go through hundreds of changes, more entries
// than the tables have room for, next hops and groups that the chip refuses, acknowledgements that are
// late, doubled or lost, restarts in between.
//
// At the end of each epoch a new agent on a chip that behaves is asked for a fixed configuration, and
// reaches it through a hundred changes of its own. It must then hold exactly the objects that such an
// agent held the first time, and the hardware exactly what a cold start gives.

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "endurance/Draft.h"
#include "endurance/Life.h"

namespace Endurance {
namespace {

using DlbAgent::Configuration;

/// Memory of the process that is in use now, in KiB.
U64 residentKiB() {
  U64 all = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * static_cast<U64>(::sysconf(_SC_PAGESIZE)) / 1024;
}

class Soak {
 public:
  explicit Soak(Place const& place)
      : place_(place), reference_(referenceDraft().configuration(place.catalogue)) {
    Life(place_).run(reference_);
    cold_ = pictureOf(place_.chip, place_.hardware);
  }

  void epoch(Random& random) {
    auto const number = [&](U32 bound) { return static_cast<U32>(below(bound, random)); };
    Draft draft;
    for (auto lives = 1 + number(4); lives > 0; --lives) {
      // More of all than the small chip has room for, one time in three.
      Draft::Sizes const sizes = number(3) == 0 ? Draft::Sizes{.rows = 4,
                                                               .nextHops = 80,
                                                               .blocks = 60,
                                                               .width = 64,
                                                               .groups = 180,
                                                               .adjacencies = 240}
                                                : Draft::Sizes{.groups = 40, .adjacencies = 60};
      draft = draft.changed(sizes, 50, random);
      live(draft, sizes, faults(random), random);
    }
    lastEpoch(random);
  }

  Summary summary() const {
    Summary lines{
        fmt::format("{} changes in {} lives of agents, {} operations", changes_, lives_,
                    operations_),
        fmt::format("{} entries found no place or no end on the way, each told why", unfinished_),
        fmt::format("{} KiB resident after the first epoch, {} KiB now", firstKiB_, residentKiB())};
    for (auto const& [type, count] : first_)
      lines.push_back(fmt::format("{} objects of {}, {} at first",
                                  last_.contains(type) ? last_.at(type) : 0, type, count));
    return lines;
  }

 private:
  static Draft referenceDraft() {
    Random random(1);
    return Draft({}, random);
  }

  static Switches faults(Random& random) {
    Switches faults{{"fault-seed", std::to_string(random())}};
    for (auto const* fault :
         {"delay-acks", "reorder-acks", "duplicate-acks", "lose-acks", "refuse-writes"})
      faults[fault] = std::to_string(below(2, random) == 0 ? below(30, random) : 0);
    return faults;
  }

  void live(Draft& draft, Draft::Sizes const& sizes, Switches const& switches, Random& random) {
    ++lives_;
    Life life(place_, switches);
    auto wanted = draft.configuration(place_.catalogue);
    life.run(wanted);
    for (auto changes = 10 + below(40, random); changes > 0; --changes, ++changes_) {
      draft = draft.changed(sizes, static_cast<U32>(1 + below(20, random)), random);
      auto const former = std::exchange(wanted, draft.configuration(place_.catalogue));
      life.session.change(former, wanted);
      for (auto polls = below(4, random); polls > 0; --polls) life.session.chip().poll();
    }
    life.session.settle();
    if (switches.at("refuse-writes") == "0") life.checkTruth("in a life");
    for (auto const& line : life.session.chain().unfinished()) {
      ++unfinished_;
      if (line.find("its state is") != line.npos)
        throw Fault("not told what keeps an entry from its end: " + line);
    }
    operations_ += life.operationCount();
  }

  /// On a chip that behaves.
  void lastEpoch(Random& random) {
    lives_ += 2;
    Life(place_).run(reference_);  // so that the next one finds the same every time
    {
      Life life(place_);
      auto draft = referenceDraft();
      auto wanted = reference_;
      life.run(wanted);
      for (auto changes = 100; changes > 0; --changes, ++changes_) {
        draft = draft.changed({}, 30, random);
        auto const former = std::exchange(wanted, draft.configuration(place_.catalogue));
        life.session.change(former, wanted);
        if (below(2, random) == 0) life.session.settle();
      }
      life.session.change(wanted, reference_);
      life.session.settle();
      life.checkTruth("at the end of an epoch");
      life.checkFinished("at the end of an epoch");
      operations_ += life.operationCount();
      wanted = {};
      checkMemory();
    }
    if (auto const difference = Picture::difference(pictureOf(place_.chip, place_.hardware), cold_);
        !difference.empty())
      throw Fault("at the end of an epoch: not what a cold start gives: " + difference);
  }

  void checkMemory() {
    last_ = livingObjects();
    if (first_.empty()) {
      first_ = last_;
      firstKiB_ = residentKiB();
    }
    for (auto const& [type, count] : last_)
      if (auto const at = first_.find(type); at == first_.end() || at->second != count)
        throw Fault(fmt::format("{} objects of {}, where {} were after the first epoch", count,
                                type, at == first_.end() ? 0 : at->second));
  }

  Place const& place_;
  Configuration reference_;
  Picture cold_;
  std::map<std::string_view, U64> first_;  ///< objects by type, after the first epoch
  std::map<std::string_view, U64> last_;
  U64 firstKiB_ = 0;
  U64 lives_ = 0;
  U64 changes_ = 0;
  U64 operations_ = 0;
  U64 unfinished_ = 0;
};

}  // namespace

Summary soak(Trials const& trials) {
  DlbAgent::Catalogue const catalogue;
  Place const place{catalogue, "simlet", trials.folder + "/soak.hw"};
  Soak soak(place);
  auto const made = trials.forEach([&](U64, Random& random) { soak.epoch(random); });
  auto summary = soak.summary();
  summary.insert(summary.begin(), fmt::format("{} epochs", made));
  return summary;
}

}  // namespace Endurance
