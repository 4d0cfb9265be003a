#include "forwarding/NextHopSwTable.h"

#include "forwarding/NextHopReflection.h"
#include "frame/BlockAccessorDefinitions.h"
#include "frame/HandleTableDefinitions.h"

template class Asic::HandleTable<Forwarding::NextHopTable, Forwarding::NextHopSheet>;
template class Asic::TableEntryHandle<Forwarding::NextHopTable>;

namespace Forwarding {

static Asic::TableAnnouncement<NextHopTable> const announcement;

std::ostream& operator<<(std::ostream& out, NextHopKey const& key) {
  return out << "NextHopKey{id:" << std::to_string(key.id) << '}';
}

Vell::ZarnType NextHopSharedAllocator::type() {
  return {&NextHopTable::module(), NextHopTable::allocatorTypeNumber};
}

NextHopTable::~NextHopTable() { tearDown(); }

NextHopTable::HandlePtr NextHopTable::entryCommit(Key key, Entry const& entry) {
  AccessorT::message<"entryCommit">();
  Asic::SwTable::OperationScope const scope(*this);
  Vell::Ptr<EntryHandle> const handle = entryHandleIs(key, this);
  handle->committed();
  auto const* const node = resolvedEntry_.lookupNodeG(key);
  if (node && node->value_ == entry) return handle;
  if (!node) handle->entryStateIs(Asic::SwTableBase::EntryState::unresolved);
  store(key, entry);
  return handle;
}

void NextHopTable::store(Key key, Entry const& entry) {
  // A row that was never written has yet to be told to the tracker, whatever the table holds.
  bool const isWritten = !indexAllocator()->indexForKey(keyType(), &key).isExhausted();
  resolvedKeyPriorIs(isWritten ? KeyPrior::value : KeyPrior::noKey);
  Zarn::Optional<Entry> previous;
  if (auto* const node = resolvedEntry_.lookupNodeG(key))
    previous = std::exchange(node->value_, Entry(entry));
  else
    resolvedEntry_.newMemberG(key, {entry, key});
  AccessorT(*this).handleEntry(key);
  publish(resolvedEntryField, key, previous ? &*previous : nullptr);
}

NextHopTable::HandlePtr NextHopTable::entryRef(Key key) {
  AccessorT::message<"entryRef">();
  Asic::SwTable::OperationScope const scope(*this);
  Vell::Ptr<EntryHandle> const handle = entryHandleIs(key, this);
  if (handle->entryType() == Asic::SwTableBase::EntryType::unset) {
    handle->entryTypeIs(Asic::SwTableBase::EntryType::referenceOnly);
    handle->tableUseIs(EntryHandle::TableUse::uncounted);
  }
  return handle;
}

void NextHopTable::entryRemove(Key key) {
  Asic::SwTable::OperationScope const scope(*this);
  AccessorT(*this).entryRemove(key);
}

void NextHopTable::entryRemoveAll() {
  Asic::SwTable::OperationScope const scope(*this);
  AccessorT(*this).entryRemoveAll();
}

NextHopTable::Rows NextHopTable::resolvedRows(Key const& key) const {
  auto const* const node = resolvedEntry_.lookupNodeG(key);
  return {node ? node->value_ : Entry{}};
}

void NextHopTable::resolvedDel(Key const& key) {
  Asic::SwTable::OperationScope const scope(*this);
  ResolvedEntryMap::Node removed;
  if (!resolvedEntry_.deleteMemberG(key, &removed)) return;
  AccessorT(*this).handleEntry(removed.key());
  publish(resolvedEntryField, removed.key(), &removed.value_);
}

void NextHopTable::resolvedDelAll() {
  Asic::SwTable::OperationScope const scope(*this);
  for (Zarn::HashMap2018IteratorGeneric at(resolvedEntry_); at; at.advance())
    resolvedDel(at.currNodeMaybeStale()->key());
}

Vell::Ptr<NextHopTable> nextHopTableFactory() { return new NextHopTable; }

}  // namespace Forwarding
