#include "member/DlbEcmpMember1SwTable.h"

#include "frame/BlockTableDefinitions.h"

template class Asic::BlockTable<TessarLoadBalance::DlbEcmpMember1Table,
                                TessarLoadBalance::DlbEcmpMember1Sheet>;
template class Asic::HandleTable<TessarLoadBalance::DlbEcmpMember1Table,
                                 TessarLoadBalance::DlbEcmpMember1Sheet>;
template class Asic::TableEntryHandle<TessarLoadBalance::DlbEcmpMember1Table>;
template class Asic::UnresolvedEntries<TessarLoadBalance::DlbEcmpMember1Table,
                                       TessarLoadBalance::DlbEcmpMember1Sheet>;
template class Asic::UnresolvedEntryBlock<TessarLoadBalance::DlbEcmpMember1Table>;

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpMember1Table> const announcement;

DlbEcmpMember1Table::~DlbEcmpMember1Table() { tearDown(); }

Vell::Ptr<DlbEcmpMember1Table> dlbEcmpMember1TableFactory() { return new DlbEcmpMember1Table; }

}  // namespace TessarLoadBalance
