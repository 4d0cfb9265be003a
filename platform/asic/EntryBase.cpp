#include "platform/asic/EntryBase.h"

#include "platform/zarn/Hash.h"

namespace Asic {

U32 EntryBase::hash(U32 seed) const { return Zarn::hashSingleAttr(seed, getBlockSize()); }

}  // namespace Asic
