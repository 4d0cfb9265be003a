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
  if (isGoing()) return AccessorT(*this).refused("entryCommit", key);
  Asic::SwTable::OperationScope const scope(*this);
  Entry const wanted = entry;  // it may lie in what a watcher is about to change
  AccessorT::Operation const wish(*this, key, AccessorT::Stage::commit);
  auto const handle = AccessorT(*this).claimedHandle(wish);
  if (wish.isOvertaken()) return handle;
  if (!resolvedHas(key))
    handle->entryStateIs(Asic::SwTableBase::EntryState::unresolved);
  else if (this->entry(key) == wanted)
    return handle;
  if (!wish.isOvertaken()) store(key, wanted);
  return handle;
}

NextHopTable::HandlePtr NextHopTable::entryRef(Key key) {
  AccessorT::message<"entryRef">();
  if (isGoing()) return AccessorT(*this).refused("entryRef", key);
  Asic::SwTable::OperationScope const scope(*this);
  AccessorT::Operation const wish(*this, key, AccessorT::Stage::use);
  return AccessorT(*this).claimedHandle(wish);
}

Vell::Ptr<NextHopTable> nextHopTableFactory() { return new NextHopTable; }

}  // namespace Forwarding
