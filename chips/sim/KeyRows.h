// Which row of the hardware belongs to a key, and back. A kind of key brings a specialisation.

#pragma once

#include "platform/asic/SwTableBase.h"

namespace Sim {

template <class Key>
struct KeyRows;

/// An index is the number of its row.
template <>
struct KeyRows<Asic::SwTableBase::Index> {
  static U32 row(Asic::SwTableBase::Index key) { return key.value(); }
  static Asic::SwTableBase::Index key(U32 row) { return row; }
};

}  // namespace Sim
