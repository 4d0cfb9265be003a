// A direct table: the software shadow of one hardware table whose index, or structured key, the
// client knows. `T` is the concrete table, `Sheet` its data sheet.
//
// Invariants
//  1. `resolvedEntry` is what clients want the hardware to hold (frame/ResolvedEntries.h).
//  2. `syncedEntry` is what the hardware was found to hold and no commit has claimed; only a
//     plug-in's sync fills it.
//  3. No operation reports a failure.
//
// Threading: the thread of the owning agent.

#pragma once

#include "containers/HashMap2018.h"
#include "containers/HashMap2018Iterator.h"
#include "frame/ResolvedEntries.h"
#include "frame/Sheet.h"
#include "frame/TableUtil.h"
#include "frame/Trait.h"
#include "frame/UtilLoader.h"
#include "frame/Variants.h"
#include "platform/bruvel/Slab.h"
#include "platform/zarn/AllocTrack.h"
#include "platform/zarn/Optional.h"

namespace Asic {

template <class T>
struct DirectTableReflection;

template <class T, DirectSheet Sheet>
class DirectTable : public SwKnownIndexTable,
                    public ResolvedEntries<T, Sheet>,
                    public Bruvel::Allocated<T> {
  using Resolved = ResolvedEntries<T, Sheet>;

 public:
  using Key = typename Sheet::Key;
  using UtilKey = Key;  ///< what the chip hooks are told
  using Entry = typename Sheet::Entry;
  using Util = TableUtil<T>;
  using UtilLoader = TableUtilLoader<T>;
  using SyncedEntryMap = Zarn::HashMap2018<Zarn::HN<Key, Entry, Sheet::maps.syncedEntry>>;

  static constexpr TableNames names = Sheet::names;
  /// What the table does with its hardware.
  static constexpr bool readAccess = false;
  static constexpr bool writeAccess = true;
  /// Numbers of the table's types in its module.
  static constexpr U32 entryTypeNumber = 0;
  static constexpr U32 utilTypeNumber = 1;
  static constexpr U32 utilLoaderTypeNumber = 2;
  static constexpr U32 typeNumber = 3;
  /// Field ids of the publications, and what their former value is.
  static constexpr U32 resolvedEntryField = 0x207;  ///< `Zarn::Optional<Entry>`
  static constexpr U32 syncedEntryField = 0x209;    ///< `Entry`, or null

  static Zarn::AllocTrackTypeInfo memAllocationTracker_;
  /// The reflection data of the table's classes.
  static Vell::ModuleInspectData& module();
  Vell::ZarnType typeData() const override { return {&module(), typeNumber}; }

  // What clients ask.

  /// The synced value; a default entry if the key is absent.
  Entry syncedEntry(Key key) const;
  /// Keys in `resolvedEntry`, those without a value included.
  U32 entrys() const { return this->resolvedEntryMap().count(); }
  /// Valid indices of the hardware table; 0 and 0xFFFFFFFF without chip hooks.
  U32 minIndex() const requires Trait::isKnownIndexTable<T> {
    return util() ? util()->minIndex() : 0;
  }
  U32 maxIndex() const requires Trait::isKnownIndexTable<T> {
    return util() ? util()->maxIndex() : 0xFFFFFFFF;
  }
  Util* util() const { return static_cast<Util*>(SwTable::util()); }

  // What clients do.

  /// States what the hardware should hold at the key.
  void entryCommit(Key key, Entry const& entry);
  /// Removes the key, with or without a value.
  void entryRemove(Key key);
  /// Removes every key. Stale rows must have been purged before.
  void entryRemoveAll();
  /// Takes over what the hardware was found to hold. Nothing once the replay is complete.
  void autoCommitSyncedEntries();

  // What sync found, for chip plug-ins and the generic logic.

  void syncedEntryIs(Key key, Entry const& entry);
  /// Removes the key and gives what it held; a default entry if it was absent.
  Entry syncedEntryDel(Key key);
  /// Empties the collection; tells each removal if anybody watches.
  void syncedEntryDelAll();

  SyncedEntryMap const& syncedEntryMap() const { return syncedEntry_; }

  // What the framework calls.

  void syncEntries() override;
  void doInitComplete() override;
  void purgeStaleEntries() override;

  static void doMountHwTableMountInfo(Mirel::MountGroup& mg);
  static void doMountHwTableRecoveryStatus(Mirel::MountGroup& mg);
  static void doRecoverHwTable(HwTableRecoverGroup& rg, UnitId unitId,
                               Mirel::EntityManager& mirelEm, ChipInfo const& chipInfo);

 protected:
  DirectTable();
  ~DirectTable() override = default;
  /// Deletes what the table holds from the hardware. The concrete table's destructor calls it,
  /// while the hooks can still be given the whole table.
  void tearDown();

 private:
  using AccessorT = SwTable::Accessor<T>;
  friend AccessorT;

  T& table() { return static_cast<T&>(*this); }
  T const& table() const { return static_cast<T const&>(*this); }
  /// Tells the watchers that the element at `key` of the collection `fieldId` changed.
  void publish(U32 fieldId, Key key, void const* previous);
  void cleanup();

  SyncedEntryMap syncedEntry_{1, false};
};

}  // namespace Asic
