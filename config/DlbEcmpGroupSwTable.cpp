#include "config/DlbEcmpGroupSwTable.h"

#include "frame/DirectTableDefinitions.h"

template class Asic::DirectTable<TessarLoadBalance::DlbEcmpGroupTable,
                                 TessarLoadBalance::DlbEcmpGroupSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpGroupTable,
                                     TessarLoadBalance::DlbEcmpGroupSheet>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpGroupTable> const announcement;

DlbEcmpGroupTable::~DlbEcmpGroupTable() { tearDown(); }

Vell::Ptr<DlbEcmpGroupTable> dlbEcmpGroupTableFactory() { return new DlbEcmpGroupTable; }

}  // namespace TessarLoadBalance
