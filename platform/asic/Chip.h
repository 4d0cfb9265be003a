// A chip, as an agent reaches it: it opens the hardware and makes the hardware tables that the
// tables' hooks work on. A plug-in brings one as the feature "AsicChip", "Asic::Chip".

#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/asic/Feature.h"
#include "platform/asic/HwTable.h"
#include "platform/vell/Ptr.h"

namespace Asic {

class Chip : public Feature {
 public:
  static constexpr std::string_view prefix = "AsicChip";
  static constexpr std::string_view feature = "Asic::Chip";

  /// How the hardware is opened.
  enum class Access {
    live,  ///< operations reach the hardware
    copy,  ///< operations work on a private copy; the hardware stays as it is
  };
  struct Options {
    std::string hardware =
        {};  ///< where the hardware is: a file, a device; its meaning is the chip's
    Access access = Access::live;
    U64 crashAfter =
        0;  ///< the process dies right after this many operations took effect; 0: never
    std::map<std::string, std::string> switches = {};  ///< fault switches, by the chip's own names
  };
  /// Operations that took effect in the hardware since it was opened.
  struct Operations {
    U64 writes = 0;
    U64 deletes = 0;
    friend bool operator==(Operations const&, Operations const&) = default;
  };
  /// One line of the hardware's journal.
  struct JournalEntry {
    U64 number;         ///< 1 for the first operation of the hardware's life
    std::string table;  ///< qualified name of the table
    std::string operation;
    U64 row;
  };

  using Feature::Feature;
  Vell::ZarnType typeData() const override;

  /// Opens the hardware. Throws `std::runtime_error` with a text that names the place and the mend;
  /// the hardware is then untouched.
  virtual void open(Options const& options) = 0;
  /// The hardware table behind the table of that qualified name, or null if the chip has none.
  virtual Vell::Ptr<HwTable> hwTable(std::string_view tableName) = 0;
  /// What reached that table since `open`.
  virtual Operations operations(std::string_view tableName) const = 0;
  /// The newest operations, oldest first, as far back as the chip remembers and `most` allows.
  virtual std::vector<JournalEntry> journal(std::size_t most) const = 0;
};

}  // namespace Asic
