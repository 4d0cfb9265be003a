#include "group/EcmpGroup1DlbSwTable.h"

#include "frame/GroupTableDefinitions.h"

template class Asic::GroupTable<TessarLoadBalance::EcmpGroup1DlbTable,
                                TessarLoadBalance::EcmpGroup1DlbSheet>;
template class Asic::HandleTable<TessarLoadBalance::EcmpGroup1DlbTable,
                                 TessarLoadBalance::EcmpGroup1DlbSheet>;
template class Asic::ResolvedEntries<TessarLoadBalance::EcmpGroup1DlbTable,
                                     TessarLoadBalance::EcmpGroup1DlbSheet>;
template class Asic::TableEntryHandle<TessarLoadBalance::EcmpGroup1DlbTable>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<EcmpGroup1DlbTable> const announcement;

EcmpGroup1DlbTable::~EcmpGroup1DlbTable() { tearDown(); }

Vell::Ptr<EcmpGroup1DlbTable> ecmpGroup1DlbTableFactory(Vell::String name) {
  return new EcmpGroup1DlbTable(std::move(name));
}

Vell::Ptr<EcmpGroup1DlbTable> EcmpGroup1DlbTableIs(Vell::String name) {
  return ecmpGroup1DlbTableFactory(std::move(name));
}

}  // namespace TessarLoadBalance
