// Enable bits of DLB ids 64 to 127. A commit replaces the whole word; which bit is which id's is
// the chip's.

#pragma once

#include "frame/DirectTable.h"
#include "frame/FieldEntry.h"

namespace TessarLoadBalance {

struct DlbEcmpDlbId64To127EnableSheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpDlbId64To127EnableTable",
                                          "DlbEcmpDlbId64To127EnableSwTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 0x530CA8D6,
                                                 .syncedEntry = 0x5BAD5F89};
  using Key = Asic::SwTableBase::Index;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U64 bitmap = 0;  ///< enable bits of the 64 ids

    static constexpr auto fields() {
      return Zarn::fieldList("TessarLoadBalance::DlbEcmpDlbId64To127EnableTable::Entry",
                             Zarn::field(0x84, "bitmap", &Entry::bitmap));
    }
  };
};

class DlbEcmpDlbId64To127EnableTable final
    : public Asic::DirectTable<DlbEcmpDlbId64To127EnableTable, DlbEcmpDlbId64To127EnableSheet> {
 public:
  ~DlbEcmpDlbId64To127EnableTable() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpDlbId64To127EnableTable> dlbEcmpDlbId64To127EnableTableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::DirectTable<TessarLoadBalance::DlbEcmpDlbId64To127EnableTable,
                                        TessarLoadBalance::DlbEcmpDlbId64To127EnableSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpDlbId64To127EnableTable,
                                            TessarLoadBalance::DlbEcmpDlbId64To127EnableSheet>;
