// The allocator of the rows of ECMP members, shared by all tables of a chip that hold any.

#pragma once

#include "platform/asic/BankAwareBlockAllocator.h"

namespace TessarL3Common {

class L3EcmpMember1SharedAllocator final : public Asic::BankAwareBlockAllocator {
 public:
  static Vell::ZarnType type();
  Vell::ZarnType typeData() const override { return type(); }
};

}  // namespace TessarL3Common
