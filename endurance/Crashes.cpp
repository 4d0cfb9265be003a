// An agent dies after each operation that it makes on the hardware, and another one comes after it.
//
// A scenario has hardware that an earlier agent left, and an agent that starts on it and then lives
// through changes. It is played once to its end, which counts its operations, and then once for each of
// them, on a chip that takes no operation after that one. Each time a new agent runs on what is left; and
// each time another one that dies on its way, with a third after it.
//
// Whoever comes last must leave what a cold start would: the same picture. It touches no row that was
// right. At no operation may a row point at one that is not there. Nothing of the dead may be left in
// memory.

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "endurance/Draft.h"
#include "endurance/LargeDeaths.h"
#include "endurance/Life.h"
#include "endurance/ProcessDeaths.h"

namespace Endurance {
namespace {

/// One of each comes with so many scenarios.
constexpr U64 scenariosForALargeDeath = 50;
constexpr U64 scenariosForADeadProcess = 20;
/// In so many scenarios agents have died in every step, between steps, while a group was leaving, and on
/// chips that answer late.
constexpr U64 scenariosForEveryKind = 50;
constexpr std::size_t kindsOfDeath = 7;

using DlbAgent::Configuration;

/// What an agent is asked in its life: the first is its start, the others come later.
struct Script {
  std::vector<Configuration> wishes;
  Switches faults;
  bool isHasty = false;  ///< a change comes before the former one is acknowledged

  bool hasLateAnswers() const {
    auto const late = faults.find("delay-acks");
    return isHasty || (late != faults.end() && late->second != "0");
  }
};

/// How many operations had been made at the end of each step.
struct Step {
  std::string name;
  U64 operations;
};

class Scenario {
 public:
  Scenario(Place const& place, Random& random) : place_(place), random_(random) {
    Draft::Sizes const sizes{.rows = number(3),
                             .nextHops = 1 + number(6),
                             .blocks = 1 + number(4),
                             .width = 1 + number(4),
                             .groups = 1 + number(7),
                             .adjacencies = number(10),
                             .twins = number(2) == 0};
    hasTwins_ = sizes.twins;
    width_ = sizes.width;
    Draft draft(sizes, random);
    if (number(3) == 0) draft = {};
    former_ = draft.configuration(place.catalogue);
    auto const changes = number(4);
    for (U32 i = 0; i <= changes; ++i) {
      draft = draft.changed(sizes, 20 + number(80), random);
      script_.wishes.push_back(draft.configuration(place.catalogue));
    }
    script_.isHasty = number(3) == 0;
    if (number(2) == 0) {
      for (auto const* fault : {"delay-acks", "reorder-acks", "duplicate-acks", "refuse-writes"})
        script_.faults[fault] = std::to_string(number(3) == 0 ? number(50) : 0);
      script_.faults["fault-seed"] = std::to_string(random());
    }
  }

  void play(std::map<std::string, U64>& deaths, U64& points) {
    for (auto const& wish : script_.wishes) cold_.push_back(coldPicture(wish));
    Image().restoreTo(place_.hardware);
    Life(place_).run(former_);
    Image const former(place_.hardware);
    auto const steps = played(script_.faults);
    auto const all = steps.back().operations;
    auto const inDance = operationsInDances(all);
    for (U64 after = 0; after <= all; ++after) {
      former.restoreTo(place_.hardware);
      auto faults = script_.faults;
      faults["freeze-after"] = std::to_string(after);
      played(faults);
      auto const step =
          std::ranges::find_if(steps, [=](Step const& each) { return after <= each.operations; });
      ++deaths[after == step->operations ? "between steps" : step->name];
      if (inDance.contains(after)) ++deaths["between a group's last write and its deletion"];
      if (script_.hasLateAnswers()) ++deaths["in lives that do not wait for answers, or wait long"];
      auto const wish = wishAt(static_cast<std::size_t>(step - steps.begin()));
      points += succeeded(wish, all - after, fmt::format("after operation {} of {}", after, all));
    }
  }

 private:
  U32 number(U32 bound) { return static_cast<U32>(below(bound, random_)); }

  Picture coldPicture(Configuration const& wanted) {
    Image().restoreTo(place_.hardware);
    Life(place_).run(wanted);
    return pictureOf(place_.chip, place_.hardware);
  }

  /// Plays the script on what the hardware holds.
  std::vector<Step> played(Switches const& switches) {
    std::vector<Step> steps;
    Life life(place_, switches);
    auto const done = [&](char const* name) { steps.push_back({name, life.operationCount()}); };
    auto const& wishes = script_.wishes;
    life.session.commit(wishes.front());
    done("in the replay");
    life.session.replayEnded();
    done("at the end of the replay");
    life.session.purge();
    done("in the purge");
    for (std::size_t i = 1; i < wishes.size(); ++i) {
      life.session.change(wishes[i - 1], wishes[i]);
      if (!script_.isHasty) life.session.settle();
      done("in a change");
    }
    life.checkTruthOnTheWay("in the life of the agent that dies");
    return steps;
  }

