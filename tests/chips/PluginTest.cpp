// Plug-ins as such: the smallest one through all phases, and files that are no plug-ins.

#include <dlfcn.h>
#include <link.h>

#include "Life.h"

namespace Chips {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

TEST(TemplatePlugin, servesATableThroughAllPhases) {
  auto const chip = newChip("template");
  chip->open({});
  auto const a = ecmp(1), b = ecmp(2);
  {
    Life<Ecmp> life(chip, "template");
    life.runner.start(chip);
    EXPECT_TRUE(life.synced().empty());
    life.replay({{0, a}, {1, a}, {15, b}, {16, b}});
    EXPECT_EQ(life.operations(), (Asic::Chip::Operations{3, 0})) << "row 16 does not exist";
  }
  Life<Ecmp> life(chip, "template");
  life.runner.start(chip);
  EXPECT_EQ(life.synced(), (Life<Ecmp>::Rows{{0, a}, {1, a}, {15, b}}));
  life.replay({{0, a}, {1, b}});
  EXPECT_EQ(life.operations(), (Asic::Chip::Operations{4, 1})) << "1 rewritten, 15 stale";
  life.table->entryRemove(0);
  auto& tracker = Asic::IndexUserTracker::Stub::tracker(*life.table->hwTable());
  EXPECT_EQ(tracker.uses(0).users, 0u);
  EXPECT_EQ(tracker.uses(1).active, 1u);

  EXPECT_FALSE(chip->hwTable(Control::names.qualified));
  EXPECT_FALSE(Asic::TableRunner(new Control).attachUtil("template"));
  EXPECT_THAT(errorOf([] {
                newChip("template")->open(faulty("", {{"x", "1"}}));
              }),
              HasSubstr("no switch \"x\""));
}

class PluginFileTest : public ChipTest {};

TEST_F(PluginFileTest, filesThatAreNoPluginsAreRefusedWithNameAndMend) {
  bytesAre(path("broken.so"), "this is no shared object");
  link_map* libm = nullptr;
  auto* const handle = ::dlopen("libm.so.6", RTLD_NOW);
  ASSERT_EQ(::dlinfo(handle, RTLD_DI_LINKMAP, static_cast<void*>(&libm)), 0);
  std::filesystem::copy_file(libm->l_name, path("noSymbol.so"));
  ::dlclose(handle);

  EXPECT_THAT(Plugin::loadFile(path("broken.so")),
              AllOf(StartsWith(path("broken.so") + " cannot be loaded: "), HasSubstr("; rebuild")));
  EXPECT_THAT(Plugin::loadFile(path("missing.so")), StartsWith(path("missing.so") + " cannot"));
  EXPECT_THAT(Plugin::loadFile(path("noSymbol.so")),
              AllOf(StartsWith(path("noSymbol.so") + " has no symbol \"asicFeaturePlugin\"; "),
                    HasSubstr("move the file away")));
  EXPECT_EQ(
      Plugin::loadFile(DLB_OTHER_VERSION_PLUGIN),
      Vell::concatenate(DLB_OTHER_VERSION_PLUGIN,
                        " is built for plug-in interface 99, and this library has interface ",
                        Plugin::interfaceVersion, "; rebuild the plug-in against this library"));
  EXPECT_EQ(Plugin::loadFile(path("sim.so")), "") << "a chip that is there already goes before";
  EXPECT_FALSE(Plugin::make("noSymbol", Asic::Chip::prefix, Asic::Chip::feature));
}

}  // namespace
}  // namespace Chips
