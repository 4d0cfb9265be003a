#include "group/VxlanEcmpGroup1SelectiveDlbSwTable.h"

#include "frame/SelectiveGroupTableDefinitions.h"

template class Asic::SelectiveGroupTable<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
                                         TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
template class Asic::GroupTable<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
                                TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
template class Asic::HandleTable<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
                                 TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
                                     TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
template class Asic::UnresolvedEntries<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable,
                                       TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbSheet>;
template class Asic::TableEntryHandle<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable>;
template class Asic::UnresolvedGroupEntry<TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<VxlanEcmpGroup1SelectiveDlbTable> const announcement;

VxlanEcmpGroup1SelectiveDlbTable::~VxlanEcmpGroup1SelectiveDlbTable() { tearDown(); }

Vell::Ptr<VxlanEcmpGroup1SelectiveDlbTable> vxlanEcmpGroup1SelectiveDlbTableFactory(
    Vell::String name) {
  return new VxlanEcmpGroup1SelectiveDlbTable(std::move(name));
}

Vell::Ptr<VxlanEcmpGroup1SelectiveDlbTable> VxlanEcmpGroup1SelectiveDlbTableIs(Vell::String name) {
  return vxlanEcmpGroup1SelectiveDlbTableFactory(std::move(name));
}

}  // namespace TessarLoadBalance
