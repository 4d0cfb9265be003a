#include "endurance/WatchedWorld.h"

#include <fmt/core.h>

#include <numeric>

#include "endurance/Trials.h"

namespace Endurance {

using TessarLoadBalance::dlbControlTableFactory;
using TessarLoadBalance::dlbEcmpMember1TableFactory;

WatchedWorld::WatchedWorld(std::mt19937_64& random, WatchCounts& counts, bool isShown)
    : ground_(random), counts_(counts), isShown_(isShown) {
  actsOneIn_ = 1u << below(4);
  refuses_ = below(4) == 0;
  ground_.leavesHandlesUnwatched = below(3) == 0;
  ground_.side.onHook = [this] { mayAct(); };
  ground_.side.refuses = [this] {
    bool const refused = refuses_ && below(8) == 0;
    counts_.refusals += refused;
    return refused;
  };
  bool const isEarly = below(4) == 0;  // whether a group's index is told at its write
  auto const groupRows = static_cast<U32>(2 + below(6));
  auto const make = [&]<class T>(std::unique_ptr<FollowedTable<T>>& at, Vell::Ptr<T> made,
                                 U32 entries, bool tellsIndexAtWrite) {
    at = std::make_unique<FollowedTable<T>>(ground_, std::move(made), entries, tellsIndexAtWrite);
  };
  make(hops_, Forwarding::nextHopTableFactory(), static_cast<U32>(2 + below(3)), true);
  make(members_, dlbEcmpMember1TableFactory(), below(2) == 0 ? 4 : 8, true);
  make(groups_, Vell::Ptr<Groups>(new Groups("groups")), groupRows, isEarly);
  make(selectives_, Vell::Ptr<Selectives>(new Selectives("selectives")), groupRows, isEarly);
  direct_ = std::make_unique<FollowedTable<Direct>>(ground_, dlbControlTableFactory(), keys, false);
}

WatchedWorld::~WatchedWorld() {
  watchersAct_ = false;
  watchers_.clear();
  for (auto& kept : kept_) kept.clear();
}

template <class... Parts>
void WatchedWorld::say(Parts const&... parts) const {
  if (isShown_) fmt::print(stderr, "{:{}}{}\n", "", 2 * depth_, Vell::concatenate(parts...));
}

// ---- phases ----

void WatchedWorld::live() {
  if (below(4) == 0) foundRows();
  watchersAct_ = true;
  for (auto left = below(8); left > 0; --left) subscribe();
  for (auto left = below(4); left > 0; --left) actFromOutside();
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
    if (i < 2 && below(2) == 0) hops_->chip->hold(i, {value(), 0});
    if (below(2) == 0) members_->chip->hold(i, {static_cast<U32>(1 + below(keys)), value() - 1});
    if (i < 2 && below(2) == 0) groups_->chip->hold(i, {value(), 0});
    if (i < 2 && below(2) == 0) selectives_->chip->hold(i, {value(), value() - 1});
  }
  forEachTable([](auto& at) { at.table->syncEntries(); });
  settle();
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
    end(*groups_);
    end(*direct_);
    watchersAct_ = true;
  } else {
    forEachTable(end);
  }
  forEachTable([&]<class T>(FollowedTable<T>& at) { step(at, &T::purgeStaleEntries, "purge"); });
  isPurged_ = true;
}

