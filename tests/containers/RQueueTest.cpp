// The pending queue beside `std::deque`, and its arrays.

#include "containers/RQueue.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <random>
#include <vector>

namespace {

using Element = std::shared_ptr<U32>;  // its copies are counted

template <U32 capacity, U32 first = 1>
struct Traits {
  static constexpr U32 firstCapacity = capacity;
  static constexpr U32 firstSequence = first;
  static constexpr std::string_view name = "RQueueTest";
};
template <U32 capacity, U32 first = 1>
using Queue = Vell::RQueue<Element, true, Traits<capacity, first>>;

Element made(U32 number) { return std::make_shared<U32>(number); }

template <class Q>
void agreesWithADeque(U32 next) {
  auto const arrays = Q::Base::arrayTracker.live();
  auto const slots = Q::arrayElemTracker.live();
  {
    Q queue;
    std::deque<Element> model;
    std::mt19937 random(3);
    for (U32 step = 0; step < 200'000; ++step) {
      // Long stretches of mostly filling and mostly draining.
      bool const fills = random() % 16 < (step / 5000 % 2 ? 6u : 10u);
      if (fills) {
        model.push_back(made(step));
        ASSERT_EQ(queue.enq(model.back()), next + static_cast<U32>(model.size()) - 1);
      } else if (model.empty()) {
        ASSERT_EQ(queue.deq(), nullptr);
      } else {
        ASSERT_EQ(queue.deq(), model.front());
        model.pop_front();
        ++next;
      }
      ASSERT_EQ(queue.count(), model.size());
      ASSERT_EQ(queue.empty(), model.empty());
      ASSERT_EQ(queue.firstSequence(), next);
      ASSERT_EQ(queue.lastSequence(), next + static_cast<U32>(model.size()) - 1);
      ASSERT_EQ(queue.back(), model.empty() ? nullptr : model.back());
      auto const offset = static_cast<U32>(random() % 40) - 10;
      bool const isThere = offset < model.size();
      ASSERT_EQ(queue.has(next + offset), isThere);
      ASSERT_EQ(queue.at(next + offset), isThere ? model[offset] : nullptr);
      if (random() % 5000 == 0) {
        next += static_cast<U32>(model.size());
        model.clear();
        queue.doClear(Q::Numbering::kept);
      }
    }
    std::size_t walked = 0;
    for (typename Q::Iterator at(queue); at; ++at) ASSERT_EQ(*at, model[walked++]);
    EXPECT_EQ(walked, model.size());
    for (auto const& each : model) EXPECT_EQ(each.use_count(), 2);
  }
  EXPECT_EQ(Q::Base::arrayTracker.live(), arrays);
  EXPECT_EQ(Q::arrayElemTracker.live(), slots);
}

TEST(RQueue, agreesWithADeque) { agreesWithADeque<Queue<2>>(1); }
TEST(RQueue, agreesWithADequeOverTheWrapOfItsNumbers) {
  agreesWithADeque<Queue<4, 0xFFFFFF00>>(0xFFFFFF00);
}

TEST(RQueue, aWalkWhoseElementWasTakenGoesOnAtTheHead) {
  Queue<2> queue;
  for (U32 i = 1; i <= 9; ++i) queue.enq(made(i));
  Queue<2>::Iterator at(queue);
  ++at;
  for (U32 i = 0; i < 5; ++i) queue.deq();
  ++at;
  EXPECT_EQ(at.sequence(), 6u);
  EXPECT_EQ(**at, 6u);
  while (!queue.empty()) queue.deq();
  ++at;
  EXPECT_FALSE(at);
}

TEST(RQueue, theEndOfAnElementMayUseTheQueue) {
  using Q = Queue<2>;
  Q queue;
  auto const enqueues = [&](U32 number) {
    return Element(new U32(number), [&](U32* gone) {
      queue.enq(made(*gone + 100));
      delete gone;
    });
  };
  for (U32 i = 1; i <= 3; ++i) queue.enq(enqueues(i));
  queue.deq();
  EXPECT_EQ(*queue.back(), 101u);
  queue.doClear(Q::Numbering::kept);
  EXPECT_EQ(queue.count(), 2u);
  EXPECT_EQ(*queue.front(), 102u);
  EXPECT_EQ(queue.firstSequence(), 5u);
}

}  // namespace
