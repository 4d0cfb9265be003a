// The counter that stamps messages, and what turns it into wall time.
//
// On x86-64 the counter is the time stamp counter, which runs at a constant rate that the processor
// does not tell; elsewhere it is the monotonic clock, in nanoseconds.

#pragma once

#if defined(__x86_64__)
#include <x86intrin.h>
#else
#include <chrono>
#endif

#include "platform/vell/Types.h"

namespace Fennlog {

inline U64 ticksNow() {
#if defined(__x86_64__)
  return __rdtsc();
#else
  return static_cast<U64>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

/// A moment in both clocks, and the rate between them.
struct Calibration {
  U64 ticks = 0;
  U64 wallNanoseconds = 0;  ///< Since the epoch of std::chrono::system_clock.
  double nanosecondsPerTick = 1.0;

  /// The wall time of a counter value, before or after the moment, in nanoseconds since the epoch.
  U64 wallTime(U64 atTicks) const;
};

/// This moment. The rate is measured since the library was loaded; within the first millisecond
/// after that the call waits, so that the rate is known to some 0.01 % even then.
Calibration calibrate();

}  // namespace Fennlog
