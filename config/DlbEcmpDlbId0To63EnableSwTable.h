// Enable bits of DLB ids 0 to 63. A commit replaces the whole word; which bit is which id's is the
// chip's.

#pragma once

#include "frame/DirectTable.h"
#include "frame/FieldEntry.h"

namespace TessarLoadBalance {

struct DlbEcmpDlbId0To63EnableSheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpDlbId0To63EnableTable",
                                          "DlbEcmpDlbId0To63EnableSwTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 0x7B953C2A,
                                                 .syncedEntry = 0xF1907444};
  using Key = Asic::SwTableBase::Index;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U64 bitmap = 0;  ///< enable bits of the 64 ids

    static constexpr auto fields() {
      return Zarn::fieldList("TessarLoadBalance::DlbEcmpDlbId0To63EnableTable::Entry",
                             Zarn::field(0x84, "bitmap", &Entry::bitmap));
    }
  };
};

class DlbEcmpDlbId0To63EnableTable final
    : public Asic::DirectTable<DlbEcmpDlbId0To63EnableTable, DlbEcmpDlbId0To63EnableSheet> {
 public:
  ~DlbEcmpDlbId0To63EnableTable() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpDlbId0To63EnableTable> dlbEcmpDlbId0To63EnableTableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::DirectTable<TessarLoadBalance::DlbEcmpDlbId0To63EnableTable,
                                        TessarLoadBalance::DlbEcmpDlbId0To63EnableSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpDlbId0To63EnableTable,
                                            TessarLoadBalance::DlbEcmpDlbId0To63EnableSheet>;
