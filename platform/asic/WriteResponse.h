// What the hardware answers to a write.

#pragma once

#include "platform/asic/SwTableBase.h"

namespace Asic {

struct WriteResponse {
  /// What a chip says of a write that it refused: the hardware has no place for it, and the row is
  /// what it was before.
  static constexpr auto refused = SwTableBase::EntryState::failedNoIndex;

  U64 write;                        ///< the write's number, as `HwTable::newestWrite` told it
  Index index;                      ///< hardware index of the row
  SwTableBase::EntryState outcome;  ///< a final state: `success`, or `refused`
};

}  // namespace Asic
