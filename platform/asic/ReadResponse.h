// What the hardware answers to a read: one row, or the end of the read.

#pragma once

#include <memory>

#include "platform/asic/EntryBase.h"
#include "platform/asic/Index.h"
#include "platform/asic/TransactionId.h"

namespace Asic {

struct ReadResponse {
  /// In the place of a row's index: the read has ended. Not the exhausted index.
  static constexpr Index endOfRead{0xFFFFFFFE};

  TransactionId transactionId;
  Index idx;                                         ///< hardware index of the row, or `endOfRead`
  std::shared_ptr<EntryBase const> entry = nullptr;  ///< what the row held; null at the end
};

}  // namespace Asic
