// What is particular to single direct tables: field order, text forms, reflection, module data.

#include <gmock/gmock.h>

#include <cstdlib>

#include "DirectTables.h"
#include "platform/vell/Inspect.h"

namespace Testing {
namespace {

using TessarLoadBalance::DlbControlTable;
using TessarLoadBalance::DlbEcmpControlTable;
using TessarLoadBalance::DlbEcmpQualityMapKey;
using TessarLoadBalance::DlbEcmpQualityMapTable;

TEST(DataSheets, TextFormsReadBackWhole) {
  DlbControlTable::Entry entry;
  entry.portLoadingWeight = 64;
  entry.capItmPortQsizeAverage = true;
  entry.samplingPeriod = 16;
  auto const text = Zarn::valueToStrep(entry);
  EXPECT_EQ(text,
            "TessarLoadBalance::DlbControlTable::Entry{portLoadingWeight:64 totalQsizeWeight:0 "
            "itmPortQsizeWeight:0 capPortLoadingAverage:false capTotalPortQsizeAverage:false "
            "capItmPortQsizeAverage:true samplingPeriod:16}");
  EXPECT_EQ(Zarn::strepToValue<DlbControlTable::Entry>(text), entry);

  struct Case {
    std::string text, attribute;
    std::size_t position;
  };
  std::string const tag = "TessarLoadBalance::DlbEcmpControlTable::Entry{";
  for (auto const& each : {
           Case{tag + "baseEcmpIndex:7 randomSelectionSeed:0x10}x", "value", tag.size() + 41},
           Case{tag + "baseEcmpIndex:65536 randomSelectionSeed:1}", "baseEcmpIndex",
                tag.size() + 14},
           Case{tag + "randomSelectionSeed:1 baseEcmpIndex:1}", "baseEcmpIndex", tag.size()},
           Case{tag + "baseEcmpIndex:7", "randomSelectionSeed", tag.size() + 15},
           Case{"", "baseEcmpIndex", 0},
       }) {
    try {
      Zarn::strepToValue<DlbEcmpControlTable::Entry>(each.text);
      ADD_FAILURE() << each.text;
    } catch (Vell::RangeException const& error) {
      EXPECT_EQ(error.attribute(), each.attribute) << each.text;
      EXPECT_EQ(error.position(), each.position) << each.text;
    }
  }
}

// Ids run on without a gap, so that the ends of each run say where all of them are. With a structured
// key there are neither index limits nor, at this level, an index: the ids behind them run two lower.
TEST(DataSheets, ReflectionAnswersTheAttributesById) {
  auto const byIndex = TessarLoadBalance::dlbControlTableFactory();
  auto const byKey = TessarLoadBalance::dlbEcmpQualityMapTableFactory();
  struct Case {
    Vell::TypeData const& type;
    std::map<U32, std::string_view> names;
    U32 last;
  };
  for (auto const& [type, names, last] : {Case{byIndex->typeData().data(),
                                               {{0x202, "isOwnedByMergeTable"},
                                                {0x207, "resolvedEntry"},
                                                {0x20b, "minIndex"},
                                                {0x20d, "handleEntry"},
                                                {0x212, "entryCommit"},
                                                {0x218, "cleanup"}},
                                               0x218},
                                          Case{byKey->typeData().data(),
                                               {{0x207, "resolvedEntry"},
                                                {0x20a, "entryRemoveAll"},
                                                {0x20b, "handleEntry"},
                                                {0x210, "entryCommit"},
                                                {0x216, "cleanup"}},
                                               0x216}}) {
    EXPECT_EQ(type.attributes.size(), last - 0x202 + 1);
    for (auto const& [id, name] : names) {
      ASSERT_TRUE(type.attribute(id)) << name;
      EXPECT_EQ(type.attribute(id)->name, name);
      EXPECT_EQ(type.attribute(id)->access == Vell::AttributeAccess::isPublic,
                name != "handleEntry" && name != "cleanup");
    }
  }
  Vell::Inspect inspect(*byIndex);
  for (auto const& [id, isSo] :
       {std::pair(0x202u, false), {0x203u, false}, {0x20eu, false}, {0x20fu, true}})
    EXPECT_EQ(inspect.get(id), Vell::Value(isSo));
  for (U32 refused : {0x201u, 0x20du, 0x218u, 0x219u, 0x206u})
    EXPECT_THROW(inspect.get(refused), Vell::InspectError) << refused;
  EXPECT_THROW(inspect.call(0x20d), Vell::InspectError);
  EXPECT_EQ(Vell::Inspect(*byKey).get(0x203), Vell::Value(true));

  Vell::Ptr<RecordingUtil<DlbControlTable>> const util(new RecordingUtil<DlbControlTable>);
  Vell::Inspect hooks(*util);
  EXPECT_EQ(hooks.call(0x202), Vell::Value(U64{2}));
  EXPECT_EQ(hooks.call(0x20b, std::vector<Vell::Value>{U64{0xFFFFFFFF}}),
            Vell::Value(U64{0xFFFFFFFF}));
  EXPECT_THROW(hooks.call(0x20b, std::vector<Vell::Value>{U64{1} << 32}), Vell::InspectError);
  EXPECT_THROW(hooks.call(0x202, std::vector<Vell::Value>{true}), Vell::InspectError);
  for (U32 abstract : {0x201u, 0x204u, 0x20au, 0x20cu})
    EXPECT_THROW(hooks.call(abstract), Vell::InspectError) << abstract;
}

TEST(DataSheets, LoadingAnnouncesTheLoadersOfAllTables) {
  EXPECT_TRUE(Zarn::Entity::singletonExists("TessarLoadBalance::DlbControlTable::UtilLoader"));
  Vell::Ptr<DlbControlTable::UtilLoader> const loader(new DlbControlTable::UtilLoader);
  EXPECT_EQ(loader->typeData().number, 2u);
  EXPECT_EQ(loader->prefixPath(), "AsicFeature");
  EXPECT_EQ(loader->suffixPath(), "TessarLoadBalance::DlbControlTable");
}

TEST(DataSheets, TheQualityMapIsKnownByAStructuredKey) {
  DlbEcmpQualityMapKey const key{
      .portLoading = 1, .totalPortQsize = 2, .itmPortQsize = 3, .profile = 255};
  auto const text = Zarn::valueToStrep(key);
  EXPECT_EQ(text,
            "DlbEcmpQualityMapKey{portLoading:1 totalPortQsize:2 itmPortQsize:3 profile:255}");
  EXPECT_EQ(Zarn::strepToValue<DlbEcmpQualityMapKey>(text), key);
  EXPECT_THROW(Zarn::strepToValue<DlbEcmpQualityMapKey>(text + " "), Vell::RangeException);
  for (U8 DlbEcmpQualityMapKey::*field :
       {&DlbEcmpQualityMapKey::portLoading, &DlbEcmpQualityMapKey::totalPortQsize,
        &DlbEcmpQualityMapKey::itmPortQsize, &DlbEcmpQualityMapKey::profile}) {
    auto other = key;
    other.*field ^= 4;
    EXPECT_FALSE(DlbEcmpQualityMapKey::isEq(&key, &other));
    EXPECT_NE(key.hash(1), other.hash(1));
  }
}

TEST(DataSheets, AnEntryWithOneFieldReadsAsItsValue) {
  TessarLoadBalance::DlbEcmpDlbId0To63EnableTable::Entry entry;
  entry.bitmap = 0x8000000000000001;
  EXPECT_EQ(Zarn::valueToStrep(entry), "9223372036854775809");
  EXPECT_EQ(Zarn::strepToValue<decltype(entry)>("0x8000000000000001"), entry);
  try {
    Zarn::strepToValue<DlbEcmpQualityMapTable::Entry>("4294967296");
    ADD_FAILURE() << "33 bits";
  } catch (Vell::RangeException const& error) {
    EXPECT_EQ(error.attribute(), "assignedQuality");
  }
}

TEST(DataSheets, ReflectionReachesAWholeTable) {
  auto const& type = TessarLoadBalance::dlbEcmpControlTableFactory()->typeData();
  auto const node = Vell::inspectMake(type.data());
  Vell::Inspect table(*node);
  auto const entry = Vell::inspectMakeValue(*type.module->types()[0]);
  Vell::Inspect fields(entry);
  fields.set("baseEcmpIndex", U64{7});
  EXPECT_THROW(fields.set("baseEcmpIndex", U64{65536}), Vell::InspectError);
  EXPECT_THROW(fields.set("baseEcmpIndex", true), Vell::InspectError);
  EXPECT_THROW(fields.set("numDependentFields", U64{1}), Vell::InspectError);
  EXPECT_EQ(fields.get(0x82), Vell::Value(false));
  EXPECT_EQ(fields.get(0x84), Vell::Value(U64{7}));

  table.call("entryCommit", std::vector<Vell::Value>{U64{3}, entry});
  EXPECT_EQ(table.get("entrys"), Vell::Value(U64{1}));
  EXPECT_EQ(table.call("entryHas", std::vector<Vell::Value>{"0x3"}), Vell::Value(true));
  EXPECT_EQ(table.figures(0x207).count, 1u);
  int visited = 0;
  table.walk("entry", [&](Vell::Value const& key, Vell::Value const& value) {
    ++visited;
    EXPECT_EQ(*key.number(), 3u);
    EXPECT_EQ(Vell::Inspect(*value.record()).get("baseEcmpIndex"), Vell::Value(U64{7}));
  });
  EXPECT_EQ(visited, 1);
  EXPECT_THROW(table.call("entryCommit", std::vector<Vell::Value>{U64{3}}), Vell::InspectError);
  EXPECT_THROW(table.call("entryHas", std::vector<Vell::Value>{"3x"}), Vell::InspectError);
  EXPECT_EQ(Vell::inspectHash(entry), Vell::inspectHash(Vell::inspectMakeValue(*entry.type)));
  EXPECT_THROW(table.call("entryCommit", std::vector<Vell::Value>{U64{1} << 32, entry}),
               Vell::InspectError);
  EXPECT_THROW(Vell::inspectMake(type.data(), "name", std::vector<Vell::Value>{true}),
               Vell::InspectError);
}

TEST(DataSheets, TheAgentsNameIsTheEnvironmentsAtLoad) {
  char const* const now = std::getenv("AGENT_PROCESS_NAME");
  EXPECT_EQ(Asic::agentProcessName() == nullptr, now == nullptr);
  setenv("AGENT_PROCESS_NAME", "later", 1);
  Asic::agentProcessNameInit();
  EXPECT_EQ(Asic::agentProcessName() == nullptr, now == nullptr);
}

}  // namespace
}  // namespace Testing
