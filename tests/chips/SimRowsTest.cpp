// What goes into the simulated hardware comes out again, is journalled, and is counted.

#include <limits>

#include "Life.h"
#include "config/DlbEcmpGroupSwTable.h"

namespace Chips {
namespace {

using testing::ElementsAre;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

template <class T>
class SimRowsTest : public ChipTest {};
using BothTables = testing::Types<Control, Ecmp>;
TYPED_TEST_SUITE(SimRowsTest, BothTables);

// Every field at its highest value: alone, in all but one field, and all of them.
template <class Entry>
std::vector<Entry> extremes() {
  std::vector<Entry> entries(2);
  auto const fill = [](Entry& entry, auto const& field) {
    using Member = std::remove_reference_t<decltype(entry.*field.member)>;
    entry.*field.member = std::numeric_limits<Member>::max();
  };
  auto& all = entries[1];
  Zarn::FieldOps<Entry>::forEach([&](auto const& field) { fill(all, field); });
  Zarn::FieldOps<Entry>::forEach([&](auto const& field) {
    Entry alone, others = entries[1];
    fill(alone, field);
    others.*field.member = {};
    entries.insert(entries.end(), {alone, others});
  });
  return entries;
}

TYPED_TEST(SimRowsTest, comeBackAtTheExtremesOfTheirFields) {
  using Rows = typename Life<TypeParam>::Rows;
  auto const entries = extremes<typename TypeParam::Entry>();
  for (U32 shift = 0; shift < entries.size(); ++shift) {
    Rows wanted;
    for (U32 index = 0; index <= 15; ++index)
      wanted[index] = entries[(index + shift) % entries.size()];
    { Life<TypeParam>(opened(this->hardware)).replay(wanted); }
    ASSERT_EQ(rowsIn<TypeParam>(this->hardware), wanted);
  }
  Rows const wanted = rowsIn<TypeParam>(this->hardware);
  Life<TypeParam> again(opened(this->hardware));
  EXPECT_EQ(again.table->maxIndex(), 15u);
  again.replay(wanted);
  EXPECT_EQ(again.operations(), (Asic::Chip::Operations{0, 0})) << "every row was there";
}

class SimChipTest : public ChipTest {};

TEST_F(SimChipTest, fullMapsComeBackAndMoreThanThatAreClippedByTheHighestKeys) {
  using Group = TessarLoadBalance::DlbEcmpGroupTable;
  Group::Entry full;
  for (U16 n = 0; n < 64; ++n) {
    full.portToMemberMapIs(static_cast<U16>(65535 - n), static_cast<U16>(65535 - n));
    full.nhiToMemberMapIs(static_cast<U16>(n * 1000), static_cast<U8>(255 - n));
  }
  full.rebalanceProbabilityThreshold = 255;
  auto clipped = full;
  clipped.nhiToMemberMapIs(64000, 9);
  { Life<Group>(opened(hardware)).replay({{0, full}, {126, {}}, {127, clipped}}); }
  auto const rows = rowsIn<Group>(hardware);
  EXPECT_EQ(rows, (Life<Group>::Rows{{0, full}, {126, {}}, {127, full}}));
  Life<Group> again(opened(hardware));
  again.replay(rows);
  EXPECT_EQ(again.operations(), (Asic::Chip::Operations{0, 0}));
}

TEST_F(SimChipTest, keyWithoutAValueKeepsARowForTheNextProcess) {
  {
    Life<Control> life(opened(hardware));
    life.replay({{3, control(3)}});
    life.table->resolvedKeyPriorIs(life.table->keyPrior(3));
    life.table->resolvedEntryIs(3, {});
  }
  EXPECT_THAT(rowsIn<Control>(hardware), ElementsAre(testing::Pair(3, Control::Entry{})));
  { Life<Control>(opened(hardware)).replay({}); }
  EXPECT_THAT(rowsIn<Control>(hardware), IsEmpty());
}

TEST_F(SimChipTest, journalTellsWhatHappenedAcrossProcesses) {
  {
    Life<Control> life(opened(hardware));
    life.replay({{0, control(1)}, {15, control(2)}});
    life.table->entryCommit(16, control(3));
    life.table->entryRemove(16);
    EXPECT_EQ(life.operations(), (Asic::Chip::Operations{2, 0})) << "row 16 does not exist";
  }
  Life<Ecmp> life(opened(hardware));
  life.replay({{1, {}}});
  life.table->entryRemove(1);
  auto const controlName = std::string(Control::names.qualified);
  auto const ecmpName = std::string(Ecmp::names.qualified);
  EXPECT_THAT(life.chip->journal(5),
              ElementsAre(FieldsAre(2, controlName, "write", 15),
                          FieldsAre(3, controlName, "outOfRange", 16),
                          FieldsAre(4, controlName, "outOfRange", 16),
                          FieldsAre(5, ecmpName, "write", 1), FieldsAre(6, ecmpName, "delete", 1)));
  EXPECT_THAT(life.chip->journal(100), SizeIs(6));
  EXPECT_EQ(life.chip->operations(controlName), (Asic::Chip::Operations{0, 0}))
      << "counted since opening";

  for (U32 n = 7; n <= 2000; ++n) life.table->entryCommit(n % 16, ecmp(n));
  auto const all = life.chip->journal(100000);
  EXPECT_THAT(all, SizeIs(1024));
  EXPECT_EQ(all.front().number, 2000u - 1023);
  EXPECT_EQ(all.back().number, 2000u);
}

TEST_F(SimChipTest, copiesRowsToAnotherHardware) {
  { Life<Control>(opened(hardware)).replay({{1, control(1)}, {2, control(2)}}); }
  Life<Control> const from(opened(hardware));
  Life<Control> to(opened(path("other.hw")));
  to.replay({{2, control(2)}, {3, control(3)}});
  auto& hwTable = *to.table->hwTable();
  EXPECT_TRUE(to.table->util()->doCopyHwTable(*from.table->hwTable(), hwTable));
  EXPECT_EQ(to.operations(), (Asic::Chip::Operations{3, 1})) << "what was there is not written";
  to.chip = nullptr;
  EXPECT_TRUE(to.table->util()->compareHwEntries(*to.table, 1, control(1)));
  EXPECT_FALSE(to.table->util()->compareHwEntries(*to.table, 3, control(3)));
}

// ---- fault switches ----

TEST_F(SimChipTest, switchesAreRefusedBeforeAnythingIsTouched) {
  { Life<Control>(opened(hardware)).replay({{3, control(3)}}); }
  auto const before = bytesOf(hardware);
  struct Case {
    std::string name, value, problem;
  };
  for (auto const& [name, value, problem] : std::initializer_list<Case>{
           {"freeze", "2",
            "no switch \"freeze\"; its switches are delay-acks=PERCENT, delay-reads=N, "},
           {"lose-acks", "101", "takes PERCENT from 0 to 100, not \"101\""},
           {"freeze-after", "", "freeze-after of the simulated chip takes N, not \"\""},
           {"freeze-after", "-1", "not \"-1\""},
           {"freeze-after", "18446744073709551616", "takes N"},
           {"flip-row", "DlbControlTable", "takes TABLE:ROW"},
           {"flip-row", ":3", "takes TABLE:ROW"},
           {"flip-row", "DlbControlTable:3x", "takes TABLE:ROW"},
           {"flip-row", "Nothing:3", "no table \"Nothing\"; it has DlbControlTable, Dlb"},
           {"flip-row", "DlbControlTable:2", "row 2 of TessarLoadBalance::DlbControlTable"},
           {"flip-row", "DlbControlTable:16", "from 0 to 15"}}) {
    for (auto const& file : {hardware, path("missing.hw")})
      EXPECT_THAT(errorOf([&] {
                    newChip()->open(faulty(file, {{name, value}}));
                  }),
                  HasSubstr(problem));
  }
  EXPECT_EQ(bytesOf(hardware), before);
  EXPECT_THAT(std::vector(std::filesystem::directory_iterator(folder), {}), SizeIs(1))
      << "no file was made";
}

}  // namespace
}  // namespace Chips
