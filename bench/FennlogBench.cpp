// What one message costs the code that writes it, with its time stamp.

#include <benchmark/benchmark.h>

#include <filesystem>

#include "platform/fennlog/Fennlog.h"

namespace {

constinit Fennlog::Site noArguments{"{}: {}", "Bench", "message"};
constinit Fennlog::Site twoArguments{"{}: {} type: {}, refCnt: {}", "Bench", "message"};

void fennlogStampAlone(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Fennlog::ticksNow());
}
BENCHMARK(fennlogStampAlone);

void fennlogWriteInMemory(benchmark::State& state) {
  for (auto _ : state) Fennlog::write(noArguments);
}
BENCHMARK(fennlogWriteInMemory);

void fennlogWriteTwoArguments(benchmark::State& state) {
  U64 i = 0;
  for (auto _ : state) Fennlog::write(twoArguments, i++, 7);
}
BENCHMARK(fennlogWriteTwoArguments);

void fennlogWriteAtomically(benchmark::State& state) {
  Vell::ThreadControl::tsp_ = true;
  for (auto _ : state) Fennlog::write(noArguments);
  Vell::ThreadControl::tsp_ = false;
}
BENCHMARK(fennlogWriteAtomically);

void fennlogWriteInFile(benchmark::State& state) {
  auto const path = std::filesystem::temp_directory_path() / "dlb-bench-trace";
  {
    auto const handle = Fennlog::Handle::inFile(path);
    Fennlog::defaultHandleIs(handle.get());
    for (auto _ : state) Fennlog::write(twoArguments, 1, 2);
    Fennlog::defaultHandleIs(&Fennlog::startupHandle());
  }
  std::filesystem::remove(path);
  std::filesystem::remove(path.string() + ".1");
}
BENCHMARK(fennlogWriteInFile);

void fennlogWriteDropped(benchmark::State& state) {
  Fennlog::defaultHandleIs(nullptr);
  for (auto _ : state) Fennlog::write(noArguments);
  Fennlog::defaultHandleIs(&Fennlog::startupHandle());
}
BENCHMARK(fennlogWriteDropped);

}  // namespace
