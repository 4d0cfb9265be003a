// Tables that share one allocator: an index belongs to a key, whoever of the tables writes it, and to
// nobody once the last of them has let go.

#include "Groups.h"

namespace Group {
namespace {

/// Two tables of the same kind, each with hardware of its own.
template <class T>
class GroupSharing : public testing::Test {
 protected:
  Groups<T> one_{4}, two_{4};
};
TYPED_TEST_SUITE(GroupSharing, GroupTables);

TYPED_TEST(GroupSharing, aTableThatGoesTakesOnlyItsOwnRowsAndIndices) {
  auto &one = this->one_.replayed(), &two = this->two_.replayed();
  for (U32 id : {1, 2}) one.commit(id, 1);
  for (U32 id : {2, 3}) two.commit(id, 1);
  one.table = nullptr;
  EXPECT_THAT(one.util->rows, IsEmpty());
  EXPECT_EQ(two.util->rows.size(), 2u);
  EXPECT_EQ(two.allocator()->totalUsedIndices(), 2u);
  EXPECT_EQ(two.indexOf(1), noIndex);
  EXPECT_EQ(two.indexOf(2), 1u);
}

// ---- the purge ----

TYPED_TEST(GroupSharing, thePurgeSparesRowsOfItsOwnKeysAndTellsTheTrackerOfAll) {
  auto& one = this->one_.holding({{1, 9}, {3, 9}});
  one.table->doInitComplete();
  one.table->entryWriteAtIndex(1, one.key(7), one.entry(1));
  one.take();
  one.table->purgeStaleEntries();
  EXPECT_THAT(one.take(), ElementsAre("tracker 1 userRemove", "tracker 3 userRemove", "delete 3",
                                      "published 0x28a 1", "published 0x28a 3"));
  EXPECT_EQ(one.usesOf(1), 1u) << "the entry's own";
  EXPECT_EQ(one.usesOf(3), 0u);
  EXPECT_EQ(one.counted(Status::reconcileDeleted), 1u);
  one.table->purgeStaleEntries();
  EXPECT_THAT(one.take(), IsEmpty());
}

TYPED_TEST(GroupSharing, aKeyThatComesBackElsewhereWhileItLeavesTakesItsFormerRowAway) {
  auto &one = this->one_.replayed(), &two = this->two_.replayed();
  one.commit(7, 1);
  one.util->onEvent = [&](std::string const& event) {
    if (event != "tracker 0 userRemove") return;
    two.ref(7, 1);  // and let go at once: nobody has the key now
    two.commit(9, 1);
    one.commit(7, 2);
  };
  one.remove(7);
  one.util->onEvent = nullptr;
  EXPECT_EQ(one.indexOf(7), 1u);
  EXPECT_FALSE(one.util->rows.contains(0));
  EXPECT_EQ(one.util->rows.at(1), one.entry(2));
}

// The other table gives that key an index here; this one has not written it.
TYPED_TEST(GroupSharing, aRowThatLeavesIsNotSparedForAKeyThatFoundNoIndex) {
  auto &one = this->one_.replayed(), &two = this->two_.replayed();
  for (U32 id = 0; id < 4; ++id) one.commit(id, 1);
  one.util->onEvent = [&](std::string const& event) {
    if (event != "tracker 0 userRemove") return;
    one.commit(7, 1);
    two.ref(0, 1);  // and let go at once: nobody has the key now
    two.commit(7, 2);
  };
  one.remove(0);
  one.util->onEvent = nullptr;
  EXPECT_EQ(two.indexOf(7), 0u);
  EXPECT_FALSE(one.util->rows.contains(0));
}

}  // namespace
}  // namespace Group
