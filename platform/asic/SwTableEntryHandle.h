// The base of the handles that a table keeps in a collection of its own.
//
// Invariants
//  1. For a handle in its table's collection: use count = uses held by others + 1 if the table's
//     own use counts.
//  2. The table's use counts unless the entry is only referenced; from `doAmendReferences` on it
//     counts whatever the type, so that the handle can be taken out of the collection and released
//     once.

#pragma once

#include "platform/asic/SwTable.h"

namespace Asic {

/// Who keeps a written entry: the table, or whoever holds its handle.
enum class AutoRemoveType : U8 {
  referenced = 0,  ///< it goes with the last use of the handle
  committed = 1,   ///< it stays until it is removed
};

class SwTable::EntryHandle : public SwTableBase::EntryHandle {
 public:
  /// Makes the table's own use count.
  void doAmendReferences() { tableUseIs(TableUse::counted); }

  /// Whether the table's own use is part of the count. Telling it to count takes a use, telling it
  /// not to gives one back, which may be the last.
  enum class TableUse : U8 { counted, uncounted };
  TableUse tableUse() const { return tableUse_; }
  void tableUseIs(TableUse use);

  /// Moves with every commit of the entry, so that an operation that let others run can tell
  /// whether the entry was committed anew meanwhile.
  U32 commits() const { return commits_; }
  /// Moves with every commit and every reference, for an operation that either of them undoes.
  U32 claims() const { return commits_ + references_; }
  /// Moves with every write of the entry, and where its row is found to need none, so that the outcome of
  /// one can be told from that of another.
  U32 writes() const { return writes_; }
  void writeBegins() { ++writes_; }
  /// The entry belongs to the table now: its use counts.
  void committed();
  /// Somebody needs the entry. Unless the table owns it, it lives as long as its handle is held: the
  /// table's use counts no more. True if that is new.
  bool referenced();

  /// Whether the index tracker has a use of the entry, told by a write or found by sync. A write
  /// that found no index tells it nothing, so that the next one still has to.
  bool isTracked() const { return isTracked_; }
  void trackedIs(bool tracked) {
    if (tracked == isTracked_) return;
    isTracked_ = tracked;
    isActive_ = tracked;
  }
  /// Whether the entry was written over a row that sync had found, and no such write was acknowledged as
  /// done: the row may show what an earlier life put there.
  bool isOverFoundRow() const { return isOverFoundRow_; }
  void overFoundRowIs(bool over) { isOverFoundRow_ = over; }
  /// Whether that use is an active one, of an entry with a value.
  bool isActive() const { return isActive_; }
  void activeIs(bool active) { isActive_ = active; }

 private:
  TableUse tableUse_ = TableUse::counted;
  bool isTracked_ = false;
  bool isActive_ = false;
  bool isOverFoundRow_ = false;
  U32 commits_ = 0;
  U32 references_ = 0;
  U32 writes_ = 0;
};

}  // namespace Asic
