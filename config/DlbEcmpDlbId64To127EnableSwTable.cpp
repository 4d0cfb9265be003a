#include "config/DlbEcmpDlbId64To127EnableSwTable.h"

#include "frame/DirectTableDefinitions.h"

template class Asic::DirectTable<TessarLoadBalance::DlbEcmpDlbId64To127EnableTable,
                                 TessarLoadBalance::DlbEcmpDlbId64To127EnableSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpDlbId64To127EnableTable,
                                     TessarLoadBalance::DlbEcmpDlbId64To127EnableSheet>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpDlbId64To127EnableTable> const announcement;

DlbEcmpDlbId64To127EnableTable::~DlbEcmpDlbId64To127EnableTable() { tearDown(); }

Vell::Ptr<DlbEcmpDlbId64To127EnableTable> dlbEcmpDlbId64To127EnableTableFactory() {
  return new DlbEcmpDlbId64To127EnableTable;
}

}  // namespace TessarLoadBalance
