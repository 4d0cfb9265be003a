// The agent knows its tables by reflection alone: here it meets one that no library brings, with a
// structured key and narrow fields.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/Configuration.h"
#include "agent/Contents.h"
#include "agent/Failure.h"
#include "agent/LiveTable.h"
#include "frame/DirectTable.h"
#include "frame/DirectTableDefinitions.h"
#include "frame/FieldEntry.h"

namespace Testing {

struct FlowSheet {
  static constexpr Asic::TableNames names{"Testing::FlowTable", "FlowTable"};
  static constexpr Asic::DirectMapConstants maps{.resolvedEntry = 1, .syncedEntry = 2};

  struct Key {
    U16 port = 0;
    U8 queue = 0;

    static constexpr auto fields() {
      return Zarn::fieldList("Flow", Zarn::field(1, "port", &Key::port),
                             Zarn::field(2, "queue", &Key::queue));
    }
    U32 hash(U32 seed) const { return Zarn::hashSingleAttr(seed, U32{port} << 8 | queue); }
    static bool isEq(void const* a, void const* b) {
      return *static_cast<Key const*>(a) == *static_cast<Key const*>(b);
    }
    void deserialize(Zarn::CharRange& range, std::string_view name) {
      Zarn::FieldOps<Key>::read(range, *this, name);
    }
    friend auto operator<=>(Key const&, Key const&) = default;
    friend std::ostream& operator<<(std::ostream& out, Key const& key) {
      return Zarn::FieldOps<Key>::write(out, key);
    }
  };

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    U8 depth = 0;
    bool on = false;

    static constexpr auto fields() {
      return Zarn::fieldList("Testing::FlowTable::Entry", Zarn::field(0x84, "depth", &Entry::depth),
                             Zarn::field(0x85, "on", &Entry::on));
    }
  };
};

class FlowTable final : public Asic::DirectTable<FlowTable, FlowSheet> {
 public:
  ~FlowTable() override { tearDown(); }
};

}  // namespace Testing

template class Asic::DirectTable<Testing::FlowTable, Testing::FlowSheet>;

namespace {

using namespace DlbAgent;
using Testing::FlowTable;

class ReflectionTest : public ::testing::Test {
 protected:
  static Catalogue loadedCatalogue() {
    FlowTable::module().loaded();
    return {};
  }
  Configuration read(std::string_view entries) const {
    auto const text = R"({"tables": {"FlowTable": {)" + std::string(entries) + "}}}";
    return Configuration::fromText(text, "c", catalogue_,
                                   {[](auto const&) {
                                      return IndexLimits{0, 0};
                                    },
                                    [](auto const&, auto const&, auto const&) { return ""; }});
  }
  std::vector<std::string> errors(std::string_view entries) const {
    try {
      read(entries);
    } catch (Failure const& failure) {
      return failure.lines();
    }
    return {};
  }

  Catalogue const catalogue_ = loadedCatalogue();
  TableType const& type_ = *catalogue_.find("Testing::FlowTable");
};

TEST_F(ReflectionTest, aStructuredKeyIsKnownByTheTextThatItsTableGivesIt) {
  auto const configuration = read(
      R"("Flow{port:0x10 queue:3}": {"depth": "0xFF", "on": true}, "Flow{port:2 queue:9}": {})");
  EXPECT_EQ(rowsJson(type_, configuration.of(type_)), nlohmann::ordered_json::parse(R"({
      "Flow{port:16 queue:3}": {"depth": 255, "on": true},
      "Flow{port:2 queue:9}": {"depth": 0, "on": false}})"));
}

TEST_F(ReflectionTest, errorsOfKeysAndNarrowFieldsAreToldWithTheirPaths) {
  using ::testing::ElementsAre;
  using ::testing::HasSubstr;
  EXPECT_THAT(
      errors(R"("Flow{port:1}": {}, "Flow{port:0x1 queue:1}": {"depth": 256},
                        "Flow{port:1 queue:1}": {}, "7": {"on": 0})"),
      ElementsAre(HasSubstr("FlowTable.\"Flow{port:1}\": no key: "),
                  HasSubstr("depth: 256 does not fit in 8 bits; the largest value is 255"),
                  HasSubstr("is the same key as \"Flow{port:0x1 queue:1}\""),
                  HasSubstr("7: no key: "), HasSubstr("7.on: must be true or false, not 0")));
}

TEST_F(ReflectionTest, aTableWithoutHooksGoesThroughItsPhasesInSoftware) {
  LiveTable table(type_, "no chip");
  table.start({});
  EXPECT_FALSE(table.hasHardware());
  table.replay(read(R"("Flow{port:1 queue:1}": {})").of(type_));
  table.replayEnded();
  table.purge();
  ASSERT_EQ(table.changes().size(), 1u);
  EXPECT_EQ(table.changes()[0].kind, Change::Kind::homeless);
}

}  // namespace
