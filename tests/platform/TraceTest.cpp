// Trace handles: levels by name, for handles that exist and for those to come; and where lines go.

#include "platform/zarn/Trace.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using Zarn::TraceHandle;

TEST(Trace, LevelsAreSetByNameNowAndLater) {
  TraceHandle early("Space::Early");
  TraceHandle similar("Space::VeryEarly");
  EXPECT_FALSE(early.on(8));
  TraceHandle::levelsIs("Early", 1u << 8);
  TraceHandle::levelsIs("Space::Late", 1u << 5);
  TraceHandle late("Space::Late", true);
  EXPECT_TRUE(early.on(8));
  EXPECT_FALSE(early.on(5));
  EXPECT_FALSE(similar.on(8));
  EXPECT_TRUE(late.on(5));
  EXPECT_FALSE(late.on(0));
  TraceHandle::levelsIs("Early", 0);
  EXPECT_FALSE(early.on(8));
  TraceHandle const again("Space::Early", true);
  EXPECT_FALSE(again.on(8)) << "the newest setting holds";
}

TEST(Trace, ASinkMayReplaceItselfWhileItRuns) {
  TraceHandle const handle("Space::Sink");
  std::vector<std::string> lines;
  auto alive = std::make_shared<int>();
  std::weak_ptr<int> const watched = alive;
  TraceHandle::sinkIs([&, alive = std::move(alive)](std::string_view line) {
    TraceHandle::sinkIs([&](std::string_view next) { lines.emplace_back(next); });
    EXPECT_FALSE(watched.expired()) << "it still runs";
    lines.push_back("first " + std::string(line));
    handle.write("inside");
  });
  handle.write("a ", 1);
  EXPECT_TRUE(watched.expired());
  handle.write("b");
  TraceHandle::sinkIs({});
  EXPECT_EQ(lines, (std::vector<std::string>{"first a 1", "inside", "b"}));
}

}  // namespace
