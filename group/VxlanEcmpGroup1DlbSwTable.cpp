#include "group/VxlanEcmpGroup1DlbSwTable.h"

#include "frame/GroupTableDefinitions.h"

template class Asic::GroupTable<TessarLoadBalance::VxlanEcmpGroup1DlbTable,
                                TessarLoadBalance::VxlanEcmpGroup1DlbSheet>;
template class Asic::HandleTable<TessarLoadBalance::VxlanEcmpGroup1DlbTable,
                                 TessarLoadBalance::VxlanEcmpGroup1DlbSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::VxlanEcmpGroup1DlbTable,
                                     TessarLoadBalance::VxlanEcmpGroup1DlbSheet>;
template class Asic::TableEntryHandle<TessarLoadBalance::VxlanEcmpGroup1DlbTable>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<VxlanEcmpGroup1DlbTable> const announcement;

VxlanEcmpGroup1DlbTable::~VxlanEcmpGroup1DlbTable() { tearDown(); }

Vell::Ptr<VxlanEcmpGroup1DlbTable> vxlanEcmpGroup1DlbTableFactory(Vell::String name) {
  return new VxlanEcmpGroup1DlbTable(std::move(name));
}

Vell::Ptr<VxlanEcmpGroup1DlbTable> VxlanEcmpGroup1DlbTableIs(Vell::String name) {
  return vxlanEcmpGroup1DlbTableFactory(std::move(name));
}

}  // namespace TessarLoadBalance
