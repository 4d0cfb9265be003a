// Next hops and member blocks through the commands, as a user goes through them.

#include "AgentProcess.h"

namespace {

using nlohmann::ordered_json;
using ::testing::AllOf;
using ::testing::HasSubstr;

class ChainCommandsTest : public Testing::AgentProcess {
 protected:
  std::string const blocks = example("blocks.json");

  /// `blocks.json` with texts replaced, as a file of its own.
  std::string changed(std::vector<std::pair<std::string, std::string>> const& texts) const {
    auto text = content(blocks);
    for (auto const& [from, to] : texts) text.replace(text.find(from), from.size(), to);
    contentIs("changed.json", text);
    return "changed.json";
  }
};

TEST_F(ChainCommandsTest, aChangeIsRewrittenInPlaceAndWhatIsLeftOverGoes) {
  json("run " + blocks);
  auto const other = changed({{"00:02\"", "00:99\""}, {"\"weightIdx\": 3", "\"weightIdx\": 7"}});
  auto const plan = agent("plan " + other);
  EXPECT_EQ(plan.code, 2);
  EXPECT_THAT(plan.out, AllOf(HasSubstr("~ 3 (b1[3])  weightIdx 3 -> 7"),
                              HasSubstr("~ 1 (nh2)  mac 02:00:00:00:00:02 -> 02:00:00:00:00:99")));
  EXPECT_THAT(agent("check " + other).out,
              HasSubstr("3 (b1[3])  different: weightIdx is 3, wanted 7"));
  EXPECT_EQ(Testing::figures(json("run " + other)), "5 2 0 0 2 0");

  contentIs("less.json", R"({"nextHops": {"nh1": {"port": 1, "mac": "02:00:00:00:00:01",
                             "vlan": 10}}})");
  EXPECT_EQ(Testing::figures(json("run less.json")), "1 0 0 10 0 10");
  EXPECT_EQ(Testing::figures(json("clear")), "0 0 0 1 0 1");
}

TEST_F(ChainCommandsTest, whyGoesDownToWhatHoldsAnEntryUp) {
  EXPECT_EQ(agent("why " + blocks + " b1").out, "block b1 is in the hardware, rows 0 to 3\n");
  EXPECT_EQ(agent("why " + blocks + " nh4").out, "next hop nh4 is in the hardware, row 3\n");
  EXPECT_THAT(agent("why " + blocks + " nh5").err,
              HasSubstr("no entry \"nh5\"; did you mean \"nh"));

  ordered_json full;
  for (unsigned i = 0; i <= 4096; ++i) full["nextHops"][std::to_string(10000 + i)] = {{"port", i}};
  full["memberBlocks"]["b7"]["rows"] = {{{"nextHop", "10000"}}, {{"nextHop", "14096"}}};
  contentIs("full.json", full.dump());
  std::string const reason = "next hop 14096: no index free (4096 of 4096 used)\n";
  EXPECT_EQ(agent("why full.json b7").out, "block b7 waits for " + reason);
  auto const run = agent("run full.json");
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.err,
            "dlb-agent: warning: " + reason + "dlb-agent: warning: block b7 waits for " + reason);
  EXPECT_EQ(agent("check full.json --json").json().at("unfinished").size(), 2u);

  full = {{"nextHops", {{"nh", {{"port", 1}}}}}};
  auto& rows = full["memberBlocks"]["big"]["rows"];
  for (unsigned i = 0; i < 32769; ++i) rows.push_back({{"nextHop", "nh"}});
  contentIs("full.json", full.dump());
  EXPECT_EQ(agent("why full.json big").out,
            "block big: no 32769 rows free in one run (0 of 131072 used; the longest free run has "
            "32768, a bank 32768)\n");
}

}  // namespace
