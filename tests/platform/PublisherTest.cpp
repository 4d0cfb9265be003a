// Change publication: who hears what, in which order, whatever the watchers do meanwhile.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/vell/Publisher.h"

namespace {

using Vell::Change;
using Vell::Publisher;
using Vell::Subscription;

struct Log {
  std::vector<std::string> heard;
  Publisher::Callback as(std::string name) {
    return [this, name](Change const& change) {
      heard.push_back(name + std::to_string(change.fieldId));
    };
  }
};

TEST(Publisher, TellsTheFieldsWatchersInOrder) {
  Publisher publisher;
  Log log;
  EXPECT_FALSE(publisher.hasWatchers());
  publisher.publishChange(1);
  {
    auto const a = publisher.watch(1, log.as("a"));
    auto const b = publisher.watch(Publisher::everyField, log.as("b"));
    auto const c = publisher.watch(2, log.as("c"));
    EXPECT_TRUE(publisher.hasWatchers());
    publisher.publishChange(1);
    publisher.publishChange(2);
  }
  EXPECT_FALSE(publisher.hasWatchers());
  publisher.publishChange(1);
  EXPECT_EQ(log.heard, (std::vector<std::string>{"a1", "b1", "b2", "c2"}));
}

TEST(Publisher, MayGoDuringItsOwnPublication) {
  auto publisher = std::make_unique<Publisher>();
  Log log;
  auto const a = publisher->watch(1, [&](Change const&) { publisher.reset(); });
  auto const b = publisher->watch(1, log.as("b"));
  publisher->publishChange(1);
  EXPECT_EQ(log.heard, std::vector<std::string>{"b1"});
}

// What an ended watcher had captured may itself end watchings as it goes.
TEST(Publisher, CapturedSubscriptionsEndInACascade) {
  Publisher publisher;
  int heard = 0;
  auto chain = std::make_shared<Subscription>();
  for (int i = 0; i < 50; ++i) {
    auto const next = std::make_shared<Subscription>(
        publisher.watch(1, [&heard, chain](Change const&) { ++heard; }));
    chain = next;
  }
  publisher.publishChange(1);
  EXPECT_EQ(heard, 50);
  auto const last = publisher.watch(1, [&](Change const&) { chain.reset(); });
  publisher.publishChange(1);
  publisher.publishChange(1);
  EXPECT_EQ(heard, 100);
}

// Random trees of watchers that publish, subscribe and end up to depth 8: each publication is heard
// once by every watcher that was there at its start and did not end before its turn.
TEST(Publisher, RandomTreesLoseAndDoubleNothing) {
  std::mt19937 random(7);
  for (int tree = 0; tree < 300; ++tree) {
    Publisher publisher;
    struct Watcher {
      Subscription subscription;
      std::vector<int> heard;
      bool ended = false;
    };
    std::vector<std::unique_ptr<Watcher>> watchers;
    int publications = 0;
    int depth = 0;
    std::vector<int> current;  // publications under way, innermost last
    std::function<void()> addWatcher, publish;
    addWatcher = [&] {
      watchers.push_back(std::make_unique<Watcher>());
      auto* const self = watchers.back().get();
      self->subscription = publisher.watch(1, [&, self](Change const&) {
        ASSERT_FALSE(self->ended);
        self->heard.push_back(current.back());
        switch (random() % 8) {
          case 0:
            if (watchers.size() < 40) addWatcher();
            break;
          case 1: {
            auto& victim = *watchers[random() % watchers.size()];
            victim.ended = true;
            victim.subscription.end();
            break;
          }
          case 2:
            if (depth < 8 && publications < 60) publish();
            break;
        }
      });
    };
    publish = [&] {
      ++depth;
      int const number = publications++;
      current.push_back(number);
      std::vector<Watcher*> atStart;
      for (auto const& each : watchers)
        if (!each->ended) atStart.push_back(each.get());
      publisher.publishChange(1);
      current.pop_back();
      --depth;
      for (auto const& each : watchers) {
        auto const times = std::ranges::count(each->heard, number);
        bool const was = std::ranges::count(atStart, each.get()) != 0;
        ASSERT_TRUE(was ? times == 1 || (each->ended && times == 0) : times == 0);
      }
    };
    for (int i = 0; i < 5; ++i) addWatcher();
    for (int i = 0; i < 5; ++i) publish();
  }
}

}  // namespace
