// A chip, as an agent reaches it: it opens the hardware and makes the hardware tables that the
// tables' hooks work on. A plug-in brings one as the feature "AsicChip", "Asic::Chip".

#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/asic/Feature.h"
#include "platform/asic/HwTable.h"
#include "platform/vell/Ptr.h"
#include "platform/vell/Value.h"

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
  /// Why the hardware has no place for the entry at the key, in one clause that ends with the mend;
  /// empty if it has one. Both as a table of that qualified name tells them to reflection. An agent
  /// asks before it opens the hardware; the tables do not ask, and pass on every value.
  virtual std::string misfit(std::string_view, Vell::Value const& /*key*/,
                             Vell::Record const& /*entry*/) const {
    return {};
  }

  /// Lets the hardware's answers that have come reach their tables, and returns how many did. The
  /// owner calls it between operations on tables, never from inside one. Passes on what a client's
  /// handler throws; answers behind that one stay for the next call.
  virtual U64 poll() { return 0; }
  /// Answers that the hardware still owes, or that wait to be delivered to a response machine that is
  /// there; 0 when another `poll` would bring nothing.
  virtual U64 answersOutstanding() const { return 0; }

  /// What simulated traffic did to the flowsets.
  struct Traffic {
    U64 flows = 0;     ///< that came
    U64 assigned = 0;  ///< found their flowset without a port, and it was given one
    U64 moved = 0;     ///< found their flowset on a port, and it went to another one
    U64 kept = 0;      ///< went the way of their flowset
    U64 unserved = 0;  ///< no group, or no port of it, could take them
    friend bool operator==(Traffic const&, Traffic const&) = default;
  };
  /// Plays that many random flows through the hardware as it is programmed; the same seed on the
  /// same hardware does the same. Nothing on a chip that is not simulated.
  virtual std::optional<Traffic> simulateTraffic(U64 /*flows*/, U64 /*seed*/) { return {}; }

  /// Where the hardware contradicts itself now, each in one clause that names table and row: rows that
  /// point at rows which are not there. A chip that cannot tell says nothing.
  virtual std::vector<std::string> contradictions() const { return {}; }
  /// Operations since `open` after which it did, each in one clause, also if a later one mended that.
  virtual std::vector<std::string> breaches() const { return {}; }

  /// The newest operations, oldest first, as far back as the chip remembers and `most` allows.
  virtual std::vector<JournalEntry> journal(std::size_t most) const = 0;
};

}  // namespace Asic