  /// After which of the last operations a group that stands on a block is on its way out: its row has
  /// lost its value, and is not deleted yet.
  std::set<U64> operationsInDances(U64 operations) const {
    std::set<U64> inside;
    std::map<std::pair<std::string, U64>, U64> written;  // by table and row: by which operation
    auto const chip = DlbAgent::chipNamed(place_.chip);
    chip->open({.hardware = place_.hardware, .access = Asic::Chip::Access::copy});
    auto journal = chip->journal(~std::size_t{0});
    std::erase_if(journal, [](auto const& each) {
      return each.operation != "write" && each.operation != "delete";
    });
    U64 number = operations - std::min<U64>(operations, journal.size());
    journal.erase(journal.begin(),
                  journal.end() - static_cast<std::ptrdiff_t>(operations - number));
    for (auto const& each : journal) {
      ++number;
      std::pair const row(each.table, each.row);
      if (each.operation == "write")
        written[row] = number;
      else if (each.table.find("Selective") != each.table.npos && written.contains(row))
        for (auto after = written[row]; after < number; ++after) inside.insert(after);
    }
    return inside;
  }

  /// What the agent that comes next is asked: mostly what the dead one was about to do.
  std::size_t wishAt(std::size_t step) {
    if (number(4) == 0) return number(static_cast<U32>(cold_.size()));
    return step < 3 ? 0 : step - 2;
  }

  /// The hardware is as an agent left it. How many deaths were played.
  U64 succeeded(std::size_t wish, U64 operationsLeft, std::string const& when) {
    Image const left(place_.hardware);
    auto const operations = recovered(left, wish, when);
    if (script_.wishes.size() == 1 && script_.faults.empty() && !hasTwins_ &&
        operations > operationsLeft + 2 * (width_ - 1))
      throw Fault(fmt::format("{}: {} operations to come, and the next agent made {}", when,
                              operationsLeft, operations));
    if (operations == 0) return 1;
    auto const second = below(operations, random_);
    left.restoreTo(place_.hardware);
    Life(place_, {{"freeze-after", std::to_string(second)}}).run(script_.wishes[wish]);
    Image const leftAgain(place_.hardware);
    recovered(leftAgain, wish, fmt::format("{}, then after {} of {}", when, second, operations));
    return 2;
  }

  /// Runs a new agent to its end. How many operations it made.
  U64 recovered(Image const& left, std::size_t wish, std::string const& when) {
    U64 operations = 0;
    std::vector<Asic::Chip::JournalEntry> journal;
    {
      Life life(place_);
      life.run(script_.wishes[wish]);
      life.checkTruth(when);
      life.checkFinished(when);
      operations = life.operationCount();
      journal = life.session.chip().journal(operations);
    }
    if (journal.size() != operations)
      throw Fault(when + ": more operations than the journal keeps");
    left.checkNeeded(journal, Image(place_.hardware), when);
    if (auto const difference =
            Picture::difference(pictureOf(place_.chip, place_.hardware), cold_[wish]);
        !difference.empty())
      throw Fault(fmt::format("{}: not what a cold start gives: {}", when, difference));
    return operations;
  }

  Place const& place_;
  Random& random_;
  bool hasTwins_ = false;
  U32 width_ = 1;  ///< of blocks, at most
  Configuration former_;
  Script script_;
  std::vector<Picture> cold_;  ///< by wish
};

}  // namespace

Summary crashes(Trials const& trials) {
  DlbAgent::Catalogue const catalogue;
  Place const place{catalogue, "simlet", trials.folder + "/crash.hw"};
  std::map<std::string, U64> deaths;
  U64 points = 0;
  LargeDeaths large(catalogue, trials.folder);
  ProcessDeaths processes(catalogue, trials.folder);
  auto const made = trials.forEach([&](U64 number, Random& random) {
    auto const before = livingObjects();
    Scenario(place, random).play(deaths, points);
    checkNothingLeaked(before);
    if (number % scenariosForALargeDeath == 0) large.play(random);
    if (number % scenariosForADeadProcess == 0) processes.play(random);
  });
  if (made >= scenariosForEveryKind && deaths.size() < kindsOfDeath)
    throw Fault(fmt::format("of {} kinds of deaths only {} came", kindsOfDeath, deaths.size()));
  Summary summary{
      fmt::format("{} deaths of agents with a whole switch to bring up", large.deaths()),
      fmt::format("{} deaths of processes", processes.deaths()),
      fmt::format("{} deaths in {} scenarios", points, made)};
  for (auto const& [step, count] : deaths)
    summary.push_back(fmt::format("{} of them {}", count, step));
  return summary;
}

}  // namespace Endurance
