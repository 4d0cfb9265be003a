// One DLB group per index: how it spreads flows, which block of flowsets it uses, and which port or
// next hop index is which of its members.
//
// The one direct table whose entries have collections inside them. A copy of an entry copies both
// maps, so every pass of an entry by value costs time in proportion to its members. Units and
// encodings of all numbers are the chip's.

#pragma once

#include "containers/MapField.h"
#include "frame/DirectTable.h"
#include "frame/FieldEntry.h"

namespace TessarLoadBalance {

struct DlbEcmpGroupSheet {
  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpGroupTable",
                                          "DlbEcmpGroupSwTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 0x3fe88013,
                                                 .syncedEntry = 0xcc850d46};
  using Key = Asic::SwTableBase::Index;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    using HN_PortToMemberMap = Zarn::HN<U16, U16, 1496089727, Zarn::MapSeed::fixed>;
    using HN_NhiToMemberMap = Zarn::HN<U16, U8, 1193393479, Zarn::MapSeed::fixed>;
    using PortToMemberMap = Zarn::HashMap2018<HN_PortToMemberMap>;
    using NhiToMemberMap = Zarn::HashMap2018<HN_NhiToMemberMap>;

    U32 inactivityDuration = 0;     ///< idle time after which a flowset may move
    U8 portAssignmentMode = 0;      ///< when a flowset is assigned to a port
    U16 flowSetBase = 0;            ///< where the group's block of flowsets begins
    U16 flowSetSize = 0;            ///< how large it is
    U8 groupMembershipPointer = 0;  ///< membership record of the group
    U8 primaryGroupSize = 0;        ///< members that are primary ones
    U8 rebalanceDelta = 0;          ///< gain in quality from which an active flowset may move
    U8 rebalanceProbabilityThreshold = 0;  ///< how often it then does

    /// The member of a port; 0 if there is none.
    U16 portToMemberMap(U16 port) const { return Zarn::elementOf(portToMemberMap_, port); }
    PortToMemberMap const& portToMemberMap() const { return portToMemberMap_; }
    void portToMemberMapIs(U16 port, U16 member) {
      Zarn::elementIs(portToMemberMap_, port, member);
    }
    /// Removes the port and gives its member; 0 if there was none.
    U16 portToMemberMapDel(U16 port) { return Zarn::elementDel(portToMemberMap_, port); }
    void portToMemberMapDelAll() { portToMemberMap_._memberDelAll(); }

    /// The same by next hop index.
    U8 nhiToMemberMap(U16 nhi) const { return Zarn::elementOf(nhiToMemberMap_, nhi); }
    NhiToMemberMap const& nhiToMemberMap() const { return nhiToMemberMap_; }
    void nhiToMemberMapIs(U16 nhi, U8 member) { Zarn::elementIs(nhiToMemberMap_, nhi, member); }
    U8 nhiToMemberMapDel(U16 nhi) { return Zarn::elementDel(nhiToMemberMap_, nhi); }
    void nhiToMemberMapDelAll() { nhiToMemberMap_._memberDelAll(); }

    static constexpr auto fields() {
      return Zarn::fieldList(
          "TessarLoadBalance::DlbEcmpGroupTable::Entry",
          Zarn::field(0x84, "inactivityDuration", &Entry::inactivityDuration),
          Zarn::field(0x85, "portAssignmentMode", &Entry::portAssignmentMode),
          Zarn::field(0x86, "flowSetBase", &Entry::flowSetBase),
          Zarn::field(0x87, "flowSetSize", &Entry::flowSetSize),
          Zarn::field(0x88, "groupMembershipPointer", &Entry::groupMembershipPointer),
          Zarn::field(0x89, "primaryGroupSize", &Entry::primaryGroupSize),
          Zarn::field(0x8a, "portToMemberMap", &Entry::portToMemberMap_),
          Zarn::field(0x8b, "nhiToMemberMap", &Entry::nhiToMemberMap_),
          Zarn::field(0x8c, "rebalanceDelta", &Entry::rebalanceDelta),
          Zarn::field(0x8d, "rebalanceProbabilityThreshold",
                      &Entry::rebalanceProbabilityThreshold));
    }

   private:
    PortToMemberMap portToMemberMap_{1, false};
    NhiToMemberMap nhiToMemberMap_{1, false};
  };
};

class DlbEcmpGroupTable final : public Asic::DirectTable<DlbEcmpGroupTable, DlbEcmpGroupSheet> {
 public:
  ~DlbEcmpGroupTable() override;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpGroupTable> dlbEcmpGroupTableFactory();

}  // namespace TessarLoadBalance

extern template class Asic::DirectTable<TessarLoadBalance::DlbEcmpGroupTable,
                                        TessarLoadBalance::DlbEcmpGroupSheet>;
extern template class Asic::ResolvedEntries<TessarLoadBalance::DlbEcmpGroupTable,
                                            TessarLoadBalance::DlbEcmpGroupSheet>;
