// The commands, one after the other on one hardware file, as a user goes through them.

#include "AgentProcess.h"

namespace {

using nlohmann::ordered_json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class CommandsTest : public Testing::AgentProcess {
 protected:
  std::string const leaf = small();
  std::string const changed = smallChanged();
  std::string const hardware = "dlb-hardware.sim";
};

TEST_F(CommandsTest, summaryForPeopleHasATotalAndASentence) {
  EXPECT_THAT(agent("run " + leaf).out, HasSubstr("6 entries added; none was in place."));
  EXPECT_THAT(agent("run " + leaf).out, HasSubstr("Everything was in place: 0 hardware writes"));
  auto const third = agent("run " + changed).out;
  EXPECT_THAT(third,
              AllOf(HasSubstr("1 entry rewritten, 1 deleted; 4 of 6 were in place."),
                    ::testing::ContainsRegex("\nall tables +4 +1 +0 +1 "), Not(HasSubstr("\x1b"))));
}

TEST_F(CommandsTest, planTellsEveryChangeAndTouchesNothing) {
  EXPECT_EQ(agent("plan " + leaf).code, 2);
  EXPECT_FALSE(exists(hardware));
  json("run " + leaf);
  auto const before = content(hardware);

  EXPECT_EQ(agent("plan " + leaf).code, 0);
  auto const text = agent("plan " + changed);
  EXPECT_EQ(text.code, 2);
  EXPECT_THAT(text.out, AllOf(HasSubstr("~ 2  portLoadingWeight 70 -> 60"),
                              HasSubstr("- 3  portLoadingWeight 60, totalQsizeWeight 20"),
                              HasSubstr("1 entry would be rewritten, 1 deleted; 4 of 6 are")));
  auto const outcome = agent("plan --json " + changed);
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(Testing::figures(outcome.json()), "4 1 0 1 1 1");
  auto const changes = outcome.json().at("changes");
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[0], ordered_json::parse(R"({"table": "DlbControlTable", "index": "2",
      "change": "rewritten", "fields": {"portLoadingWeight": {"old": 70, "new": 60}}})"));
  EXPECT_EQ(changes[1].at("change"), "deleted");
  EXPECT_EQ(content(hardware), before);
}

TEST_F(CommandsTest, checkTellsWhatIsMissingDifferentAndUnexpected) {
  EXPECT_EQ(agent("check " + leaf).code, 1);
  json("run " + leaf);
  EXPECT_EQ(json("check " + leaf), ordered_json::parse(R"({"equal": true, "differences": []})"));
  EXPECT_THAT(
      agent("check " + changed).out,
      AllOf(HasSubstr("2  different: portLoadingWeight is 70, wanted 60"),
            HasSubstr("3  unexpected: portLoadingWeight 60"), HasSubstr("2 entries differ")));
  json("run " + changed);
  auto const outcome = agent("check --json " + leaf);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.json().at("differences")[0].at("fields"),
            ordered_json::parse(R"({"portLoadingWeight": {"held": 60, "wanted": 70}})"));
  EXPECT_EQ(outcome.json().at("differences")[1].at("difference"), "missing");
}

// The row is flipped on the way in, so the plan sees it and the next run mends it.
TEST_F(CommandsTest, lostWritesAndFlippedRowsAreFoundAndMended) {
  json("run " + leaf + " --chip-switch freeze-after=4");
  EXPECT_THAT(agent("check " + leaf).out, HasSubstr("The hardware does not hold"));
  EXPECT_EQ(Testing::figures(json("run " + leaf)), "4 0 2 0 2 0");
  auto const flip = " --chip-switch flip-row=DlbControlTable:1";
  EXPECT_THAT(agent("check " + leaf + flip).out, HasSubstr("portLoadingWeight is 17, wanted 16"));
  EXPECT_EQ(Testing::figures(json("run " + leaf + flip)), "5 1 0 0 1 0");
  EXPECT_EQ(agent("check " + leaf).code, 0);
}

