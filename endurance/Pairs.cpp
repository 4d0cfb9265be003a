// Warm equals cold: from the hardware that a run of one configuration left, a run of another ends where
// that would end on empty hardware, and touches only what differs.
//
// Three things show that. No row that ends as it began has met an operation. What is the same in both
// configurations, down to the last thing that it needs, keeps its place. A further run makes no operation.

#include <fmt/format.h>

#include <algorithm>

#include "endurance/Draft.h"
#include "endurance/Life.h"

namespace Endurance {
namespace {

using namespace DlbAgent;

/// What each name stands for, with all that it needs, and where it is.
struct Placed {
  std::string meaning;
  U32 index;
};
using ByName = std::map<std::string, Placed>;

std::string nextHopMeaning(NextHopTable::Entry const& entry) {
  return NamedTable<NextHopTable>::seenText(entry);
}

std::string blockMeaning(WantedChain const& wanted, std::vector<WantedRow> const& rows) {
  std::string text;
  for (auto const& row : rows)
    text += fmt::format("[{} {}]", row.weightIdx, nextHopMeaning(wanted.nextHops.at(row.nextHop)));
  return text;
}

template <class T>
std::string groupMeaning(WantedChain const& wanted, WantedGroup<T> const& group) {
  auto text = fmt::format("{} {} {}", T::names.qualified, Vell::concatenate(group.key),
                          NamedTable<T>::seenText(group.entry));
  return group.block.empty() ? text : text + blockMeaning(wanted, wanted.blocks.at(group.block));
}

/// Entries that the hardware itself tells apart: next hops by their value, and what adjacencies lead to.
ByName placesOf(Session const& session, WantedChain const& wanted) {
  ByName places;
  auto const add = [&](std::string const& name, std::string const& meaning) {
    for (auto const* table : session.chain().tables())
      if (auto const handle = table->handle(name))
        places.insert_or_assign(name, Placed{meaning, handle->hwIndex().value()});
  };
  for (auto const& [name, entry] : wanted.nextHops) add(name, nextHopMeaning(entry));
  std::map<std::string, std::string> ledTo;
  for (auto const& [name, adjacency] : wanted.adjacencies)
    ledTo[adjacency.group] += fmt::format(" from {}", adjacency.id);
  forEachOf(wanted.groups, [&]<class T>(WantedGroups<T> const& groups) {
    for (auto const& [name, group] : groups) {
      auto const led = ledTo.find(name);
      if (led == ledTo.end()) continue;
      auto const meaning = groupMeaning<T>(wanted, group) + led->second;
      add(name, meaning);
      if (!group.block.empty()) add(group.block, "of " + meaning);
    }
  });
  return places;
}

struct Run {
  ByName places;
  U64 operations;
};

class Pair {
 public:
  Pair(Place const& place, Random& random) : place_(place) {
    auto const number = [&](U32 bound) { return static_cast<U32>(below(bound, random)); };
    Draft::Sizes const sizes{.rows = 4,
                             .nextHops = 1 + number(12),
                             .blocks = 1 + number(8),
                             .width = 1 + number(6),
                             .groups = 1 + number(16),
                             .adjacencies = number(24),
                             .twins = number(2) == 0};
    Draft const former(sizes, random);
    hasTwins_ = sizes.twins;
    former_ = former.configuration(place.catalogue);
    wanted_ = former.changed(sizes, number(101), random).configuration(place.catalogue);
  }

  /// How many operations the warm run made.
  U64 play() {
    Image().restoreTo(place_.hardware);
    run(wanted_, "cold");
    auto const cold = pictureOf(place_.chip, place_.hardware);
    Image().restoreTo(place_.hardware);
    auto const former = run(former_, "cold, of the former");
    Image const left(place_.hardware);
    auto const warm = run(wanted_, "warm");
    checkDifference(cold);
    if (!hasTwins_) checkPlaces(former.places, warm.places);
    // Twins that nothing leads to may take each other's places for ever.
    auto const again = run(wanted_, "again").operations;
    if (again > 0 && !hasTwins_)
      throw Fault(fmt::format("a further run makes {} operations", again));
    return warm.operations;
  }

 private:
  Run run(Configuration const& wanted, std::string const& when) {
    Image const before(place_.hardware);
    Run done;
    std::vector<Asic::Chip::JournalEntry> journal;
    {
      Life life(place_);
      life.run(wanted);
      life.checkTruth(when);
      life.checkFinished(when);
      done = {placesOf(life.session, wanted.chain()), life.operationCount()};
      journal = life.session.chip().journal(done.operations);
    }
    if (journal.size() != done.operations)
      throw Fault(when + ": more operations than the journal keeps");
    before.checkNeeded(journal, Image(place_.hardware), when);
    return done;
  }

  void checkDifference(Picture const& cold) const {
    auto const warm = pictureOf(place_.chip, place_.hardware);
    if (auto const difference = Picture::difference(warm, cold); !difference.empty())
      throw Fault("not what a cold run gives: " + difference);
  }

  static void checkPlaces(ByName const& former, ByName const& now) {
    for (auto const& [name, placed] : former)
      if (auto const at = now.find(name); at != now.end() && at->second.meaning == placed.meaning &&
                                          at->second.index != placed.index)
        throw Fault(fmt::format("{} is the same as before, and moved from row {} to {}", name,
                                placed.index, at->second.index));
  }

  Place const& place_;
  Configuration former_;
  Configuration wanted_;
  bool hasTwins_ = false;
};

}  // namespace

Summary pairs(Trials const& trials) {
  Catalogue const catalogue;
  Place const place{catalogue, "simlet", trials.folder + "/pair.hw"};
  U64 operations = 0;
  auto const made = trials.forEach([&](U64, Random& random) {
    auto const before = livingObjects();
    operations += Pair(place, random).play();
    checkNothingLeaked(before);
  });
  return {fmt::format("{} pairs", made), fmt::format("{} operations of the warm runs", operations)};
}

}  // namespace Endurance
