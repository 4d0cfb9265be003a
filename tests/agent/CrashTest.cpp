// A run that dies after any of its operations, and the plain run after it, come to the same as a
// run that nobody disturbs, and no row is written twice.

#include "AgentProcess.h"
#include "platform/vell/Types.h"

namespace {

class CrashTest : public Testing::AgentProcess {
 protected:
  struct Work {
    U64 writes;
    U64 deletes;
    U64 all() const { return writes + deletes; }
  };

  Work run(std::string const& config, std::string const& hardware) const {
    auto const totals = json("run " + config + " --hardware " + hardware).at("totals");
    return {totals.at("hardwareWrites"), totals.at("hardwareDeletes")};
  }

  /// Hardware that a process died on after its n-th operation, begun as `start` is.
  std::string crashed(std::string const& command, std::string const& start, U64 operations) const {
    auto const name = "crash" + std::to_string(operations);
    if (exists(start))
      std::filesystem::copy_file(path(start), path(name),
                                 std::filesystem::copy_options::overwrite_existing);
    auto const outcome =
        agent(command + " --hardware " + name + " --crash-after " + std::to_string(operations));
    EXPECT_EQ(outcome.code, 128 + 9) << command << " after " << operations << "\n" << outcome.err;
    return name;
  }

  /// Every crash of bringing `start` to what `config` asks.
  void everyCrashOf(std::string const& config, std::string const& start) const {
    if (exists(start)) std::filesystem::copy_file(path(start), path("undisturbed"));
    auto const undisturbed = run(config, "undisturbed");
    auto const wanted = json("show --hardware undisturbed");
    ASSERT_GT(undisturbed.all(), 0u);
    for (U64 n = 1; n <= undisturbed.all(); ++n) {
      auto const hardware = crashed("run " + config, start, n);
      EXPECT_EQ(n + run(config, hardware).all(), undisturbed.all()) << "crash after " << n;
      EXPECT_EQ(json("show --hardware " + hardware), wanted) << "crash after " << n;
    }
  }
};

TEST_F(CrashTest, ofAFirstRunAlsoWithMapsAndStructuredKeys) {
  contentIs("first.json", R"({"tables": {
      "DlbControlTable": {"0": {"samplingPeriod": 1}, "7": {}},
      "DlbEcmpGroupTable": {"0": {"portToMemberMap": {"1": 1, "2": 2}, "nhiToMemberMap": {"5": 1}},
                            "127": {"flowSetBase": 9, "portToMemberMap": {"65535": 63}}},
      "DlbEcmpQualityMapTable": {
        "DlbEcmpQualityMapKey{portLoading:7 totalPortQsize:7 itmPortQsize:7 profile:3}": 1}}})");
  everyCrashOf("first.json", "nothing");
}

TEST_F(CrashTest, ofARunThatAddsRewritesAndDeletes) {
  contentIs("other.json", R"({"tables": {
      "DlbControlTable": {"0": {"samplingPeriod": 1}, "7": {}, "8": {"samplingPeriod": 3}},
      "DlbEcmpControlTable": {"0": {"randomSelectionSeed": "0x12345678"}, "9": {}}}})");
  run("other.json", "other");
  everyCrashOf(small(), "other");
}

TEST_F(CrashTest, ofClearing) {
  run(small(), "leaf");
  for (U64 n = 1; n <= 6; ++n) {
    auto const cleared = json("clear --hardware " + crashed("clear", "leaf", n));
    EXPECT_EQ(cleared.at("totals").at("hardwareDeletes"), 6 - n);
  }
}

}  // namespace
