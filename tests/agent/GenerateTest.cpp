// Configurations that are made up: the same on every machine, and of any size that there is room for.

#include "AgentProcess.h"
#include "agent/Generate.h"

namespace {

using ::testing::HasSubstr;

class GenerateTest : public Testing::AgentProcess {
 protected:
  /// Runs what `generate OPTIONS` prints, and then once more.
  void expectFoundInPlace(std::string const& options) const {
    SCOPED_TRACE(options);
    auto const made = agent("generate " + options);
    ASSERT_EQ(made.code, 0) << made.err;
    std::filesystem::remove(path("dlb-hardware.sim"));
    contentIs("made.json", made.out);
    auto const first = json("run made.json").at("totals");
    auto const second = json("run made.json").at("totals");
    EXPECT_EQ(first.at("matched"), 0);
    EXPECT_EQ(second.at("matched"), first.at("added"));
    EXPECT_EQ(second.at("hardwareWrites"), 0);
    EXPECT_EQ(second.at("hardwareDeletes"), 0);
  }
};

TEST_F(GenerateTest, theSpineIsWhatItIsByDefaultAndRestartsUntouched) {
  auto const spine = content(example("spine.json"));
  // Not EXPECT_EQ, which would print both.
  EXPECT_TRUE(agent("generate --seed 1").out == spine)
      << "make it again with: dlb-agent generate > examples/spine.json";
  EXPECT_FALSE(DlbAgent::generated({}, 2) == spine);
  EXPECT_FALSE(exists("dlb-hardware.sim"));
  EXPECT_EQ(json("run " + example("spine.json")).at("totals").at("added"), 51582);
  EXPECT_EQ(Testing::figures(json("run " + example("spine.json"))), "51582 0 0 0 0 0");
}

TEST_F(GenerateTest, anySizesWithinTheHardwareAreFoundInPlace) {
  std::string const none =
      "--dlb-groups 0 --flowsets 0 --next-hops 0 --groups 0 --plain-groups 0 --adjacencies 0 ";
  std::string const few = "--dlb-groups 2 --flowsets 16 --plain-groups 10 --adjacencies 300 ";
  expectFoundInPlace(none);
  expectFoundInPlace(few + "--next-hops 8 --groups 6 --width 3 --ports 1");
  expectFoundInPlace(few + "--next-hops 1 --groups 6 --width 9 --ports 256 --seed 0xFFFFFFFF");
  expectFoundInPlace(few + "--groups 200 --width 60 --even");
  expectFoundInPlace(few + "--groups 4 --width 32768 --even --next-hops 4096");  // all rows
  expectFoundInPlace("--groups 8000 --plain-groups 192 --width 1 --adjacencies 16384");
}

TEST_F(GenerateTest, sizesWithoutRoomOrSenseAreToldByTheirOptions) {
  std::pair<std::string, std::string> const cases[] = {
      {"--width 0", "--width: must be a number from 1 on, not 0"},
      {"--ports 257", "--ports: the chip has room for 256 ports, not for 257; take fewer"},
      {"--dlb-groups 129", "--dlb-groups: the chip has room for 128 DLB groups"},
      {"--flowsets 32769", "--flowsets: the chip has room for 32768 flowsets"},
      {"--next-hops 4097", "--next-hops: the chip has room for 4096 next hops"},
      {"--adjacencies 16385", "--adjacencies: the chip has room for 16384 adjacencies"},
      {"--width 32769", "--width: the chip has room for 32768 rows in one block"},
      {"--groups 2049 --even", "--groups: the chip has room for 2048 blocks of up to 64 rows"},
      {"--groups 8193 --width 1", "--groups: the chip has room for 8192 groups"},
      {"--plain-groups 7937", "--plain-groups: the chip has room for 7936 of them beside --groups"},
      {"--next-hops 0", "--next-hops: the blocks of groups need one; take 1 or more"},
      {"--dlb-groups 0", "--flowsets: there is no DLB group to deal them to; take 0"},
      {"--groups 0 --plain-groups 0", "--adjacencies: there is no group to point at; take 0"}};
  for (auto const& [options, error] : cases) {
    auto const outcome = agent("generate " + options);
    EXPECT_EQ(outcome.code, 1) << options;
    EXPECT_EQ(outcome.out, "") << options;
    EXPECT_THAT(outcome.err, HasSubstr(error)) << options;
  }
}

}  // namespace
