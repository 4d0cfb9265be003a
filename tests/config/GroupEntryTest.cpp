// The entry of the group table, the only one of a direct table with collections inside it.

#include <gmock/gmock.h>

#include "DirectTables.h"
#include "platform/vell/Inspect.h"

namespace Testing {
namespace {

using TessarLoadBalance::DlbEcmpGroupTable;
using Entry = DlbEcmpGroupTable::Entry;

/// A group whose maps are full.
Entry fullEntry() {
  Entry entry;
  entry.flowSetSize = 2048;
  for (U16 n = 0; n < 64; ++n) {
    entry.portToMemberMapIs(static_cast<U16>(n * 13), n);
    entry.nhiToMemberMapIs(static_cast<U16>(n * 7), static_cast<U8>(n));
  }
  return entry;
}

TEST(GroupEntry, MapsAreUniqueByKeyAndReadZeroWhereThereIsNothing) {
  Entry entry;
  EXPECT_FALSE(entry);
  entry.portToMemberMapIs(1, 0);
  EXPECT_TRUE(entry) << "a member is content, whatever its value";
  entry.portToMemberMapIs(1, 500);
  EXPECT_EQ(entry.portToMemberMap().count(), 1u);
  EXPECT_EQ(entry.portToMemberMap(1), 500u);
  EXPECT_EQ(entry.portToMemberMap(2), 0u);
  EXPECT_EQ(entry.portToMemberMapDel(1), 500u);
  EXPECT_EQ(entry.nhiToMemberMapDel(9), 0u);
  EXPECT_FALSE(entry);
  entry = fullEntry();
  entry.portToMemberMapDelAll();
  entry.nhiToMemberMapDelAll();
  entry.flowSetSize = 0;
  EXPECT_EQ(entry, Entry());
}

TEST(GroupEntry, ComparesFieldByFieldAndMapsBySizeThenMember) {
  // Each step is greater than all before it, since an earlier field decides.
  std::vector<std::function<void(Entry&)>> const steps{
      [](Entry& e) { e.rebalanceProbabilityThreshold = 1; },
      [](Entry& e) { e.rebalanceDelta = 1; },
      [](Entry& e) { e.nhiToMemberMapIs(5, 1); },
      [](Entry& e) { e.nhiToMemberMapIs(5, 2); },
      [](Entry& e) { e.nhiToMemberMapIs(0, 0); },
      [](Entry& e) { e.portToMemberMapIs(9, 7); },
      [](Entry& e) { e.portToMemberMapIs(9, 8); },
      [](Entry& e) { e.portToMemberMapDel(9), e.portToMemberMapIs(10, 0); },
      [](Entry& e) { e.portToMemberMapIs(0, 0); },
      [](Entry& e) { e.primaryGroupSize = 1; },
      [](Entry& e) { e.groupMembershipPointer = 1; },
      [](Entry& e) { e.flowSetSize = 1; },
      [](Entry& e) { e.flowSetBase = 1; },
      [](Entry& e) { e.portAssignmentMode = 1; },
      [](Entry& e) { e.inactivityDuration = 1; },
  };
  std::vector<Entry> entries(1);
  for (auto const& step : steps) step(entries.emplace_back(entries.back()));
  for (std::size_t i = 0; i < entries.size(); ++i)
    for (std::size_t j = 0; j < entries.size(); ++j) {
      EXPECT_EQ(entries[i] <=> entries[j], (i > j) - (i < j)) << i << " and " << j;
      EXPECT_EQ(entries[i] == entries[j], i == j) << i << " and " << j;
    }
}

// Whatever was in them before, and in whatever order they were filled.
TEST(GroupEntry, MapsWithEqualMembersAreEqual) {
  Entry forward, backward;
  for (U16 port = 0; port < 1000; ++port) forward.portToMemberMapIs(port, port);
  for (U16 port = 2000; port-- > 0;) backward.portToMemberMapIs(port, port);
  for (U16 port = 1000; port < 2000; ++port) backward.portToMemberMapDel(port);
  EXPECT_EQ(forward, backward);
  EXPECT_EQ(forward <=> backward, 0);
}

TEST(GroupEntry, HasATextAndCannotBeReadFromOne) {
  Entry entry;
  entry.flowSetSize = 256;
  entry.portToMemberMapIs(300, 2);
  entry.portToMemberMapIs(4, 65535);
  entry.nhiToMemberMapIs(1, 7);
  auto const text = Zarn::valueToStrep(entry);
  EXPECT_EQ(text,
            "TessarLoadBalance::DlbEcmpGroupTable::Entry{inactivityDuration:0 portAssignmentMode:0 "
            "flowSetBase:0 flowSetSize:256 groupMembershipPointer:0 primaryGroupSize:0 "
            "portToMemberMap:{4:65535 300:2} nhiToMemberMap:{1:7} rebalanceDelta:0 "
            "rebalanceProbabilityThreshold:0}");
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(Zarn::strepToValue<Entry>(text), "No String constructor for Entry - has collection");
}

TEST(GroupEntry, ReflectionReachesTheElementsOfItsMaps) {
  auto const& type = *DlbEcmpGroupTable::module().types()[DlbEcmpGroupTable::entryTypeNumber];
  auto const record = Vell::inspectMakeValue(type);
  Vell::Inspect entry(record);
  entry.elementIs("portToMemberMap", U64{65535}, U64{7});
  entry.elementIs(0x8a, U64{1}, U64{8});
  entry.elementIs(0x8a, U64{2}, U64{9});
  entry.elementIs(0x8a, U64{2}, {});
  entry.elementIs(0x8b, U64{1}, U64{255});
  std::vector<std::pair<U64, U64>> seen;
  entry.walk(0x8a, [&](auto const& key, auto const& value) {
    seen.emplace_back(*key.number(), *value.number());
  });
  EXPECT_THAT(seen, ::testing::ElementsAre(std::pair(1u, 8u), std::pair(65535u, 7u)));
  EXPECT_EQ(entry.figures(0x8a).count, 2u);
  EXPECT_THROW(entry.elementIs(0x8a, U64{65536}, U64{1}), Vell::InspectError);
  EXPECT_THROW(entry.elementIs(0x8b, U64{1}, U64{256}), Vell::InspectError);
  EXPECT_THROW(entry.elementIs(0x8b, "1", U64{1}), Vell::InspectError);
  EXPECT_THROW(entry.elementIs(0x84, U64{1}, U64{1}), Vell::InspectError);
  EXPECT_THROW(entry.get(0x8a), Vell::InspectError);
  EXPECT_EQ(entry.figures(0x8b).count, 1u) << "a refusal changes nothing";
}

TEST(GroupEntry, ACommitOfAnEqualOneAllocatesNothing) {
  Recorded<DlbEcmpGroupTable> at(TessarLoadBalance::dlbEcmpGroupTableFactory());
  at.synced().replayed();
  at.table->entryCommit(3, fullEntry());
  at.take();
  auto const again = fullEntry();
  auto& buckets = Zarn::HashMap2018BucketHeader::memAllocationTracker();
  auto const made = buckets.total();
  at.table->entryCommit(3, again);
  EXPECT_EQ(buckets.total(), made);
  EXPECT_THAT(at.take(), ::testing::IsEmpty());

  auto one = again;
  one.nhiToMemberMapIs(7, 0);
  at.table->entryCommit(3, one);
  EXPECT_EQ(at.take().size(), 2u) << "one member of one map is a change";
  EXPECT_GT(buckets.total(), made) << "copies of a changed one are counted";
}

}  // namespace
}  // namespace Testing
