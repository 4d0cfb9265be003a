// What a hardware file holds: byte by byte, and as traffic sees it.
//
// A picture tells nothing of which index a thing lies at, if it is up to the tables to choose it: what
// points at a row is told with what the row says. Two hardwares of equal pictures forward alike, and hold
// nothing that the other does not.

#pragma once

#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "platform/asic/Chip.h"

namespace Endurance {

/// The bytes of a hardware file that no process has open.
class Image {
 public:
  Image() = default;
  /// Reads the file; a missing one is empty.
  explicit Image(std::string const& file);
  /// Puts it back as it was.
  void restoreTo(std::string const& file) const;

  /// The bytes of a row; of a table by its qualified name.
  std::span<U8 const> row(std::string_view table, U64 row) const;
  /// All rows that are not empty.
  using RowVisitor =
      std::function<void(std::string_view table, U64 row, std::span<U8 const> bytes)>;
  void forEachRow(RowVisitor const& visitor) const;
  /// Throws a `Fault` if one of the operations was on a row that is `after` them as it was here.
  void checkNeeded(std::vector<Asic::Chip::JournalEntry> const& operations, Image const& after,
                   std::string const& when) const;

 private:
  struct Region {
    U64 first;
    U64 rows;
    U64 rowBytes;
  };

  std::vector<U8> bytes_;
  std::map<std::string, Region, std::less<>> regions_;
};

struct Picture {
  /// Each thing that the hardware holds, and how many there are of it.
  std::map<std::string, U64> things;

  /// The first thing in which two differ; empty if they are equal.
  static std::string difference(Picture const& is, Picture const& shouldBe);
};

/// What the file holds, read through tables of its own on the chip of that name.
Picture pictureOf(std::string const& chip, std::string const& file);

}  // namespace Endurance
