#include "endurance/WatchedWorld.h"

#include <fmt/core.h>

#include <set>

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

/// From the top down.
template <class Visitor>
void WatchedWorld::forEachTable(Visitor visitor) {
  visitor(*direct_);
  visitor(*groups_);
  visitor(*selectives_);
  visitor(*members_);
  visitor(*hops_);
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
  // Some are drawn more often than others.
  static constexpr std::array<U8, 29> lots{0, 0, 1, 2, 2,  3,  4,  5,  5,  6,  6,  7,  8,  8, 8,
                                           8, 9, 9, 9, 10, 10, 11, 11, 11, 12, 12, 12, 13, 14};
  auto const drawn = below(lots.size() + (isPurged_ ? 2 : 4));
  auto const kind = drawn < lots.size() ? lots[drawn] : drawn < lots.size() + 2 ? 14 : 15;
  if (depth_ != 0) forEachTable([](auto& at) { at.look(); });
  Hearing::Scope const scope(ground_.hearing);
  if (!actOn(kind)) return;
  ++counts_.actions;
  ++counts_.byKind[kind];
  ++counts_.byDepth[depth_];
}

bool WatchedWorld::actOn(U64 kind) {
  bool const isSelective = below(2) != 0;
  auto const onGroups = [&](auto action) {
    isSelective ? action(*selectives_, keptSelectives) : action(*groups_, keptGroups);
  };
  auto const isThere = [](auto const& at) { return at->table != nullptr; };
  bool const hasGroups = isSelective ? isThere(selectives_) : isThere(groups_);
  switch (kind) {
    case 0:
    case 1:
      return isThere(direct_) && (changeDirect(kind == 0), true);
    case 2:
    case 3:
    case 4:
      return isThere(hops_) && (changeHop(kind - 2), true);
    case 5:
    case 6:
    case 7:
      return isThere(members_) && isThere(hops_) && (changeBlock(kind - 5), true);
    case 8:
    case 9:
    case 10:
      if (!hasGroups) return false;
      onGroups([&](auto& at, Kept kept) { changeGroup(at, kept, kind - 8); });
      return true;
    case 11:
      dropHandle();
      return true;
    case 12:
      subscribe();
      return true;
    case 13:
      unsubscribe();
      return true;
    case 14:
      if (!hasGroups) return false;
      onGroups([&](auto& at, Kept) { acknowledge(at); });
      return true;
    default: {
      U32 const number = static_cast<U32>(below(keys));
      auto const suggestTo = [&](auto& at) { suggest(at, at.handle(number)); };
      if (!hasGroups || !isThere(members_) || !isThere(hops_)) return false;
      switch (below(4)) {
        case 0:
          suggestTo(*hops_);
          break;
        case 1:
          suggestTo(*members_);
          break;
        default:
          onGroups([&](auto& at, Kept) { suggestTo(at); });
      }
      return true;
    }
  }
}

