#include "group/EcmpGroup1SelectiveDlbSwTable.h"

#include "frame/SelectiveGroupTableDefinitions.h"

template class Asic::SelectiveGroupTable<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                         TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
template class Asic::GroupTable<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
template class Asic::HandleTable<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                 TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                     TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
template class Asic::UnresolvedEntries<TessarLoadBalance::EcmpGroup1SelectiveDlbTable,
                                       TessarLoadBalance::EcmpGroup1SelectiveDlbSheet>;
template class Asic::TableEntryHandle<TessarLoadBalance::EcmpGroup1SelectiveDlbTable>;
template class Asic::UnresolvedGroupEntry<TessarLoadBalance::EcmpGroup1SelectiveDlbTable>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<EcmpGroup1SelectiveDlbTable> const announcement;

EcmpGroup1SelectiveDlbTable::~EcmpGroup1SelectiveDlbTable() { tearDown(); }

Vell::Ptr<EcmpGroup1SelectiveDlbTable> ecmpGroup1SelectiveDlbTableFactory(Vell::String name) {
  return new EcmpGroup1SelectiveDlbTable(std::move(name));
}

Vell::Ptr<EcmpGroup1SelectiveDlbTable> EcmpGroup1SelectiveDlbTableIs(Vell::String name) {
  return ecmpGroup1SelectiveDlbTableFactory(std::move(name));
}

}  // namespace TessarLoadBalance
