// Two ways of doing the same work, measured side by side in one run: they take turns in chunks, so
// that a machine that slows down slows both, and the median of each side's chunks counts.

#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
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

  /// Reports nanoseconds an operation of both sides, and how many times the least
  /// the library takes.
  void report(benchmark::State& state) {
    auto const library = median(library_);
    auto const least = median(least_);
    state.counters["library_ns"] = library;
    state.counters["least_ns"] = least;
    state.counters["ratio"] = library / least;
  }

 private:
  template <class Work>
  static double nanoseconds(Work&& work) {
    auto const start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start)
        .count();
  }
  static double median(std::vector<double>& values) {
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
  }

  std::vector<double> library_, least_;
};

}  // namespace Bench
