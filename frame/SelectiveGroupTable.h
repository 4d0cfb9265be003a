// A table of groups that stand on entries of other tables: the group table, and beside it the records
// of entries that wait for what they need. `T` is the concrete table, `Sheet` its data sheet, which
// derives from `SelectiveGroupSheet`. frame/SelectiveGroupAccessor.h tells the life of an entry.
//
// Beside those of a group table (frame/GroupTable.h):
//
// Invariants
//  1. An entry holds a use of what it needs: so does every copy of it that the table stores.
//  2. A committed entry lives in `unresolvedEntry` until what it needs is usable, and then in
//     `resolvedEntry`. A key may be in both: its former value stays in the hardware meanwhile.
//  3. A key with a record has a handle.
//
// Threading: the thread of the owning agent.

#pragma once

#include "frame/GroupTable.h"
#include "frame/SelectiveEntryIterator.h"
#include "frame/UnresolvedEntries.h"

namespace Asic {

/// The record of an entry that waits.
template <class T>
class UnresolvedGroupEntry final : public TableRecord<T, UnresolvedGroupEntry<T>> {
 public:
  using Key = typename T::Key;
  using Entry = typename T::Entry;

  static constexpr U32 keyField = 0x182;
  static constexpr U32 entryField = 0x183;
  static Zarn::AllocTrackTypeInfo memAllocationTracker_;

  explicit UnresolvedGroupEntry(Key const& key) : key_(key) {}
  ~UnresolvedGroupEntry() override;
  Vell::ZarnType typeData() const override { return {&T::module(), T::unresolvedEntryTypeNumber}; }

  Key const& key() const { return key_; }
  /// What the client gave; with the index of what it needs from the moment when that is usable.
  Entry const& entry() const { return entry_; }
  void entryIs(Entry const& entry) { entry_ = entry; }

 private:
  Key key_;
  Entry entry_;
};

/// What the data sheets of these tables say alike.
template <class Sheet>
struct SelectiveGroupSheet : GroupSheet<Sheet> {
  static constexpr U32 unresolvedField = 0x286;
  static constexpr U32 entryHandleField = 0x287;
  static constexpr U32 resolvedEntryField = 0x289;
  static constexpr U32 syncedEntryField = 0x28c;

  template <class T>
  using Record = UnresolvedGroupEntry<T>;
  template <class T>
  using Allocation = Bruvel::GloballyAllocated<T>;

  struct QE_PendingEntry : GroupSheet<Sheet>::QE_PendingEntry {
    static constexpr U32 firstCapacity = 2;
  };
};

template <class T, class Sheet>
class SelectiveGroupTable : public GroupTable<T, Sheet>, public UnresolvedEntries<T, Sheet> {
  using Group = GroupTable<T, Sheet>;
  using Resolved = ResolvedEntries<T, Sheet>;
  using Waiting = UnresolvedEntries<T, Sheet>;

 public:
  using Key = typename Sheet::Key;
  using Entry = typename Sheet::Entry;
  using EntryHandle = typename Group::EntryHandle;
  using UnresolvedEntry = UnresolvedGroupEntry<T>;

  /// Numbers of the table's types in its module.
  static constexpr U32 entryTypeNumber = 0;
  static constexpr U32 entryHandleTypeNumber = 1;
  static constexpr U32 unresolvedEntryTypeNumber = 2;
  static constexpr U32 utilTypeNumber = 3;
  static constexpr U32 utilLoaderTypeNumber = 4;
  static constexpr U32 typeNumber = 5;
  static constexpr U32 syncedEntryTypeNumber = 6;
  /// Field id of a publication; the former value is the record, or null.
  static constexpr U32 unresolvedEntryField = Sheet::unresolvedField;

  // What clients ask.

  /// What the client gave last, whether or not it has reached `resolvedEntry`; a default entry if
  /// there is nothing.
  Entry entry(Key key) const;
  /// Whether the key has an entry that is not on its way out.
  bool entryHas(Key key) const;
  /// The key's record, or null.
  Vell::Ptr<UnresolvedEntry> unresolvedEntry(Key const& key) const { return this->unresolved(key); }
  /// Walks over the keys that wait, then over the others that have a value.
  SwTable::EntryIteratorConst<T> entryIteratorConst() const {
    return SwTable::EntryIteratorConst<T>(this->table());
  }
  /// At that key if it waits or has a value, otherwise at the end.
  SwTable::EntryIteratorConst<T> entryIteratorConst(Key key) const {
    return SwTable::EntryIteratorConst<T>(this->table(), key);
  }

  // The collection of records, for the generic logic.

  Vell::Ptr<UnresolvedEntry> unresolvedEntryIs(Key const& key) { return this->unresolvedIs(key); }
  Vell::Ptr<UnresolvedEntry> unresolvedEntryDel(Key const& key) { return this->unresolvedDel(key); }
  void unresolvedEntryDelAll() { this->unresolvedDelAll(); }
  /// Gives one of its records another entry, and watches what that one needs.
  void unresolvedEntryIs(UnresolvedEntry& record, Entry const& entry);

  // What the generic logic calls.

  using Waiting::unresolvedDel;
  using Waiting::unresolvedDelAll;
  using Waiting::unresolvedHas;

 protected:
  explicit SelectiveGroupTable(Vell::String name) : Group(std::move(name)) {}
  ~SelectiveGroupTable() override = default;
};

}  // namespace Asic
