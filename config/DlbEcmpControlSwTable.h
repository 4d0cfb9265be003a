// Global ECMP control of dynamic load balancing: per index a base ECMP index and a seed.

#pragma once

#include "frame/DirectTable.h"
#include "frame/FieldEntry.h"

namespace TessarLoadBalance {

struct DlbEcmpControlSheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpControlTable",
                                          "DlbEcmpControlSwTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 0x8F6A0094,
                                                 .syncedEntry = 0xE33F540F};
  using Key = Asic::SwTableBase::Index;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U16 baseEcmpIndex = 0;        ///< base ECMP index
    U32 randomSelectionSeed = 0;  ///< seed for random selection

    static constexpr auto fields() {
      return Zarn::fieldList("TessarLoadBalance::DlbEcmpControlTable::Entry",
                             Zarn::field(0x84, "baseEcmpIndex", &Entry::baseEcmpIndex),
                             Zarn::field(0x85, "randomSelectionSeed", &Entry::randomSelectionSeed));
    }
  };
};

class DlbEcmpControlTable final
    : public Asic::DirectTable<DlbEcmpControlTable, DlbEcmpControlSheet> {
 public:
  ~DlbEcmpControlTable() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpControlTable> dlbEcmpControlTableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::DirectTable<TessarLoadBalance::DlbEcmpControlTable,
                                        TessarLoadBalance::DlbEcmpControlSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpControlTable,
                                            TessarLoadBalance::DlbEcmpControlSheet>;
