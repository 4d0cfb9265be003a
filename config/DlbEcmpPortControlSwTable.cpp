#include "config/DlbEcmpPortControlSwTable.h"

#include "frame/DirectTableDefinitions.h"

template class Asic::DirectTable<TessarLoadBalance::DlbEcmpPortControlTable,
                                 TessarLoadBalance::DlbEcmpPortControlSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpPortControlTable,
                                     TessarLoadBalance::DlbEcmpPortControlSheet>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpPortControlTable> const announcement;

DlbEcmpPortControlTable::~DlbEcmpPortControlTable() { tearDown(); }

Vell::Ptr<DlbEcmpPortControlTable> dlbEcmpPortControlTableFactory() {
  return new DlbEcmpPortControlTable;
}

}  // namespace TessarLoadBalance
