// The port and the member that a flowset is assigned to, as a client wants it: the write side of
// the flowset hardware table. What the hardware has made of it since is read back through
// `DlbEcmpFlowsetTableRead`; the two tables share nothing.

#pragma once

#include "frame/DirectTable.h"
#include "frame/FieldEntry.h"

namespace TessarLoadBalance {

struct DlbEcmpFlowsetSheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpFlowsetTable",
                                          "DlbEcmpFlowsetSwTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 0xDE50A986,
                                                 .syncedEntry = 0xFB27A5B0};
  using Key = Asic::SwTableBase::Index;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U16 portAssignment = 0;   ///< port assigned to the flowset
    U8 memberAssignment = 0;  ///< member assigned to the flowset

    static constexpr auto fields() {
      return Zarn::fieldList("TessarLoadBalance::DlbEcmpFlowsetTable::Entry",
                             Zarn::field(0x84, "portAssignment", &Entry::portAssignment),
                             Zarn::field(0x85, "memberAssignment", &Entry::memberAssignment));
    }
  };
};

class DlbEcmpFlowsetTable final
    : public Asic::DirectTable<DlbEcmpFlowsetTable, DlbEcmpFlowsetSheet> {
 public:
  ~DlbEcmpFlowsetTable() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpFlowsetTable> dlbEcmpFlowsetTableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::DirectTable<TessarLoadBalance::DlbEcmpFlowsetTable,
                                        TessarLoadBalance::DlbEcmpFlowsetSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpFlowsetTable,
                                            TessarLoadBalance::DlbEcmpFlowsetSheet>;
