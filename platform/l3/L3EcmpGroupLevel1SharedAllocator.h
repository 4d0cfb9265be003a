// The allocator of the indices of level-1 ECMP groups, shared by all tables of a chip that hold any.

#pragma once

#include "platform/asic/FirstFreeIndexAllocator.h"

namespace TessarL3Tunnel {

class L3EcmpGroupLevel1SharedAllocator final : public Asic::FirstFreeIndexAllocator {
 public:
  static Vell::ZarnType type();
  Vell::ZarnType typeData() const override { return type(); }
};

}  // namespace TessarL3Tunnel
