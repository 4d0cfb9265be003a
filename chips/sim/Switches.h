// The fault switches: ways to make the chip behave badly on purpose.

#pragma once

#include <map>
#include <optional>
#include <string>

#include "platform/vell/Types.h"

namespace Sim {

struct Switches {
  struct RowAddress {
    std::string table;  ///< qualified name, or what stands behind its last "::"
    U64 row;
  };

  /// What becomes of writes that are acknowledged, each as a chance in percent.
  struct WriteFaults {
    U32 refused = 0;      ///< refuse-writes: the row stays as it was, and the answer says so
    U32 late = 0;         ///< delay-acks: the acknowledgement comes 1 to 8 polls later
    U32 reordered = 0;    ///< reorder-acks: it goes to some place before those that are owed
    U32 doubled = 0;      ///< duplicate-acks: it comes twice
    U32 lost = 0;         ///< lose-acks: it never comes
    U64 until = ~U64{0};  ///< faults-until: the chip behaves from that poll on
  };

  /// freeze-after=N: operations after the N-th since opening are lost without a word.
  std::optional<U64> freezeAfter;
  /// delay-reads=N: N polls pass before the first answer to a read.
  U64 delayReads = 0;
  /// interleave-reads=on: answers to the reads under way come by turns, and not read after read.
  bool interleaveReads = false;
  /// lose-read-ends=N: the ends of the first N reads of a whole table never come.
  U64 loseReadEnds = 0;
  WriteFaults writes;
  /// fault-seed=S: another seed, other faults.
  U64 faultSeed = 1;
  /// stop-at-breach=on: an operation that breaks the truth of Truth.h stops the process.
  bool stopAtBreach = false;
  /// flip-row=TABLE:ROW: opening flips the lowest bit of the first field of that valid row.
  std::optional<RowAddress> flipRow;
};

/// Throws `std::runtime_error` that names the first unknown switch or malformed
/// value, and what there is.
Switches switchesOf(std::map<std::string, std::string> const& given);

}  // namespace Sim
