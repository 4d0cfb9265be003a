#include "config/DlbEcmpFlowsetSwTable.h"

#include "frame/DirectTableDefinitions.h"

template class Asic::DirectTable<TessarLoadBalance::DlbEcmpFlowsetTable,
                                 TessarLoadBalance::DlbEcmpFlowsetSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpFlowsetTable,
                                     TessarLoadBalance::DlbEcmpFlowsetSheet>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpFlowsetTable> const announcement;

DlbEcmpFlowsetTable::~DlbEcmpFlowsetTable() { tearDown(); }

Vell::Ptr<DlbEcmpFlowsetTable> dlbEcmpFlowsetTableFactory() { return new DlbEcmpFlowsetTable; }

}  // namespace TessarLoadBalance
