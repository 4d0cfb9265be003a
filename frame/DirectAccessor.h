// The generic logic of direct tables: what has to reach the hardware after a key changed, what
// becomes of the hardware's rows after a restart, and how entries leave.
//
// Invariants
//  1. Every change reaches the chip hooks inside the call that made it, unless the value did not
//     change, the hardware matches during replay, there are no chip hooks, or the key is the
//     exhausted index.
//  2. The index tracker is told before the hardware is touched.
//  3. A key's synced record goes with the key's first commit during replay.

#pragma once

#include "frame/AccessorBase.h"
#include "frame/Trait.h"
#include "platform/zarn/Optional.h"

namespace Asic {

template <class T>
class DirectAccessor : public AccessorBase<T> {
 public:
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Util = typename T::Util;
  using Node = typename T::ResolvedEntryMap::Node;

  using AccessorBase<T>::AccessorBase;

  /// Carries a change of the key in `resolvedEntry` to the hardware. The collection holds the new
  /// state, which a caller that has just made it may tell.
  void handleEntry(Key key, Node const* node) noexcept;
  void handleEntry(Key key);
  /// Compares a key with what the hardware holds there.
  ReconciliationStatus reconcileSyncedEntry(Key key);
  /// Writes the key's value: `inProgress` as a use of its own, `indexReconciled` over a row that
  /// the tracker knows already.
  void programHwEntry(Key key, SwTableBase::EntryState entryState);

  void syncEntries() noexcept;
  void autoCommitSyncedEntries();
  void handleStaleEntries() noexcept;

  /// Removes one key; `resolvedKeyPrior` is set by a look-up.
  void deleteResolvedEntry(Key key);
  void entryRemoveAll();
  /// Removes every key and drops the tracker, at the end of the table.
  void cleanup();

 private:
  using Tracker = IndexUserTracker::OpType;
  using AccessorBase<T>::swTable_;
  using AccessorBase<T>::trace;

  /// A watcher may commit once more to a table that is going; one that never stops is at fault.
  static constexpr U32 mostCleanupWalks = 100;
  static constexpr bool keyIsHwIndex = Trait::isKnownIndexTable<T>;

  void replayEntry(Key key);
  bool settledMeanwhile(Key key);
  void removeHwEntry(Key key);
  void hwTableEntryIs(Util const& util, Key key);
  void hwTableEntryDel(Util const& util, Key key);
  void traceHwIndex(Key key) const;
  /// The key's value, from the node at hand if nothing was called since it was looked up.
  Zarn::Optional<Entry> wantedValue(Key key) const;
  /// The key names no hardware entry. Never true of a structured key.
  static bool isExhausted(Key key);
  /// The tracker operation of a write, if any.
  Zarn::Optional<Tracker> trackerOfWrite(bool hasValue) const;

  Node const* node_ = nullptr;  ///< of the key in hand; null once anything was called
};

}  // namespace Asic
