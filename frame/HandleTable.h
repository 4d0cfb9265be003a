// What every table has whose entries have handles and get their indices from an allocator: the
// handles, the rows that sync found, the allocator, and how entries leave. `T` is the concrete
// table, `Sheet` its data sheet. How entries come in is the affair of the class derived from this
// one: `BlockTable` for blocks of rows.
//
// Invariants
//  1. Every entry that the table knows has a handle in `entryHandle`. The collection holds a use of
//     each handle, which does not count for entries that are only referenced
//     (platform/asic/SwTableEntryHandle.h).
//  2. A handle that has left the collection has no table, unless its last use still has something to
//     end: that of an entry in deletion, or of one that nobody had claimed.
//  3. `syncedEntry` holds one node for each hardware row that sync found and nothing has claimed;
//     only a plug-in's sync fills it.
//  4. Rows leave the hardware before their indices are free.
//
// Everything may call back: keys are copied, handles and records are held for as long as a call
// needs them, and no reference into a collection is kept across a call.
//
// Threading: the thread of the owning agent.

#pragma once

#include <concepts>
#include <vector>

#include "containers/HashMap2018.h"
#include "containers/HashMap2018Iterator.h"
#include "containers/RbTreeMap.h"
#include "frame/Sheet.h"
#include "frame/TableEntryHandle.h"
#include "frame/TableUtil.h"
#include "frame/Trait.h"
#include "frame/UtilLoader.h"
#include "frame/Variants.h"
#include "platform/asic/GenericIndexAllocator.h"

namespace Asic {

/// A node of `syncedEntry`: what the hardware was found to hold in one row.
template <class T, class Entry>
class SyncedEntryMember final
    : public Zarn::RbTreeMember<SyncedEntryMember<T, Entry>, Index, Entry> {
 public:
  static Zarn::AllocTrackTypeInfo memAllocationTracker_;

  SyncedEntryMember(Index index, Entry const& entry)
      : Zarn::RbTreeMember<SyncedEntryMember, Index, Entry>(index, entry) {}
  Vell::ZarnType typeData() const override { return {&T::module(), T::syncedEntryTypeNumber}; }
};

/// Where the object of a table comes from: the slabs, unless its sheet says otherwise.
template <class T, class Sheet>
struct TableAllocation {
  using Type = Bruvel::Allocated<T>;
};
template <class T, class Sheet>
requires requires { typename Sheet::template Allocation<T>; }
struct TableAllocation<T, Sheet> {
  using Type = typename Sheet::template Allocation<T>;
};

template <class T, class Sheet>
class HandleTable : public Sheet::Base, public TableAllocation<T, Sheet>::Type {
 public:
  using Key = typename Sheet::Key;
  using HandleKey = Key;
  using UtilKey = SwTableBase::Index;  ///< a row's hardware index
  using Entry = typename Sheet::Entry;
  using IndexAllocator = typename Sheet::IndexAllocator;
  using QE_PendingEntry = typename Sheet::QE_PendingEntry;
  using EntryHandle = TableEntryHandle<T>;
  using Util = TableUtil<T>;
  using UtilLoader = TableUtilLoader<T>;
  using ZarnSyncedEntry = SyncedEntryMember<T, Entry>;
  using SyncedEntryMap = Zarn::RbTreeMap<ZarnSyncedEntry, Index, Entry>;

  /// Reads a handle's key for the map, which holds no key of its own.
  struct EntryHandleKeyFunktor {
    Key const& operator()(Vell::Ptr<EntryHandle> const& handle) const;
  };
  struct HN_EntryHandle
      : Zarn::HNKeyInValue<Vell::Ptr<EntryHandle>, EntryHandleKeyFunktor, Sheet::maps.entryHandle> {
    using Key = typename Sheet::Key;
  };
  using EntryHandleMap = Zarn::HashMap2018<HN_EntryHandle>;

  static constexpr TableNames names = Sheet::names;
  static constexpr HandleFields handleFields = Sheet::handleFields;
  /// What the table does with its hardware.
  static constexpr bool readAccess = false;
  static constexpr bool writeAccess = true;
  /// Field ids of the publications, and what their former value is.
  static constexpr U32 indexAllocatorField = 0x282;                 ///< `Vell::Ptr<IndexAllocator>`
  static constexpr U32 entryHandleField = Sheet::entryHandleField;  ///< the handle, or null
  static constexpr U32 syncedEntryField = Sheet::syncedEntryField;  ///< `Entry`

  static Zarn::AllocTrackTypeInfo memAllocationTracker_;
  /// The reflection data of the table's classes.
  static Vell::ModuleInspectData& module();
  Vell::ZarnType typeData() const override { return {&module(), T::typeNumber}; }

  // What clients ask.

