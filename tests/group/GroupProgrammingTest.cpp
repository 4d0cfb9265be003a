// What a write, an acknowledgement and a removal of a group do, in their order.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "group/EcmpGroup1DlbSwTable.h"
#include "group/VxlanEcmpGroup1DlbSwTable.h"
#include "support/Recording.h"

namespace Group {
namespace {

using State = Asic::SwTableBase::EntryState;
using Type = Asic::SwTableBase::EntryType;
using Status = Asic::ReconciliationStatus;
using testing::ElementsAre;
using testing::IsEmpty;

/// A group table with its recording hooks and room for so many groups.
template <class T>
class Groups {
 public:
  using Key = typename T::Key;
  class Util final : public Testing::RecordingUtil<T> {
   public:
    U32 numEntries() const override { return entries; }
    U32 entries = 16;
  };

  Vell::Ptr<Util> util{new Util};
  Vell::Ptr<T> table{new T("groups")};
  std::vector<Vell::Subscription> subscriptions;

  explicit Groups(U32 entries = 16) {
    util->entries = entries;
    table->utilIs(util);
    table->hwTableIs(new Asic::HwTable);
    table->doCreateAllocator();
    for (U32 field : {0x286, 0x288})
      subscriptions.push_back(table->publisher()->watch(field, [=, this](auto const&) {
        util->note(Vell::concatenate("published ", Testing::hex(field)));
      }));
  }
  Groups& holding(std::map<U32, U32> const& modes) {
    for (auto const& [row, mode] : modes) util->rows[row] = entry(mode);
    table->syncEntries();
    return *this;
  }
  Groups& replayed() {
    table->doInitComplete();
    table->purgeStaleEntries();
    util->take();
    return *this;
  }
  static typename T::Entry entry(U32 mode) {
    typename T::Entry made;
    made.lbMode = mode;
    return made;
  }
  auto commit(U32 id, U32 mode) { return table->entryCommit({.adjId = id}, entry(mode)); }
  std::vector<std::string> take() { return util->take(); }
  void answer(U32 index, State outcome = State::success) {
    auto& hw = *table->hwTable();
    hw.writeResponseIs({hw.newestWrite(index), index, outcome});
    hw.deliverWriteResponses();
  }
  U64 counted(Status status) const { return table->statistics().of(status); }
  U32 usesOf(U32 row) const {
    return Asic::IndexUserTracker::Stub::tracker(*table->hwTable()).uses(row).users;
  }
};

std::string write(std::string_view table, U32 row, U32 mode) {
  return Vell::concatenate("write ", row, " TessarLoadBalance::", table, "::Entry{lbMode:", mode,
                           " fastLinkFailover:false}");
}

template <class T>
class GroupProgramming : public testing::Test {
 protected:
  static std::string written(U32 row, U32 mode) { return write(T::names.brief(), row, mode); }
};
using GroupTables = testing::Types<TessarLoadBalance::EcmpGroup1DlbTable,
                                   TessarLoadBalance::VxlanEcmpGroup1DlbTable>;
TYPED_TEST_SUITE(GroupProgramming, GroupTables);

TYPED_TEST(GroupProgramming, aWriteIsInProgressUntilItIsAcknowledged) {
  Groups<TypeParam> at;
  at.replayed();
  auto const handle = at.commit(7, 1);
  EXPECT_THAT(at.take(), ElementsAre("published 0x286", "tracker 0 userAdd", this->written(0, 1),
                                     "published 0x288"));
  EXPECT_EQ(handle->entryState(), State::inProgress);
  EXPECT_TRUE(handle->hwIndex().isExhausted()) << "the acknowledgement brings the index";
  at.commit(7, 1);
  EXPECT_THAT(at.take(), IsEmpty()) << "an equal entry";
  auto& hw = *at.table->hwTable();
  auto const overtaken = hw.newestWrite(0);
  at.commit(7, 2);
  EXPECT_THAT(at.take(), ElementsAre(this->written(0, 2), "published 0x288"));
  hw.writeResponseIs({overtaken, 0, State::success});
  EXPECT_EQ(hw.deliverWriteResponses(), 0u);
  EXPECT_EQ(handle->entryState(), State::inProgress) << "that was the answer to an earlier write";
  auto const newest = hw.newestWrite(0);
  for (int twice = 0; twice < 2; ++twice) hw.writeResponseIs({newest, 0, State::success});
  EXPECT_EQ(hw.deliverWriteResponses(), 1u);
  EXPECT_EQ(handle->entryState(), State::success);
  EXPECT_EQ(handle->hwIndex().value(), 0u);
}

TYPED_TEST(GroupProgramming, theLastReferenceRemovesTheEntry) {
  Groups<TypeParam> at;
  at.replayed();
  auto handle = at.commit(7, 1);
  at.table->entryRemove({.adjId = 7});
  EXPECT_EQ(handle->entryType(), Type::referenceOnly);
  at.take();
  handle = nullptr;
  EXPECT_THAT(at.take(), ElementsAre("tracker 0 userRemove", "delete 0", "published 0x288",
                                     "published 0x286"));
  EXPECT_EQ(at.table->indexAllocator()->totalUsedIndices(), 0u);
  at.table->entryRef({.adjId = 8}, at.entry(3));
  EXPECT_EQ(at.table->entrys(), 0u) << "nobody held it";
}

TYPED_TEST(GroupProgramming, aFullAllocatorIsToldAndTheNextWriteCountsAsTheFirst) {
  Groups<TypeParam> at(1);
  at.replayed();
  at.commit(1, 1);
  auto const handle = at.commit(2, 1);
  EXPECT_EQ(handle->entryState(), State::failedNoIndex);
  at.table->entryRemove({.adjId = 1});
  at.take();
  at.commit(2, 1);
  EXPECT_THAT(at.take(), IsEmpty()) << "nothing retries by itself";
  at.commit(2, 2);
  EXPECT_THAT(at.take(), ElementsAre("tracker 0 userAdd", this->written(0, 2), "published 0x288"));
  EXPECT_EQ(at.usesOf(0), 1u);
  at.answer(0, Asic::WriteResponse::refused);
  EXPECT_EQ(handle->entryState(), State::failedNoIndex) << "the chip refused it";
}

TYPED_TEST(GroupProgramming, aSuggestionFindsTheOldIndexAndWhatIsLeftOverGoes) {
  Groups<TypeParam> at;
  at.holding({{4, 1}, {9, 9}, {11, 2}});
  auto const same = at.commit(1, 1);
  auto const changed = at.commit(2, 5);
  auto const added = at.commit(3, 3);
  at.take();
  Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*same, {4});
  Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*changed, {11});
  EXPECT_EQ(same->entryState(), State::indexReconciled);
  EXPECT_EQ(changed->entryState(), State::unresolved);
  EXPECT_EQ(at.util->rows.size(), 3u);
  at.replayed();
  EXPECT_EQ(same->hwIndex().value(), 4u);
  EXPECT_EQ(changed->hwIndex().value(), 11u);
  EXPECT_EQ(added->entryState(), State::inProgress);
  EXPECT_EQ(at.util->rows.size(), 3u);
  EXPECT_FALSE(at.util->rows.contains(9));
  EXPECT_EQ(at.counted(Status::reconcileMatched), 1u);
  EXPECT_EQ(at.counted(Status::reconcileRewritten), 1u);
  EXPECT_EQ(at.counted(Status::reconcileAdded), 1u);
  EXPECT_EQ(at.counted(Status::reconcileDeleted), 1u);
  for (U32 row : {0, 4, 11}) EXPECT_EQ(at.usesOf(row), 1u) << row;
}

}  // namespace
}  // namespace Group
