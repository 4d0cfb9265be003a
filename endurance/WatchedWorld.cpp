#include "endurance/WatchedWorld.h"

#include <fmt/core.h>

#include "endurance/Trials.h"
#include "platform/zarn/Trace.h"

namespace Endurance {

using TessarLoadBalance::dlbControlTableFactory;
using TessarLoadBalance::dlbEcmpMember1TableFactory;
using TessarLoadBalance::dlbEcmpQualityMapTableFactory;

namespace {

/// The number of the key that a line of trace names; `keys` if it names none.
U32 numberIn(std::string_view line) {
  for (std::string_view const mark : {"adjId:", "portLoading:", "{id:", "key: ", "key:"}) {
    auto const at = line.find(mark);
    if (at == line.npos || at + mark.size() >= line.size()) continue;
    auto const digit = line[at + mark.size()];
    if (digit >= '0' && digit < static_cast<char>('0' + keys)) return static_cast<U32>(digit - '0');
  }
  return keys;
}

}  // namespace

WatchedWorld::WatchedWorld(std::mt19937_64& random, WatchCounts& counts, bool isShown)
    : ground_(random), counts_(counts), isShown_(isShown) {
  actsOneIn_ = 1u << below(4);
  refuses_ = below(4) == 0;
  hotKey_ = static_cast<U32>(below(keys));
  busiest_ = static_cast<U32>(below(5));
  ground_.leavesHandlesUnwatched = below(3) == 0;
  ground_.side.onHook = [this] { mayAct(); };
  ground_.side.refuses = [this] {
    bool const refused = refuses_ && below(8) == 0;
    counts_.refusals += refused;
    return refused;
  };
  makeTables();
  isTraced_ = below(32) == 0;
  if (isTraced_) tracesAct();
}

void WatchedWorld::makeTables() {
  bool const isEarly = below(4) == 0;  // whether a group's index is told at its write
  auto const groupRows = static_cast<U32>(1 + below(7));
  auto const make = [&]<class T>(Followed<T>& at, Vell::Ptr<T> made, U32 entries,
                                 bool tellsIndexAtWrite) {
    at = std::make_unique<FollowedTable<T>>(ground_, std::move(made), entries, tellsIndexAtWrite);
  };
  auto const makeGroups = [&]<class T>(Followed<T>& at, char const* name) {
    make(at, Vell::Ptr<T>(new T(name)), groupRows, isEarly);
  };
  make(hops_, Forwarding::nextHopTableFactory(), static_cast<U32>(2 + below(3)), true);
  make(members_, dlbEcmpMember1TableFactory(), 4u << below(3), true);
  makeGroups(groups_, "groups");
  makeGroups(vxlanGroups_, "vxlanGroups");
  makeGroups(selectives_, "selectives");
  makeGroups(vxlanSelectives_, "vxlanSelectives");
  make(direct_, dlbControlTableFactory(), keys, false);
  make(qualities_, dlbEcmpQualityMapTableFactory(), keys, false);
}

/// Whoever reads the traces acts at any line.
void WatchedWorld::tracesAct() {
  ++counts_.traced;
  forEachTable(
      []<class T>(FollowedTable<T>&) { Zarn::TraceHandle::levelsIs(T::names.qualified, ~U32{0}); });
  Zarn::TraceHandle::sinkIs([this](std::string_view line) {
    say(line);
    // Lines that name no key may be about any.
    auto const number = numberIn(line);
    if (number == keys) return;
    auto const outer = std::exchange(told_, told_ | 1u << number);
    mayAct();
    told_ = outer;
  });
}

WatchedWorld::~WatchedWorld() {
  watchersAct_ = false;
  watchers_.clear();
  forEachTable([]<class T>(FollowedTable<T>& at) { at.kept.clear(); });
  if (!isTraced_) return;
  forEachTable(
      []<class T>(FollowedTable<T>&) { Zarn::TraceHandle::levelsIs(T::names.qualified, 0); });
  Zarn::TraceHandle::sinkIs({});
}

void WatchedWorld::print(std::string const& line) const {
  fmt::print(stderr, "{:{}}{}\n", "", 2 * depth_, line);
}

// ---- phases ----

void WatchedWorld::live() {
  bool const isRestart = below(3) == 0;
  if (isRestart) foundRows();
  watchersAct_ = true;
  for (auto left = below(8); left > 0; --left) subscribe();
  for (auto left = below(isRestart ? 12 : 4); left > 0; --left) actFromOutside();
  replayEnds();
  for (auto left = 4 + below(8); left > 0; --left) actFromOutside();
  below(2) == 0 ? endEmpty() : endInPlace();
}

/// The tables find what an earlier life may have left.
void WatchedWorld::foundRows() {
  ++counts_.replays;
  auto const value = [this] { return static_cast<U32>(1 + below(3)); };
  for (U32 i = 0; i < keys; ++i) {
    if (below(2) == 0) direct_->chip->hold(i, {value(), 0});
    if (below(2) == 0) qualities_->chip->hold(i, {value(), 0});
    if (i < hops_->chip->numEntries() && below(3) != 0) hops_->chip->hold(i, {value(), 0});
    if (below(3) != 0) foundBlock(i);
    forEachGroupTable([&]<class T>(FollowedTable<T>& at) {
      auto const place = formerPlace<T>(i);
      if (place >= at.chip->numEntries() || below(2) == 0) return;
      auto const block = static_cast<U32>(1 + below(keys - 1));
      at.chip->hold(place, {value(), isSelectiveTable<T> ? formerPlace<Members>(block) : 0});
    });
  }
  forEachTable([](auto& at) { at.table->syncEntries(); });
  settle();
}

/// As it would be, or with a row that is another's.
void WatchedWorld::foundBlock(U32 number) {
  auto const bank = members_->chip->numEntries() / 4;
  for (U32 i = 0; i < std::min(number, bank); ++i)
    members_->chip->hold(formerPlace<Members>(number) + i,
                         {number + 10 * i, below(8) == 0 ? 0 : (number + i) % keys});
}

void WatchedWorld::actFromOutside() {
  actionsLeft_ = static_cast<U32>(4 + below(12));
  act();
  settle();
}

/// From the bottom up as agents do it, or from the top down, and the purge from the top down. Who still
/// replays may suggest places to those below, but only while they replay too: nobody may bring an entry
/// from the midst of the first order.
void WatchedWorld::replayEnds() {
  auto const step = [this](auto& at, auto operation, char const* name) {
    say(name, " ", at.audience.name);
    actionsLeft_ = 4;
    {
      Hearing::Scope const scope(ground_.hearing);
      (*at.table.*operation)();
    }
    settle();
  };
  auto const end = [&]<class T>(FollowedTable<T>& at) {
    step(at, &T::doInitComplete, "replay ends");
  };
  if (below(2) == 0) {
    watchersAct_ = false;
    end(*hops_);
    end(*members_);
    end(*selectives_);
    end(*vxlanSelectives_);
    end(*groups_);
    end(*vxlanGroups_);
    end(*direct_);
    end(*qualities_);
    watchersAct_ = true;
  } else {
    forEachTable(end);
  }
  forEachTable([&]<class T>(FollowedTable<T>& at) { step(at, &T::purgeStaleEntries, "purge"); });
  isPurged_ = true;
}

/// Nobody asks for anything any more.
void WatchedWorld::everybodyLetsGo() {
  forEachTable([this]<class T>(FollowedTable<T>& at) {
    at.wishes = {};
    Hearing::Scope const scope(ground_.hearing);
    if constexpr (std::same_as<T, Members>)
      at.table->entryBlockRemoveAll();
    else
      at.table->entryRemoveAll();
    if constexpr (isPlainGroupTable<T>)
      for (U32 i = 0; i < keys; ++i) {
        if (at.handle(i)) continue;
        Asic::SwTable::OperationScope const operation(*at.table);
        at.table->resolvedKeyPriorIs(at.table->keyPrior(at.keyOf(i)));
        at.table->resolvedEntryDel(at.keyOf(i));
      }
  });
}

/// Everybody lets go, and nothing must be left.
void WatchedWorld::endEmpty() {
  say("everybody lets go");
  watchersAct_ = below(2) == 0;
  actionsLeft_ = 4;
  everybodyLetsGo();
  watchersAct_ = false;
  everybodyLetsGo();
  forEachTable([]<class T>(FollowedTable<T>& at) { at.kept.clear(); });
  refuses_ = false;
  for (U32 rounds = 0; rounds < 3; ++rounds) acknowledgeAll();
  settle();
  forEachTable([this]<class T>(FollowedTable<T>& at) {
    if (at.chip->rows() != 0)
      ground_.finding.add(at.audience.name, ": ", at.chip->rows(), " rows are left");
    if constexpr (hasHandles<T>) {
      if (at.table->entryHandleMap().count() != 0)
        ground_.finding.add(at.audience.name, ": handles are left");
      if (at.table->indexAllocator()->totalUsedIndices() != 0)
        ground_.finding.add(at.audience.name, ": indices are left");
    }
  });
  throwWhatWasFound();
  forEachTable([](auto& at) { at.end(); });
}

/// The tables go as they are, from the top down, while watchers act: also upon the one that goes.
void WatchedWorld::endInPlace() {
  ++counts_.endsInPlace;
  forEachTable([this]<class T>(FollowedTable<T>& at) {
    say("end of ", at.audience.name);
    actionsLeft_ = 4;
    Hearing::Scope const scope(ground_.hearing);
    at.end();
    if (at.chip->rows() != 0)
      ground_.finding.add(at.audience.name, ": ", at.chip->rows(), " rows are left");
  });
  watchersAct_ = false;
  throwWhatWasFound();
}

void WatchedWorld::settle() {
  check();
  throwWhatWasFound();
}

void WatchedWorld::throwWhatWasFound() {
  counts_.events += std::exchange(ground_.events, 0);
  if (ground_.finding.found()) throw Fault(ground_.finding.text);
}

}  // namespace Endurance
