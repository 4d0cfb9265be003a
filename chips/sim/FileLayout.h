// Where things lie in a hardware file. Numbers are in the byte order of the machine that made it.
//
//   FileHeader | a DirectoryEntry per table | JournalState | journal records | rows, table by table
//
// Header and directory together are the head. It never changes once the file has its name, and
// follows from the tables alone, so that every chip of one build makes and expects the same head.

#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "chips/sim/Fingerprint.h"
#include "chips/sim/Scale.h"
#include "platform/vell/Types.h"

namespace Sim {

struct FileHeader {
  static constexpr std::array<char, 8> magicText{'D', 'L', 'B', 'S', 'I', 'M', 'H', 'W'};
  static constexpr U32 currentVersion = 1;

  std::array<char, 8> magic;
  U32 version;
  U32 headBytes;
  U64 fileBytes;
  U64 fingerprint;  ///< of all tables: names, rows, and what a row looks like
  U64 journalAt;    ///< offset of the JournalState; the records follow it
  U32 journalRecords;
  U32 journalRecordBytes;
  U64 tables;
  U64 checksum;  ///< of the head, with this field 0
};
static_assert(sizeof(FileHeader) == 64, "padding would leave bytes that no writer sets");

struct DirectoryEntry {
  std::array<char, 64> name;  ///< qualified name of the table, ended by 0
  U64 firstRow;               ///< offset
  U32 rows;
  U32 rowBytes;
};
static_assert(sizeof(DirectoryEntry) == 80, "padding would leave bytes that no writer sets");

/// Numbers of the newest operations; the first of a file's life is 1. Hardware.h tells their use.
struct JournalState {
  U64 published;
  U64 applied;
};

/// One operation; the bytes of the new row follow, room for the widest.
struct JournalRecord {
  U64 number;  ///< 0 while the record is being written
  U64 row;
  U32 table;
  U32 operation;
};

/// What the file has to know of one table.
struct TableShape {
  static constexpr U32 none = 0xFFFFFFFF;

  std::string_view name;
  U32 rows;
  U32 rowBytes;
  U64 rowFingerprint;
  /// The table in which the chip keeps what it makes of these rows by itself, row by row. A written
  /// or deleted row takes over: its state goes.
  U32 stateTable = none;
};

class FileLayout {
 public:
  static constexpr U32 journalRecords = shrink == 1 ? 1024 : 256;

  /// `shapes` stay as long as the layout.
  explicit FileLayout(std::span<TableShape const> shapes);

  std::span<TableShape const> shapes() const { return shapes_; }
  /// Header and directory of every file of this layout.
  std::span<U8 const> head() const { return head_; }
  U64 fileBytes() const { return fileBytes_; }
  U64 journalAt() const { return head_.size(); }
  /// Offset of the record of that operation; the ring overwrites the oldest.
  U64 recordAt(U64 number) const {
    return journalAt() + sizeof(JournalState) + number % journalRecords * recordBytes_;
  }
  U64 rowAt(U32 table, U64 row) const { return firstRows_[table] + row * shapes_[table].rowBytes; }
  /// The checksum that belongs into a head; the one that it holds does not count.
  static U64 checksum(std::span<U8 const> head) {
    constexpr auto own = offsetof(FileHeader, checksum);
    Fingerprint print;
    print.mix(head.first(own));
    print.mix(head.subspan(own + sizeof FileHeader::checksum));
    return print.value();
  }

 private:
  std::span<TableShape const> shapes_;
  U64 recordBytes_ = sizeof(JournalRecord);
  std::vector<U64> firstRows_;
  U64 fileBytes_ = 0;
  std::vector<U8> head_;
};

}  // namespace Sim
