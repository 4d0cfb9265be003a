#include "config/DlbEcmpQualityMapSwTable.h"

#include "frame/DirectTableDefinitions.h"

template class Asic::DirectTable<TessarLoadBalance::DlbEcmpQualityMapTable,
                                 TessarLoadBalance::DlbEcmpQualityMapSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpQualityMapTable,
                                     TessarLoadBalance::DlbEcmpQualityMapSheet>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpQualityMapTable> const announcement;

DlbEcmpQualityMapTable::~DlbEcmpQualityMapTable() { tearDown(); }

Vell::Ptr<DlbEcmpQualityMapTable> dlbEcmpQualityMapTableFactory() {
  return new DlbEcmpQualityMapTable;
}

}  // namespace TessarLoadBalance
