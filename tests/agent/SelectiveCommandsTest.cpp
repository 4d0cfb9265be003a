// The whole chain through the commands: adjacencies, selective groups, blocks, next hops. The chip stops
// the process at any operation that leaves a row pointing at nothing.

#include "AgentProcess.h"
#include "platform/vell/Assert.h"

namespace {

using nlohmann::ordered_json;
using ::testing::AllOf;
using ::testing::HasSubstr;

class SelectiveCommandsTest : public Testing::AgentProcess {
 protected:
  std::string const chain = example("chain.json");
};

TEST_F(SelectiveCommandsTest, theChainIsFoundAgainAndShownAsATree) {
  EXPECT_EQ(Testing::figures(json("run " + chain)), "0 0 13 0 16 0");
  auto const held = json("show");
  EXPECT_EQ(Testing::figures(json("run " + chain)), "13 0 0 0 0 0");
  EXPECT_EQ(json("show"), held);
  EXPECT_EQ(held.at("chain").at(2), ordered_json::parse(R"({
      "entry": "adjacency", "place": "row 12", "state": "held", "needs": [
        {"entry": "selective group", "place": "row 2", "state": "held", "needs": [
          {"entry": "block", "place": "row 32766", "state": "held", "needs": [
            {"entry": "next hop", "place": "row 1", "state": "held"}]}]}]})"));
  EXPECT_THAT(agent("show --config " + chain).out,
              AllOf(HasSubstr("adjacency a2                row 11               indexReconciled\n"
                              "  selective group s1        row 1                indexReconciled\n"
                              "    block b1                rows 0 to 2          indexReconciled\n"
                              "      next hop nh1          row 0                indexReconciled\n"),
                    testing::EndsWith(
                        "VXLAN selective group t1  row 3                indexReconciled\n"
                        "    block b1                rows 0 to 2          indexReconciled\n")))
      << "what is needed twice is drawn in full once";
  EXPECT_THAT(agent("show EcmpGroup1SelectiveDlbTable").out, HasSubstr("BlockPtr"));
  EXPECT_THAT(agent("plan " + chain).out, HasSubstr("Everything is in place"));
  json("clear" + strict);
  EXPECT_EQ(agent("check " + chain).code, 1);
}

TEST_F(SelectiveCommandsTest, aRestartTouchesNoRowThatIsRight) {
  using Json = ordered_json;
  auto const all = configuration(chain);
  auto const none = Json::object();
  EXPECT_EQ(operations(all, all), none);
  auto other = all;
  other.erase("adjacencies");
  EXPECT_EQ(operations(other, other), none) << "groups are found by the blocks that they point at";
  other["memberBlocks"]["b1"]["rows"][0]["weightIdx"] = 9;
  EXPECT_EQ(operations(all, other), Json::parse(R"({"AdjacencyTable": [0, 4],
                                                    "DlbEcmpMember1Table": [1, 0]})"))
      << "a row of a block is rewritten in place, and who points at it stays";
  other = all;
  other["nextHops"]["nh1"]["port"] = 77;
  EXPECT_EQ(operations(all, other), Json::parse(R"({"NextHopTable": [1, 0]})"));
  other = all;
  other["selectiveGroups"]["s1"]["block"] = "b2";
  EXPECT_EQ(operations(all, other), Json::parse(R"({"EcmpGroup1SelectiveDlbTable": [1, 0]})"));
  other = all;
  other["selectiveGroups"]["s2"].erase("countSecondary");
  other["groups"]["g20"] = {{"adjId", 20}};
  other["vxlanGroups"]["v20"] = {{"adjId", 20}};
  other["adjacencies"] = {{"a1", {{"id", 1}, {"group", "t1"}}}};
  EXPECT_EQ(operations(other, other), none) << "keys of two tables, one of each led to its place";
  other = all;
  other["selectiveGroups"]["s7"] = {{"adjId", 7}, {"block", "b1"}};
  EXPECT_EQ(operations(other, other), none) << "a key of two tables has one index in both";

  auto shorter = all;
  for (auto const& [section, name] : {std::pair("selectiveGroups", "s1"),
                                      {"vxlanSelectiveGroups", "t1"},
                                      {"adjacencies", "a2"},
                                      {"adjacencies", "a4"},
                                      {"memberBlocks", "b1"},
                                      {"nextHops", "nh1"}})
    shorter[section].erase(name);
  EXPECT_EQ(operations(all, shorter), Json::parse(R"({"AdjacencyTable": [0, 2],
      "DlbEcmpMember1Table": [0, 3], "EcmpGroup1SelectiveDlbTable": [0, 1],
      "NextHopTable": [0, 1], "VxlanEcmpGroup1SelectiveDlbTable": [0, 1]})"));
  EXPECT_EQ(operations(shorter, all), Json::parse(R"({"AdjacencyTable": [2, 0],
      "DlbEcmpMember1Table": [3, 0], "EcmpGroup1SelectiveDlbTable": [1, 0],
      "NextHopTable": [1, 0], "VxlanEcmpGroup1SelectiveDlbTable": [1, 0]})"));
  for (auto const* table : {"EcmpGroup1SelectiveDlbTable", "DlbEcmpMember1Table"})
    EXPECT_EQ(operations(all, all, Vell::concatenate(" --chip-switch flip-row=", table, ":1")),
              (Json{{table, {1, 0}}}));
}

TEST_F(SelectiveCommandsTest, anyCrashAndAPlainRunEndInWhatIsWanted) {
  auto other = configuration(chain);
  other["memberBlocks"]["b1"]["rows"].push_back({{"nextHop", "nh1"}, {"weightIdx", 7}});
  other["selectiveGroups"]["s2"]["block"] = "b1";
  other["selectiveGroups"].erase("s1");
  other["adjacencies"]["a2"]["group"] = "s2";
  contentIs("other.json", other.dump());
  for (bool restart : {false, true})
    for (unsigned n = 1;; ++n) {
      std::filesystem::remove(path("dlb-hardware.sim"));
      if (restart) json("run other.json" + strict);
      auto const crashed = agent("run " + chain + strict + " --crash-after " + std::to_string(n));
      if (crashed.code == 0) break;
      ASSERT_EQ(crashed.code, 128 + 9) << crashed.err;
      auto const totals = json("run " + chain + strict).at("totals");
      // A block that was written in part is written whole.
      ASSERT_TRUE(restart || totals.at("hardwareWrites") <= 16 - n + 2) << n;
      ASSERT_EQ(agent("check " + chain).code, 0) << restart << n;
      ASSERT_EQ(Testing::figures(json("run " + chain)), "13 0 0 0 0 0") << restart << n;
    }
}

// s1 goes over to another block, s2 and t1 leave, while the agent lives on.
TEST_F(SelectiveCommandsTest, aChangeWithoutARestartMayBeCutShortAnywhere) {
  auto other = configuration(chain);
  for (auto const& [section, name] : {std::pair("selectiveGroups", "s2"),
                                      {"vxlanSelectiveGroups", "t1"},
                                      {"adjacencies", "a3"},
                                      {"adjacencies", "a4"}})
    other[section].erase(name);
  other["selectiveGroups"]["s1"]["block"] = "b2";
  contentIs("other.json", other.dump());
  auto const change = "run " + chain + " --then other.json" + strict;
  for (unsigned n = 17;; ++n) {
    std::filesystem::remove(path("dlb-hardware.sim"));
    auto const crashed = agent(change + " --crash-after " + std::to_string(n));
    if (crashed.code == 0) {
      EXPECT_GT(n, 17u + 6u) << "two groups left in a write and a delete each";
      ASSERT_EQ(agent("check other.json").code, 0) << "with no crash";
      break;
    }
    ASSERT_EQ(crashed.code, 128 + 9) << crashed.err;
    json("run other.json" + strict);
    ASSERT_EQ(agent("check other.json").code, 0) << n;
  }
  EXPECT_THAT(agent("run other.json --then other.json" + strict).out,
              HasSubstr("Then changed to \"other.json\": 0 hardware writes, 0 hardware deletes."));
  EXPECT_EQ(agent("run " + chain + " --then none.json --hardware new.sim").code, 1);
  EXPECT_FALSE(exists("new.sim")) << "all configurations are read before anything is opened";
}

// Of the four rows that b is to have, three are there, and might be found behind the last of a.
TEST_F(SelectiveCommandsTest, aBlockThatIsThereWholeKeepsItsRows) {
  auto const blocksOf = [](std::size_t rowsOfB) {
    auto all = ordered_json::object();
    all["nextHops"]["n"]["port"] = 1;
    auto const rows = [](std::size_t count, unsigned weight) {
      return ordered_json(count, {{"nextHop", "n"}, {"weightIdx", weight}});
    };
    all["memberBlocks"]["a"]["rows"] = rows(3, 1);
    all["memberBlocks"]["b"]["rows"] = rows(rowsOfB, 0);
    return all;
  };
  EXPECT_EQ(operations(blocksOf(3), blocksOf(4)),
            ordered_json::parse(R"({"DlbEcmpMember1Table": [1, 0]})"));
}

TEST_F(SelectiveCommandsTest, whyGoesDownTheWholeChain) {
  ordered_json full = configuration(chain);
  for (unsigned i = 0; i <= 4096; ++i)
    full["nextHops"]["a" + std::to_string(10000 + i)] = {{"port", i}};
  contentIs("full.json", full.dump());
  EXPECT_THAT(agent("why full.json a2").out,
              HasSubstr("adjacency a2 waits for selective group s1 waits for block b1 waits for "
                        "next hop nh1: no index free (4096 of 4096 used)"));
  EXPECT_EQ(agent("why " + chain + " t1 --chip-switch lose-acks=100").out,
            "VXLAN selective group t1: the hardware has not acknowledged its write\n");
  EXPECT_EQ(agent("why " + chain + " s2 --chip-switch refuse-writes=100").out,
            "selective group s2: the hardware refused to write row 2\n");
}

// The chip refuses to let a group go from a block that nobody wants any more.
TEST_F(SelectiveCommandsTest, aRefusedRewriteLeavesNoRowPointingAtAPurgedBlock) {
  auto other = configuration(chain);
  other["selectiveGroups"]["s1"]["block"] = "b2";
  other.erase("vxlanSelectiveGroups");
  other["memberBlocks"].erase("b1");
  other["adjacencies"].erase("a4");
  contentIs("other.json", other.dump());
  json("run " + chain);
  auto const run = agent("run other.json --json --chip-switch refuse-writes=100" + strict);
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(ordered_json::parse(run.out).at("unfinished").at(0).get<std::string>(),
              HasSubstr("selective group s1: the hardware refused to write row 1"));
  json("run other.json" + strict);
  EXPECT_EQ(agent("check other.json").code, 0);
}

TEST_F(SelectiveCommandsTest, hardwareThatContradictsItselfIsTold) {
  json("run " + chain);
  auto const flip = " --chip-switch flip-row=EcmpGroup1SelectiveDlbTable:1";
  auto const check = agent("check " + chain + flip);
  EXPECT_EQ(check.code, 1);
  EXPECT_THAT(check.out,
              HasSubstr("The hardware contradicts itself: row 1 of TessarLoadBalance::"
                        "EcmpGroup1SelectiveDlbTable points at row 3 of TessarLoadBalance::"
                        "DlbEcmpMember1Table, which is not valid; dlb-agent run mends it.\n"));
  auto const told = ordered_json::parse(agent("check " + chain + flip + " --json").out);
  EXPECT_EQ(told.at("contradictions").size(), 1u);
}

}  // namespace
