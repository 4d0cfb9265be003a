// Next hops: where a packet leaves, and with which addresses. A table of the reference agent's own,
// so that the chain below the member blocks is whole; a switch's agent brings its own.
//
// A client addresses a next hop by an id that means nothing to the hardware; its index comes from
// an allocator, and its handle tells it to those who need it. The table writes its rows to the end
// by itself.
//
// Threading: the thread of the owning agent.

#pragma once

#include <string_view>

#include "forwarding/MacAddress.h"
#include "forwarding/SmallTable.h"
#include "forwarding/VlanId.h"

namespace Forwarding {

struct NextHopNames {
  static constexpr std::string_view key = "NextHopKey";
  static constexpr std::string_view qualifiedKey = "Forwarding::NextHopKey";
  static constexpr std::string_view allocator = "Forwarding::NextHopSharedAllocator";
};
using NextHopKey = IdKey<NextHopNames>;

/// The indices of all next hop tables of a chip.
class NextHopSharedAllocator final : public Asic::FirstFreeIndexAllocator {
 public:
  static Vell::ZarnType type();
  Vell::ZarnType typeData() const override { return type(); }
};

struct NextHopSheet : SmallSheet {
  static constexpr Asic::TableNames names{"Forwarding::NextHopTable", "NextHopSwTable"};
  static constexpr Asic::HandleMapConstants maps{.entryHandle = 0x5B8E21D3,
                                                 .resolvedEntry = 0x91C4F07A};

  using Key = NextHopKey;
  using IndexAllocator = NextHopSharedAllocator;

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

class NextHopTable final : public SmallTable<NextHopTable, NextHopSheet> {
 public:
  using KeyNames = NextHopNames;

  NextHopTable() = default;
  ~NextHopTable() override;

  /// The table shall own this next hop, with that value.
  HandlePtr entryCommit(Key key, Entry const& entry);
  /// The caller needs this next hop for as long as it keeps the result. It may get its value later.
  HandlePtr entryRef(Key key);

  // For the generic logic.

  Asic::Index newIndex(IndexAllocator& allocator, Key const& key) const {
    return allocator.newIndexForKey(keyType(), &key, this);
  }
};

/// A new table, empty and in its first phase.
Vell::Ptr<NextHopTable> nextHopTableFactory();

}  // namespace Forwarding

extern template class Asic::HandleTable<Forwarding::NextHopTable, Forwarding::NextHopSheet>;
extern template class Asic::TableEntryHandle<Forwarding::NextHopTable>;
extern template class Forwarding::SmallTable<Forwarding::NextHopTable, Forwarding::NextHopSheet>;
