// The operations of the generic logic of direct tables. Included by the sources
// that instantiate tables.

#pragma once

#include "containers/HashMap2018Iterator.h"
#include "frame/DirectAccessor.h"
#include "platform/zarn/ValueText.h"

namespace Asic {

template <class T>
bool DirectAccessor<T>::isExhausted([[maybe_unused]] Key key) {
  if constexpr (keyIsHwIndex)
    return Index(key.value()).isExhausted();
  else
    return false;
}

template <class T>
void DirectAccessor<T>::traceHwIndex([[maybe_unused]] Key key) const {
  if constexpr (keyIsHwIndex) trace(traceKey, "traceHwIndex", " Acquired hwIndex : ", key);
}

// ---- one key ----

template <class T>
void DirectAccessor<T>::handleEntry(Operation& operation, Value const* value) noexcept {
  swTable_->resolvedKeyPriorIs(operation.trackedPrior(swTable_->resolvedKeyPrior()));
  this->template message<"handleEntry">();
  trace(traceKey, "handleEntry", " key: ", operation.key(),
        ", configReplayComplete: ", swTable_->configReplayComplete());
  if (!value)
    removeHwEntry(operation);
  else if (swTable_->configReplayComplete())
    programHwEntry(operation, *value, SwTableBase::EntryState::inProgress);
  else
    replayEntry(operation, *value);
}

template <class T>
void DirectAccessor<T>::replayEntry(Operation& operation, Value const& value) {
  auto const key = operation.key();
  auto const status = reconcileSyncedEntry(key, value);
  if (operation.isOvertaken()) return;
  if (status != ReconciliationStatus::reconcileAdded) operation.trackerKnows();  // from the sync
  trace(traceKey, "handleEntry", ": reconcileStatus: ", status);
  switch (status) {
    case ReconciliationStatus::reconcileRewritten:
      programHwEntry(operation, value, SwTableBase::EntryState::indexReconciled);
      swTable_->syncedEntryDel(key);
      break;
    case ReconciliationStatus::reconcileMatched:
      swTable_->syncedEntryDel(key);
      break;
    default:
      programHwEntry(operation, value, SwTableBase::EntryState::inProgress);
  }
  swTable_->reconcilingEntryIs(false);
  swTable_->updateStatistic(status);
}

template <class T>
ReconciliationStatus DirectAccessor<T>::reconcileSyncedEntry(Key key, Value const& value) {
  if (!swTable_->syncedEntryMap().lookupNodeG(key)) return ReconciliationStatus::reconcileAdded;
  auto const util = this->utilIfExists();
  VELL_ASSERT(util, "util", T::names.qualified, ": a synced entry, and no hooks that found it");
  bool const isEqual = util->compareHwEntries(*swTable_, key, value.value_or(Entry{}));
  return isEqual ? ReconciliationStatus::reconcileMatched
                 : ReconciliationStatus::reconcileRewritten;
}

template <class T>
void DirectAccessor<T>::removeHwEntry(Operation& operation) {
  auto const key = operation.key();
  traceHwIndex(key);
  auto const util = this->utilIfExists();
  if (!util || operation.isOvertaken()) return;
  if (isExhausted(key)) {
    trace(traceKey, "handleEntry", "No entry in HwTable for this key. Skip delete");
    return;
  }
  // In the midst of its first commit, what sync found is still noted. It goes with this row: the tracker
  // is about to forget it, and another commit must not take it for known.
  if (!swTable_->configReplayComplete() && swTable_->syncedEntryMap().lookupNodeG(key)) {
    operation.trackerKnows();
    swTable_->resolvedKeyPriorIs(SwTable::KeyPrior::value);
    swTable_->syncedEntryDel(key);
  } else if (operation.overtookTheFirst()) {
    return;  // nothing of it has reached the hardware
  }
  if (hwTableEntryDel(*util, operation) && !swTable_->configReplayComplete())
    swTable_->updateStatistic(ReconciliationStatus::reconcileDeleted);
}

template <class T>
void DirectAccessor<T>::programHwEntry(Operation& operation, Value const& value,
                                       SwTableBase::EntryState entryState) {
  using enum SwTableBase::EntryState;
  // Part of `handleEntry`, whose message is just written.
  this->template message<"programHwEntry", Fennlog::Time::asMessageBefore>();
  trace(traceKey, "programHwEntry", " key: ", operation.key(), ", entryState:", entryState);
  traceHwIndex(operation.key());
  auto const util = this->utilIfExists();
  if (!util) return;
  if (isExhausted(operation.key())) {
    VELL_ASSERT(entryState != indexReconciled, "entryState != indexReconciled()",
                T::names.qualified, " key ", operation.key());
    return;
  }
  swTable_->reconcilingEntryIs(entryState == indexReconciled);
  hwTableEntryIs(*util, operation, value);
}

template <class T>
void DirectAccessor<T>::hwTableEntryIs(Util const& util, Operation& operation, Value const& value) {
  trace(traceKey, "hwTableEntryIs", " : key: ", operation.key());
  if (!value && operation.tookOver() && !operation.isOvertaken()) {
    // The value that goes here was stored, and the tracker may not have heard of it.
    auto const untold = trackerOfWrite(true);
    operation.trackerKnows(SwTable::KeyPrior::value);
    swTable_->resolvedKeyPriorIs(SwTable::KeyPrior::value);
    if (untold) util.updateHwIndexRefCountTracker(swTable_->hwTable(), operation.key(), *untold);
  }
  if (operation.isOvertaken()) return;
  auto const tracker = trackerOfWrite(value.has_value());
  operation.trackerKnows();
  if (tracker) util.updateHwIndexRefCountTracker(swTable_->hwTable(), operation.key(), *tracker);
  if (!operation.isOvertaken()) util.hwTableEntryIs(*swTable_, operation.key(), value);
}

template <class T>
bool DirectAccessor<T>::hwTableEntryDel(Util const& util, Operation& operation) {
  trace(traceKey, "hwTableEntryDel", ": Deleting entry at key:", operation.key());
  if (operation.isOvertaken()) return false;
  auto const tracker = this->trackerOfDelete();
  operation.trackerKnows();
  util.updateHwIndexRefCountTracker(swTable_->hwTable(), operation.key(), tracker);
  if (operation.isOvertaken()) return false;
  util.hwTableEntryDel(*swTable_, operation.key());
  return true;
}

template <class T>
auto DirectAccessor<T>::trackerOfWrite(bool hasValue) const -> Zarn::Optional<Tracker> {
  using enum SwTable::KeyPrior;
  if (swTable_->reconcilingEntry()) return {};  // the tracker knows the row already
  auto const prior = swTable_->resolvedKeyPrior();
  if (hasValue) {
    if (prior == value) return {};
    return prior == noKey ? Tracker::userAdd : Tracker::userActivate;
  }
  VELL_ASSERT(prior == value, "false", T::names.qualified,
              ": an empty value was stored over a key that held none");
  return Tracker::userDeactivate;
}

// ---- restart ----

template <class T>
void DirectAccessor<T>::autoCommitSyncedEntries() {
  if (swTable_->configReplayComplete()) return;
  for (Zarn::HashMap2018IteratorGeneric at(swTable_->syncedEntryMap()); at; at.advance()) {
    auto const key = at.currNodeMaybeStale()->key();
    Zarn::Optional<Entry> const entry = at.currNodeMaybeStale()->value_;
    swTable_->resolvedKeyPriorIs(swTable_->keyPrior(key));
    swTable_->resolvedEntryIs(key, entry);
  }
}

template <class T>
void DirectAccessor<T>::handleStaleEntries() noexcept {
  auto const util = this->utilIfExists();
  for (Zarn::HashMap2018IteratorGeneric at(swTable_->syncedEntryMap()); at; at.advance()) {
    auto const key = at.currNodeMaybeStale()->key();
    if (swTable_->entryHas(key)) {
      trace(traceKey, "handleStaleEntries", "Skip resolved key:", key);
      swTable_->syncedEntryDel(key);
      continue;
    }
    VELL_ASSERT(!isExhausted(key), "!isExhausted( hwIndex )", T::names.qualified,
                ": the hardware was said to hold an entry at the exhausted index");
    Operation operation(*swTable_, key, Stage::programming);
    if (!hwTableEntryDel(*util, operation)) continue;
    trace(traceKey, "handleStaleEntries", ": Deleting stale hwEntry for key:", key);
    swTable_->updateStatistic(ReconciliationStatus::reconcileDeleted);
  }
}

// ---- removal ----

template <class T>
void DirectAccessor<T>::entryRemoveAll() {
  this->template message<"entryRemoveAll">();
  trace(traceClient, "entryRemoveAll");
  swTable_->resolvedKeyPriorIs(SwTable::KeyPrior::value);
  swTable_->resolvedEntryDelAll();
  VELL_ASSERT(!this->utilIfExists() || swTable_->syncedEntryMap().count() == 0,
              "Should call purgeStaleEntries instead", T::names.qualified);
}

template <class T>
void DirectAccessor<T>::cleanup() {
  trace(traceLife, "cleanup");
  for (Zarn::HashMap2018IteratorGeneric at(swTable_->resolvedEntryMap()); at; at.advance())
    deleteResolvedEntry(at.currNodeMaybeStale()->key());
  if (this->utilIfExists()) IndexUserTracker::Stub::deleteTracker(swTable_->hwTable(), 0, false);
}

template <class T>
void DirectAccessor<T>::deleteResolvedEntry(Key key) {
  swTable_->resolvedKeyPriorIs(swTable_->keyPrior(key));
  swTable_->resolvedEntryDel(key);
}

}  // namespace Asic
