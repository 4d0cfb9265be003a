// What the reference agent's own tables have in common: next hops and adjacencies. Each is addressed
// by an id, holds a value for it, and takes one hardware row; a value that changes is rewritten in
// place. On the same frame as the member blocks, as blocks of one row. `T` is the concrete table,
// `Sheet` its data sheet.
//
// Invariants
//  1. Every id that the table knows has a handle; it may have no value yet, and whoever needs it
//     waits.
//  2. A change is stored first, then carried to the hardware, then told to the watchers, all inside
//     the call.
//
// Threading: the thread of the owning agent.

#pragma once

#include <string>

#include "frame/FieldEntry.h"
#include "frame/HandleTable.h"
#include "frame/SwBlockTable.h"
#include "platform/asic/FirstFreeIndexAllocator.h"

namespace Forwarding {

template <class T>
struct SmallTableReflection;

/// The id of an entry, of a type of its own for each table. `Names` brings `key`, its text's tag.
template <class Names>
struct IdKey {
  U32 id = 0;

  U32 hash(U32 seed) const { return Zarn::hashSingleAttr(seed, id); }
  /// Key equality for publications, on two pointers to keys.
  static bool isEq(void const* a, void const* b) {
    return *static_cast<IdKey const*>(a) == *static_cast<IdKey const*>(b);
  }
  friend auto operator<=>(IdKey const&, IdKey const&) = default;
  friend std::ostream& operator<<(std::ostream& out, IdKey const& key) {
    return out << Names::key << "{id:" << std::to_string(key.id) << '}';
  }
};

/// What the data sheets of these tables say alike.
struct SmallSheet {
  static constexpr U32 entryHandleField = 0x285;
  static constexpr U32 syncedEntryField = 0x289;
  static constexpr Asic::HandleFields handleFields{
      .blockSize = 0, .pendingEntry = 0x185, .cleanup = 0x186};

  using Base = Asic::SwUnknownIndexTable;
  template <class T>
  using Reflection = SmallTableReflection<T>;
};

template <class T, class Sheet>
class SmallTable : public Asic::HandleTable<T, Sheet> {
 public:
  using Key = typename Sheet::Key;
  using Entry = typename Sheet::Entry;
  using IndexAllocator = typename Sheet::IndexAllocator;
  using HandlePtr = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;
  using ResolvedEntryMap = Zarn::HashMap2018<Zarn::HN<Key, Entry, Sheet::maps.resolvedEntry>>;

  /// An entry as the generic logic sees it: a block of one row.
  struct Rows {
    Entry row;
    U32 blockSize() const { return 1; }
    U32 getBlockSize() const { return 1; }
    Entry entry(U32) const { return row; }
    template <class Visitor>
    void forEach(Visitor&& visitor) const {
      visitor(Asic::SwTableBase::Index(0), row);
    }
    void neededIndexIs(Asic::SwTableBase::Index, Asic::Index index) requires
        requires(Entry& entry) {
      entry.neededIndexIs(Asic::Index());
    }
    { row.neededIndexIs(index); }
    friend std::ostream& operator<<(std::ostream& out, Rows const& rows) { return out << rows.row; }
  };

  using Value = Rows;  ///< of a key, as the generic logic carries it

  /// Numbers of the table's types in its module.
  static constexpr U32 entryTypeNumber = 0;
  static constexpr U32 entryHandleTypeNumber = 1;
  static constexpr U32 utilTypeNumber = 2;
  static constexpr U32 utilLoaderTypeNumber = 3;
  static constexpr U32 typeNumber = 4;
  static constexpr U32 syncedEntryTypeNumber = 5;
  static constexpr U32 keyTypeNumber = 6;
  static constexpr U32 allocatorTypeNumber = 7;
  /// Field id of the publication; the former value is an `Entry`, or null.
  static constexpr U32 resolvedEntryField = 0x286;

  /// Whether the id has a value that is, or is about to be, in the hardware.
  bool entryHas(Key const& key) const { return resolvedHas(key); }
  /// That value; a default entry if it has none.
  Entry entry(Key const& key) const { return resolvedRows(key).row; }
  /// Ids known, with or without a value.
  U32 entrys() const { return this->entryHandleMap().count(); }

  /// Takes back the commit. The row goes when nobody holds the handle any more.
  void entryRemove(Key key);
  void entryRemoveAll();

  ResolvedEntryMap const& resolvedEntryMap() const { return resolvedEntry_; }

  // What the generic logic calls this table's collection.

  static Vell::ZarnType keyType() { return {&T::module(), keyTypeNumber}; }
  static U32 blockSizeOf(Key const&) { return 1; }
  static void setUpAllocator(IndexAllocator&) {}
  bool resolvedHas(Key const& key) const { return resolvedEntry_.lookupNodeG(key) != nullptr; }
  bool hasValue(Key const& key) const { return resolvedHas(key); }
  U32 resolvedCount() const { return resolvedEntry_.count(); }
  Rows resolvedRows(Key const& key) const;
  Value valueOf(Key const& key) const { return resolvedRows(key); }
  void resolvedDel(Key const& key);
  void resolvedDelAll();

 protected:
  using AccessorT = Asic::SwTable::Accessor<T>;

  /// Stores another value and carries it to the hardware, at the index that the allocator has.
  void store(Key key, Entry const& entry);

 private:
  ResolvedEntryMap resolvedEntry_{1, false};
};

}  // namespace Forwarding
