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
  AccessorT::message<"entryCommit">();
  Asic::SwTable::OperationScope const scope(*this);
  Vell::Ptr<EntryHandle> const handle = entryHandleIs(key, this);
  handle->committed();
  if (isWanted(key, entry)) return handle;
  handle->entryStateIs(Asic::SwTableBase::EntryState::unresolved);
  auto const former = unresolved(key);  // with its group, until the new one is in its place
  unresolvedDel(key);
  auto const record = unresolvedIs(key);
  record->rows().row = entry;
  AccessorT(*this).initUnresolved(*record);
  // Still waiting: the row that lies there from before knows where its group was.
  if (!configReplayComplete() &&
      handle->entryState() == Asic::SwTableBase::EntryState::unresolved &&
      syncedEntryMap().lookup(key.id))
    suggestIndices(*handle, {key.id});
  return handle;
}

/// Whether that value waits, or stands and nothing else waits.
bool AdjacencyTable::isWanted(Key const& key, Entry const& entry) const {
  if (auto const record = unresolved(key)) return record->rows().row == entry;
  return resolvedHas(key) && this->entry(key) == entry;
}

Asic::Index AdjacencyTable::newIndex(IndexAllocator& allocator, Key const& key) {
  allocator.requestIndexForKey(key.id, keyType(), &key);
  return allocator.indexForKey(keyType(), &key);
}

void AdjacencyTable::resolvedIs(UnresolvedAdjacency const& record) {
  Asic::SwTable::OperationScope const scope(*this);
  auto const key = record.key();
  auto const wanted = record.rows().row;
  // The former group is let go when the row points at it no more.
  auto const former = entry(key);
  // Its place is known before anything is compared with what lies there.
  store(key, wanted, [&] { newIndex(*indexAllocator(), key); });
}

Vell::Ptr<AdjacencyTable> adjacencyTableFactory() { return new AdjacencyTable; }

}  // namespace Forwarding