  /// The handle of the key, or null.
  Vell::Ptr<EntryHandle> entryHandle(Key const& key) const;
  /// Whether the entry's rows are in the hardware, or on their way there.
  bool entryInHwTable(Key const& key) const;
  /// The same of the entry that the handle is of.
  static bool isInHwTable(EntryHandle const& handle);
  /// The synced row; a default entry if there is none.
  Entry syncedEntry(Index index) const { return syncedEntryGet(index).value_or(Entry{}); }
  Zarn::Optional<Entry> syncedEntryGet(Index index) const;
  /// The key's hardware index as a dependent would write it; exhausted if the key has no handle.
  /// For agents that compare notes: it allocates and changes nothing.
  Index hwIndexOnlyForCrossAgentCommunication(Key const& key) const;
  /// The key that holds that index; empty if none does, or another table's.
  Zarn::Optional<Key> swKeyFromHwIndex(Index hwIndex) const;
  IndexAllocator* indexAllocator() const { return indexAllocator_.get(); }
  Util* util() const { return static_cast<Util*>(SwTable::util()); }
  /// Rows of the hardware table; 0 without chip hooks.
  U32 numEntries() const { return util() ? util()->numEntries() : 0; }

  // The collections, for chip plug-ins and the generic logic.

  /// The key's handle, made if there is none. Throws a mutator exception if the key has the handle
  /// of another table.
  Vell::Ptr<EntryHandle> entryHandleIs(Key const& key, T* swTable);
  /// Takes the key's handle out of the table and gives it; null if there was none.
  Vell::Ptr<EntryHandle> entryHandleDel(Key const& key);
  void entryHandleDelAll();
  void syncedEntryIs(Index index, Entry const& entry);
  /// Removes the row and gives what it held; a default entry if there was none.
  Entry syncedEntryDel(Index index);
  /// The same of the row at which a walk stands, without a search.
  Entry syncedEntryDel(typename SyncedEntryMap::Iterator const& at);
  /// Empties the collection; tells each removal, in ascending order, if anybody watches.
  void syncedEntryDelAll();
  void indexAllocatorIs(Vell::Ptr<IndexAllocator> allocator);
  /// Takes the shared allocator without telling anybody, as set-up does.
  void indexAllocatorStore(Vell::Ptr<IndexAllocator> allocator) {
    indexAllocator_ = std::move(allocator);
  }

  EntryHandleMap const& entryHandleMap() const { return entryHandle_; }
  SyncedEntryMap const& syncedEntryMap() const { return syncedEntry_; }

  /// A key as traces show it.
  static decltype(auto) keyText(Key const& key) {
    if constexpr (requires { Sheet::keyText(key); })
      return Sheet::keyText(key);
    else
      return static_cast<Key const&>(key);
  }

  // Records of entries that wait, in tables that have any: these hide behind their own.

  bool unresolvedHas(Key const&) const { return false; }
  void unresolvedDel(Key const&) {}
  void unresolvedDelAll() {}
  // Handles that name the table, and are not in the collection: made by themselves, or on their way out.
  // The last use of such a one still concerns the table, which takes itself back if it goes before.

  void outsiderIs(EntryHandle& handle) { outsiders_.push_back(&handle); }
  void outsiderForget(EntryHandle& handle);
  void outsidersForget();
  /// Gives up the response machine, in tables whose writes are acknowledged.
  void endResponses() {}

  // What handles call.

  void cleanupEntry(EntryHandle& handle);
  void suggestIndices(EntryHandle& handle, IndexSet const& indices);

  // What the framework calls.

  void doCreateAllocator() override;
  void syncEntries() override;
  void doInitComplete() override;
  void purgeStaleEntries() override;

  /// A handle as an object of its own, in no table.
  static Vell::Ptr<EntryHandle> entryHandleFactory(Key key, T* swTable) {
    return EntryHandle::EntryHandleIs(std::move(key), swTable);
  }

  static void doMountHwTableMountInfo(Mirel::MountGroup& mg);
  static void doMountHwTableRecoveryStatus(Mirel::MountGroup& mg);
  static void doRecoverHwTable(HwTableRecoverGroup& rg, UnitId unitId,
                               Mirel::EntityManager& mirelEm, ChipInfo const& chipInfo);

 protected:
  using AccessorT = SwTable::Accessor<T>;

  explicit HandleTable(Vell::String name = {}) : Sheet::Base(std::move(name)) {}
  ~HandleTable() override = default;
  /// Ends the table while the hooks can still be given the whole of it. The concrete table's
  /// destructor calls it.
  void tearDown();

  T& table() { return static_cast<T&>(*this); }
  T const& table() const { return static_cast<T const&>(*this); }
  /// Tells the watchers that the element at `key` of the collection `fieldId` changed.
  void publish(U32 fieldId, Key const& key, void const* previous) {
    SwTable::publisher()->publishChangeRecursive(fieldId, &key, previous, &Key::isEq);
  }

 private:
  void lifeFound(EntryHandle& handle);
  Entry taken(Vell::Ptr<ZarnSyncedEntry> const& removed);
  void publishSynced(Index index, Entry const& previous);

  Vell::Ptr<IndexAllocator> indexAllocator_;
  EntryHandleMap entryHandle_{1, false};
  SyncedEntryMap syncedEntry_;
  std::vector<EntryHandle*> outsiders_;
};

}  // namespace Asic
