// The generic logic of tables that only read their hardware: a protocol end, not a shadow.

#pragma once

#include "frame/AccessorBase.h"

namespace Asic {

template <class T>
class ReadAccessor : public AccessorBase<T> {
 public:
  using AccessorBase<T>::AccessorBase;

  /// Ends the replay, and opens the way of the answers if there is a hardware table.
  void doInitComplete() {
    AccessorBase<T>::doInitComplete();
    if (swTable_->hwTable()) swTable_->readResponseSmIs(swTable_);
  }

  /// Lets the hooks do what they need before the first read.
  void syncEntries() noexcept { this->sync(swTable_->entrys(), "!swTable_->entrys()"); }

 private:
  using AccessorBase<T>::swTable_;
};

}  // namespace Asic
