// The quality of a port by its quantized load. The key is structured: where the hardware keeps it
// is the plug-in's affair, so the table knows no index, and every key reaches the hardware.

#pragma once

#include "frame/DirectTable.h"
#include "frame/FieldEntry.h"
#include "platform/l3/DlbEcmpQualityMapKey.h"

namespace TessarLoadBalance {

struct DlbEcmpQualityMapSheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpQualityMapTable",
                                          "DlbEcmpQualityMapSwTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 0x7DF4BFC8,
                                                 .syncedEntry = 0xA05085FD};
  using Key = DlbEcmpQualityMapKey;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U32 assignedQuality = 0;  ///< quality assigned to the key; more is better

    static constexpr auto fields() {
      return Zarn::fieldList("TessarLoadBalance::DlbEcmpQualityMapTable::Entry",
                             Zarn::field(0x84, "assignedQuality", &Entry::assignedQuality));
    }
  };
};

class DlbEcmpQualityMapTable final
    : public Asic::DirectTable<DlbEcmpQualityMapTable, DlbEcmpQualityMapSheet> {
 public:
  ~DlbEcmpQualityMapTable() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpQualityMapTable> dlbEcmpQualityMapTableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::DirectTable<TessarLoadBalance::DlbEcmpQualityMapTable,
                                        TessarLoadBalance::DlbEcmpQualityMapSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpQualityMapTable,
                                            TessarLoadBalance::DlbEcmpQualityMapSheet>;
