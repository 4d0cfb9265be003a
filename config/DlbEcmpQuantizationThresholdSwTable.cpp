#include "config/DlbEcmpQuantizationThresholdSwTable.h"

#include "frame/DirectTableDefinitions.h"

template class Asic::DirectTable<TessarLoadBalance::DlbEcmpQuantizationThresholdTable,
                                 TessarLoadBalance::DlbEcmpQuantizationThresholdSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpQuantizationThresholdTable,
                                     TessarLoadBalance::DlbEcmpQuantizationThresholdSheet>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpQuantizationThresholdTable> const announcement;

DlbEcmpQuantizationThresholdTable::~DlbEcmpQuantizationThresholdTable() { tearDown(); }

Vell::Ptr<DlbEcmpQuantizationThresholdTable> dlbEcmpQuantizationThresholdTableFactory() {
  return new DlbEcmpQuantizationThresholdTable;
}

}  // namespace TessarLoadBalance