void WatchedWorld::changeDirect(bool commits) {
  auto const key = static_cast<U32>(below(keys));
  if (commits) {
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

void WatchedWorld::changeHop(U64 kind) {
  auto const id = static_cast<U32>(below(keys));
  if (kind == 0) {
    auto const value = static_cast<U32>(1 + below(3));
    say("hop commit ", id, " ", value);
    auto const before = counts_.actions;
    auto const handle = hops_->table->entryCommit({.id = id}, entryOf<NextHops>({value, 0}));
    if (before == counts_.actions &&
        (handle->entryType() != Type::committed || hops_->table->entry({.id = id}).port != value))
      ground_.finding.add("a next hop is not what was committed");
    if (below(4) == 0) keep(keptHops, handle);
  } else if (kind == 1) {
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
    row.ecmpNextHopEntryHandle = hop((number + i) % keys);
    row.weightIdx = static_cast<U8>(number + 10 * i);
    made.entryIs(i, row);
  }
  return made;
}

void WatchedWorld::changeBlock(U64 kind) {
  auto const number = static_cast<U32>(below(keys));
  auto const made = block(number);
  if (!made || !members_->table) return;
  auto const before = counts_.actions;
  if (kind == 0) {
    say("block commit ", number);
    auto const handle = members_->table->entryBlockCommit(*made);
    if (before == counts_.actions && handle->entryType() != Type::committed)
      ground_.finding.add("a block was not committed");
    if (below(3) == 0) keep(keptBlocks, handle);
  } else if (kind == 1) {
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
typename T::Entry WatchedWorld::groupEntry(FollowedTable<T>&) {
  auto entry = entryOf<T>({static_cast<U32>(1 + below(3)), 0});
  if constexpr (std::same_as<T, Selectives>)
    if (below(8) != 0)
      entry.ecmpSecondaryBlockPtrHandle = blockHandle(static_cast<U32>(below(keys)));
  return entry;
}

template <class T>
void WatchedWorld::changeGroup(FollowedTable<T>& at, Kept kept, U64 kind) {
  auto const number = static_cast<U32>(below(keys));
  auto const key = at.keyOf(number);
  auto const isReference = kind == 1;
  if (kind == 2) {
    say(T::names.qualified, " remove ", number);
    auto const before = counts_.actions;
    at.table->entryRemove(key);
    auto const handle = before == counts_.actions && at.table ? at.handle(number) : nullptr;
    if (handle && handle->entryType() == Type::committed)
      ground_.finding.add(T::names.qualified, ": a removed entry is still committed");
    return;
  }
  auto const entry = groupEntry(at);
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

void WatchedWorld::dropHandle() {
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

template <class T>
void WatchedWorld::suggest(FollowedTable<T>& at, HandlePtr handle) {
  if (!handle || at.table->configReplayComplete() || handle->entryState() != State::unresolved)
    return;
  Asic::IndexSet indices;
  for (U32 i = 0; i < 2; ++i) indices.insert(static_cast<U32>(below(MemoryChip<T>::room)));
  say("suggest to ", at.audience.name, " ", *indices.begin());
  Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, indices);
}

// ---- what must be true between actions ----

void WatchedWorld::check() {
  forEachTable([](auto& at) { at.isToldWhole(); });
  for (auto const& each : ground_.handles)
    if (!each.entryState.isWhole() || !each.resolvedState.isWhole())
      ground_.finding.add(each.audience.name, ": a change of state was not told");
  checkDirect();
  checkHandles(*hops_, keptHops);
  checkHandles(*members_, keptBlocks);
  checkHandles(*groups_, keptGroups);
  checkHandles(*selectives_, keptSelectives);
  if (!isPurged_ || refuses_) return;
  checkRows(*hops_);
  checkRows(*members_);
  checkRows(*groups_);
  checkRows(*selectives_);
}

void WatchedWorld::checkDirect() {
  for (U32 i = 0; i < keys; ++i) {
    auto const held = direct_->table->resolvedEntry(i);
    auto const& place = direct_->chip->at(i);
    if (held.has_value() != wanted_[i].has_value() ||
        (held && held->portLoadingWeight != *wanted_[i]))
      ground_.finding.add("direct key ", i, " is not what was wanted last");
    bool const isRow = held ? place.row == Zarn::Optional<Row>(rowOf<Direct>(*held)) : !place.used;
    if (!isRow && (held || isPurged_))
      ground_.finding.add("direct key ", i, ": the row is not the value");
  }
}

template <class T>
void WatchedWorld::checkHandles(FollowedTable<T>& at, Kept kept) {
  auto const wrong = [&](U32 number, auto const&... parts) {
    ground_.finding.add(at.audience.name, " key ", number, ": ", parts...);
  };
  if (at.table->operationInProgress()) wrong(0, "an operation is in progress");
  using Handle = typename T::EntryHandle;
  auto const needOwn = [&](AnyHandle const* held) {
    auto const& handle = static_cast<Handle const&>(*held);
    auto const number = at.numberOf(handle.key());
    if (at.table->entryHandle(handle.key()).get() != held && handle.entryType() != Type::inDeletion)
      wrong(number, "somebody holds a handle that its table does not have");
  };
  for (auto const& held : kept_[kept]) needOwn(held.get());
  if constexpr (std::same_as<T, NextHops>)
    for (U32 i = 0; i < keys; ++i)
      if (auto const above = members_->handle(i))
        above->key().forEach(
            [&](auto, Members::Entry const& row) { needOwn(row.ecmpNextHopEntryHandle.get()); });
  for (U32 i = 0; i < keys; ++i) {
    auto const handle = at.handle(i);
    bool const hasValue = at.valueNow(i) != 0;
    if (!handle) {
      if (hasValue || at.waits(i)) wrong(i, "an entry without a handle");
      continue;
    }
    auto const type = handle->entryType();
    auto const mine = std::count(kept_[kept].begin(), kept_[kept].end(), HandlePtr(handle));
    auto uses = static_cast<U32>(mine) + 1;  // and the one here
    if (type != Type::referenceOnly) ++uses;
    if constexpr (std::same_as<T, Members>) uses += usesOf(handle.get());
    if (std::same_as<T, NextHops> ? handle->useCount() < uses : handle->useCount() != uses)
      wrong(i, handle->useCount() - 1, " uses instead of ", uses - 1);
    if (handle->useCount() == 1) wrong(i, "nobody holds it");
    if (type == Type::unset) wrong(i, "of no type");
    if (handle->swTable() != at.table.get()) wrong(i, "not of its table");
    if (at.waits(i) && handle->entryState() != State::unresolved &&
        handle->entryState() != State::failedNeededEntry)
      wrong(i, "waits in state ", handle->entryState());
    if constexpr (isGroupTable<T>) checkStates(at, i);
  }
}

template <class T>
void WatchedWorld::checkStates(FollowedTable<T>& at, U32 number) {
  auto const handle = at.handle(number);
  auto const value = at.valueNow(number);
  auto const type = handle->entryType();
  auto const entry = handle->entryState(), resolved = handle->resolvedEntryState();
  auto const wrong = [&](char const* what) {
    ground_.finding.add(at.audience.name, " key ", number, ": ", what, " (type ", type, ", ", entry,
                        ", ", resolved, ")");
  };
  if (value == 0 && !at.waits(number) && type != Type::referenceOnly)
    wrong("a handle without an entry");
  if (value == Chain::empty && resolved != State::inProgress) wrong("no value, and no write");
  if (type == Type::inDeletion && (value != Chain::empty || at.waits(number) ||
                                   entry != State::inProgress || resolved != State::inProgress))
    wrong("in deletion");
  if (type == Type::committed && !at.waits(number) && entry != resolved)
    wrong("two states of one entry");
  auto const key = at.keyOf(number);
  auto const index = at.table->indexAllocator()->indexForKey(T::keyType(), &key);
  auto const& shown = at.chip->at(index.isExhausted() ? 0 : index.value());
  bool const isIn =
      resolved == State::success ||
      (!refuses_ && (resolved == State::inProgress || resolved == State::indexReconciled));
  if (!isIn || value == 0) return;
  auto const held = at.table->resolvedEntry(key);
  if (index.isExhausted() || !shown.used || shown.row.has_value() != held.has_value() ||
      (held && shown.row != Zarn::Optional<Row>(rowOf<T>(*held))))
    wrong("the row is not the value");
  if (resolved == State::success && !at.waits(number) && held &&
      handle->pendingEntry().count() != 0 && !refuses_)
    if (!(handle->pendingEntryFront() == *held)) wrong("in place, and former values are kept");
}

/// Uses of a block by groups: what waits, what is wanted, what a row may still show.
U32 WatchedWorld::usesOf(AnyHandle const* block) {
  U32 uses = 0;
  auto const count = [&](Selectives::Entry const& entry) {
    uses += entry.ecmpSecondaryBlockPtrHandle.get() == block;
  };
  std::set<AnyHandle const*> seen;
  auto const countPending = [&](Selectives::EntryHandle const& handle) {
    if (!seen.insert(&handle).second) return;
    auto const& queue = handle.pendingEntry();
    for (U32 i = 0; i < queue.count(); ++i) count(queue.at(queue.firstSequence() + i));
  };
  auto const& table = *selectives_->table;
  for (U32 i = 0; i < keys; ++i) {
    auto const key = selectives_->keyOf(i);
    if (auto const record = table.unresolvedEntry(key)) {
      count(record->entry());
      if (record->entry().ecmpSecondaryBlockPtrHandle.get() == block)
        uses += record->neededEntryHandleSms();
    }
    if (auto const value = table.resolvedEntry(key)) count(*value);
    if (auto const handle = table.entryHandle(key)) countPending(*handle);
  }
  for (auto const& kept : kept_[keptSelectives])
    countPending(static_cast<Selectives::EntryHandle const&>(*kept));
  return uses;
}

/// Every row is an entry's, and holds what that one is.
template <class T>
void WatchedWorld::checkRows(FollowedTable<T>& at) {
  U32 rows = 0, uses = 0;
  for (U32 i = 0; i < keys; ++i) {
    auto const handle = at.handle(i);
    if (!handle || at.valueNow(i) == 0) continue;
    auto const& key = handle->key();
    auto const index = at.table->indexAllocator()->indexForKey(T::keyType(), &key);
    if (index.isExhausted()) continue;
    auto const size = T::blockSizeOf(key);
    uses += size;
    for (U32 row = index.value(); row < index.value() + size; ++row) rows += at.chip->at(row).used;
    if constexpr (!isGroupTable<T>) {
      auto const wanted = at.table->resolvedRows(key);
      for (U32 row = 0; row < size; ++row)
        if (at.chip->at(index.value() + row).row !=
            Zarn::Optional<Row>(rowOf<T>(wanted.entry(row))))
          ground_.finding.add(at.audience.name, " key ", i, ": the row is not the value");
    }
  }
  auto const tracked = Asic::IndexUserTracker::Stub::tracker(*at.table->hwTable()).indices();
  if (at.chip->rows() != rows || tracked != rows)
    ground_.finding.add(at.audience.name, ": ", at.chip->rows(), " rows, ", tracked,
                        " in the tracker, ", rows, " of entries");
  auto const used = at.table->indexAllocator()->totalUsedIndices();
  if (isGroupTable<T> ? used < uses : used != uses)
    ground_.finding.add(at.audience.name, ": ", used, " indices used, ", uses, " by entries");
}

}  // namespace Endurance
