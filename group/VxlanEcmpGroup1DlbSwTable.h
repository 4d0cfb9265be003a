// Level-1 ECMP groups that are reached through a VXLAN underlay: the twin of EcmpGroup1DlbTable for
// underlay adjacencies, whose keys are never equal to the others. Both draw their indices from one
// allocator.

#pragma once

#include "frame/FieldEntry.h"
#include "frame/GroupTable.h"
#include "platform/l3/L3AdjIdKey.h"
#include "platform/l3/L3EcmpGroupLevel1SharedAllocator.h"

namespace TessarLoadBalance {

struct VxlanEcmpGroup1DlbSheet : Asic::GroupSheet<VxlanEcmpGroup1DlbSheet> {
  static constexpr Asic::TableNames names{"TessarLoadBalance::VxlanEcmpGroup1DlbTable",
                                          "VxlanEcmpGroup1DlbTable"};
  static constexpr Asic::HandleMapConstants maps{.entryHandle = 0xC381CE4A,
                                                 .resolvedEntry = 0xA169B511};

  using Key = TessarL3Common::VxlanL3UnderlayAdjIdKey;
  using IndexAllocator = TessarL3Tunnel::L3EcmpGroupLevel1SharedAllocator;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U32 lbMode = 0;                 ///< load-balancing mode; its values are the chip's
    bool fastLinkFailover = false;  ///< the hardware itself takes failed links out

    static constexpr auto fields() {
      return Zarn::fieldList("TessarLoadBalance::VxlanEcmpGroup1DlbTable::Entry",
                             Zarn::field(0x84, "lbMode", &Entry::lbMode),
                             Zarn::field(0x85, "fastLinkFailover", &Entry::fastLinkFailover));
    }
  };
};

class VxlanEcmpGroup1DlbTable final
    : public Asic::GroupTable<VxlanEcmpGroup1DlbTable, VxlanEcmpGroup1DlbSheet> {
 public:
  explicit VxlanEcmpGroup1DlbTable(Vell::String name) : GroupTable(std::move(name)) {}
  ~VxlanEcmpGroup1DlbTable() override;
};

/// A new table of that name, empty and in its first phase.
Vell::Ptr<VxlanEcmpGroup1DlbTable> vxlanEcmpGroup1DlbTableFactory(Vell::String name);
Vell::Ptr<VxlanEcmpGroup1DlbTable> VxlanEcmpGroup1DlbTableIs(Vell::String name);

}  // namespace TessarLoadBalance

extern template class Asic::GroupTable<TessarLoadBalance::VxlanEcmpGroup1DlbTable,
                                       TessarLoadBalance::VxlanEcmpGroup1DlbSheet>;
extern template class Asic::HandleTable<TessarLoadBalance::VxlanEcmpGroup1DlbTable,
                                        TessarLoadBalance::VxlanEcmpGroup1DlbSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::VxlanEcmpGroup1DlbTable,
                                            TessarLoadBalance::VxlanEcmpGroup1DlbSheet>;
extern template class Asic::TableEntryHandle<TessarLoadBalance::VxlanEcmpGroup1DlbTable>;
