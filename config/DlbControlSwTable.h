// Control of the three load measures of dynamic load balancing: per index the weights, the caps and
// the sampling period of port loading, total queue size and ITM port queue size.

#pragma once

#include "frame/DirectTable.h"
#include "frame/FieldEntry.h"

namespace TessarLoadBalance {

struct DlbControlSheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbControlTable",
                                          "DlbControlSwTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 0xFEC2F20E,
                                                 .syncedEntry = 0xC1EC7547};
  using Key = Asic::SwTableBase::Index;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U32 portLoadingWeight = 0;              ///< weight of the port loading measure
    U32 totalQsizeWeight = 0;               ///< weight of the total queue size measure
    U32 itmPortQsizeWeight = 0;             ///< weight of the ITM port queue size measure
    bool capPortLoadingAverage = false;     ///< cap the average of the port loading
    bool capTotalPortQsizeAverage = false;  ///< cap the average of the total port queue size
    bool capItmPortQsizeAverage = false;    ///< cap the average of the ITM port queue size
    U32 samplingPeriod = 0;                 ///< sampling period, in the chip's unit

    static constexpr auto fields() {
      return Zarn::fieldList(
          "TessarLoadBalance::DlbControlTable::Entry",
          Zarn::field(0x84, "portLoadingWeight", &Entry::portLoadingWeight),
          Zarn::field(0x85, "totalQsizeWeight", &Entry::totalQsizeWeight),
          Zarn::field(0x86, "itmPortQsizeWeight", &Entry::itmPortQsizeWeight),
          Zarn::field(0x87, "capPortLoadingAverage", &Entry::capPortLoadingAverage),
          Zarn::field(0x88, "capTotalPortQsizeAverage", &Entry::capTotalPortQsizeAverage),
          Zarn::field(0x89, "capItmPortQsizeAverage", &Entry::capItmPortQsizeAverage),
          Zarn::field(0x8a, "samplingPeriod", &Entry::samplingPeriod));
    }
  };
};

class DlbControlTable final : public Asic::DirectTable<DlbControlTable, DlbControlSheet> {
 public:
  ~DlbControlTable() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbControlTable> dlbControlTableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::DirectTable<TessarLoadBalance::DlbControlTable,
                                        TessarLoadBalance::DlbControlSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::DlbControlTable,
                                            TessarLoadBalance::DlbControlSheet>;
