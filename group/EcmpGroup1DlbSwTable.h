// Level-1 ECMP groups: how a group spreads its flows, and whether it fails over by itself. A client
// knows a group by its L3 adjacency; where it lies in the hardware is the affair of an allocator that
// other tables share.

#pragma once

#include "frame/FieldEntry.h"
#include "frame/GroupTable.h"
#include "group/L3AdjIdKeyText.h"
#include "platform/l3/L3AdjIdKey.h"
#include "platform/l3/L3EcmpGroupLevel1SharedAllocator.h"

namespace TessarLoadBalance {

struct EcmpGroup1DlbSheet : Asic::GroupSheet<EcmpGroup1DlbSheet> {
  static constexpr Asic::TableNames names{"TessarLoadBalance::EcmpGroup1DlbTable",
                                          "EcmpGroup1DlbTable"};
  static constexpr Asic::HandleMapConstants maps{.entryHandle = 0xAA8A33E9,
                                                 .resolvedEntry = 0x0269622D};

  using Key = TessarL3Common::L3AdjIdKey;
  using IndexAllocator = TessarL3Tunnel::L3EcmpGroupLevel1SharedAllocator;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U32 lbMode = 0;                 ///< load-balancing mode; its values are the chip's
    bool fastLinkFailover = false;  ///< the hardware itself takes failed links out

    static constexpr auto fields() {
      return Zarn::fieldList("TessarLoadBalance::EcmpGroup1DlbTable::Entry",
                             Zarn::field(0x84, "lbMode", &Entry::lbMode),
                             Zarn::field(0x85, "fastLinkFailover", &Entry::fastLinkFailover));
    }
  };

  static L3AdjIdKeyText keyText(Key const& key) { return {key}; }
};

class EcmpGroup1DlbTable final : public Asic::GroupTable<EcmpGroup1DlbTable, EcmpGroup1DlbSheet> {
 public:
  explicit EcmpGroup1DlbTable(Vell::String name) : GroupTable(std::move(name)) {}
  ~EcmpGroup1DlbTable() override;
};

/// A new table of that name, empty and in its first phase.
Vell::Ptr<EcmpGroup1DlbTable> ecmpGroup1DlbTableFactory(Vell::String name);
Vell::Ptr<EcmpGroup1DlbTable> EcmpGroup1DlbTableIs(Vell::String name);

}  // namespace TessarLoadBalance

extern template class Asic::GroupTable<TessarLoadBalance::EcmpGroup1DlbTable,
                                       TessarLoadBalance::EcmpGroup1DlbSheet>;
extern template class Asic::HandleTable<TessarLoadBalance::EcmpGroup1DlbTable,
                                        TessarLoadBalance::EcmpGroup1DlbSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::EcmpGroup1DlbTable,
                                            TessarLoadBalance::EcmpGroup1DlbSheet>;
extern template class Asic::TableEntryHandle<TessarLoadBalance::EcmpGroup1DlbTable>;
