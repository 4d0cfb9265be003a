// The member rows of load-balanced groups. A group owns no single rows but a block of consecutive
// ones; clients that commit equal blocks share one handle and the same hardware rows. Each row
// names a next hop through an entry handle of another table, so a block waits until all of those
// have hardware indices.

#pragma once

#include "frame/BlockTable.h"
#include "frame/SwBlockTable.h"
#include "member/DlbEcmpMember1Entry.h"
#include "platform/l3/L3EcmpMember1SharedAllocator.h"

namespace TessarLoadBalance {

struct DlbEcmpMember1Sheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpMember1Table",
                                          "DlbEcmpMember1Table"};
  static constexpr Asic::BlockMapConstants maps{
      .entryHandle = 0x42CCBF9C, .resolvedEntryBlock = 0x2BEE5E9F, .unresolved = 0xC74B5ABA};
  static constexpr U32 entryHandleField = 0x285;
  static constexpr U32 syncedEntryField = 0x289;
  static constexpr U32 unresolvedField = 0x28e;
  static constexpr Asic::HandleFields handleFields{
      .blockSize = 0x184, .pendingEntry = 0x186, .cleanup = 0x187};

  using Base = Asic::SwBlockTable;
  using Key = DlbEcmpMember1EntryBlock;
  using Entry = DlbEcmpMember1Entry;
  using IndexAllocator = TessarL3Common::L3EcmpMember1SharedAllocator;
  template <class T>
  using Reflection = Asic::BlockTableReflection<T>;
  template <class T>
  using Record = Asic::UnresolvedEntryBlock<T>;

  struct QE_PendingEntry {
    static constexpr U32 firstCapacity = 2;
    static constexpr std::string_view name =
        "TessarLoadBalance::DlbEcmpMember1Table::EntryHandle::pendingEntry";
  };

  /// Banks of the hardware's member memory: a block never crosses from one into the next.
  static constexpr U32 banks = 4;
  /// Blocks of up to so many rows are kept out of the way of larger ones.
  static constexpr U32 smallBlockRows = 2;
};

class DlbEcmpMember1Table final
    : public Asic::BlockTable<DlbEcmpMember1Table, DlbEcmpMember1Sheet> {
 public:
  ~DlbEcmpMember1Table() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpMember1Table> dlbEcmpMember1TableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::BlockTable<TessarLoadBalance::DlbEcmpMember1Table,
                                       TessarLoadBalance::DlbEcmpMember1Sheet>;
extern template class Asic::HandleTable<TessarLoadBalance::DlbEcmpMember1Table,
                                        TessarLoadBalance::DlbEcmpMember1Sheet>;
extern template class Asic::TableEntryHandle<TessarLoadBalance::DlbEcmpMember1Table>;
extern template class Asic::UnresolvedEntries<TessarLoadBalance::DlbEcmpMember1Table,
                                              TessarLoadBalance::DlbEcmpMember1Sheet>;
extern template class Asic::UnresolvedEntryBlock<TessarLoadBalance::DlbEcmpMember1Table>;
