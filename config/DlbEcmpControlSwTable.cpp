#include "config/DlbEcmpControlSwTable.h"

#include "frame/DirectTableDefinitions.h"

template class Asic::DirectTable<TessarLoadBalance::DlbEcmpControlTable,
                                 TessarLoadBalance::DlbEcmpControlSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpControlTable,
                                     TessarLoadBalance::DlbEcmpControlSheet>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpControlTable> const announcement;

DlbEcmpControlTable::~DlbEcmpControlTable() { tearDown(); }

Vell::Ptr<DlbEcmpControlTable> dlbEcmpControlTableFactory() { return new DlbEcmpControlTable; }

}  // namespace TessarLoadBalance