TEST_F(CommandsTest, showTellsEveryTableInTheTypesOfItsFields) {
  EXPECT_EQ(json("show").at("tables").size(), 16u);
  EXPECT_FALSE(exists(hardware));
  json("run " + leaf);
  auto const tables = json("show").at("tables");
  EXPECT_EQ(tables.at("DlbEcmpControlTable"),
            ordered_json::parse(R"({"0": {"baseEcmpIndex": 0, "randomSelectionSeed": 305419896},
                                    "1": {"baseEcmpIndex": 128, "randomSelectionSeed": 610839777}})"));
  EXPECT_EQ(tables.at("DlbControlTable").at("2").at("capPortLoadingAverage"), true);
  EXPECT_EQ(json("show TessarLoadBalance::DlbEcmpControlTable").at("tables").size(), 1u);

  auto const text = agent("show DlbEcmpControlTable").out;
  EXPECT_THAT(text, AllOf(HasSubstr("DlbEcmpControlTable: 2 entries\n"),
                          HasSubstr("\n    1       128  610839777\n"), Not(HasSubstr("Weight"))));
  auto const unknown = agent("show DlbControlTabel");
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.err, HasSubstr("dlb-agent: no table \"DlbControlTabel\"; did you mean"));
}

// The whole leaf of the examples: nine tables configured by key, and one read back.
TEST_F(CommandsTest, wholeLeafRestartsUntouchedAlsoAfterTraffic) {
  auto const whole = example("leaf.json");
  auto const first = json("run " + whole);
  EXPECT_EQ(first.at("tables").size(), 17u);
  EXPECT_EQ(Testing::figures(first), "0 0 640 0 640 0");
  EXPECT_EQ(Testing::figures(json("run " + whole)), "640 0 0 0 0 0");
  EXPECT_EQ(Testing::figures(json("run " + example("leaf-changed.json"))), "633 5 1 2 6 2");
  EXPECT_EQ(Testing::figures(json("run " + whole)), "633 5 2 1 7 1");

  auto const traffic = json("simulate-traffic --flows 5000 --seed 7");
  EXPECT_EQ(traffic.at("traffic").at("flows"), 5000);
  auto const read = json("read-flowsets");
  EXPECT_EQ(read.at("assigned").get<unsigned>() + read.at("unassigned").get<unsigned>(), 32768u);
  EXPECT_EQ(read.at("flowsets").size(), read.at("assigned"));
  EXPECT_EQ(read.at("groups").size(), 16u);
  for (auto const& group : read.at("groups"))
    for (auto const& port : group.at("ports")) EXPECT_TRUE(port.at("inGroup")) << port;
  EXPECT_EQ(json("read-flowsets --chip-switch delay-reads=5"), read);
  EXPECT_THAT(agent("read-flowsets --group 3").out,
              AllOf(HasSubstr("Group 3: flowsets 5120 to 5631, "), HasSubstr("  port    60  "),
                    HasSubstr("  #"), Not(HasSubstr("Group 4"))));
  auto const one = read.at("flowsets")[0];
  EXPECT_EQ(json("read-flowsets --index " + one.at("index").dump()).at("flowsets")[0], one);
  EXPECT_EQ(Testing::figures(json("run " + whole)), "640 0 0 0 0 0") << "traffic is no difference";
}

TEST_F(CommandsTest, elementsOfMapsAreConfiguredShownAndComparedOneByOne) {
  contentIs("a.json", R"({"tables": {"DlbEcmpGroupTable": {
      "3": {"flowSetSize": 256, "portToMemberMap": {"0x2": "0x6", "1": 5, "300": 7}}},
      "DlbEcmpQualityMapTable": {
      "DlbEcmpQualityMapKey{portLoading:7 totalPortQsize:0 itmPortQsize:1 profile:3}": 6}}})");
  contentIs("b.json", R"({"tables": {"DlbEcmpGroupTable": {
      "3": {"flowSetSize": 256, "portToMemberMap": {"2": 6, "300": 8, "4": 1}}}}})");
  json("run a.json");
  auto const tables = json("show").at("tables");
  EXPECT_EQ(tables.at("DlbEcmpGroupTable").at("3").at("portToMemberMap"),
            ordered_json::parse(R"({"1": 5, "2": 6, "300": 7})"));
  EXPECT_EQ(tables.at("DlbEcmpQualityMapTable").front(),
            ordered_json::parse(R"({"assignedQuality": 6})"));
  EXPECT_THAT(agent("plan b.json").out,
              AllOf(HasSubstr("~ 3  -portToMemberMap[1] 5, +portToMemberMap[4] 1, "
                              "portToMemberMap[300] 7 -> 8\n"),
                    HasSubstr("profile:3}  assignedQuality 6")));
}

