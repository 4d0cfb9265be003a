// Level-1 ECMP groups over member blocks: a group's row holds the index of a block of member rows. A
// client may commit a group before its block is in the hardware; the group then waits, and its block
// stays until no row points at it any more.

#pragma once

#include "frame/SelectiveGroupTable.h"
#include "group/L3AdjIdKeyText.h"
#include "group/SecondaryBlockEntry.h"
#include "platform/l3/L3AdjIdKey.h"
#include "platform/l3/L3EcmpGroupLevel1SharedAllocator.h"

namespace TessarLoadBalance {

struct EcmpGroup1SelectiveDlbSheet : Asic::SelectiveGroupSheet<EcmpGroup1SelectiveDlbSheet> {
  static constexpr Asic::TableNames names{"TessarLoadBalance::EcmpGroup1SelectiveDlbTable",
                                          "EcmpGroup1SelectiveDlbTable"};
  static constexpr Asic::HandleMapConstants maps{
      .entryHandle = 0xC7B458B3, .resolvedEntry = 0x3CBA0B59, .unresolved = 0x277D4F7E};

  using Key = TessarL3Common::L3AdjIdKey;
  using IndexAllocator = TessarL3Tunnel::L3EcmpGroupLevel1SharedAllocator;
  using Entry = SecondaryBlockEntry<EcmpGroup1SelectiveDlbSheet>;

  static L3AdjIdKeyText keyText(Key const& key) { return {key}; }
};

class EcmpGroup1SelectiveDlbTable final
    : public Asic::SelectiveGroupTable<EcmpGroup1SelectiveDlbTable, EcmpGroup1SelectiveDlbSheet> {
 public:
  explicit EcmpGroup1SelectiveDlbTable(Vell::String name) : SelectiveGroupTable(std::move(name)) {}
  ~EcmpGroup1SelectiveDlbTable() override;
};

/// A new table of that name, empty and in its first phase.
Vell::Ptr<EcmpGroup1SelectiveDlbTable> ecmpGroup1SelectiveDlbTableFactory(Vell::String name);
Vell::Ptr<EcmpGroup1SelectiveDlbTable> EcmpGroup1SelectiveDlbTableIs(Vell::String name);

}  // namespace TessarLoadBalance

extern template class Asic::SelectiveGroupTable<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                                TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
extern template class Asic::GroupTable<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                       TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
extern template class Asic::HandleTable<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                        TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                            TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
extern template class Asic::UnresolvedEntries<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                              TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
extern template class Asic::TableEntryHandle<TessarLoadBalance::EcmpGroup1SelectiveDlbTable>;
extern template class Asic::UnresolvedGroupEntry<TessarLoadBalance::EcmpGroup1SelectiveDlbTable>;
