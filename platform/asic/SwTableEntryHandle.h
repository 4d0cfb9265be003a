// The base of the handles that a table keeps in a collection of its own.
//
// Invariants
//  1. For a handle in its table's collection: use count = uses held by others + 1 if the table's
//     own use counts.
//  2. The table's use counts unless the entry is only referenced; from `doAmendReferences` on it
//     counts whatever the type, so that the handle can be taken out of the collection and released
//     once.
//  3. An entry that comes back begins a new life: what was known of the former one went with
//     `lifeEnds`, which stands at the beginning of every removal of its rows.

#pragma once

#include "platform/asic/SwTable.h"

namespace Asic {

/// Who keeps a written entry: the table, or whoever holds its handle.
enum class AutoRemoveType : U8 {
  referenced = 0,  ///< it goes with the last use of the handle
  committed = 1,   ///< it stays until it is removed
};

/// What is known of an entry in the hardware beside its states and its index, from its first way there,
/// or from the moment when its rows were found, until they go.
struct EntryLife {
  enum class Tracked : U8 { no, inactive, active };
  enum class Found : U8 { no, part, whole };

  /// What the index tracker knows of the entry, told by a write or found by sync: nothing, also where
  /// a write found no index; an entry without a value; one with a value.
  Tracked tracked = Tracked::no;
  /// Rows that the tracker knows, of an entry of several: they are written one after the other.
  U32 trackedRows = 0;
  /// Which of its rows sync had found in its place.
  Found found = Found::no;
  /// It is written over rows that sync had found, and no such write was acknowledged as done: they may
  /// show what an earlier life put there.
  bool isOverFound = false;
  /// A write of its value was tried, or its row was found to hold it: the row may show it.
  bool isTried = false;
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

  /// The entry belongs to the table now: its use counts.
  void committed();
  /// Somebody needs the entry. Unless the table owns it, it lives as long as its handle is held: the
  /// table's use counts no more. True if that is new.
  bool referenced();

  EntryLife const& life() const { return life_; }
  EntryLife& life() { return life_; }
  /// Ends the life, and gives what was known of it. The handle is as new, whoever may bring the entry
  /// back: the states are told, so this calls out.
  EntryLife lifeEnds();

 private:
  EntryLife life_;
  TableUse tableUse_ = TableUse::counted;
};

}  // namespace Asic
