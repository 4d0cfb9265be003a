// A group that stands on a block of member rows, as both tables of such groups have it. `Sheet` is the
// table's data sheet, which gives the class its name.

#pragma once

#include "frame/AccessorBase.h"
#include "frame/FieldEntry.h"
#include "platform/asic/SwTableBase.h"
#include "platform/zarn/U12.h"

namespace TessarLoadBalance {

template <class Sheet>
class SecondaryBlockEntry : public Asic::FieldEntry<SecondaryBlockEntry<Sheet>> {
  using Entry = SecondaryBlockEntry;

 public:
  static constexpr U64 numDependentFields = 1;

  /// The block that the group depends on, an entry of the member table; may be null.
  Vell::Ptr<Asic::SwTableBase::EntryHandle const> ecmpSecondaryBlockPtrHandle;
  /// The index of that block's first row, written by the table when the entry resolves; without a
  /// handle it stays what the client gave. No part of the identity.
  U32 ecmpSecondaryBlockPtr = 0;
  bool secondaryBlockValid = false;  ///< the hardware follows the pointer
  Zarn::U12 countSecondary;          ///< rows of the block that the hardware uses

  /// The entry that this one needs, and the index to fill in for it.
  auto const& neededEntryHandle() const { return ecmpSecondaryBlockPtrHandle; }
  Asic::Index neededIndex() const { return ecmpSecondaryBlockPtr; }
  void neededIndexIs(Asic::Index index) { ecmpSecondaryBlockPtr = index.value(); }

  static constexpr auto fields() {
    return Zarn::fieldList(
        Asic::NestedName<Sheet, "::Entry">::view,
        Zarn::field(0x84, "ecmpSecondaryBlockPtrHandle", &Entry::ecmpSecondaryBlockPtrHandle),
        Zarn::field(0x85, "ecmpSecondaryBlockPtr", &Entry::ecmpSecondaryBlockPtr,
                    Zarn::FieldRole::result),
        Zarn::field(0x86, "secondaryBlockValid", &Entry::secondaryBlockValid),
        Zarn::field(0x87, "countSecondary", &Entry::countSecondary));
  }
};

}  // namespace TessarLoadBalance