/// Everybody lets go, and nothing must be left.
void WatchedWorld::endEmpty() {
  say("everybody lets go");
  watchersAct_ = below(2) == 0;
  actionsLeft_ = 4;
  for (U32 i = 0; i < keys; ++i) {
    direct_->table->entryRemove(i);
    wanted_[i].reset();
  }
  watchersAct_ = false;
  for (U32 i = 0; i < keys; ++i) {
    direct_->table->entryRemove(i);
    wanted_[i].reset();
  }
  groups_->table->entryRemoveAll();
  selectives_->table->entryRemoveAll();
  members_->table->entryBlockRemoveAll();
  hops_->table->entryRemoveAll();
  for (auto& kept : kept_) kept.clear();
  refuses_ = false;
  for (U32 rounds = 0; rounds < 3; ++rounds) {
    while (!groups_->chip->answers().empty()) acknowledge(*groups_);
    while (!selectives_->chip->answers().empty()) acknowledge(*selectives_);
    groups_->table->hwTable()->deliverWriteResponses();
    selectives_->table->hwTable()->deliverWriteResponses();
  }
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

/// The tables go as they are, from the top down, while watchers act.
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

// ---- actions ----

void WatchedWorld::mayAct() {
  if (!watchersAct_ || depth_ == WatchCounts::mostDepth || actionsLeft_ == 0 ||
      below(actsOneIn_) != 0)
    return;
  --actionsLeft_;
  ++depth_;
  act();
  --depth_;
}

void WatchedWorld::act() {
  auto const action = draw();
  if (depth_ != 0) forEachTable([](auto& at) { at.look(); });
  Hearing::Scope const scope(ground_.hearing);
  if (!carryOut(action)) return;
  ++counts_.actions;
  ++counts_.byKind[static_cast<std::size_t>(action)];
  ++counts_.byDepth[depth_];
}

/// Some are drawn more often than others.
Action WatchedWorld::draw() {
  static constexpr std::array<U32, 16> shares{2, 1, 2, 1, 1, 2, 2, 1, 4, 3, 2, 3, 3, 1, 3, 2};
  static constexpr auto all = std::accumulate(shares.begin(), shares.end(), 0u);
  auto drawn = below(isPurged_ ? all - shares.back() : all);
  U8 at = 0;
  for (; drawn >= shares[at]; ++at) drawn -= shares[at];
  return static_cast<Action>(at);
}

bool WatchedWorld::carryOut(Action action) {
  using enum Action;
  auto const carry = [](bool isThere, auto change) {
    if (isThere) change();
    return isThere;
  };
  switch (action) {
    case directCommit:
    case directRemove:
      return carry(direct_->table != nullptr, [&] { changeDirect(action); });
    case hopCommit:
    case hopReference:
    case hopRemove:
      return carry(hops_->table != nullptr, [&] { changeHop(action); });
    case blockCommit:
    case blockReference:
    case blockRemove:
      return carry(members_->table && hops_->table, [&] { changeBlock(action); });
    case groupCommit:
    case groupReference:
    case groupRemove:
      return onGroups([&](auto& at, Kept kept) { changeGroup(at, kept, action); });
    case drop:
      return this->drop(), true;
    case subscribe:
      return this->subscribe(), true;
    case unsubscribe:
      return this->unsubscribe(), true;
    case acknowledge:
      return onGroups([&](auto& at, Kept) { this->acknowledge(at); });
    case suggest:
      return this->suggest(), true;
  }
  return false;
}

/// On one of the two group tables, if it is there.
template <class Change>
bool WatchedWorld::onGroups(Change change) {
  if (below(2) != 0) return selectives_->table && (change(*selectives_, keptSelectives), true);
  return groups_->table && (change(*groups_, keptGroups), true);
}

void WatchedWorld::changeDirect(Action action) {
  auto const key = static_cast<U32>(below(keys));
  if (action == Action::directCommit) {
    auto const value = static_cast<U32>(1 + below(3));
    say("direct commit ", key, " ", value);
    wanted_[key] = value;
    direct_->table->entryCommit(key, entryOf<Direct>({value, 0}));
  } else {
    say("direct remove ", key);
    wanted_[key].reset();
    direct_->table->entryRemove(key);
  }
}

void WatchedWorld::changeHop(Action action) {
  auto const id = static_cast<U32>(below(keys));
  if (action == Action::hopCommit) {
    auto const value = static_cast<U32>(1 + below(3));
    say("hop commit ", id, " ", value);
    auto const before = counts_.actions;
    auto const handle = hops_->table->entryCommit({.id = id}, entryOf<NextHops>({value, 0}));
    if (before == counts_.actions &&
        (handle->entryType() != Type::committed || hops_->table->entry({.id = id}).port != value))
      ground_.finding.add("a next hop is not what was committed");
    if (below(4) == 0) keep(keptHops, handle);
  } else if (action == Action::hopReference) {
    keep(keptHops, hop(id));
  } else {
    say("hop remove ", id);
    hops_->table->entryRemove({.id = id});
  }
}

HandlePtr WatchedWorld::hop(U32 id) {
  say("hop ref ", id);
  return hops_->table->entryRef({.id = id});
}

/// Of one row or two, whose first tells its number.
auto WatchedWorld::block(U32 number) -> Zarn::Optional<Block> {
  Block made;
  for (U32 i = 0; i <= number % 2; ++i) {
    if (!hops_->table) return {};
    Members::Entry row;
    auto const id = (number + i) % keys;
    row.ecmpNextHopEntryHandle = hop(id);
    // A reference that was taken back from inside of it is to nothing that a block could stand on.
    if (!hops_->table || hops_->handle(id).get() != row.ecmpNextHopEntryHandle.get()) return {};
    row.weightIdx = static_cast<U8>(number + 10 * i);
    made.entryIs(i, row);
  }
  return made;
}

void WatchedWorld::changeBlock(Action action) {
  auto const number = static_cast<U32>(below(keys));
  auto const made = block(number);
  if (!made || !members_->table) return;
  auto const before = counts_.actions;
  if (action == Action::blockCommit) {
    say("block commit ", number);
    auto const handle = members_->table->entryBlockCommit(*made);
    if (before == counts_.actions && handle->entryType() != Type::committed)
      ground_.finding.add("a block was not committed");
    if (below(3) == 0) keep(keptBlocks, handle);
  } else if (action == Action::blockReference) {
    say("block ref ", number);
    keep(keptBlocks, members_->table->entryBlockRef(*made));
  } else {
    say("block remove ", number);
    members_->table->entryBlockRemove(*made);
  }
}

HandlePtr WatchedWorld::blockHandle(U32 number) {
  if (!members_->table) return nullptr;
  if (auto const known = members_->handle(number)) return known;
  if (!hops_->table) return nullptr;
  auto const made = block(number);
  if (!made || !members_->table) return nullptr;
  say("block ref ", number);
  return members_->table->entryBlockRef(*made);
}

template <class T>
typename T::Entry WatchedWorld::groupEntry() {
  auto entry = entryOf<T>({static_cast<U32>(1 + below(3)), 0});
  if constexpr (std::same_as<T, Selectives>)
    if (below(8) != 0)
      entry.ecmpSecondaryBlockPtrHandle = blockHandle(static_cast<U32>(below(keys)));
  return entry;
}

template <class T>
void WatchedWorld::changeGroup(FollowedTable<T>& at, Kept kept, Action action) {
  auto const number = static_cast<U32>(below(keys));
  auto const key = at.keyOf(number);
  auto const isReference = action == Action::groupReference;
  if (action == Action::groupRemove) {
    say(T::names.qualified, " remove ", number);
    auto const before = counts_.actions;
    at.table->entryRemove(key);
    auto const handle = before == counts_.actions && at.table ? at.handle(number) : nullptr;
    if (handle && handle->entryType() == Type::committed)
      ground_.finding.add(T::names.qualified, ": a removed entry is still committed");
    return;
  }
  auto const entry = groupEntry<T>();
  if (!at.table) return;
  say(T::names.qualified, isReference ? " ref " : " commit ", number, " ", at.code(entry) % 16 - 2);
  auto const before = counts_.actions;
  auto const handle =
      isReference ? at.table->entryRef(key, entry)
      : below(8) == 0
          ? at.table->entryWriteAtIndex(static_cast<U32>(below(MemoryChip<T>::room)), key, entry)
          : at.table->entryCommit(key, entry);
  if (before == counts_.actions && !(at.table->entry(key) == entry))
    ground_.finding.add(T::names.qualified, " key ", number, ": not the value that was written");
  if (before == counts_.actions && !isReference && handle->entryType() != Type::committed)
    ground_.finding.add(T::names.qualified, " key ", number, ": not committed");
  if (isReference ? below(4) != 0 : below(4) == 0) keep(kept, handle);
}

void WatchedWorld::keep(Kept kept, HandlePtr handle) { kept_[kept].push_back(std::move(handle)); }

void WatchedWorld::drop() {
  auto& kept = kept_[below(kept_.size())];
  if (kept.empty()) return;
  auto const at = kept.begin() + static_cast<std::ptrdiff_t>(below(kept.size()));
  auto const dropped = std::move(*at);
  kept.erase(at);
  say("drop a handle of kind ", &kept - kept_.data());
}

void WatchedWorld::subscribe() {
  auto const number = static_cast<U32>(below(keys));
  auto const onTable = [&]<class T>(FollowedTable<T>& at, std::vector<U32> const& fields) {
    if (!at.table) return;
    if constexpr (hasHandles<T>) {
      if (below(2) == 0) {
        auto const handle = at.handle(number);
        auto* const followed = handle ? ground_.followed(handle.get()) : nullptr;
        if (!followed || !followed->isWatched) return;
        std::array<U32, 5> const all{AnyHandle::entryStateField, AnyHandle::resolvedEntryStateField,
                                     T::handleFields.swTable, T::handleFields.pendingEntry,
                                     Vell::Publisher::everyField};
        return watch(handle->watched(), followed->audience, all[below(all.size())]);
      }
    }
    watch(*at.table->publisher(), at.audience, fields[below(fields.size())]);
  };
  auto const every = Vell::Publisher::everyField;
  switch (below(5)) {
    case 0:
      return onTable(*direct_, {Direct::resolvedEntryField, Direct::syncedEntryField, every});
    case 1:
      return onTable(*hops_, {NextHops::entryHandleField, NextHops::resolvedEntryField, every});
    case 2:
      return onTable(*members_, {Members::entryHandleField, Members::resolvedEntryBlockField,
                                 Members::unresolvedEntryBlockField, every});
    case 3:
      return onTable(*groups_, {Groups::entryHandleField, Groups::resolvedEntryField, every});
    default:
      return onTable(*selectives_, {Selectives::entryHandleField, Selectives::resolvedEntryField,
                                    Selectives::unresolvedEntryField, every});
  }
}

void WatchedWorld::watch(Vell::Publisher& publisher, Audience& audience, U32 field) {
  auto const seat = audience.seats.size();
  say("watch ", audience.name, " field ", field, " as ", seat);
  audience.seats.push_back({field});
  watchers_.push_back(
      {&audience, seat, publisher.watch(field, [this, &audience, seat](Vell::Change const& change) {
         ++counts_.heard;
         ground_.hearing.heard(audience, seat, change);
         mayAct();
       })});
}

void WatchedWorld::unsubscribe() {
  if (watchers_.empty()) return;
  auto const at = watchers_.begin() + static_cast<std::ptrdiff_t>(below(watchers_.size()));
  auto leaving = std::move(*at);
  watchers_.erase(at);
  say("end of watcher ", leaving.seat, " of ", leaving.audience->name);
  leaving.audience->seats[leaving.seat].ended = true;
}

template <class T>
void WatchedWorld::acknowledge(FollowedTable<T>& at) {
  auto& answers = at.chip->answers();
  auto const hwTable = Vell::Ptr(at.table->hwTable());
  if (!answers.empty()) {
    auto const one = answers.begin() + static_cast<std::ptrdiff_t>(below(answers.size()));
    say("acknowledge ", T::names.qualified, " ", one->index, " ", one->outcome);
    hwTable->writeResponseIs(*one);
    if (below(16) != 0) answers.erase(one);  // else it comes once more
  }
  hwTable->deliverWriteResponses();
}

/// Only while the table replays, and all those below it, who may be told in turn.
void WatchedWorld::suggest() {
  if (!selectives_->table || !groups_->table || !members_->table || !hops_->table) return;
  auto const drawn = below(4);
  if (drawn == 0)
    suggestTo(*hops_);
  else if (drawn == 1)
    suggestTo(*members_);
  else
    onGroups([this](auto& at, Kept) { suggestTo(at); });
}

template <class T>
void WatchedWorld::suggestTo(FollowedTable<T>& at) {
  auto const handle = at.handle(static_cast<U32>(below(keys)));
  if (!handle || at.table->configReplayComplete() || handle->entryState() != State::unresolved)
    return;
  Asic::IndexSet indices;
  for (U32 i = 0; i < 2; ++i) indices.insert(static_cast<U32>(below(MemoryChip<T>::room)));
  say("suggest to ", at.audience.name, " ", *indices.begin());
  Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, indices);
}

}  // namespace Endurance