TEST_F(CommandsTest, aFieldLeftOutHasItsDefaultAndNumbersMayBeTexts) {
  contentIs("c.json", R"({"tables": {"TessarLoadBalance::DlbControlTable": {
      "0xF": {"portLoadingWeight": "0xFFFFFFFF", "samplingPeriod": "16", "totalQsizeWeight": 7}}}})");
  json("run c.json");
  EXPECT_EQ(json("show DlbControlTable").at("tables").at("DlbControlTable"), ordered_json::parse(R"(
      {"15": {"portLoadingWeight": 4294967295, "totalQsizeWeight": 7, "itmPortQsizeWeight": 0,
              "capPortLoadingAverage": false, "capTotalPortQsizeAverage": false,
              "capItmPortQsizeAverage": false, "samplingPeriod": 16}})"));
}

TEST_F(CommandsTest, clearDeletesEverythingAndTheJournalTellsIt) {
  json("run " + leaf);
  auto const cleared = json("clear");
  EXPECT_EQ(Testing::figures(cleared), "0 0 0 6 0 6");
  EXPECT_EQ(cleared.at("changes").size(), 6u);
  EXPECT_THAT(agent("clear").out, HasSubstr("the hardware held none"));
  EXPECT_EQ(json("show").at("tables").at("DlbControlTable").size(), 0u);
  auto const journal = json("journal --most 7").at("journal");
  ASSERT_EQ(journal.size(), 7u);
  EXPECT_EQ(journal[0].at("operation"), "write");
  EXPECT_EQ(journal[6].at("operation"), "delete");
  EXPECT_EQ(journal[6].at("number"), 12u);
}

TEST_F(CommandsTest, aTableThatTheChipLacksWorksInSoftwareAndIsToldOf) {
  auto const run = agent("run --json --chip template " + leaf);
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.err,
              HasSubstr("warning: chip \"template\" has no hardware for DlbControlTable: 4 "));
  EXPECT_EQ(Testing::figures(run.json(), "DlbControlTable"), "0 0 0 0 0 0");
  EXPECT_EQ(Testing::figures(run.json(), "DlbEcmpControlTable"), "0 0 2 0 2 0");

  contentIs("c.json", R"({"tables": {"DlbControlTable": {"0": {}}}})");
  auto const plan = agent("plan --json --chip template c.json");
  EXPECT_EQ(plan.code, 0);
  EXPECT_THAT(plan.json().at("changes"), IsEmpty());
  auto const check = agent("check --chip template c.json");
  EXPECT_EQ(check.code, 1);
  EXPECT_THAT(check.out, HasSubstr("0  missing: every field at its default"));
}

TEST_F(CommandsTest, traceLinesGoToStandardErrorForTheTablesAskedFor) {
  auto const traced =
      agent("run " + leaf + " --trace DlbControlTable=0-9 --trace SwTableStat=0-31");
  EXPECT_THAT(traced.err, AllOf(HasSubstr("DlbControlTable : programHwEntry"), HasSubstr("added:4"),
                                Not(HasSubstr("DlbEcmpControlTable : programHwEntry"))));
  auto const refused = agent("run " + leaf + " --trace Nope=1 --trace DlbControlTable=5-77");
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.err, AllOf(HasSubstr("there are: DlbControlTable, DlbEcmpControlTable, "),
                                 HasSubstr("levels are numbers up to 31")));
}

TEST_F(CommandsTest, messagesOfAnEarlierRunCanBeReadAlsoAfterACrash) {
  EXPECT_EQ(agent("run " + leaf + " --messages ring --crash-after 1").code, 128 + 9);
  EXPECT_THAT(agent("messages ring").out,
              AllOf(HasSubstr("Z  DlbControlTable: programHwEntry\n"), Not(HasSubstr("Ecmp"))));
  EXPECT_GE(json("messages ring").at("messages").size(), 2u);
  // A command that comes to nothing leaves the messages of the one before in their place.
  agent("run nowhere.json --messages ring");
  EXPECT_FALSE(exists("ring.1"));
  EXPECT_EQ(agent("messages out").code, 1);
}

