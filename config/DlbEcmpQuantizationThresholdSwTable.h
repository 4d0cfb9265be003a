// Bands of the three load measures: per index one threshold of each. Which indices make up a
// profile, and what unit a threshold has, is the chip's.

#pragma once

#include "frame/DirectTable.h"
#include "frame/FieldEntry.h"

namespace TessarLoadBalance {

struct DlbEcmpQuantizationThresholdSheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpQuantizationThresholdTable",
                                          "DlbEcmpQuantizationThresholdSwTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 0xBE3F2D,
                                                 .syncedEntry = 0xD78645DE};
  using Key = Asic::SwTableBase::Index;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U32 portLoadingThreshold = 0;     ///< threshold of the port loading
    U32 totalPortQsizeThreshold = 0;  ///< threshold of the total port queue size
    U32 itmPortQsizeThreshold = 0;    ///< threshold of the ITM port queue size

    static constexpr auto fields() {
      return Zarn::fieldList(
          "TessarLoadBalance::DlbEcmpQuantizationThresholdTable::Entry",
          Zarn::field(0x84, "portLoadingThreshold", &Entry::portLoadingThreshold),
          Zarn::field(0x85, "totalPortQsizeThreshold", &Entry::totalPortQsizeThreshold),
          Zarn::field(0x86, "itmPortQsizeThreshold", &Entry::itmPortQsizeThreshold));
    }
  };
};

class DlbEcmpQuantizationThresholdTable final
    : public Asic::DirectTable<DlbEcmpQuantizationThresholdTable,
                               DlbEcmpQuantizationThresholdSheet> {
 public:
  ~DlbEcmpQuantizationThresholdTable() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpQuantizationThresholdTable> dlbEcmpQuantizationThresholdTableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::DirectTable<TessarLoadBalance::DlbEcmpQuantizationThresholdTable,
                                        TessarLoadBalance::DlbEcmpQuantizationThresholdSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpQuantizationThresholdTable,
                                            TessarLoadBalance::DlbEcmpQuantizationThresholdSheet>;
