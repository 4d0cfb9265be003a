// The operations of the generic logic of tables with entry handles. Included by the sources that
// instantiate tables.

#pragma once

#include <cstdlib>
#include <vector>

#include "containers/HashMap2018Iterator.h"
#include "frame/HandleAccessor.h"

namespace Asic {

// ---- hooks of handles ----

template <class T>
void HandleAccessor<T>::handleEntryState(EntryHandle const& handle, Key const& key) const {
  using enum SwTableBase::EntryState;
  auto const state = handle.entryState();
  trace(traceLife, "handleEntryState", " entryhandle state: ", state, " at key : ", key);
  switch (state) {
    case frameworkComplete:
    case failedNeededEntry:
    case failedNoIndex:
      VELL_ASSERT(handle.entryType() != SwTableBase::EntryType::inDeletion,
                  "entryHandle->entryType() != EntryHandle::inDeletion()", T::names.qualified,
                  " key ", key, " state ", state);
      break;
    default:
      VELL_ASSERT(state <= failedNoIndex, "0", T::names.qualified, ": an entry state ",
                  static_cast<U32>(state), " that does not exist");
  }
  trace(traceLife, "handleEntryState", " entryhandle state: COMPLETE  ", state, " at key : ", key);
}

template <class T>
Index HandleAccessor<T>::hwIndexForDependentField(EntryHandle const& handle) const {
  auto const util = this->utilIfExists();
  return util ? util->hwIndexForDependentField(handle) : handle.hwIndex();
}

// ---- removal ----

template <class T>
void HandleAccessor<T>::entryRemove(Key const& key) {
  using enum SwTableBase::EntryType;
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  int const type = handle ? static_cast<int>(handle->entryType()) : -1;
  U32 const refCnt = handle ? handle->useCount() : 0;
  static constinit Fennlog::Site site("{}: {} entryType: {}, refCnt: {}", T::names.brief(),
                                      "entryRemove");
  Fennlog::write(site, type, refCnt);
  trace(traceClient, "entryRemove", ": key:", key, ", entryType:", type, ", refCnt:", refCnt);
  if (!handle || handle->entryType() == referenceOnly || handle->entryType() == inDeletion) {
    trace(traceClient, "entryRemove", " : Found no committed entry at key : ", key);
    return;
  }
  if (handle->entryType() == unset) {
    swTable_->entryHandleDel(key);
    return;
  }
  trace(traceClient, "entryRemove", " : Removing entry at key : ", key);
  auto const commits = handle->commits();
  // First of all, so that an entry that waits can resolve no more.
  swTable_->unresolvedDel(key);
  if (handle->commits() != commits) return;  // a watcher of that committed it anew
  handle->entryTypeIs(referenceOnly);
  handle->tableUseIs(EntryHandle::TableUse::uncounted);
  // If nobody else holds the handle, the use held here is the last: its end removes the entry.
}

/// Removes the record and the value of the key. True if a watcher of that brought the entry back.
template <class T>
bool HandleAccessor<T>::removeEntryOf(EntryHandle& handle, Key const& key) {
  auto const isKnown = [&] { return swTable_->unresolvedHas(key) || swTable_->resolvedHas(key); };
  bool const waited = swTable_->unresolvedHas(key);
  swTable_->unresolvedDel(key);
  if (waited && isKnown()) return true;
  VELL_ASSERT(handle.entryType() == SwTableBase::EntryType::referenceOnly,
              "eh->entryType() == EntryHandle::referenceOnly()", "unexpected entryType ",
              handle.entryType(), " of ", T::names.qualified, " key ", key);
  swTable_->resolvedDel(key);
  return isKnown();
}

template <class T>
void HandleAccessor<T>::cleanup(EntryHandle& handle) {
  handle.doAmendReferences();
  static constinit Fennlog::Site site("{}: {} entryHandle : 0x{:x}", T::names.brief(), "cleanup");
  Fennlog::write(site, reinterpret_cast<std::uintptr_t>(&handle));
  auto const key = handle.key();
  trace(traceLife, "cleanup", " : entryhandle cleanup, eh : ", static_cast<void const*>(&handle),
        ", key :", key, ", refCnt:", handle.useCount());
  // A handle that is not the table's own for its key has nothing to remove.
  if (swTable_->entryHandle(key).get() != &handle) return;
  for (U32 walks = 0; removeEntryOf(handle, key); ++walks) {
    VELL_ASSERT(walks < mostCleanupWalks, "walks < mostCleanupWalks", T::names.qualified,
                ": its watchers bring an entry back without end while it goes");
    if (handle.entryType() == SwTableBase::EntryType::committed) return;
    constexpr U32 heldHere = 2;  // for the duration of this, and by the table
    if (handle.useCount() > heldHere) {
      handle.tableUseIs(EntryHandle::TableUse::uncounted);
      return;
    }
  }
  swTable_->entryHandleDel(key);
}

template <class T>
void HandleAccessor<T>::entryHandleRemoveAll() {
  trace(traceClient, "entryHandleRemoveAll");
  std::vector<Vell::Ptr<EntryHandle>> held;
  held.reserve(swTable_->entryHandleMap().count());
  for (Zarn::HashMap2018IteratorGeneric at(swTable_->entryHandleMap()); at; at.advance()) {
    held.push_back(at.currNodeMaybeStale()->value_);
    auto const key = held.back()->key();
    entryRemove(key);
  }
  // Now that nobody walks the collection, the entries may go, in the order of the walk.
  for (auto& handle : held) handle = nullptr;
}

template <class T>
void HandleAccessor<T>::entryRemoveAll() {
  this->template message<"entryRemoveAll">();
  trace(traceClient, "entryRemoveAll");
  entryHandleRemoveAll();
  VELL_ASSERT(!this->utilIfExists() || swTable_->syncedEntryMap().empty(), "false",
              "Should call purgeStaleEntries instead: ", T::names.qualified, " holds ",
              swTable_->syncedEntryMap().count(), " rows that nobody claimed");
}

template <class T>
void HandleAccessor<T>::cleanup() {
  trace(traceLife, "cleanup");
  for (Zarn::HashMap2018IteratorGeneric at(swTable_->entryHandleMap()); at; at.advance()) {
    Vell::Ptr<EntryHandle> const handle = at.currNodeMaybeStale()->value_;
    handle->swTableIs(nullptr);
    handle->doAmendReferences();
  }
  swTable_->resolvedDelAll();
  leaveAllocator();
  if (this->utilIfExists()) IndexUserTracker::Stub::deleteTracker(swTable_->hwTable(), 0, false);
}

// ---- indices ----

template <class T>
void HandleAccessor<T>::doInitAllocator() {
  using Allocator = typename T::IndexAllocator;
  trace(traceLife, "initAllocator",
        "Creating shared allocator of type: ", Allocator::type().data().name,
        " for table: ", T::names.qualified);
  VELL_ASSERT(swTable_, "table", T::names.qualified);
  auto const shalloc = GenericIndexAllocatorStub::createSharedAllocator(
      swTable_->typeData(), Allocator::type(), *swTable_);
  VELL_ASSERT(shalloc, "shalloc", T::names.qualified, ": no allocator of type ",
              Allocator::type().data().name);
  Vell::Ptr<Allocator> const allocator = static_cast<Allocator*>(shalloc.get());
  swTable_->indexAllocatorStore(allocator);
  allocator->setTableAttr(*swTable_,
                          {T::keyType(), &indexKeyType<Key>, [table = swTable_](auto* key) {
                             return table->resolvedHas(*static_cast<Key const*>(key));
                           }});
  allocator->sizeIs(swTable_->numEntries());
  T::setUpAllocator(*allocator);
  allocator->initializedIs(true);
}

template <class T>
Zarn::Optional<Index> HandleAccessor<T>::doRetrieveHwIndex(Key const& key) const {
  return swTable_->indexAllocator()->indexForKey(T::keyType(), &key);
}

template <class T>
void HandleAccessor<T>::leaveAllocator() {
  Vell::Ptr<typename T::IndexAllocator> const allocator = swTable_->indexAllocator();
  if (!allocator) return;
  if (allocator->tableAttrHas(*swTable_)) {
    trace(traceLife, "cleanup",
          "Trying to delete shared allocator for table:", static_cast<void const*>(swTable_));
    GenericIndexAllocatorStub::freeSharedAllocator(swTable_->typeData(), allocator->typeData(),
                                                   *swTable_);
  }
  swTable_->indexAllocatorIs(nullptr);
}

template <class T>
bool HandleAccessor<T>::publishEntryHandleProgrammedState() {
  static bool const publishEntryHandleProgrammedState = [] {
    char const* const text = std::getenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE");
    return text && static_cast<U32>(std::strtol(text, nullptr, 10)) != 0;
  }();
  return publishEntryHandleProgrammedState;
}

template <class T>
void HandleAccessor<T>::doCompleteEntryHandleForTesting(Key const& key) {
  using enum SwTableBase::EntryState;
  if (!publishEntryHandleProgrammedState()) return;
  Vell::Ptr<EntryHandle> const handle = swTable_->entryHandle(key);
  if (!handle) return;
  auto const hwIndex = doRetrieveHwIndex(key).value();
  handle->hwIndexIs(hwIndex);
  handle->resolvedEntryStateIs(hwIndex.isExhausted() ? failedNoIndex : success);
}

}  // namespace Asic
