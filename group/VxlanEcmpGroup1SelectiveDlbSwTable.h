// Level-1 ECMP groups over member blocks that are reached through a VXLAN underlay: the twin of
// EcmpGroup1SelectiveDlbTable for underlay adjacencies, whose keys are never equal to the others. The
// group tables draw their indices from one allocator, and a block can be needed by groups of both.

#pragma once

#include "frame/SelectiveGroupTable.h"
#include "group/SecondaryBlockEntry.h"
#include "platform/l3/L3AdjIdKey.h"
#include "platform/l3/L3EcmpGroupLevel1SharedAllocator.h"

namespace TessarLoadBalance {

struct VxlanEcmpGroup1SelectiveDlbSheet
    : Asic::SelectiveGroupSheet<VxlanEcmpGroup1SelectiveDlbSheet> {
  static constexpr Asic::TableNames names{"TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable",
                                          "VxlanEcmpGroup1SelectiveDlbTable"};
  static constexpr Asic::HandleMapConstants maps{
      .entryHandle = 0xC85D07B7, .resolvedEntry = 0xD5E4231A, .unresolved = 0x1224C3AB};

  using Key = TessarL3Common::VxlanL3UnderlayAdjIdKey;
  using IndexAllocator = TessarL3Tunnel::L3EcmpGroupLevel1SharedAllocator;
  using Entry = SecondaryBlockEntry<VxlanEcmpGroup1SelectiveDlbSheet>;
};

class VxlanEcmpGroup1SelectiveDlbTable final
    : public Asic::SelectiveGroupTable<VxlanEcmpGroup1SelectiveDlbTable,
                                       VxlanEcmpGroup1SelectiveDlbSheet> {
 public:
  explicit VxlanEcmpGroup1SelectiveDlbTable(Vell::String name)
      : SelectiveGroupTable(std::move(name)) {}
  ~VxlanEcmpGroup1SelectiveDlbTable() override;
};

/// A new table of that name, empty and in its first phase.
Vell::Ptr<VxlanEcmpGroup1SelectiveDlbTable> vxlanEcmpGroup1SelectiveDlbTableFactory(
    Vell::String name);
Vell::Ptr<VxlanEcmpGroup1SelectiveDlbTable> VxlanEcmpGroup1SelectiveDlbTableIs(Vell::String name);

}  // namespace TessarLoadBalance

extern template class Asic::SelectiveGroupTable<
    TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
    TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
extern template class Asic::GroupTable<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
                                       TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
extern template class Asic::HandleTable<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
                                        TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
                                            TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
extern template class Asic::UnresolvedEntries<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
                                              TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
extern template class Asic::TableEntryHandle<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable>;
extern template class Asic::UnresolvedGroupEntry<
    TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable>;
