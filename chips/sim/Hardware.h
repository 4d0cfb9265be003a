// The hardware itself: rows by table and number, operations on them, and the journal.
//
// Invariants
//  1. An operation happens whole or not at all, whatever instruction the process dies at: a. its
//     record, with all bytes of the new row, is completed in the journal's ring; b. `published`
//     becomes its number: from here on it will happen; c. the row is replaced; d. `applied` becomes
//     its number. Opening finds `published` ahead of `applied` by one if the process died between b
//     and d, and does c and d again. (A machine that loses power is another matter: nothing forces
//     the pages to disk.)
//  2. A row that is not valid is all zeros.
//  3. State is the chip's own doing: neither journalled nor counted. A row of it is 8 bytes,
//     replaced by one store.
//  4. Every operation is checked against the truth of Truth.h. One that breaks it takes effect all the
//     same, and is remembered; with the switch stop-at-breach it stops the process.
//  5. An operation on a row that the table does not have changes no row, and neither does a write that
//     the chip refuses. The journal holds them as "outOfRange" and "refused", and no count takes them
//     in.
//
// Threading: one thread.

#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "chips/sim/FileLayout.h"
#include "chips/sim/HardwareFile.h"
#include "chips/sim/Switches.h"
#include "chips/sim/Truth.h"
#include "platform/asic/Chip.h"

namespace Sim {

class Hardware {
 public:
  /// `layout` and `rules` stay as long as the hardware. Throws `std::runtime_error`, and then the file
  /// holds the rows that it held.
  Hardware(Asic::Chip::Options const& options, FileLayout const& layout,
           std::span<PointerRule const> rules);
  Hardware(Hardware const&) = delete;
  Hardware& operator=(Hardware const&) = delete;

  std::string const& path() const { return file_.path(); }
  U64 rows(U32 table) const { return layout_.shapes()[table].rows; }
  /// The bytes of a valid row; empty if the row is not valid or the table has none of that number.
  std::span<U8 const> row(U32 table, U64 row) const;
  /// Replaces a row; `bytes` are as many as the table's rows have, the valid bit set.
  void rowIs(U32 table, U64 row, std::span<U8 const> bytes);
  void rowDel(U32 table, U64 row);
  /// A write that the chip refuses: the row stays as it is, and the journal knows of it.
  void rowRefused(U32 table, U64 row);
  /// Replaces a row of state. Nothing once the chip is frozen.
  void stateIs(U32 table, U64 row, std::span<U8 const, sizeof(U64)> bytes);
  /// Whether what the chip is asked has no effect any more.
  bool isFrozen() const {
    return switches_.freezeAfter && operationCount_ >= *switches_.freezeAfter;
  }
  Switches const& switches() const { return switches_; }

  Asic::Chip::Operations const& operations(U32 table) const { return operations_[table]; }
  std::vector<Asic::Chip::JournalEntry> journal(std::size_t most) const;
  /// What the hardware contradicts itself in now.
  std::vector<std::string> contradictions() const { return truth_.contradictions(); }
  /// The first operations since opening that broke the truth, and how many more there were.
  std::vector<std::string> breaches() const;

 private:
  /// Breaches of the truth that are remembered.
  static constexpr std::size_t mostBreaches = 100;

  enum class Operation : U32 { write = 1, erase = 2, outOfRange = 3, refused = 4 };
  static bool changesRows(Operation operation) {
    return operation == Operation::write || operation == Operation::erase;
  }

  void operate(Operation operation, U32 table, U64 row, std::span<U8 const> bytes);
  U64 publish(JournalRecord record, std::span<U8 const> bytes);
  void apply(JournalRecord const& record);
  void applyChecked(JournalRecord const& record);
  void count(Operation operation, U32 table);
  void redo();
  void flip(Switches::RowAddress const& address);
  bool isSound(JournalRecord const& record, U64 number) const;
  JournalState& state() const;
  JournalRecord& record(U64 number) const;
  U8* rowBytes(U32 table, U64 row) const { return file_.bytes() + layout_.rowAt(table, row); }

  FileLayout const& layout_;
  Switches switches_;
  U64 crashAfter_;
  HardwareFile file_;
  Truth truth_;
  std::vector<std::string> breaches_;
  U64 furtherBreaches_ = 0;
  std::vector<Asic::Chip::Operations> operations_;
  U64 operationCount_ = 0;  ///< over all tables, since opening
};

}  // namespace Sim
