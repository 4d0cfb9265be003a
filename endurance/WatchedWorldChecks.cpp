// What must be true of a world between its actions, told apart from the tables' code.

#include <algorithm>
#include <set>

#include "endurance/WatchedWorld.h"

namespace Endurance {

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
    // A wish that was taken back from inside of it gives a handle that is in no table.
    bool const wasTakenBack = !handle.swTable() || handle.entryType() == Type::unset;
    if (at.table->entryHandle(handle.key()).get() != held && !wasTakenBack &&
        handle.entryType() != Type::inDeletion)
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
