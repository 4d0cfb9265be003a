// Control of one port: its quality mapping profile, and how the thresholds are scaled to its speed.
// The encoding of the factors is the chip's.

#pragma once

#include "frame/DirectTable.h"
#include "frame/FieldEntry.h"

namespace TessarLoadBalance {

struct DlbEcmpPortControlSheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpPortControlTable",
                                          "DlbEcmpPortControlSwTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 0x70455DBE,
                                                 .syncedEntry = 0xA1C53AAD};
  using Key = Asic::SwTableBase::Index;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U8 qualityMappingProfilePtr = 0;           ///< quality mapping profile
    U8 portLoadThresholdScalingFac = 0;        ///< scaling factor of the port load threshold
    U8 totalPortQsizeThresholdScalingFac = 0;  ///< ... of the total port queue size
    U8 itmPortQsizeThresholdScalingFac = 0;    ///< ... of the ITM port queue size

    static constexpr auto fields() {
      return Zarn::fieldList(
          "TessarLoadBalance::DlbEcmpPortControlTable::Entry",
          Zarn::field(0x84, "qualityMappingProfilePtr", &Entry::qualityMappingProfilePtr),
          Zarn::field(0x85, "portLoadThresholdScalingFac", &Entry::portLoadThresholdScalingFac),
          Zarn::field(0x86, "totalPortQsizeThresholdScalingFac",
                      &Entry::totalPortQsizeThresholdScalingFac),
          Zarn::field(0x87, "itmPortQsizeThresholdScalingFac",
                      &Entry::itmPortQsizeThresholdScalingFac));
    }
  };
};

class DlbEcmpPortControlTable final
    : public Asic::DirectTable<DlbEcmpPortControlTable, DlbEcmpPortControlSheet> {
 public:
  ~DlbEcmpPortControlTable() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpPortControlTable> dlbEcmpPortControlTableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::DirectTable<TessarLoadBalance::DlbEcmpPortControlTable,
                                        TessarLoadBalance::DlbEcmpPortControlSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpPortControlTable,
                                            TessarLoadBalance::DlbEcmpPortControlSheet>;