// However an agent ends, its tables must not take their entries out of the hardware on the way; and a
// closed stream's number goes to the next file opened, which must not be the hardware.
TEST_F(CommandsTest, closedAndFullStreamsCostNoHardware) {
  EXPECT_EQ(agent("run " + leaf + " >/dev/full").code, 1);
  EXPECT_EQ(agent("check " + leaf).code, 0);
  EXPECT_EQ(agent("run " + leaf + " >&-").code, 1);
  EXPECT_EQ(agent("run " + leaf + " --trace DlbControlTable=0-9 2>&-").code, 0);
  EXPECT_EQ(agent("run " + leaf + " --messages m <&- >&- 2>&-").code, 1);
  EXPECT_EQ(agent("show nope 2>/dev/full").code, 1);
  EXPECT_EQ(Testing::figures(json("run " + leaf)), "6 0 0 0 0 0");
  EXPECT_EQ(agent("messages m").code, 0);
}

TEST_F(CommandsTest, whatCannotBeDoneIsToldWithItsMend) {
  contentIs("no-hardware", "not a hardware file");
  std::pair<char const*, char const*> const refusals[] = {
      {"", "subcommand is required"},
      {"shwo", "no command \"shwo\"; did you mean \"show\"?"},
      {"run", "CONFIG is required; see dlb-agent run --help"},
      {"show --jsn", "nothing takes \"--jsn\"; see dlb-agent show --help"},
      {"plan x.json --crash-after 3", "nothing takes \"--crash-after\""},
      {"clear --crash-after -1", "must be a number from 1 on, not -1"},
      {"show --chip-switch nonsense", "a switch is written as NAME=VALUE"},
      {"show --chip-switch nonsense=1", "no switch \"nonsense\""},
      {"show --hardware no-hardware", "no-hardware"},
      {"read-flowsets --index 32768", "from 0 to 32767"},
      {"read-flowsets --group 3", "no group 3: the hardware has no groups"},
      {"read-flowsets --group 3 --index 4", "excludes"},
      {"read-flowsets --chip template", "cannot read flowsets back"},
      {"read-flowsets --chip-switch lose-read-ends=1", "32768 of 32768 rows came"},
      {"simulate-traffic --flows 0 --seed 1", "must be a number from 1 on, not 0"},
      {"simulate-traffic --flows 1", "--seed is required"},
      {"simulate-traffic --flows 1 --seed 1 --chip template", "cannot simulate traffic"},
      {"run nowhere.json", "\"nowhere.json\" cannot be read: No such file"},
      {"run .", "\".\" cannot be read: it is a folder"},
      {"messages nowhere", "\"nowhere\" cannot be opened"},
      {"show >/dev/full", "standard output cannot be written"},
  };
  for (auto const& [arguments, words] : refusals) {
    auto const outcome = agent(arguments);
    EXPECT_EQ(outcome.code, 1) << arguments;
    EXPECT_THAT(outcome.err, AllOf(::testing::StartsWith("dlb-agent: "), HasSubstr(words)));
  }
  EXPECT_FALSE(exists(hardware));
}

TEST_F(CommandsTest, anUnknownChipIsToldWithTheChipsTheFoldersAndTheRefusedPlugins) {
  std::filesystem::create_directories(path("plugins/AsicFeature"));
  contentIs("plugins/AsicFeature/broken.so", "no shared object");
  setenv("DLB_PLUGIN_PATH", path("plugins").c_str(), 1);
  auto const outcome = agent("show --chip none");
  unsetenv("DLB_PLUGIN_PATH");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("no chip \"none\"\n"),
                                 HasSubstr("chips found: sim, simlet, template"),
                                 HasSubstr("folders searched: " + path("plugins").string() + ", "),
                                 HasSubstr("broken.so: ")));
}

TEST_F(CommandsTest, helpGivesAnExampleAndTheExitCodesOnce) {
  for (std::string const command : {"run", "plan", "check", "show", "clear", "read-flowsets",
                                    "simulate-traffic", "journal", "messages"}) {
    auto const help = agent(command + " --help");
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.out,
                AllOf(HasSubstr("Example:\n  dlb-agent " + command), HasSubstr("--chip ")));
    EXPECT_EQ(help.out.find("Exit codes"), help.out.rfind("Exit codes")) << help.out;
  }
}

}  // namespace
