// The record of an entry that waits for entries of other tables, and the watch over those.
//
// Invariants
//  1. A watch ends when its handle becomes usable, and does not begin again. The record resolves
//     when its last watch has ended, inside that change, and not before.
//  2. A needed handle that fails is told with `markFailedNeededEntry` and stays watched.
//  3. A record that has left its table watches nothing.

#pragma once

#include <list>

#include "platform/asic/SwTable.h"

namespace Asic {

class SwTable::UnresolvedEntry : public Vell::Node {
 public:
  Vell::Publisher* publisher() override { return &publisher_; }

  /// Every needed entry is usable.
  virtual void doResolve() = 0;
  /// A needed entry failed.
  virtual void markFailedNeededEntry() = 0;
  /// For records that keep a state of their own; the handle holds it for all others.
  virtual void setEntryState(EntryState) {}

  /// Needed handles still watched.
  U32 neededEntryHandleSms() const { return static_cast<U32>(watches_.size()); }
  /// Watches one more needed handle, which is not usable yet. A handle may be watched twice.
  void neededEntryHandleSmIs(SwTableBase::EntryHandle const& handle);
  /// The handles still watched, in the order in which they were added.
  std::vector<Vell::Ptr<SwTableBase::EntryHandle const>> neededEntryHandles() const;
  /// Whether one of them has failed.
  bool neededEntryHasFailed() const;
  /// Ends every watch.
  void neededEntryHandleSmDelAll() { watches_.clear(); }

  /// Whether an entry that needs `handle` can go on, by the hooks of the table that it is in, which
  /// may be null.
  static bool isUsable(SwTableBase::EntryHandle const& handle, Util const* util);

  /// The table that the record is in; null once it has left.
  SwTable* swTable() const { return swTable_; }
  bool hasLeft() const { return swTable_ == nullptr; }
  void swTableIs(SwTable* table) { swTable_ = table; }

 private:
  /// A handle with the claim on its watchers.
  struct Watch {
    Vell::Ptr<SwTableBase::EntryHandle const> handle;
    Vell::Subscription claim;
  };
  using Watches = std::list<Watch>;

  void neededEntryChanged(Watches::iterator watch);
  static bool hasFailed(SwTableBase::EntryHandle const& handle);

  Vell::Publisher publisher_;
  SwTable* swTable_ = nullptr;
  Watches watches_;
};

}  // namespace Asic
