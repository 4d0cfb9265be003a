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
auto DirectAccessor<T>::wantedValue(Key key) const -> Zarn::Optional<Entry> {
  return node_ ? node_->value_ : swTable_->resolvedEntry(key);
}

template <class T>
void DirectAccessor<T>::traceHwIndex([[maybe_unused]] Key key) const {
  if constexpr (keyIsHwIndex) trace(traceKey, "traceHwIndex", " Acquired hwIndex : ", key);
}

// ---- one key ----

template <class T>
void DirectAccessor<T>::handleEntry(Key key) {
  handleEntry(key, swTable_->resolvedEntryMap().lookupNodeG(key));
}

template <class T>
void DirectAccessor<T>::handleEntry(Key key, Node const* node) noexcept {
  this->template message<"handleEntry">();
  trace(traceKey, "handleEntry", " key: ", key,
        ", configReplayComplete: ", swTable_->configReplayComplete());
  node_ = node;
  if (!node)
    removeHwEntry(key);
  else if (swTable_->configReplayComplete())
    programHwEntry(key, SwTableBase::EntryState::inProgress);
  else
    replayEntry(key);
}

template <class T>
void DirectAccessor<T>::replayEntry(Key key) {
  auto const status = reconcileSyncedEntry(key);
  if (status != ReconciliationStatus::reconcileAdded && settledMeanwhile(key)) return;
  trace(traceKey, "handleEntry", ": reconcileStatus: ", status);
  switch (status) {
    case ReconciliationStatus::reconcileRewritten:
      programHwEntry(key, SwTableBase::EntryState::indexReconciled);
      swTable_->syncedEntryDel(key);
      break;
    case ReconciliationStatus::reconcileMatched:
      swTable_->syncedEntryDel(key);
      break;
    default:
      programHwEntry(key, SwTableBase::EntryState::inProgress);
  }
  swTable_->reconcilingEntryIs(false);
  swTable_->updateStatistic(status);
}

/// Whether the comparison's hook changed the key, so that nothing is left to do for it here.
template <class T>
bool DirectAccessor<T>::settledMeanwhile(Key key) {
  if (!swTable_->syncedEntryMap().lookupNodeG(key)) return true;  // it was committed anew
  if (swTable_->entryHas(key)) return false;
  swTable_->syncedEntryDel(key);  // it was removed, and its row deleted
  return true;
}

template <class T>
ReconciliationStatus DirectAccessor<T>::reconcileSyncedEntry(Key key) {
  if (!swTable_->syncedEntryMap().lookupNodeG(key)) return ReconciliationStatus::reconcileAdded;
  auto const util = this->utilIfExists();
  VELL_ASSERT(util, "util", T::names.qualified, ": a synced entry, and no hooks that found it");
  auto const wanted = swTable_->entry(key);
  node_ = nullptr;
  return util->compareHwEntries(*swTable_, key, wanted) ? ReconciliationStatus::reconcileMatched
                                                        : ReconciliationStatus::reconcileRewritten;
}

template <class T>
void DirectAccessor<T>::removeHwEntry(Key key) {
  traceHwIndex(key);
  auto const util = this->utilIfExists();
  if (!util) return;
  if (isExhausted(key)) {
    trace(traceKey, "handleEntry", "No entry in HwTable for this key. Skip delete");
    return;
  }
  // In the midst of its first commit, what sync found is still noted. It goes with this row: the tracker
  // is about to forget it, and another commit must not take it for known.
  if (!swTable_->configReplayComplete()) {
    swTable_->syncedEntryDel(key);
    if (swTable_->entryHas(key)) return;  // a watcher of that committed the key, over the same row
  }
  hwTableEntryDel(*util, key);
  if (!swTable_->configReplayComplete())
    swTable_->updateStatistic(ReconciliationStatus::reconcileDeleted);
}

template <class T>
void DirectAccessor<T>::programHwEntry(Key key, SwTableBase::EntryState entryState) {
  using enum SwTableBase::EntryState;
  // Part of `handleEntry`, whose message is just written.
  this->template message<"programHwEntry", Fennlog::Time::asMessageBefore>();
  trace(traceKey, "programHwEntry", " key: ", key, ", entryState:", entryState);
  traceHwIndex(key);
  auto const util = this->utilIfExists();
  if (!util) return;
  if (isExhausted(key)) {
    VELL_ASSERT(entryState != indexReconciled, "entryState != indexReconciled()",
                T::names.qualified, " key ", key);
    return;
  }
  swTable_->reconcilingEntryIs(entryState == indexReconciled);
  hwTableEntryIs(*util, key);
}

template <class T>
void DirectAccessor<T>::hwTableEntryIs(Util const& util, Key key) {
  trace(traceKey, "hwTableEntryIs", " : key: ", key);
  auto const value = wantedValue(key);
  if (auto const operation = trackerOfWrite(value.has_value())) {
    util.updateHwIndexRefCountTracker(swTable_->hwTable(), key, *operation);
    node_ = nullptr;
    auto const* const node = swTable_->resolvedEntryMap().lookupNodeG(key);
    if (!node || node->value_ != value)
      return;  // the hook changed the key: that change was carried
  }
  util.hwTableEntryIs(*swTable_, key, value);
}

template <class T>
void DirectAccessor<T>::hwTableEntryDel(Util const& util, Key key) {
  trace(traceKey, "hwTableEntryDel", ": Deleting entry at key:", key);
  util.updateHwIndexRefCountTracker(swTable_->hwTable(), key, this->trackerOfDelete());
  if (swTable_->entryHas(key)) return;  // the hook committed the key: its row is wanted again
  util.hwTableEntryDel(*swTable_, key);
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
void DirectAccessor<T>::syncEntries() noexcept {
  this->beginSyncEntries();
  VELL_ASSERT(swTable_->entrys() == 0, "!swTable_->resolvedEntrys()", T::names.qualified,
              ": sync must precede every commit");
  if (auto const util = this->utilIfExists())
    util->syncEntries(*swTable_->hwTable(), Vell::Ptr<T>(swTable_));
}

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
    hwTableEntryDel(*util, key);
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
  for (U32 walks = 0; swTable_->entrys() != 0; ++walks) {
    VELL_ASSERT(walks < mostCleanupWalks, "walks < mostCleanupWalks", T::names.qualified,
                ": its watchers commit without end while the table goes");
    for (Zarn::HashMap2018IteratorGeneric at(swTable_->resolvedEntryMap()); at; at.advance())
      deleteResolvedEntry(at.currNodeMaybeStale()->key());
  }
  if (this->utilIfExists()) IndexUserTracker::Stub::deleteTracker(swTable_->hwTable(), 0, false);
}

template <class T>
void DirectAccessor<T>::deleteResolvedEntry(Key key) {
  swTable_->resolvedKeyPriorIs(swTable_->keyPrior(key));
  swTable_->resolvedEntryDel(key);
}

}  // namespace Asic
