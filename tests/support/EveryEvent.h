// Callbacks at every event: each operation is played from each beginning, once for each of its events
// and each callback that may run there, and again with a second callback some events later, which may
// be inside the first.

#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "platform/vell/Assert.h"

namespace Testing {

/// A `Life` calls what `onEvent` gives it with each event, and finds in `ended` whether all is well.
template <class Life>
struct EveryEvent {
  using Actions = std::map<std::string, std::function<void(Life&)>>;
  Actions starts, triggers, callBacks;
  std::function<void(Life&)> second = {};

  void play() const {
    for (auto const& [start, begin] : starts)
      for (auto const& [trigger, act] : triggers)
        for (auto const& [text, callBack] : callBacks)
          for (unsigned gap = 0; gap < (second ? 4u : 1u); ++gap)
            for (unsigned moment = 0, seen = 1; seen > moment; ++moment) {
              SCOPED_TRACE(Vell::concatenate(start, ", ", trigger, "; at event ", moment, ' ', text,
                                             "; the second ", gap, " later"));
              Life life;
              begin(life);
              seen = 0;
              life.onEvent([&, &call = callBack](std::string const&) {
                auto const now = seen++;
                if (now == moment) return call(life);
                if (gap != 0 && now == moment + gap) second(life);
              });
              act(life);
              life.onEvent({});
              life.ended();
              if (testing::Test::HasFatalFailure()) return;
            }
  }
};

}  // namespace Testing
