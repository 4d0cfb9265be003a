// Next hops: where a packet leaves, and with which addresses. A table of the reference agent's own,
// so that the chain below the member blocks is whole; a switch's agent brings its own.
//
// A client addresses a next hop by an id that means nothing to the hardware; its index comes from
// an allocator, and its handle tells it to those who need it. Committing another value rewrites the
// row in place.
//
// Invariants
//  1. Every next hop that the table knows has a handle; one that is only referenced has no value
//     until it is committed, and whoever needs it waits.
//  2. A change is stored first, then carried to the hardware, then told to the watchers, all inside
//     the call.
//
// Threading: the thread of the owning agent.

#pragma once

#include <string_view>

#include "forwarding/MacAddress.h"
#include "forwarding/VlanId.h"
#include "frame/FieldEntry.h"
#include "frame/HandleTable.h"
#include "frame/SwBlockTable.h"
#include "platform/asic/FirstFreeIndexAllocator.h"

namespace Forwarding {

template <class T>
struct NextHopReflection;

struct NextHopKey {
  U32 id = 0;

  U32 hash(U32 seed) const { return Zarn::hashSingleAttr(seed, id); }
  /// Key equality for publications, on two pointers to keys.
  static bool isEq(void const* a, void const* b) {
    return *static_cast<NextHopKey const*>(a) == *static_cast<NextHopKey const*>(b);
  }
  friend auto operator<=>(NextHopKey const&, NextHopKey const&) = default;
  friend std::ostream& operator<<(std::ostream& out, NextHopKey const& key);
};

/// The indices of all next hop tables of a chip.
class NextHopSharedAllocator final : public Asic::FirstFreeIndexAllocator {
 public:
  static Vell::ZarnType type();
  Vell::ZarnType typeData() const override { return type(); }
};

struct NextHopSheet {
  static constexpr Asic::TableNames names{"Forwarding::NextHopTable", "NextHopSwTable"};
  static constexpr Asic::HandleMapConstants maps{.entryHandle = 0x5B8E21D3,
                                                 .resolvedEntry = 0x91C4F07A};
  static constexpr U32 entryHandleField = 0x285;
  static constexpr U32 syncedEntryField = 0x289;
  static constexpr Asic::HandleFields handleFields{
      .blockSize = 0, .pendingEntry = 0x185, .cleanup = 0x186};

  using Base = Asic::SwUnknownIndexTable;
  using Key = NextHopKey;
  using IndexAllocator = NextHopSharedAllocator;
  template <class T>
  using Reflection = NextHopReflection<T>;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U16 port = 0;    ///< the port that packets leave through
    MacAddress mac;  ///< their destination address
    VlanId vlan;     ///< their VLAN; 0: untagged

    static constexpr auto fields() {
      return Zarn::fieldList(
          "Forwarding::NextHopTable::Entry", Zarn::field(0x84, "port", &Entry::port),
          Zarn::field(0x85, "mac", &Entry::mac), Zarn::field(0x86, "vlan", &Entry::vlan));
    }
  };

  struct QE_PendingEntry {
    static constexpr U32 firstCapacity = 4;
    static constexpr std::string_view name = "Forwarding::NextHopTable::EntryHandle::pendingEntry";
  };
};

class NextHopTable final : public Asic::HandleTable<NextHopTable, NextHopSheet> {
 public:
  using HandlePtr = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;
  using ResolvedEntryMap =
      Zarn::HashMap2018<Zarn::HN<Key, Entry, NextHopSheet::maps.resolvedEntry>>;

  /// A next hop as the generic logic sees it: a block of one row.
  struct Rows {
    Entry row;
    U32 blockSize() const { return 1; }
    Entry entry(U32) const { return row; }
  };

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

  NextHopTable() = default;
  ~NextHopTable() override;

  /// Whether the next hop has a value.
  bool entryHas(Key const& key) const { return resolvedHas(key); }
  /// Its value; a default entry if it has none.
  Entry entry(Key const& key) const { return resolvedRows(key).row; }
  /// Next hops known, with or without a value.
  U32 entrys() const { return entryHandleMap().count(); }

  /// The table shall own this next hop, with that value.
  HandlePtr entryCommit(Key key, Entry const& entry);
  /// The caller needs this next hop for as long as it keeps the result. It may get its value later.
  HandlePtr entryRef(Key key);
  /// Takes back the commit. The row goes when nobody holds the handle any more.
  void entryRemove(Key key);
  void entryRemoveAll();

  ResolvedEntryMap const& resolvedEntryMap() const { return resolvedEntry_; }

  // What the generic logic calls this table's collection.

  static Vell::ZarnType keyType() { return {&module(), keyTypeNumber}; }
  static U32 blockSizeOf(Key const&) { return 1; }
  static Asic::Index newIndex(IndexAllocator& allocator, Key const& key) {
    return allocator.newIndexForKey(keyType(), &key);
  }
  static void setUpAllocator(IndexAllocator&) {}
  bool resolvedHas(Key const& key) const { return resolvedEntry_.lookupNodeG(key) != nullptr; }
  U32 resolvedCount() const { return resolvedEntry_.count(); }
  Rows resolvedRows(Key const& key) const;
  void resolvedDel(Key const& key);
  void resolvedDelAll();

 private:
  void store(Key key, Entry const& entry);

  ResolvedEntryMap resolvedEntry_{1, false};
};

/// A new table, empty and in its first phase.
Vell::Ptr<NextHopTable> nextHopTableFactory();

}  // namespace Forwarding

extern template class Asic::HandleTable<Forwarding::NextHopTable, Forwarding::NextHopSheet>;
extern template class Asic::TableEntryHandle<Forwarding::NextHopTable>;
