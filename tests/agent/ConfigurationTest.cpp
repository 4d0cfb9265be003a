// Configurations that are wrong: each is refused with all of its errors, and nothing is touched.

#include "AgentProcess.h"

namespace {

struct Broken {
  char const* name;
  std::string text;
  std::vector<std::string> errors;  ///< each line behind the name of the file, as it begins

  friend void PrintTo(Broken const& broken, std::ostream* out) { *out << broken.name; }
};

std::string control(std::string const& entries) {
  return R"({"tables": {"DlbControlTable": {)" + entries + "}}}";
}
std::string control0(std::string const& fields) { return control(R"("0": {)" + fields + "}"); }

/// "0": 0, "1": 1 and so on.
std::string manyElements(int count) {
  std::string text;
  for (int n = 0; n < count; ++n)
    text += (n ? ", \"" : "\"") + std::to_string(n) + "\": " + std::to_string(n);
  return text;
}
std::string qualityKey(int portLoading, int profile) {
  return "DlbEcmpQualityMapKey{portLoading:" + std::to_string(portLoading) +
         " totalPortQsize:0 itmPortQsize:0 profile:" + std::to_string(profile) + "}";
}

std::string const at = "tables.DlbControlTable.";
std::string const at0 = at + "0.";

std::vector<Broken> const brokenOnes{
    {"emptyFile", "", {"line 1, column 1: syntax error while parsing value - unexpected end"}},
    {"syntax",
     "{\"tables\": {\n  \"DlbControlTable\": }\n}",
     {"line 2, column 22: syntax error while parsing value - unexpected '}'"}},
    {"numberBeyondAll",
     control0(R"("samplingPeriod": 1e999)"),
     {at0 + "samplingPeriod: a number beyond all sizes at line 1, column "}},
    {"namesOfManyLines",
     R"({"adjacencies": {"a": {"id": 1, "group": "x\ny\u007f\u00e4\"\\"}}})",
     {"adjacencies.a.group: no group named \"x\\ny\\u007f\u00e4\"\\\"; the sections of groups name "
      "none"}},
    {"notInUtf8",
     "\"\xFF\"",
     {"line 1, column 2: syntax error while parsing value - invalid string"}},
    {"zeroedTail", std::string("{}\0\0", 4), {"line 1, column 3: a zero byte"}},
    {"nested", std::string(100000, '['), {"lies deeper than 64 levels"}},
    {"noObject", "[]", {"must be an object of sections, not a list"}},
    {"sections",
     R"({"table": {}, "blocks": {}})",
     {"table: no such section; did you mean \"tables\"?",
      "blocks: no such section; there are: tables"}},
    {"unknownTables",
     R"({"tables": {"DlbControlTabel": {}, "Weights": {"0": 5}}})",
     {"tables.DlbControlTabel: no such table; did you mean \"DlbControlTable\"?",
      "tables.Weights: no such table; there are: DlbControlTable, DlbEcmpControlTable, "}},
    {"tableByTwoNames",
     R"({"tables": {"DlbControlTable": {}, "TessarLoadBalance::DlbControlTable": {"16": {}}}})",
     {"tables.TessarLoadBalance::DlbControlTable: is the same table as \"DlbControlTable\"; keep "
      "one",
      "tables.TessarLoadBalance::DlbControlTable.16: the highest index is 15"}},
    {"tableNoObject",
     R"({"tables": {"DlbControlTable": null}})",
     {"tables.DlbControlTable: must be an object of entries by index, not null"}},
    {"badIndices",
     control(
         R"("x": {}, "-1": {}, "": {}, "1 ": {}, "0x": {}, "16": {}, "99999999999999999999": {})"),
     {at + "x: is no index; an index is a number", at + "-1: is no index", at + "\"\": is no index",
      at + "\"1 \": is no index", at + "0x: is no index", at + "16: the highest index is 15",
      at + "99999999999999999999: the highest index is 15"}},
    {"oneIndexByTwoTexts",
     control(R"("1": {}, "0x1": {}, "01": {"nothing": 1})"),
     {at + "0x1: is the same key as \"1\"; keep one of them",
      at + "01.nothing: no such field; there are: portLoadingWeight, ",
      at + "01: is the same key as \"1\"; keep one of them"}},
    {"duplicateKeys",
     R"({"tables": {}, "tables": {"DlbControlTable": {"0": {"samplingPeriod": 1, "samplingPeriod": 2},
         "0": {}}}, "x": {"a b": 1, "a b": 2}})",
     {"tables: stands here more than once; keep one of them",
      at0 + "samplingPeriod: stands here more than once", at + "0: stands here more than once",
      "x.\"a b\": stands here more than once", "x: no such section"}},
    {"entryNoObject",
     control(R"("0": [], "1": "text")"),
     {at + "0: must be an object of fields, not a list",
      at + "1: must be an object of fields, not \"text\""}},
    {"unknownField",
     control0(R"("portloadingWeigth": 5, "seed": 1)"),
     {at0 + "portloadingWeigth: no such field; did you mean \"portLoadingWeight\"?",
      at0 + "seed: no such field; there are: portLoadingWeight, totalQsizeWeight, "}},
    {"tooLarge",
     R"({"tables": {"DlbEcmpControlTable": {"0": {"baseEcmpIndex": 65536}},
         "DlbControlTable": {"0": {"portLoadingWeight": 4294967296, "totalQsizeWeight": "0x100000000",
         "itmPortQsizeWeight": 99999999999999999999, "samplingPeriod": "99999999999999999999"}}}})",
     {"tables.DlbEcmpControlTable.0.baseEcmpIndex: 65536 does not fit in 16 bits; the largest "
      "value is "
      "65535",
      at0 +
          "portLoadingWeight: 4294967296 does not fit in 32 bits; the largest value is 4294967295",
      at0 + "totalQsizeWeight: 4294967296 does not fit in 32 bits",
      at0 + "itmPortQsizeWeight: 99999999999999999999 does not fit in 32 bits",
      at0 + "samplingPeriod: 99999999999999999999 does not fit in 32 bits"}},
    {"noWholeNumber",
     control0(R"("portLoadingWeight": -1, "totalQsizeWeight": 1.5, "itmPortQsizeWeight": 1e3,
                 "samplingPeriod": -0.5)"),
     {at0 + "portLoadingWeight: -1 is negative", at0 + "totalQsizeWeight: 1.5 is no whole number",
      at0 + "itmPortQsizeWeight: 1e3 is no whole number",
      at0 + "samplingPeriod: -0.5 is negative"}},
    {"noNumber",
     control0(R"("portLoadingWeight": "many", "totalQsizeWeight": true, "itmPortQsizeWeight": null,
                 "samplingPeriod": "-1")"),
     {at0 + "portLoadingWeight: \"many\" is no number; write it as 64, \"64\" or \"0x40\"",
      at0 + "totalQsizeWeight: must be a number, not true",
      at0 + "itmPortQsizeWeight: must be a number, not null",
      at0 + "samplingPeriod: \"-1\" is no number"}},
    {"noTruth",
     control0(R"("capPortLoadingAverage": 1, "capTotalPortQsizeAverage": "true",
                 "capItmPortQsizeAverage": {})"),
     {at0 + "capPortLoadingAverage: must be true or false, not 1",
      at0 + "capTotalPortQsizeAverage: must be true or false, not \"true\"",
      at0 + "capItmPortQsizeAverage: must be true or false, not an object"}},
    {"elements",
     R"({"tables": {"DlbEcmpGroupTable": {"0": {"portToMemberMap": {"x": 1, "65536": 2, "3": 65536,
         "4": {}, "5": 1, "0x5": 2}, "nhiToMemberMap": [1]}}}})",
     {"tables.DlbEcmpGroupTable.0.portToMemberMap.x: is no key; a key is a number",
      "tables.DlbEcmpGroupTable.0.portToMemberMap.65536: the highest key is 65535",
      "tables.DlbEcmpGroupTable.0.portToMemberMap.3: 65536 does not fit in 16 bits",
      "tables.DlbEcmpGroupTable.0.portToMemberMap.4: must be a number, not an object",
      "tables.DlbEcmpGroupTable.0.portToMemberMap.0x5: is the same key as \"5\"; keep one of them",
      "tables.DlbEcmpGroupTable.0.nhiToMemberMap: must be an object of numbers by key, as "}},
    {"tooManyElements",
     R"({"tables": {"DlbEcmpGroupTable": {"9": {"portToMemberMap": {)" + manyElements(65) + "}}}}}",
     {"tables.DlbEcmpGroupTable.9: portToMemberMap has 65 members and a row has room for 64"}},
    {"structuredKeys",
     R"({"tables": {"DlbEcmpQualityMapTable": {")" + qualityKey(8, 0) + R"(": 1, "7": 2, ")" +
         qualityKey(1, 4) + R"(": {}, ")" + qualityKey(1, 3) + R"(": -1, ")" + qualityKey(1, 256) +
         R"(": 3}}})",
     {"tables.DlbEcmpQualityMapTable.\"" + qualityKey(8, 0) +
          "\": load levels go up to 7 and profiles up to 3",
      "tables.DlbEcmpQualityMapTable.7: no key: ",
      "tables.DlbEcmpQualityMapTable.\"" + qualityKey(1, 4) + "\": load levels go up to 7",
      "tables.DlbEcmpQualityMapTable.\"" + qualityKey(1, 3) + "\": -1 is negative",
      "tables.DlbEcmpQualityMapTable.\"" + qualityKey(1, 256) + "\": no key: "}},
    {"bareValues",
     R"({"tables": {"DlbEcmpDlbId0To63EnableTable": {"0": true}, "DlbEcmpFlowsetTable": {"0": 7}}})",
     {"tables.DlbEcmpDlbId0To63EnableTable.0: must be a number, not true",
      "tables.DlbEcmpFlowsetTable.0: must be an object of fields, not 7"}},
    {"chains",
     R"({
      "memberBlocks": {"b9": {"rows": [{"nextHop": "nh1"}, {"nextHop": "nh2", "weight": 1},
                                       {"weightIdx": 256}, 5], "row": []},
                       "b8": {"rows": {}}},
      "nextHops": {"nh1": {"port": 65536, "mac": "02:00", "vlan": "0x10"}, "nh3": 7,
                   "nh4": {"port": 1, "mac": "02:00:00:00:00:01", "vlan": 4095}},
      "nexthops": {}})",
     {"memberBlocks.b9.rows[1].weight: no such field; there are: nextHop, weightIdx",
      "memberBlocks.b9.rows[2].weightIdx: must be a number up to 255, not 256",
      "memberBlocks.b9.rows[2]: names no next hop; add \"nextHop\": NAME",
      "memberBlocks.b9.rows[3]: must be an object of fields, not 5",
      "memberBlocks.b9.rows[3]: names no next hop; add \"nextHop\": NAME",
      "memberBlocks.b9.row: no such field; did you mean \"rows\"?",
      "memberBlocks.b8.rows: must be a list of rows, not an object",
      "nextHops.nh1.port: 65536 does not fit in 16 bits; the largest value is 65535",
      "nextHops.nh1.mac: an address is six bytes, as \"02:00:00:00:00:01\"",
      "nextHops.nh3: must be an object of fields, not 7",
      "nextHops.nh4.vlan: a VLAN is 1 to 4094, or 0 for untagged, not 4095",
      "nexthops: no such section; did you mean \"nextHops\"?",
      "memberBlocks.b9.rows[1].nextHop: no next hop named \"nh2\"; did you mean \"nh1\"?"}},
    {"groups",
     R"({
      "adjacencies": {"a1": {"id": 16384, "group": "g9"}, "a2": {"id": 1, "group": "g5"},
                      "a3": {"id": "0x1", "grup": 1}, "a4": {"group": 4}, "a5": {"group": ""}},
      "groups": {"g1": {"adjId": 7, "adj": 1}, "g2": {"lbMode": 5}, "g3": {"adjId": -1},
                 "g4": {"adjId": 1, "type": "x"}, "g5": {"adjId": 1}, "g6": {"adjId": 1}},
      "vxlanGroups": {"g5": {"adjId": "0x7"}}})",
     {"adjacencies.a1.id: the highest index is 16383; take a lower one",
      "adjacencies.a3.id: is the id of \"a2\"; take another one",
      "adjacencies.a3.grup: no such field; did you mean \"group\"?",
      "adjacencies.a3: names no group; add \"group\": NAME",
      "adjacencies.a4.group: must be the name of a group, not 4",
      "adjacencies.a4: names no id; add \"id\": NUMBER",
      "adjacencies.a5: names no id; add \"id\": NUMBER",
      "adjacencies.a5: names no group; add \"group\": NAME",
      "groups.g1.adj: no such field; did you mean \"adjId\"?",
      "groups.g2: names no adjacency id; add \"adjId\": NUMBER",
      "groups.g3.adjId: must be a number up to 4294967295, not -1",
      "groups.g4.type: must be one of unknown, nextHop, ecmpGroup, tunnel, not \"x\"",
      "groups.g6: has the adjacency id and type of \"g5\"; give it another \"adjId\"",
      "vxlanGroups.g5: is the name of a group in the section groups as well; rename one of them",
      "adjacencies.a1.group: no group named \"g9\"; did you mean \"g1\"?"}},
    {"selectiveGroups",
     R"({
      "nextHops": {"n": {"port": 1}},
      "memberBlocks": {"b1": {"rows": [{"nextHop": "n"}]}, "empty": {"rows": []}},
      "groups": {"g1": {"adjId": 1, "block": "b1"}},
      "selectiveGroups": {"s1": {}, "s2": {"adjId": 2, "block": "b2"},
                          "s3": {"adjId": 3, "block": "empty"},
                          "s4": {"adjId": 4, "block": "b1", "countSecondary": 2},
                          "s5": {"adjId": 5, "block": "b1", "countSecondary": 4096},
                          "s6": {"adjId": 6, "block": "b1", "ecmpSecondaryBlockPtr": 3},
                          "s7": {"adjId": 7, "block": 7, "blok": "b1"}},
      "vxlanSelectiveGroups": {"g1": {"adjId": 4, "block": "b1"}}})",
     {"groups.g1.block: is for groups that stand on a block; move the group to the section "
      "selectiveGroups",
      "selectiveGroups.s1: names no block; add \"block\": NAME",
      "selectiveGroups.s1: names no adjacency id; add \"adjId\": NUMBER",
      "selectiveGroups.s5.countSecondary: 4096 does not fit in 12 bits; the largest value is 4095",
      "selectiveGroups.s6.ecmpSecondaryBlockPtr: follows from the block; leave it out",
      "selectiveGroups.s7.block: must be the name of a block, not 7",
      "selectiveGroups.s7.blok: no such field; did you mean \"block\"?",
      "selectiveGroups.s2.block: no member block named \"b2\"; did you mean \"b1\"?",
      "selectiveGroups.s3.block: \"empty\" has no rows; a group needs one at least",
      "selectiveGroups.s4.countSecondary: is more than the 1 row of \"b1\"; leave it out to use "
      "them all",
      "vxlanSelectiveGroups.g1: is the name of a group in the section groups as well; rename one "
      "of them"}},
};

class BrokenConfiguration : public Testing::AgentProcess,
                            public ::testing::WithParamInterface<Broken> {};

TEST_P(BrokenConfiguration, isRefusedWithAllItsErrorsAndNothingTouched) {
  contentIs("c.json", GetParam().text);
  auto const outcome = agent("run c.json --hardware hardware");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_FALSE(exists("hardware"));

  std::istringstream lines(outcome.err);
  std::string line;
  for (auto const& error : GetParam().errors) {
    ASSERT_TRUE(std::getline(lines, line)) << "not told: " << error;
    EXPECT_THAT(line, ::testing::StartsWith("dlb-agent: c.json: " + error));
  }
  EXPECT_FALSE(std::getline(lines, line)) << "told too much: " << line;
}

INSTANTIATE_TEST_SUITE_P(All, BrokenConfiguration, ::testing::ValuesIn(brokenOnes),
                         [](auto const& each) { return each.param.name; });

}  // namespace
