// The response machines of reads and of writes: one of each for a table, and none that keeps a table
// which is gone, whoever holds it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "group/EcmpGroup1DlbSwTable.h"
#include "read/DlbEcmpFlowsetTableRead.h"

namespace Testing {
namespace {

struct Reads {
  using Table = TessarLoadBalance::DlbEcmpFlowsetTableRead;
  using Machine = Asic::ReadResponseSm;
  static constexpr U32 field = Table::readResponseSmField;
  static Vell::Ptr<Table> table() { return new Table; }
  static auto made(Asic::SwTable* table) { return Machine::ReadResponseSmIs(table); }
  static auto machineIs(Table& table, Table* of) { return table.readResponseSmIs(of); }
  static auto machineDel(Table& table) { return table.readResponseSmDel(); }
  static Machine* machine(Asic::HwTable& hwTable) { return hwTable.readResponseSm(); }
  static U64 deliver(Asic::HwTable& hwTable) {
    hwTable.readResponseIs({.transactionId = 1, .idx = 1});
    return hwTable.deliverReadResponses();
  }
};

struct Writes {
  using Table = TessarLoadBalance::EcmpGroup1DlbTable;
  using Machine = Asic::WriteResponseSm;
  static constexpr U32 field = Table::writeResponseSmField;
  static Vell::Ptr<Table> table() {
    auto const table = TessarLoadBalance::ecmpGroup1DlbTableFactory("");
    table->doCreateAllocator();
    return table;
  }
  static auto made(Asic::SwTable* table) { return Machine::WriteResponseSmIs(table); }
  static auto machineIs(Table& table, Table* of) { return table.writeResponseSmIs(of); }
  static auto machineDel(Table& table) { return table.writeResponseSmDel(); }
  static Machine* machine(Asic::HwTable& hwTable) { return hwTable.writeResponseSm(); }
  static U64 deliver(Asic::HwTable& hwTable) {
    hwTable.writeIs(1);
    hwTable.writeResponseIs({hwTable.newestWrite(1), 1, Asic::WriteResponse::refused});
    return hwTable.deliverWriteResponses();
  }
};

template <class Kind>
class ResponseSm : public testing::Test {
 protected:
  using MachinePtr = Vell::Ptr<typename Kind::Machine>;

  Vell::Ptr<Asic::HwTable> hwTable_{new Asic::HwTable};
  Vell::Ptr<typename Kind::Table> table_ = Kind::table();
  ResponseSm() { table_->hwTableIs(hwTable_); }
};
using Kinds = testing::Types<Reads, Writes>;
TYPED_TEST_SUITE(ResponseSm, Kinds);

TYPED_TEST(ResponseSm, thereIsOneForATableAndChangesAreTold) {
  auto& table = *this->table_;
  std::vector<std::string> events;
  auto const watching = table.publisher()->watch(TypeParam::field, [&](auto& change) {
    auto const& former = *change.template previousAs<typename TestFixture::MachinePtr>();
    events.push_back(!former                           ? "none before"
                     : former->hasNotificationActive() ? "active before"
                                                       : "inactive before");
  });
  auto const first = TypeParam::machineIs(table, &table);
  EXPECT_TRUE(first->hasNotificationActive());
  EXPECT_EQ(TypeParam::machineIs(table, &table), first);
  auto const other = TypeParam::table();
  auto const second = TypeParam::machineIs(table, other.get());
  EXPECT_NE(second, first);
  EXPECT_FALSE(second->hasNotificationActive()) << "the other table has no hardware";
  auto const third = TypeParam::machineIs(table, &table);
  EXPECT_EQ(TypeParam::machineDel(table), third);
  EXPECT_EQ(TypeParam::machineDel(table), nullptr);
  EXPECT_FALSE(third->hasNotificationActive());
  EXPECT_THAT(events, testing::ElementsAre("none before", "inactive before", "inactive before",
                                           "active before"));
}

TYPED_TEST(ResponseSm, noneKeepsATableThatIsGone) {
  auto& table = *this->table_;
  auto const other = TypeParam::table();
  std::vector<typename TestFixture::MachinePtr> held{TypeParam::made(&table),
                                                     TypeParam::machineIs(*other, &table),
                                                     TypeParam::machineIs(table, &table)};
  held.push_back(TypeParam::machineDel(table));
  held.push_back(TypeParam::machineIs(table, &table));
  TypeParam::machineIs(table, other.get());
  // A watcher of the table's own end makes one more, and another one polls.
  auto const watching = table.publisher()->watch(TypeParam::field, [&](auto&) {
    held.push_back(TypeParam::made(&table));
    held.back()->hasNotificationActiveIs(true);
    EXPECT_EQ(TypeParam::deliver(*this->hwTable_), 0u);
  });
  this->table_ = nullptr;
  EXPECT_EQ(held.size(), 6u);
  held.erase(held.begin());  // machines go in any order
  for (auto const& machine : held) {
    EXPECT_FALSE(machine->swTable());
    machine->hasNotificationActiveIs(true);
    EXPECT_FALSE(machine->hasNotificationActive());
  }
  EXPECT_FALSE(TypeParam::machine(*this->hwTable_));
  EXPECT_EQ(TypeParam::deliver(*this->hwTable_), 0u);
}

}  // namespace
}  // namespace Testing
