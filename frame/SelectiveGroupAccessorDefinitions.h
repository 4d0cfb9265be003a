// The operations of the generic logic of groups that stand on entries of other tables. Included by
// the sources that instantiate tables.

#pragma once

#include "frame/GroupAccessorDefinitions.h"
#include "frame/SelectiveGroupAccessor.h"

namespace Asic {

// ---- the way in ----

template <class T>
auto SelectiveGroupAccessor<T>::write(std::string_view operation, Key const& key,
                                      Entry const& entry, AutoRemoveType keeper) -> HandlePtr {
  if (swTable_->isGoing()) return this->refused(operation, key);
  static_cast<void>(this->allocator());  // from the start of the table's life on
  Entry const wanted = entry;            // it may lie in what a watcher is about to change
  Operation const wish(*swTable_, key, this->stageOf(keeper));
  // Its last use must not go between the two wishes.
  Vell::Ptr<EntryHandle> const held = swTable_->entryHandle(key);
  if (auto unresolved = swTable_->unresolved(key)) {
    if (unresolved->entry() == wanted) {
      trace(traceClient, operation, " : Found existing unresolved entry at key : ", T::keyText(key),
            ", entry : ", wanted);
      return waiting(wish, held);
    }
    trace(traceClient, operation,
          " : Deleting existing unresolved entry at key : ", T::keyText(key));
    swTable_->unresolvedDel(key);
    unresolved = nullptr;  // with its last use goes what it needed
    if (wish.isOvertaken()) return overtaken(wish, held);
  }
  if (swTable_->isValue(key, wanted)) {
    trace(traceClient, operation,
          " : Found already existing resolved entry at key : ", T::keyText(key),
          ", entry : ", wanted);
    return inPlace(wish, held);
  }
  return writeNew(operation, wish, wanted);
}

template <class T>
auto SelectiveGroupAccessor<T>::writeNew(std::string_view operation, Operation const& wish,
                                         Entry const& wanted) -> HandlePtr {
  auto const& key = wish.key();
  if (wish.stage() == Stage::commit)
    trace(traceClient, operation, " : Writing new entry at key: ", T::keyText(key));
  else
    trace(traceClient, operation, " : Writing new entry at key: ", T::keyText(key),
          ", entry:", wanted);
  auto const handle = this->claimedHandle(wish);
  if (!wish.isOvertaken()) handle->entryStateIs(EntryState::unresolved);
  if (wish.isOvertaken()) {
    this->unusedIndexDel(key);
    return handle;
  }
  Vell::Ptr<UnresolvedEntry> const made = new UnresolvedEntry(key);
  made->entryIs(wanted);  // before anybody hears of it
  auto const unresolved = swTable_->unresolvedIs(made);
  if (!unresolved->hasLeft()) initUnresolvedEntry(*unresolved, wanted);
  return handle;
}

/// That entry waits already: a commit claims it, and nothing else happens.
template <class T>
auto SelectiveGroupAccessor<T>::waiting(Operation const& wish, Vell::Ptr<EntryHandle> const& held)
    -> HandlePtr {
  bind(wish, held);
  if (wish.stage() == Stage::commit && !wish.isRevoked()) held->committed();
  return held;
}

/// The key has that value, and nothing waits any more.
template <class T>
auto SelectiveGroupAccessor<T>::inPlace(Operation const& wish, Vell::Ptr<EntryHandle> const& held)
    -> HandlePtr {
  bind(wish, held);
  if (wish.isRevoked()) return held;
  this->claim(*held, wish.stage());
  if (!wish.isOvertaken()) formerValueCounts(*held);
  if (!wish.isOvertaken()) held->entryStateIs(held->resolvedEntryState());
  return held;
}

/// What waited has gone, and the value before it counts again. Where the end of the replay left that one
/// for the one that waited, it is written now.
template <class T>
void SelectiveGroupAccessor<T>::formerValueCounts(EntryHandle& handle) {
  auto const key = handle.key();
  if (!swTable_->configReplayComplete() || handle.life().isTried || !swTable_->hasValue(key))
    return;
  Operation operation(*swTable_, key, Stage::programming);
  swTable_->resolvedKeyPriorIs(SwTable::KeyPrior::noKey);
  this->programHwEntry(operation, swTable_->valueOf(key), EntryState::inProgress);
}

/// A newer wish has carried the key before this one had claimed it.
template <class T>
auto SelectiveGroupAccessor<T>::overtaken(Operation const& wish, Vell::Ptr<EntryHandle> const& held)
    -> HandlePtr {
  this->unusedIndexDel(wish.key());  // which the record that has gone may have kept
  Vell::Ptr<EntryHandle> const now = swTable_->entryHandle(wish.key());
  if (!now || wish.isRevoked()) return held;
  this->claim(*now, wish.stage());
  return now;
}

/// The handle of a key that has an entry; one that was about to leave stays.
template <class T>
void SelectiveGroupAccessor<T>::bind(Operation const& wish,
                                     Vell::Ptr<EntryHandle> const& handle) const {
  VELL_ASSERT(handle, "eh", "expect a valid entryHandle, key: ", T::keyText(wish.key()));
  if (!handle->swTable() && !wish.isRevoked()) handle->swTableIs(swTable_);
}

template <class T>
auto SelectiveGroupAccessor<T>::validEntryHandle(Key const& key) const -> Vell::Ptr<EntryHandle> {
  auto eh = swTable_->entryHandle(key);
  VELL_ASSERT(eh, "eh", "expect a valid entryHandle, key: ", T::keyText(key));
  return eh;
}

template <class T>
void SelectiveGroupAccessor<T>::initUnresolvedEntry(UnresolvedEntry& unresolved,
                                                    Entry const& entry) {
  this->template message<"initUnresolvedEntry">();
  trace(traceLife, "initUnresolvedEntry", ": key:", T::keyText(unresolved.key()));
  if (unresolved.hasLeft()) return;
  unresolved.entryIs(entry);
  initUnresolvedEntry(unresolved);
}

template <class T>
void SelectiveGroupAccessor<T>::initUnresolvedEntry(UnresolvedEntry& unresolved) {
  Vell::Ptr<UnresolvedEntry> const held(&unresolved);
  this->watchNeeded(unresolved, unresolved.entry().neededEntryHandle().get());
  if (unresolved.neededEntryHandleSms() == 0) return doResolve(unresolved);
  // One that failed before the watch began will not fail again, and has no place to be told of.
  if (unresolved.neededEntryHasFailed()) return this->markFailedNeededEntry(unresolved);
  if (!swTable_->configReplayComplete()) suggestFromSyncedRows(unresolved);
}

/// Where the key lay before the restart, or may have lain, its row says where the needed entry lay.
template <class T>
void SelectiveGroupAccessor<T>::suggestFromSyncedRows(UnresolvedEntry const& unresolved) {
  auto const key = unresolved.key();
  auto const entry = unresolved.entry();
  if (auto const hwIndex = this->doRetrieveHwIndex(key).value(); !hwIndex.isExhausted()) {
    if (auto const synced = swTable_->syncedEntryGet(hwIndex))
      this->suggestIndexToNeededTable(entry, *synced);
    return;
  }
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  auto const helper = handle ? swTable_->indexHelper(*handle) : nullptr;
  if (!helper) return;
  for (Zarn::HashMap2018IteratorGeneric at(helper->indices()); at; at.advance()) {
    Index const candidate = at.currNodeMaybeStale()->key().value();
    if (auto const synced = swTable_->syncedEntryGet(candidate))
      this->suggestIndexToNeededTable(entry, *synced);
    else
      helper->indexDel(candidate);
    if (unresolved.hasLeft()) return;  // what was suggested resolved it
  }
}

template <class T>
void SelectiveGroupAccessor<T>::doResolve(UnresolvedEntry& unresolved) {
  VELL_ASSERT(unresolved.neededEntryHandleSms() == 0, "ue->neededEntryHandleSms() == 0",
              "function should not have been called ", static_cast<void const*>(&unresolved));
  this->template message<"doResolve">();
  Vell::Ptr<UnresolvedEntry> const held(&unresolved);
  auto const key = unresolved.key();
  auto const handle = validEntryHandle(key);
  // What the hardware may show needs what it points at until the next write is acknowledged.
  if (auto const shown = swTable_->resolvedEntry(key);
      shown && static_cast<bool>(*shown) && handle->life().isTried) {
    handle->pendingEntryEnq(*shown);
    if (unresolved.hasLeft()) return;
  }
  auto entry = unresolved.entry();
  if (auto const& needed = entry.neededEntryHandle()) {
    entry.neededIndexIs(SwTableBase::getHwIndexForDependentField(*needed));
    if (unresolved.hasLeft()) return;
    unresolved.entryIs(entry);
  }
  trace(traceLife, "doResolve", ": key:", T::keyText(key));
  if (!unresolved.hasLeft()) setResolvedEntry(key, entry);
  if (!unresolved.hasLeft()) swTable_->unresolvedDel(key);
}

template <class T>
void SelectiveGroupAccessor<T>::setResolvedEntry(Key const& key, Value const& value) {
  auto prior = swTable_->keyPrior(key);
  // A value that found no index never reached the hardware.
  if (prior == SwTable::KeyPrior::value &&
      validEntryHandle(key)->resolvedEntryState() == EntryState::failedNoIndex)
    prior = SwTable::KeyPrior::noKey;
  swTable_->resolvedKeyPriorIs(prior);
  swTable_->resolvedEntryIs(key, value);
}

// ---- the way out ----

template <class T>
void SelectiveGroupAccessor<T>::removeEntryOf(Operation const& removal, EntryHandle& handle) {
  auto const& key = removal.key();
  this->recordDel(key);
  if (removal.isOvertaken()) return;
  if (!swTable_->configReplayComplete() && !handle.life().isTried)
    return this->removeAtOnce(removal, handle);  // nothing was written
  this->needReferenceOnly(handle);
  if (auto const value = swTable_->resolvedEntry(key)) handle.pendingEntryEnq(*value);
  if (removal.isOvertaken()) return;
  if (handle.pendingEntry().empty() || !T::isInHwTable(handle))
    return this->removeAtOnce(removal, handle);
  beginDeleteDance(removal, handle);
}

template <class T>
void SelectiveGroupAccessor<T>::beginDeleteDance(Operation const& removal, EntryHandle& handle) {
  auto const& key = removal.key();
  trace(traceLife, "cleanup", " begin delete dance, key : ", T::keyText(key));
  if (removal.isOvertaken()) return;
  handle.doAmendReferences();
  handle.entryTypeIs(SwTableBase::EntryType::inDeletion);
  handle.entryStateIs(EntryState::unresolved);
  if (removal.isOvertaken()) return;
  if (swTable_->hasValue(key)) return setResolvedEntry(key, {});
  // The write without a value is under way, from before the entry came back and went again.
  VELL_ASSERT(handle.resolvedEntryState() == EntryState::inProgress,
              "eh->resolvedEntryState() == inProgress()", T::names.qualified, " key ",
              T::keyText(key), " state ", handle.resolvedEntryState());
  handle.entryStateIs(EntryState::inProgress);
}

template <class T>
void SelectiveGroupAccessor<T>::endDeleteDance(EntryHandle& handle, Key const& key) {
  auto const stateBefore = handle.entryState();
  SwTable::OperationScope const scope(*swTable_);  // it may come in the midst of another operation
  auto const lastFormer = handle.pendingEntry().lastSequence();
  // The row goes before what it pointed at can.
  this->deleteResolvedEntry(key);
  this->dropPending(handle, lastFormer);
  // Else a commit or a reference has claimed it.
  if (stateBefore == EntryState::inProgress &&
      handle.entryType() == SwTableBase::EntryType::inDeletion)
    swTable_->entryHandleDel(key);
}

template <class T>
void SelectiveGroupAccessor<T>::removeOutside(EntryHandle& handle, Key const& key) {
  using enum SwTableBase::EntryType;
  bool const keyHasHandle = swTable_->entryHandle(key) != nullptr;
  switch (handle.entryType()) {
    case inDeletion:
      trace(traceLife, "cleanup", " delete dance complete, key : ", T::keyText(key));
      swTable_->outsiderForget(handle);
      return;
    case unset:
      VELL_ASSERT(!keyHasHandle, "!swTable_->entryHandleHas( key )", T::names.qualified, " key ",
                  T::keyText(key));
      swTable_->outsiderForget(handle);
      this->recordDel(key);
      this->deleteResolvedEntry(key);
      return;
    case referenceOnly:
      VELL_ASSERT(keyHasHandle, "swTable_->entryHandleHas( key )", T::names.qualified, " key ",
                  T::keyText(key));
      return;  // that one has the entry
    default:
      VELL_ASSERT(false, "0", T::names.qualified, ": a handle of type ", handle.entryType(),
                  " that is not in the table lost its last use, key ", T::keyText(key));
  }
}

// ---- restart ----

template <class T>
void SelectiveGroupAccessor<T>::writeWithoutValue(Operation& operation, Value const& value) {
  auto const hwIndex = this->doRetrieveHwIndex(operation.key()).value();
  this->template programHwEntry<Fennlog::Time::asMessageBefore>(operation, value,
                                                                EntryState::inProgress);
  if (!hwIndex.isExhausted()) swTable_->syncedEntryDel(hwIndex);  // the row is the key's now
}

template <class T>
bool SelectiveGroupAccessor<T>::processIndexSuggestion(EntryHandle& handle, Index hwIndex) {
  auto const key = handle.key();
  if (swTable_->resolvedHas(key))
    return swTable_->hasValue(key) && GroupAccessor<T>::processIndexSuggestion(handle, hwIndex);
  // An entry that waits has nothing to compare yet; the candidate stays for when it has.
  if (auto const unresolved = swTable_->unresolved(key))
    this->suggestIndexToNeededTable(unresolved->entry(), swTable_->syncedEntry(hwIndex));
  return false;
}

template <class T>
void SelectiveGroupAccessor<T>::purgeStaleEntries() {
  refusedRowsDel();
  GroupAccessor<T>::purgeStaleEntries();
}

/// Rows that sync found, and where the chip refused what is wanted: they show what an earlier life put
/// there, and may point at rows that nobody claims and that are about to go.
template <class T>
void SelectiveGroupAccessor<T>::refusedRowsDel() {
  auto const util = this->utilIfExists();
  if (!util) return;
  this->forEachHandle([&](EntryHandle& handle) {
    auto const hwIndex = this->doRetrieveHwIndex(handle.key()).value();
    if (handle.resolvedEntryState() != EntryState::failedNoIndex || hwIndex.isExhausted() ||
        !handle.life().isOverFound)
      return;
    Operation const operation(*swTable_, handle.key(), Stage::programming);
    handle.life().isOverFound = false;
    trace(traceKey, "purgeStaleEntries", ": Deleting refused hwEntry at index:", hwIndex);
    handle.life().tracked = EntryLife::Tracked::no;  // the next write is the first
    this->tellTracker(*util, hwIndex, IndexUserTracker::OpType::userRemove);
    if (!operation.isOvertaken()) this->deleteRow(*util, hwIndex);
  });
}

}  // namespace Asic
