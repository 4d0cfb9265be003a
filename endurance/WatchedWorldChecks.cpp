// What must be true of a world between its actions, told apart from the tables' code.

#include <algorithm>
#include <set>

#include "endurance/WatchedWorld.h"
#include "platform/asic/UnresolvedEntry.h"

namespace Endurance {

void WatchedWorld::check() {
  forEachTable([this]<class T>(FollowedTable<T>& at) {
    at.isToldWhole();
    if (at.table->operationInProgress())
      ground_.finding.add(at.audience.name, ": an operation is in progress");
    if constexpr (isDirectTable<T>)
      checkDirect(at);
    else
      checkHandles(at);
  });
  for (auto const& each : ground_.handles)
    if (!each.entryState.isWhole() || !each.resolvedState.isWhole())
      ground_.finding.add(each.audience.name, ": a change of state was not told");
  if (!isPurged_ || refuses_) return;
  forEachTable([this]<class T>(FollowedTable<T>& at) {
    if constexpr (hasHandles<T>) checkRows(at);
  });
  checkGroupIndices();
}

template <class T>
void WatchedWorld::checkDirect(FollowedTable<T>& at) {
  U32 uses = 0;
  for (U32 i = 0; i < keys; ++i) {
    auto const value = at.valueNow(i);
    auto const held = at.table->resolvedEntry(at.keyOf(i));
    auto const& place = at.chip->at(i);
    if (value != at.wishes[i].value)
      ground_.finding.add(at.audience.name, " key ", i, " is not what was wanted last");
    bool const isRow = held ? place.row == Zarn::Optional<Row>(rowOf<T>(*held))
                            : place.used == (value != 0) && !place.row;
    if (!isRow && (value != 0 || isPurged_))
      ground_.finding.add(at.audience.name, " key ", i, ": the row is not the value");
    auto const told = Asic::IndexUserTracker::Stub::tracker(*at.table->hwTable()).uses(i);
    uses += value != 0;
    if (isPurged_ &&
        (told.users != (value != 0) || (!told.recovered && told.active != (value > Chain::empty))))
      ground_.finding.add(at.audience.name, " key ", i, ": the tracker has ", told.users,
                          " users, ", told.active, " active");
  }
  if (at.table->resolvedEntryMap().count() != uses)
    ground_.finding.add(at.audience.name, ": keys that nobody asked for");
  if (isPurged_ && at.table->syncedEntryMap().count() != 0)
    ground_.finding.add(at.audience.name, ": found rows are left after the purge");
}

// ---- handles ----

template <class T>
void WatchedWorld::checkHandles(FollowedTable<T>& at) {
  checkHolders(at);
  for (U32 i = 0; i < keys; ++i) checkHandle(at, i);
  checkCollections(at);
}

/// Whoever holds a handle holds the one that its table has.
template <class T>
void WatchedWorld::checkHolders(FollowedTable<T>& at) {
  using Handle = typename T::EntryHandle;
  auto const needOwn = [&](AnyHandle const* held) {
    auto const& handle = static_cast<Handle const&>(*held);
    // A wish that was taken back from inside of it gives a handle that is in no table.
    bool const wasTakenBack = !handle.swTable() || handle.entryType() == Type::unset;
    if (at.table->entryHandle(handle.key()).get() == held || wasTakenBack ||
        handle.entryType() == Type::inDeletion)
      return;
    ground_.finding.add(at.audience.name, " key ", at.numberOf(handle.key()),
                        ": somebody holds a handle that its table does not have");
  };
  for (auto const& held : at.kept) needOwn(held.get());
  if constexpr (std::same_as<T, NextHops>)
    for (U32 i = 0; i < keys; ++i)
      if (auto const above = members_->handle(i))
        above->key().forEach(
            [&](auto, Members::Entry const& row) { needOwn(row.ecmpNextHopEntryHandle.get()); });
}

template <class T>
void WatchedWorld::checkHandle(FollowedTable<T>& at, U32 number) {
  auto const wrong = [&](auto const&... parts) {
    ground_.finding.add(at.audience.name, " key ", number, ": ", parts...);
  };
  auto const handle = at.handle(number);
  bool const hasValue = at.valueNow(number) != 0;
  auto& wish = at.wishes[number];
  if (!hasValue && !at.waits(number)) wish.isStored = false;
  checkWish(at, number);
  if (!handle) {
    if ((hasValue && !wish.isStored) || at.waits(number)) wrong("an entry without a handle");
    return;
  }
  auto const type = handle->entryType();
  auto const mine = std::count(at.kept.begin(), at.kept.end(), HandlePtr(handle));
  auto uses = static_cast<U32>(mine) + 1;  // and the one here
  if (type != Type::referenceOnly) ++uses;
  if constexpr (std::same_as<T, Members>) uses += usesOf(handle.get());
  if (std::same_as<T, NextHops> ? handle->useCount() < uses : handle->useCount() != uses)
    wrong(handle->useCount() - 1, " uses instead of ", uses - 1);
  if (handle->useCount() == 1) wrong("nobody holds it");
  if (handle->swTable() != at.table.get()) wrong("not of its table");
  if (at.waits(number) && handle->entryState() != State::unresolved &&
      handle->entryState() != State::failedNeededEntry)
    wrong("waits in state ", handle->entryState());
  if constexpr (isGroupTable<T>) checkStates(at, number);
  if (at.table->configReplayComplete() && !wish.isStored) checkProgress(at, number);
}

/// The last wish wins.
template <class T>
void WatchedWorld::checkWish(FollowedTable<T>& at, U32 number) {
  auto const& wish = at.wishes[number];
  auto const handle = at.handle(number);
  auto const wrong = [&](char const* what) {
    ground_.finding.add(at.audience.name, " key ", number, ": ", what);
  };
  bool const isCommitted = handle && handle->entryType() == Type::committed;
  if (isCommitted != wish.isCommitted)
    wrong(isCommitted ? "committed, though it was removed last"
                      : "not there, though committed last");
  bool const isKnown = at.valueNow(number) != 0 || at.waits(number);
  if (wish.isCommitted && !isKnown) wrong("committed, and there is no entry");
  if constexpr (std::same_as<T, NextHops>) {
    if (isKnown && at.valueNow(number) != wish.value) wrong("not the value that was written last");
  } else if constexpr (isGroupTable<T>) {
    if (wish.isOpen) return;
    if (!isKnown || (handle && handle->entryType() == Type::inDeletion)) return;
    auto const now = at.waits(number) || at.valueNow(number) != Chain::empty
                         ? at.code(at.table->entry(at.keyOf(number)))
                         : Chain::empty;
    if (now != wish.value) wrong("not the value that was written last");
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
  if (at.wishes[number].isStored) return;
  if (value == 0 && !at.waits(number) && type != Type::referenceOnly && type != Type::unset)
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

/// Nobody waits for nothing.
template <class T>
void WatchedWorld::checkProgress(FollowedTable<T>& at, U32 number) {
  auto const handle = at.handle(number);
  auto const state = handle->entryState();
  auto const wrong = [&](char const* what) {
    ground_.finding.add(at.audience.name, " key ", number, ": ", what, " (", state, ")");
  };
  auto const usable = [&](HandlePtr const& needed) {
    return !needed || Asic::SwTable::UnresolvedEntry::isUsable(*needed, at.table->util());
  };
  if constexpr (hasRecords<T>) {
    if (auto const record = at.table->unresolved(handle->key())) {
      bool allUsable = true;
      if constexpr (std::same_as<T, Members>)
        record->key().forEach([&](auto, Members::Entry const& row) {
          allUsable = allUsable && usable(row.ecmpNextHopEntryHandle);
        });
      else
        allUsable = usable(record->entry().ecmpSecondaryBlockPtrHandle);
      if (allUsable) wrong("waits, and all that it needs is usable");
      if (at.valueNow(number) == 0 && at.table->entryInHwTable(handle->key()))
        wrong("waits, and is said to be in the hardware");
      return;
    }
  }
  if (at.valueNow(number) == 0) return;
  if (state == State::unresolved && !at.wishes[number].isTakenBack)
    wrong("unresolved, and it waits for nothing");
  if (state == State::failedNoIndex && !refuses_ && !isBesides(at, number)) {
    auto const& key = handle->key();
    if (!at.table->indexAllocator()->indexForKey(T::keyType(), &key).isExhausted())
      wrong("failed, and it has an index");
  }
}

/// Whether another table has, or had, the key, and with it perhaps an index that this one has not asked for.
template <class T>
bool WatchedWorld::isBesides([[maybe_unused]] FollowedTable<T>& at, U32 number) {
  auto const knows = [number](auto& other) { return other.wishes[number].wasAsked; };
  if constexpr (std::same_as<T, Groups>) return knows(*selectives_);
  if constexpr (std::same_as<T, Selectives>) return knows(*groups_);
  if constexpr (std::same_as<T, VxlanGroups>) return knows(*vxlanSelectives_);
  if constexpr (std::same_as<T, VxlanSelectives>) return knows(*vxlanGroups_);
  return false;
}

template <class T>
void WatchedWorld::checkCollections(FollowedTable<T>& at) {
  U32 handles = 0, values = 0, records = 0;
  for (U32 i = 0; i < keys; ++i) {
    handles += at.handle(i) != nullptr;
    values += at.valueNow(i) != 0;
    records += at.waits(i);
    if constexpr (std::same_as<T, Members>)
      if (at.valueNow(i) != 0 && at.waits(i))
        ground_.finding.add(at.audience.name, " key ", i, ": in both collections");
  }
  bool isWhole =
      at.table->entryHandleMap().count() == handles && at.table->resolvedCount() == values;
  if constexpr (hasRecords<T>) isWhole = isWhole && at.table->unresolvedMap().count() == records;
  if (!isWhole) ground_.finding.add(at.audience.name, ": a collection holds what nobody asked for");
  if (at.table->configReplayComplete() && at.table->indexHelpers() != 0)
    ground_.finding.add(at.audience.name, ": candidates are left after the replay");
  if (isPurged_ && at.table->syncedEntryMap().count() != 0)
    ground_.finding.add(at.audience.name, ": found rows are left after the purge");
}

/// Uses of a block by groups: what waits, what is wanted, what a row may still show.
U32 WatchedWorld::usesOf(AnyHandle const* block) {
  return usesIn(*selectives_, block) + usesIn(*vxlanSelectives_, block);
}
template <class T>
U32 WatchedWorld::usesIn(FollowedTable<T>& at, AnyHandle const* block) {
  U32 uses = 0;
  auto const count = [&](typename T::Entry const& entry) {
    uses += entry.ecmpSecondaryBlockPtrHandle.get() == block;
  };
  std::set<AnyHandle const*> seen;
  auto const countPending = [&](typename T::EntryHandle const& handle) {
    if (handle.pendingEntry().count() == 0 || !seen.insert(&handle).second) return;
    auto const& queue = handle.pendingEntry();
    for (U32 i = 0; i < queue.count(); ++i) count(queue.at(queue.firstSequence() + i));
  };
  for (U32 i = 0; i < keys; ++i) {
    auto const key = at.keyOf(i);
    if (auto const record = at.table->unresolvedEntry(key)) {
      count(record->entry());
      if (record->entry().ecmpSecondaryBlockPtrHandle.get() == block)
        uses += record->neededEntryHandleSms();
    }
    if (auto const value = at.table->resolvedEntry(key)) count(*value);
    if (auto const handle = at.table->entryHandle(key)) countPending(*handle);
  }
  for (auto const& kept : at.kept) countPending(static_cast<typename T::EntryHandle const&>(*kept));
  return uses;
}

// ---- rows, tracker, allocator ----

/// Every row is an entry's, and holds what that one is.
template <class T>
void WatchedWorld::checkRows(FollowedTable<T>& at) {
  U32 rows = 0, uses = 0;
  for (U32 i = 0; i < keys; ++i) {
    if (at.valueNow(i) == 0) continue;
    auto const handle = at.handle(i);
    auto const check = [&](typename T::Key const& key) {
      auto const index = at.table->indexAllocator()->indexForKey(T::keyType(), &key);
      if (index.isExhausted()) return;
      auto const size = T::blockSizeOf(key);
      uses += size;
      for (U32 row = index.value(); row < index.value() + size; ++row)
        rows += at.chip->at(row).used;
      checkRowsOf(at, key, index.value());
    };
    if (handle) check(handle->key());
    if constexpr (!std::same_as<T, Members>)
      if (!handle) check(at.keyOf(i));
  }
  auto const tracked = Asic::IndexUserTracker::Stub::tracker(*at.table->hwTable()).indices();
  if (at.chip->rows() != rows || tracked != rows)
    ground_.finding.add(at.audience.name, ": ", at.chip->rows(), " rows, ", tracked,
                        " in the tracker, ", rows, " of entries");
  auto const used = at.table->indexAllocator()->totalUsedIndices();
  if (!isGroupTable<T> && used != uses)
    ground_.finding.add(at.audience.name, ": ", used, " indices used, ", uses, " by entries");
}

template <class T>
void WatchedWorld::checkRowsOf(FollowedTable<T>& at, typename T::Key const& key, U32 index) {
  auto const& tracker = Asic::IndexUserTracker::Stub::tracker(*at.table->hwTable());
  auto const wrong = [&](auto const&... parts) {
    ground_.finding.add(at.audience.name, " key ", at.numberOf(key), ": ", parts...);
  };
  for (U32 i = 0; i < T::blockSizeOf(key); ++i) {
    auto const& shown = at.chip->at(index + i);
    if constexpr (!isGroupTable<T>) {
      if (shown.row != Zarn::Optional<Row>(rowOf<T>(at.table->resolvedRows(key).entry(i))))
        wrong("the row is not the value");
    }
    auto const uses = tracker.uses(index + i);
    if (shown.used &&
        (uses.users != 1 || (!uses.recovered && uses.active != shown.row.has_value())))
      wrong("the tracker has ", uses.users, " users, ", uses.active, " active");
  }
}

/// The tables of groups share their indices: each is of a key that one of them has.
void WatchedWorld::checkGroupIndices() {
  auto const& allocator = *groups_->table->indexAllocator();
  U32 held = 0;
  auto const count = [&](auto& one, auto& other, U32 number) {
    auto const key = one.keyOf(number);
    if (allocator.indexForKey(std::decay_t<decltype(key)>::keyType(), &key).isExhausted()) return;
    ++held;
    if (one.valueNow(number) == 0 && !one.waits(number) && other.valueNow(number) == 0 &&
        !other.waits(number))
      ground_.finding.add(one.audience.name, " key ", number, ": has an index, and nobody has it");
  };
  for (U32 i = 0; i < keys; ++i) {
    count(*groups_, *selectives_, i);
    count(*vxlanGroups_, *vxlanSelectives_, i);
  }
  if (allocator.totalUsedIndices() != held)
    ground_.finding.add("groups: ", allocator.totalUsedIndices(), " indices used, ", held,
                        " by entries");
}

}  // namespace Endurance
