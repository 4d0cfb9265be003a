// A member table in memory, with a list of all that happens to it, and next hops that a test moves
// from state to state.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "forwarding/NextHopSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"
#include "platform/asic/GenericIndexAllocatorStub.h"
#include "support/Needed.h"
#include "support/Recording.h"

namespace Member {

using Table = TessarLoadBalance::DlbEcmpMember1Table;
using Block = Table::EntryBlock;
using Row = Table::Entry;
using State = Asic::SwTableBase::EntryState;
using Type = Asic::SwTableBase::EntryType;
using Status = Asic::ReconciliationStatus;
using Events = std::vector<std::string>;
using testing::ElementsAre;
using testing::IsEmpty;
using HandlePtr = Table::HandlePtr;

using Testing::needed;
using Testing::Needed;
using Testing::usable;

inline Row row(Vell::Ptr<Asic::SwTableBase::EntryHandle const> nextHop, U8 weight,
               U32 clientIndex = 0) {
  Row made;
  made.ecmpNextHopEntryHandle = std::move(nextHop);
  made.ecmpNextHopEntry = clientIndex;
  made.weightIdx = weight;
  return made;
}
inline Block block(std::vector<Row> const& rows) {
  Block made;
  for (U32 i = 0; i < rows.size(); ++i) made.entryIs(i, rows[i]);
  return made;
}
/// Rows of weights `first`, `first` + 1, ... without next hops.
inline Block plainBlock(U32 rows, U8 first = 0) {
  std::vector<Row> made;
  for (U32 i = 0; i < rows; ++i) made.push_back(row(nullptr, static_cast<U8>(first + i), 70 + i));
  return block(made);
}

/// A table with its recording hooks. `entries` is what its hardware has room for.
class Recorded : public Testing::Driven<Recorded, Table, Testing::RecordingHandleUtil<Table>> {
 public:
  explicit Recorded(U32 entries = 4000)
      : Driven(TessarLoadBalance::dlbEcmpMember1TableFactory(), entries) {
    util->indexKnownAtWriteIs(true);
    for (U32 field : {0x282, 0x285, 0x286, 0x28e})
      watch(field, [](auto const& change) { return change.previous ? " gone" : " new"; });
    watch(0x289, [](auto const&) { return ""; });
  }
  /// Hides the publications of the hardware's rows, which are many.
  Recorded& quiet() {
    subscriptions.clear();
    return *this;
  }
  Recorded& holding(U32 first, std::vector<std::pair<U32, U8>> const& rows) {
    for (auto const& [nextHop, weight] : rows) util->rows[first++] = row(nullptr, weight, nextHop);
    return *this;
  }
  Table::EntryHandle& handle(Block const& key) const { return *table->entryHandle(key); }
  /// The block's first row, as its handle tells it.
  U32 indexOf(Block const& key) const { return handle(key).hwIndex().value(); }
};

}  // namespace Member
