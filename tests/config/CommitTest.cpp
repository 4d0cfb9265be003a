// What a commit does to collections, hardware, tracker and watchers, and in which order.

#include "DirectTables.h"
#include "platform/vell/Inspect.h"

namespace Testing {
namespace {

using Asic::SwTable;

template <class T>
class CommitTest : public DirectTableSuite<T> {};
TYPED_TEST_SUITE(CommitTest, DirectTables);

TYPED_TEST(CommitTest, TellsTrackerThenHardwareThenWatchers) {
  this->at_.synced().replayed();
  EXPECT_FALSE(this->table_.entryHas(this->k(5)));
  EXPECT_EQ(this->table_.entry(this->k(5)), this->e(0));
  this->table_.entryCommit(this->k(5), this->e(0));
  EXPECT_EQ(this->at_.take()[1], "write 5 " + this->text(0)) << "a default entry is a value";
  this->table_.entryRemove(this->k(5));
  EXPECT_EQ(this->at_.take(), (std::vector<std::string>{"tracker 5 userRemove", "delete 5",
                                                        "published 0x207 5 was " + this->text(0)}));
  this->table_.entryRemove(this->k(5));
  EXPECT_TRUE(this->at_.take().empty());
  EXPECT_EQ(this->table_.resolvedKeyPrior(), SwTable::KeyPrior::noKey);
  auto const one = this->text(1);
  auto const two = this->text(2);
  this->table_.entryCommit(this->k(5), this->e(1));
  EXPECT_EQ(this->at_.take(), (std::vector<std::string>{"tracker 5 userAdd", "write 5 " + one,
                                                        "published 0x207 5 was -"}));
  this->table_.entryCommit(this->k(5), this->e(2));
  EXPECT_EQ(this->at_.take(),
            (std::vector<std::string>{"write 5 " + two, "published 0x207 5 was " + one}));
  this->table_.entryCommit(this->k(5), this->e(2));
  EXPECT_EQ(this->at_.take(), (std::vector<std::string>{}));
  EXPECT_EQ(this->table_.resolvedKeyPrior(), SwTable::KeyPrior::value);

  auto const watching = this->table_.publisher()->watch(0x207, [&](auto const& change) {
    if (numberOf(change.template keyAs<typename TypeParam::Key>()) != 6) return;
    this->table_.entryCommit(this->k(5), this->e(2));
    EXPECT_EQ(this->table_.resolvedKeyPrior(), SwTable::KeyPrior::noKey) << "the outer one's";
  });
  this->table_.entryCommit(this->k(6), this->e(1));
}

TYPED_TEST(CommitTest, EachFieldAloneIsAChange) {
  using Entry = typename TypeParam::Entry;
  this->at_.synced().replayed();
  Entry entry;
  this->table_.entryCommit(this->k(5), entry);
  this->at_.take();
  Zarn::FieldOps<Entry>::forEach([&](auto const& field) {
    using Type = std::remove_reference_t<decltype(entry.*field.member)>;
    // The highest bit: the comparison must cover the whole width.
    U64 const top = U64{1} << (Zarn::FieldType<Type>::bits - 1);
    if constexpr (Zarn::CollectionField<Type>)
      Zarn::FieldType<Type>::elementIs(entry.*field.member, U64{0x8000}, top);
    else
      entry.*field.member = static_cast<Type>(top);
    this->table_.entryCommit(this->k(5), entry);
    EXPECT_EQ(this->at_.take().size(), 2u) << field.name;
  });
}

// The client's reference may lie in the table's own storage, which the commit moves.
TYPED_TEST(CommitTest, TakesAnEntryOutOfTheTableItself) {
  this->at_.synced().replayed();
  for (U32 key = 0; key < 200; ++key) {
    this->table_.entryCommit(this->k(key), this->e(key));
    this->table_.entryCommit(this->k(1000 + key),
                             *this->table_.resolvedEntryMap().lookupNodeG(this->k(key))->value_);
  }
  for (U32 key = 0; key < 200; ++key)
    EXPECT_EQ(this->table_.entry(this->k(1000 + key)), this->e(key));
}

TYPED_TEST(CommitTest, AKeyMayBeHeldWithoutAValue) {
  this->at_.synced().replayed();
  auto& table = this->table_;
  auto const without = Zarn::Optional<typename TypeParam::Entry>();
  table.entryCommit(this->k(5), this->e(1));
  this->at_.take();
  auto const walk = table.entryIteratorConst(this->k(5));

  table.resolvedKeyPriorIs(SwTable::KeyPrior::value);
  table.resolvedEntryIs(this->k(5), without);
  EXPECT_EQ(this->at_.take(), (std::vector<std::string>{"tracker 5 userDeactivate", "write 5 -",
                                                        "published 0x207 5 was " + this->text(1)}));
  table.resolvedEntryIs(this->k(5), without);
  EXPECT_TRUE(this->at_.take().empty());
  EXPECT_TRUE(table.entryHas(this->k(5)));
  EXPECT_EQ(table.entrys(), 1u);
  EXPECT_EQ(table.entry(this->k(5)), this->e(0));
  EXPECT_FALSE(table.resolvedEntry(this->k(5)).has_value());
  EXPECT_FALSE(table.entryIteratorConst());
  EXPECT_FALSE(table.entryIteratorConst(this->k(5)));
  for (U32 other = 100; other < 400; ++other) table.entryCommit(this->k(other), this->e(1));
  EXPECT_EQ(walk.entry(), this->e(0)) << "a walk that stands on the key when it loses its value";
  for (U32 other = 100; other < 400; ++other) table.entryRemove(this->k(other));
  this->at_.take();
  EXPECT_EQ(Vell::Inspect(table).figures(0x207).count, 1u);
  EXPECT_EQ(Vell::Inspect(table).figures(0x208).count, 0u);

  table.entryCommit(this->k(5), this->e(2));
  EXPECT_EQ(this->at_.take(),
            (std::vector<std::string>{"tracker 5 userActivate", "write 5 " + this->text(2),
                                      "published 0x207 5 was -"}));
  table.resolvedKeyPriorIs(SwTable::KeyPrior::value);
  table.resolvedEntryIs(this->k(5), without);
  this->at_.take();
  table.entryRemove(this->k(5));
  EXPECT_EQ(this->at_.take(), (std::vector<std::string>{"tracker 5 userRemoveInactive", "delete 5",
                                                        "published 0x207 5 was -"}));
}

// No value of a structured key is special.
TYPED_TEST(CommitTest, TheExhaustedIndexReachesNoHardware) {
  this->at_.synced().replayed();
  auto const hardwareToo = [](std::vector<std::string> reached, std::string const& published) {
    if (TestFixture::keyIsIndex) reached.clear();
    reached.push_back(published);
    return reached;
  };
  this->table_.entryCommit(this->k(0xFFFFFFFF), this->e(1));
  EXPECT_EQ(this->at_.take(),
            hardwareToo({"tracker 4294967295 userAdd", "write 4294967295 " + this->text(1)},
                        "published 0x207 4294967295 was -"));
  this->table_.entryRemove(this->k(0xFFFFFFFF));
  EXPECT_EQ(this->at_.take(), hardwareToo({"tracker 4294967295 userRemove", "delete 4294967295"},
                                          "published 0x207 4294967295 was " + this->text(1)));
}

TYPED_TEST(CommitTest, WithoutHooksTheCollectionsWorkAlone) {
  this->table_.utilIs(nullptr);
  if constexpr (TestFixture::keyIsIndex) {
    EXPECT_EQ(this->table_.minIndex(), 0u);
    EXPECT_EQ(this->table_.maxIndex(), 0xFFFFFFFFu);
  }
  this->table_.entryCommit(this->k(5), this->e(1));
  EXPECT_EQ(this->at_.take(), std::vector<std::string>{"published 0x207 5 was -"});
  EXPECT_EQ(this->at_.counted(Asic::ReconciliationStatus::reconcileAdded), 1u);
  this->table_.entryRemove(this->k(5));
  EXPECT_EQ(this->at_.counted(Asic::ReconciliationStatus::reconcileDeleted), 0u);
}

TYPED_TEST(CommitTest, SyncedEntriesTellTheirChanges) {
  auto& table = this->table_;
  table.syncedEntryIs(this->k(5), this->e(1));
  table.syncedEntryIs(this->k(5), this->e(1));
  table.syncedEntryIs(this->k(5), this->e(2));
  table.syncedEntryDel(this->k(5));
  EXPECT_EQ(this->at_.take(), (std::vector<std::string>{"published 0x209 5 was null",
                                                        "published 0x209 5 was " + this->text(1),
                                                        "published 0x209 5 was " + this->text(2)}));
}

TYPED_TEST(CommitTest, ABrokenLimitStopsTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto const without = Zarn::Optional<typename TypeParam::Entry>();
  this->at_.synced().replayed();
  this->table_.resolvedKeyPriorIs(SwTable::KeyPrior::noKey);
  EXPECT_DEATH(this->table_.resolvedEntryIs(this->k(5), without), "\"false\".*empty value");
  this->table_.entryCommit(this->k(5), this->e(1));
  this->table_.resolvedKeyPriorIs(SwTable::KeyPrior::noKey);
  EXPECT_DEATH(this->table_.resolvedEntryDel(this->k(5)), "\"false\".*prior");
}

}  // namespace
}  // namespace Testing
