// Two ways of doing the same work, measured side by side in one run: they take turns in chunks, so
// that a machine that slows down slows both, and the median of each side's chunks counts. Times are those
// that the thread had a processor, and not those that it waited for one.

#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <vector>

namespace Bench {

class SideBySide {
 public:
  /// Runs one chunk of `operations` operations of each side; call it once per benchmark iteration.
  template <class Library, class Least>
  void turn(benchmark::State& state, std::size_t operations, Library&& library, Least&& least) {
    library_.push_back(nanoseconds(library) / static_cast<double>(operations));
    least_.push_back(nanoseconds(least) / static_cast<double>(operations));
    state.SetIterationTime((library_.back() + least_.back()) * static_cast<double>(operations) *
                           1e-9);
  }

  /// A third way in the same turn: less than what the least does, as a floor below it.
  template <class Floor>
  void floor(std::size_t operations, Floor&& floor) {
    floor_.push_back(nanoseconds(floor) / static_cast<double>(operations));
  }

  /// Reports nanoseconds an operation of all sides, and how many times the least and the floor the
  /// library takes.
  void report(benchmark::State& state) {
    auto const library = median(library_);
    auto const least = median(least_);
    state.counters["library_ns"] = library;
    state.counters["least_ns"] = least;
    state.counters["ratio"] = library / least;
    if (floor_.empty()) return;
    auto const floor = median(floor_);
    state.counters["floor_ns"] = floor;
    state.counters["floor_ratio"] = library / floor;
  }

 private:
  template <class Work>
  static double nanoseconds(Work&& work) {
    auto const start = processorNanoseconds();
    work();
    return processorNanoseconds() - start;
  }
  static double processorNanoseconds() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
  }
  static double median(std::vector<double>& values) {
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
  }

  std::vector<double> library_, least_, floor_;
};

}  // namespace Bench
