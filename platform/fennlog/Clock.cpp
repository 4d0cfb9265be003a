#include "platform/fennlog/Clock.h"

#include <chrono>

namespace Fennlog {

namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

template <class Clock>
U64 nanosecondsNow() {
  return static_cast<U64>(
      std::chrono::duration_cast<nanoseconds>(Clock::now().time_since_epoch()).count());
}

// The rate is measured against the steady clock, which nobody sets.
struct Moment {
  U64 ticks = ticksNow();
  U64 nanoseconds = nanosecondsNow<steady_clock>();
};

constexpr U64 shortestMeasurement = 1'000'000;  // ns

Moment const& start() {
  static Moment const moment;
  return moment;
}

[[maybe_unused]] Moment const& takenAtLoad = start();

}  // namespace

U64 Calibration::wallTime(U64 atTicks) const {
  auto const sinceMoment = static_cast<double>(static_cast<std::int64_t>(atTicks - ticks));
  return wallNanoseconds +
         static_cast<U64>(static_cast<std::int64_t>(sinceMoment * nanosecondsPerTick));
}

Calibration calibrate() {
  auto const& first = start();
  Moment now;
  while (now.nanoseconds - first.nanoseconds < shortestMeasurement) now = Moment();
  // The counter is read between two looks at the wall clock's neighbour, some 50 ns apart.
  auto const rate = static_cast<double>(now.nanoseconds - first.nanoseconds) /
                    static_cast<double>(now.ticks - first.ticks);
  return {ticksNow(), nanosecondsNow<std::chrono::system_clock>(), rate};
}

}  // namespace Fennlog
