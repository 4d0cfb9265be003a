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

  ordered_json content() const {
    std::ifstream stream(groups);
    return ordered_json::parse(stream);
  }
  /// As `groups.json`, after a change of groups, of what points at them, and of one table's group
  /// into the other's.
  std::string changed() const {
    auto other = content();
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

// What was in place, then what is wanted or damaged, and the operations that this takes.
TEST_F(GroupCommandsTest, aRestartTouchesNoRowThatIsRight) {
  auto const operations = [&](std::string const& name, ordered_json const& before,
                              ordered_json const& after, std::string const& options = {}) {
    contentIs("before.json", before.dump());
    contentIs("after.json", after.dump());
    std::filesystem::remove(path("dlb-hardware.sim"));
    json("run before.json");
    auto const totals = json("run after.json" + options).at("totals");
    SCOPED_TRACE(name);
    return std::pair<unsigned, unsigned>(totals.at("hardwareWrites"), totals.at("hardwareDeletes"));
  };
  using Operations = std::pair<unsigned, unsigned>;
  auto const all = content();
  for (auto const* row : {"10", "11", "12", "900"})
    EXPECT_EQ(operations("damaged", all, all,
                         std::string(" --chip-switch flip-row=AdjacencyTable:") + row),
              Operations(1, 0))
        << row;
  auto other = all;
  other["adjacencies"]["a1"]["group"] = "g2";
  other["adjacencies"]["a2"]["group"] = "g1";
  EXPECT_EQ(operations("two adjacencies swap", all, other), Operations(2, 0));
  other = all;
  other["adjacencies"]["a1"]["group"] = "v1";
  EXPECT_EQ(operations("a group is left alone", all, other), Operations(1, 0));

  auto plain = all;
  plain.erase("vxlanGroups");
  plain["adjacencies"].erase("a4");
  other = plain;
  other["vxlanGroups"]["v9"] = {{"adjId", 1}};
  EXPECT_EQ(operations("the first group of its kind", plain, other), Operations(1, 0));

  ordered_json many;
  many["groups"] = {{"g1", {{"adjId", 1}}}, {"g2", {{"adjId", 2}}}};
  for (unsigned i = 0; i < 20; ++i)
    many["adjacencies"][std::to_string(100 + i)] = {{"id", i}, {"group", i < 10 ? "g1" : "g2"}};
  other = many;
  other["adjacencies"]["100"]["group"] = "g2";
  EXPECT_EQ(operations("one of many moves between equal groups", many, other), Operations(1, 0));

  ordered_json two = {{"groups", {{"g1", {{"adjId", 1}, {"lbMode", 1}}}, {"g2", {{"adjId", 2}}}}},
                      {"adjacencies", {{"a1", {{"id", 1}, {"group", "g1"}}}}}};
  other = two;
  other["adjacencies"]["a1"]["group"] = "g2";
  EXPECT_EQ(operations("the only adjacency moves to an idle group", two, other), Operations(1, 0));
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

TEST_F(GroupCommandsTest, everyErrorIsToldAtOnceWithItsPath) {
  contentIs("bad.json", R"({
      "adjacencies": {"a1": {"id": 16384, "group": "g9"}, "a2": {"id": 1, "group": "g5"},
                      "a3": {"id": "0x1", "grup": 1}, "a4": {"group": 4}, "a5": {"group": ""}},
      "groups": {"g1": {"adjId": 7, "adj": 1}, "g2": {"lbMode": 5}, "g3": {"adjId": -1},
                 "g4": {"adjId": 1, "type": "x"}, "g5": {"adjId": 1}, "g6": {"adjId": 1}},
      "vxlanGroups": {"g5": {"adjId": "0x7"}}})");
  auto const outcome = agent("run bad.json");
  EXPECT_EQ(outcome.code, 1);
  for (auto const* line :
       {"groups.g1.adj: no such field; did you mean \"adjId\"?",
        "groups.g2: names no adjacency id; add \"adjId\": NUMBER",
        "groups.g3.adjId: must be a number up to 4294967295, not -1",
        "groups.g4.type: must be one of unknown, nextHop, ecmpGroup, tunnel, not \"x\"",
        "groups.g6: has the adjacency id and type of \"g5\"; give it another \"adjId\"",
        "adjacencies.a1.id: the highest index is 16383; take a lower one",
        "adjacencies.a3.id: is the id of \"a2\"; take another one",
        "adjacencies.a3.grup: no such field; did you mean \"group\"?",
        "adjacencies.a3: names no group; add \"group\": NAME",
        "adjacencies.a4.group: must be the name of a group, not 4",
        "adjacencies.a4: names no id; add \"id\": NUMBER",
        "adjacencies.a5: names no group; add \"group\": NAME",
        "adjacencies.a1.group: no group named \"g9\"; did you mean \"g1\"?",
        "vxlanGroups.g5: is the name of a group in the section groups as well; rename one"})
    EXPECT_THAT(outcome.err, HasSubstr(line));
  EXPECT_FALSE(exists("dlb-hardware.sim"));
}

}  // namespace
