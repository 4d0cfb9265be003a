#include "config/DlbControlSwTable.h"

#include "frame/DirectTableDefinitions.h"

template class Asic::DirectTable<TessarLoadBalance::DlbControlTable,
                                 TessarLoadBalance::DlbControlSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::DlbControlTable,
                                     TessarLoadBalance::DlbControlSheet>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbControlTable> const announcement;

DlbControlTable::~DlbControlTable() { tearDown(); }

Vell::Ptr<DlbControlTable> dlbControlTableFactory() { return new DlbControlTable; }

}  // namespace TessarLoadBalance
