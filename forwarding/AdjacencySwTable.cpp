#include "forwarding/AdjacencySwTable.h"

#include "forwarding/SmallTableDefinitions.h"
#include "frame/UnresolvedEntriesDefinitions.h"

template class Asic::HandleTable<Forwarding::AdjacencyTable, Forwarding::AdjacencySheet>;
template class Asic::UnresolvedEntries<Forwarding::AdjacencyTable, Forwarding::AdjacencySheet>;
template class Asic::TableEntryHandle<Forwarding::AdjacencyTable>;
template class Forwarding::SmallTable<Forwarding::AdjacencyTable, Forwarding::AdjacencySheet>;

namespace Forwarding {

static Asic::TableAnnouncement<AdjacencyTable> const announcement;

Vell::ZarnType AdjacencySharedAllocator::type() {
  return {&AdjacencyTable::module(), AdjacencyTable::allocatorTypeNumber};
}

// ---- records ----

constinit Zarn::AllocTrackTypeInfo UnresolvedAdjacency::memAllocationTracker_{
    "Forwarding::AdjacencyTable::UnresolvedAdjacency"};

Vell::ZarnType UnresolvedAdjacency::typeData() const {
  return {&AdjacencyTable::module(), AdjacencyTable::unresolvedTypeNumber};
}

// ---- the table ----

AdjacencyTable::~AdjacencyTable() { tearDown(); }

AdjacencyTable::HandlePtr AdjacencyTable::entryCommit(Key key, Entry const& entry) {
  using Asic::SwTableBase::EntryState::unresolved;
  AccessorT::message<"entryCommit">();
  if (isGoing()) return AccessorT(*this).refused("entryCommit", key);
  Asic::SwTable::OperationScope const scope(*this);
  Entry const wanted = entry;  // it may lie in what a watcher is about to change
  AccessorT::Operation const wish(*this, key, AccessorT::Stage::commit);
  auto const handle = AccessorT(*this).claimedHandle(wish);
  if (wish.isOvertaken() || isWanted(key, wanted)) return handle;
  handle->entryStateIs(unresolved);
  if (wish.isOvertaken()) return handle;
  auto const former = this->unresolved(key);  // with its group, until the new one is in its place
  unresolvedDel(key);
  if (wish.isOvertaken()) return handle;
  Vell::Ptr<UnresolvedRecord> const made = new UnresolvedRecord(key);
  made->rows().row = wanted;  // before anybody hears of it
  auto const record = unresolvedIs(made);
  if (record->hasLeft()) return handle;
  AccessorT(*this).initUnresolved(*record);
  // Still waiting: the row that lies there from before knows where its group was.
  if (!wish.isOvertaken() && !configReplayComplete() && handle->entryState() == unresolved &&
      syncedEntryMap().lookup(key.id))
    suggestIndices(*handle, {key.id});
  return handle;
}

/// Whether that value waits, or stands and nothing else waits.
bool AdjacencyTable::isWanted(Key const& key, Entry const& entry) const {
  if (auto const record = unresolved(key)) return record->rows().row == entry;
  return resolvedHas(key) && this->entry(key) == entry;
}

Asic::Index AdjacencyTable::newIndex(IndexAllocator& allocator, Key const& key) const {
  allocator.requestIndexForKey(key.id, keyType(), &key, this);
  return allocator.indexForKey(keyType(), &key, this);
}

void AdjacencyTable::resolvedIs(UnresolvedAdjacency const& record) {
  Asic::SwTable::OperationScope const scope(*this);
  auto const key = record.key();
  auto const wanted = record.rows().row;
  // The former group is let go when the row points at it no more.
  auto const former = entry(key);
  // Its place is known before anything is compared with what lies there.
  newIndex(*indexAllocator(), key);
  store(key, wanted);
}

Vell::Ptr<AdjacencyTable> adjacencyTableFactory() { return new AdjacencyTable; }

}  // namespace Forwarding
