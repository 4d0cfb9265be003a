// Level-1 groups and adjacencies through the commands, as a user goes through them.

#include "AgentProcess.h"

namespace {

using nlohmann::ordered_json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class GroupCommandsTest : public Testing::AgentProcess {
 protected:
  std::string const groups = example("groups.json");

  /// As `groups.json`, after a change of groups, of what points at them, and of one table's group
  /// into the other's.
  std::string changed() const {
    auto other = configuration(groups);
    other["groups"]["g1"]["lbMode"] = 5;
    other["groups"].erase("g2");
    other["groups"]["g4"] = {{"adjId", 9}, {"lbMode", 3}};
    other["vxlanGroups"]["v2"] = {{"adjId", 9}};
    for (auto const& [adjacency, group] : {std::pair("a2", "v2"), std::pair("a3", "g4")})
      other["adjacencies"][adjacency]["group"] = group;
    other["adjacencies"].erase("a4");
    contentIs("changed.json", other.dump());
    return "changed.json";
  }
};

TEST_F(GroupCommandsTest, aRestartFindsGroupsByWhatPointsAtThemOrByWhatTheyHold) {
  EXPECT_EQ(Testing::figures(json("run " + groups)), "0 0 8 0 8 0");
  auto const held = json("show");
  EXPECT_EQ(Testing::figures(json("run " + groups)), "8 0 0 0 0 0");
  EXPECT_EQ(json("show"), held);
  EXPECT_THAT(agent("plan " + changed()).out, HasSubstr("~ 0 (g1)  lbMode 1 -> 5"));
  EXPECT_EQ(agent("check " + changed()).code, 1);
  EXPECT_EQ(agent("check " + groups).code, 0);
  EXPECT_EQ(held.at("tables").at("AdjacencyTable").at("900"),
            ordered_json::parse(R"({"group": 3})"));
  EXPECT_EQ(held.at("chain").at(3), ordered_json::parse(R"({
      "entry": "adjacency", "place": "row 900", "state": "held",
      "needs": [{"entry": "VXLAN group", "place": "row 3", "state": "held"}]})"));
  EXPECT_EQ(held.at("chain").back(), ordered_json::parse(R"({
      "entry": "group", "place": "row 2", "state": "held"})"))
      << "nothing points at it";
}

TEST_F(GroupCommandsTest, aRestartTouchesNoRowThatIsRight) {
  auto const all = configuration(groups);
  auto const adjacencies = [](unsigned writes) {
    return ordered_json{{"AdjacencyTable", {writes, 0}}};
  };
  for (std::string const row : {"10", "11", "12", "900"})
    EXPECT_EQ(operations(all, all, " --chip-switch flip-row=AdjacencyTable:" + row), adjacencies(1))
        << row;
  auto other = all;
  other["adjacencies"]["a1"]["group"] = "g2";
  other["adjacencies"]["a2"]["group"] = "g1";
  EXPECT_EQ(operations(all, other), adjacencies(2)) << "two adjacencies swap";
  other = all;
  other["adjacencies"]["a1"]["group"] = "v1";
  EXPECT_EQ(operations(all, other), adjacencies(1)) << "a group is left alone";

  auto plain = all;
  plain.erase("vxlanGroups");
  plain["adjacencies"].erase("a4");
  other = plain;
  other["vxlanGroups"]["v9"] = {{"adjId", 1}};
  EXPECT_EQ(operations(plain, other), (ordered_json{{"VxlanEcmpGroup1DlbTable", {1, 0}}}));

  // One of many moves between equal groups, and then the only one to an idle group.
  for (unsigned const many : {20, 1}) {
    ordered_json equal;
    equal["groups"] = {{"g1", {{"adjId", 1}, {"lbMode", many == 1 ? 1 : 0}}},
                       {"g2", {{"adjId", 2}}}};
    for (unsigned i = 0; i < many; ++i)
      equal["adjacencies"][std::to_string(100 + i)] = {{"id", i}, {"group", i < 10 ? "g1" : "g2"}};
    other = equal;
    other["adjacencies"]["100"]["group"] = "g2";
    EXPECT_EQ(operations(equal, other), adjacencies(1)) << many;
  }
}

TEST_F(GroupCommandsTest, whyReachesThroughToAnAcknowledgementThatNeverComes) {
  auto const lost = " --chip-switch lose-acks=100";
  EXPECT_EQ(agent("why " + groups + " a4" + lost).out,
            "adjacency a4 waits for VXLAN group v1: the hardware has not acknowledged its write\n");
  auto const run = agent("run " + groups + lost);
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, HasSubstr("group g3: the hardware has not acknowledged its write"));
  EXPECT_EQ(agent("run " + groups).code, 0) << "the next run finds the rows, and all is well";
  // A row that is found and rewritten is in place: what points at it goes on.
  auto const rewritten = agent("run " + changed() + lost);
  EXPECT_THAT(rewritten.err,
              AllOf(HasSubstr("group g1: the hardware has not"), Not(HasSubstr("adjacency a1"))));
  EXPECT_EQ(agent("why " + groups + " v1 --hardware other --chip-switch refuse-writes=100").out,
            "VXLAN group v1: the hardware refused to write row 3\n");
  EXPECT_EQ(agent("why " + groups +
                  " a1 --chip-switch flip-row=EcmpGroup1DlbTable:0 "
                  "--chip-switch refuse-writes=100")
                .out,
            "adjacency a1 is in the hardware, row 10; group g1: the hardware refused to write row "
            "0\n");
  EXPECT_EQ(agent("run " + groups + " --hardware other --chip-switch refuse-writes=100").code, 1);
  EXPECT_TRUE(
      json("show AdjacencyTable --hardware other").at("tables").at("AdjacencyTable").empty())
      << "nothing points at a row that was refused";
  EXPECT_EQ(json("journal --most 1 --hardware other").at("journal")[0].at("operation"), "refused");
}

}  // namespace
