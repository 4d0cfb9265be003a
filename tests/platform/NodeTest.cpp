// Counted nodes: when they go, and what may happen while they do.

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "platform/vell/Node.h"
#include "platform/vell/Ptr.h"
#include "platform/vell/ThreadControl.h"

namespace {

using Vell::Ptr;

class Probe : public Vell::Node {
 public:
  explicit Probe(int& alive) : alive_(alive) { ++alive_; }
  ~Probe() override { --alive_; }
  void lastUserGone() override {
    EXPECT_TRUE(nodeFlag(inLastUserGoneFlag));
    ++hookRuns;
    if (onLastUserGone) onLastUserGone();
  }
  Vell::ZarnType typeData() const override { return {}; }

  std::function<void()> onLastUserGone;
  int hookRuns = 0;

 private:
  int& alive_;
};

TEST(Node, GoesWithItsLastUse) {
  int alive = 0;
  Ptr<Probe> a(new Probe(alive));
  Ptr<Probe const> b = a;
  EXPECT_EQ(a->useCount(), 2u);
  a = nullptr;
  EXPECT_EQ(alive, 1);
  b = Ptr<Probe const>(b);
  b = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(Node, AUseThatStaysBringsItBack) {
  int alive = 0;
  auto* const probe = new Probe(alive);
  Ptr<Probe> only(probe), kept;
  probe->onLastUserGone = [&] { kept = probe; };
  only = nullptr;
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(probe->useCount(), 1u);
  EXPECT_EQ(probe->hookRuns, 1);
  probe->onLastUserGone = nullptr;
  kept = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(Node, WithoutItsFlagNothingIsFreed) {
  int alive = 0;
  Probe onStack(alive);
  onStack.nodeFlagSet(Vell::Node::freedAtZeroFlag, false);
  { Ptr<Probe> const use(&onStack); }
  EXPECT_EQ(onStack.hookRuns, 0);
  EXPECT_EQ(onStack.useCount(), 0u);
}

// The pointer holds its new node before the old one goes: the old one's end may look at it.
TEST(Node, AssignmentLetsTheOldNodeGoLast) {
  int alive = 0;
  auto* const first = new Probe(alive);
  Ptr<Probe> pointer(first);
  Probe* seen = nullptr;
  first->onLastUserGone = [&] { seen = pointer.get(); };
  auto* const second = new Probe(alive);
  pointer = second;
  EXPECT_EQ(seen, second);
}

TEST(Node, CountsAtomicallyWhenShared) {
  Vell::ThreadControl::tsp_ = true;
  int alive = 0;
  Ptr<Probe> const shared(new Probe(alive));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < 20000; ++round) Ptr<Probe> const use = shared;
    });
  for (auto& each : threads) each.join();
  Vell::ThreadControl::tsp_ = false;
  EXPECT_EQ(shared->useCount(), 1u);
}

}  // namespace
