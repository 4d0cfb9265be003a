#include "config/DlbEcmpDlbId0To63EnableSwTable.h"

#include "frame/DirectTableDefinitions.h"

template class Asic::DirectTable<TessarLoadBalance::DlbEcmpDlbId0To63EnableTable,
                                 TessarLoadBalance::DlbEcmpDlbId0To63EnableSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpDlbId0To63EnableTable,
                                     TessarLoadBalance::DlbEcmpDlbId0To63EnableSheet>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpDlbId0To63EnableTable> const announcement;

DlbEcmpDlbId0To63EnableTable::~DlbEcmpDlbId0To63EnableTable() { tearDown(); }

Vell::Ptr<DlbEcmpDlbId0To63EnableTable> dlbEcmpDlbId0To63EnableTableFactory() {
  return new DlbEcmpDlbId0To63EnableTable;
}

}  // namespace TessarLoadBalance
