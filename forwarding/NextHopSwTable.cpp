#include "forwarding/NextHopSwTable.h"

#include "forwarding/SmallTableDefinitions.h"

template class Asic::HandleTable<Forwarding::NextHopTable, Forwarding::NextHopSheet>;
template class Asic::TableEntryHandle<Forwarding::NextHopTable>;
template class Forwarding::SmallTable<Forwarding::NextHopTable, Forwarding::NextHopSheet>;

namespace Forwarding {

static Asic::TableAnnouncement<NextHopTable> const announcement;

Vell::ZarnType NextHopSharedAllocator::type() {
  return {&NextHopTable::module(), NextHopTable::allocatorTypeNumber};
}

NextHopTable::~NextHopTable() { tearDown(); }

NextHopTable::HandlePtr NextHopTable::entryCommit(Key key, Entry const& entry) {
  AccessorT::message<"entryCommit">();
  Asic::SwTable::OperationScope const scope(*this);
  Vell::Ptr<EntryHandle> const handle = entryHandleIs(key, this);
  handle->committed();
  if (!resolvedHas(key))
    handle->entryStateIs(Asic::SwTableBase::EntryState::unresolved);
  else if (this->entry(key) == entry)
    return handle;
  store(key, entry, [] {});
  return handle;
}

NextHopTable::HandlePtr NextHopTable::entryRef(Key key) {
  AccessorT::message<"entryRef">();
  Asic::SwTable::OperationScope const scope(*this);
  Vell::Ptr<EntryHandle> const handle = entryHandleIs(key, this);
  handle->referenced();
  return handle;
}

Vell::Ptr<NextHopTable> nextHopTableFactory() { return new NextHopTable; }

}  // namespace Forwarding
