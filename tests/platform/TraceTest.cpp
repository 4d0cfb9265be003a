// Trace handles: levels by name, for handles that exist and for those to come.

#include "platform/zarn/Trace.h"

#include <gtest/gtest.h>

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
}

}  // namespace
