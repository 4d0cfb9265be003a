// The keyed map beside std::unordered_map: 24-byte values under U32 keys, as the tables hold them.
//
// Every look-up loop reads its keys from a random stream of 2^20, so that neither caches nor branch
// predictors learn the order.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "containers/HashMap2018Iterator.h"

namespace {

struct Value {
  U64 words[3];
};

using Node = Zarn::HN<U32, Value, 0x3D5C21A7>;

class Keyed {
 public:
  void insert(U32 key) { map_.lookupOrNewMember({{{key, 0, 0}}, key}); }
  U64 const* find(U32 key) const {
    Node const* const node = map_.lookupNodeG(key);
    return node ? node->value_.words : nullptr;
  }
  void erase(U32 key) { map_.deleteMemberG(key); }
  U64 walk() const {
    U64 sum = 0;
    for (Zarn::HashMap2018UnsafeIteratorConstGeneric<Map> at(map_); at; ++at)
      sum += at.currNode()->value_.words[0];
    return sum;
  }
  U64 walkSafely() const {
    U64 sum = 0;
    for (Zarn::HashMap2018IteratorGeneric<Map const> at(map_); at; ++at)
      sum += at.currNodeMaybeStale()->value_.words[0];
    return sum;
  }

 private:
  using Map = Zarn::HashMap2018<Node>;
  Map map_;
};

class Standard {
 public:
  void insert(U32 key) { map_.try_emplace(key, Value{{key, 0, 0}}); }
  U64 const* find(U32 key) const {
    auto const found = map_.find(key);
    return found != map_.end() ? found->second.words : nullptr;
  }
  void erase(U32 key) { map_.erase(key); }
  U64 walk() const {
    U64 sum = 0;
    for (auto const& [key, value] : map_) sum += value.words[0];
    return sum;
  }
  U64 walkSafely() const { return walk(); }

 private:
  std::unordered_map<U32, Value> map_;
};

constexpr std::size_t streamLength = std::size_t{1} << 20;

/// A permutation of the 32-bit numbers without any pattern (the finaliser of a well-known hash).
U32 scrambled(U32 number) {
  number = (number ^ (number >> 16)) * 0x85EBCA6Bu;
  number = (number ^ (number >> 13)) * 0xC2B2AE35u;
  return number ^ (number >> 16);
}

std::vector<U32> differentKeys(std::size_t count) {
  std::vector<U32> keys(count);
  for (std::size_t i = 0; i < count; ++i) keys[i] = scrambled(static_cast<U32>(i));
  return keys;
}

std::vector<U32> streamOf(std::vector<U32> const& keys) {
  std::mt19937 random(7);
  std::vector<U32> stream(streamLength);
  for (U32& key : stream) key = keys[random() % keys.size()];
  return stream;
}

template <class Map>
Map filled(std::vector<U32> const& keys) {
  Map map;
  for (U32 const key : keys) map.insert(key);
  return map;
}

template <class Map>
void lookUp(benchmark::State& state, std::vector<U32> const& stream, Map const& map) {
  std::size_t next = 0;
  for (auto _ : state) {
    U64 const* const words = map.find(stream[next++ & (streamLength - 1)]);
    benchmark::DoNotOptimize(words ? *words : 0);
  }
  state.SetItemsProcessed(state.iterations());
}

template <class Map>
void hit(benchmark::State& state) {
  auto const keys = differentKeys(static_cast<std::size_t>(state.range(0)));
  lookUp(state, streamOf(keys), filled<Map>(keys));
}

template <class Map>
void miss(benchmark::State& state) {
  auto const count = static_cast<std::size_t>(state.range(0));
  auto const keys = differentKeys(2 * count);
  std::vector<U32> const present(keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(count));
  std::vector<U32> const absent(keys.begin() + static_cast<std::ptrdiff_t>(count), keys.end());
  lookUp(state, streamOf(absent), filled<Map>(present));
}

/// Hits with keys that step by 2^range(0): a hash that is not mixed fully shows here.
template <class Map>
void hitOfSteppingKeys(benchmark::State& state) {
  std::vector<U32> keys(1u << 12);
  for (U32 i = 0; i < keys.size(); ++i) keys[i] = i << state.range(0);
  lookUp(state, streamOf(keys), filled<Map>(keys));
}

template <class Map>
void insertAll(benchmark::State& state) {
  auto const keys = differentKeys(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    auto map = std::make_unique<Map>(filled<Map>(keys));
    benchmark::DoNotOptimize(map.get());
    state.PauseTiming();
    map.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// One deletion and one insertion of another key, at a steady number of keys: with 1 more than a
/// multiple of 3, each pair merges two buckets and splits them again; with 2 more, neither.
template <class Map>
void replaceOne(benchmark::State& state) {
  auto const count = static_cast<std::size_t>(state.range(0));
  auto const keys = differentKeys(2 * count);
  Map map;
  for (std::size_t i = 0; i < count; ++i) map.insert(keys[i]);
  std::size_t next = 0;
  for (auto _ : state) {
    map.erase(keys[next % keys.size()]);
    map.insert(keys[(next + count) % keys.size()]);
    ++next;
  }
  state.SetItemsProcessed(state.iterations());
}

template <class Map>
void walk(benchmark::State& state) {
  auto const map = filled<Map>(differentKeys(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) benchmark::DoNotOptimize(map.walk());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void walkSafely(benchmark::State& state) {
  auto const map = filled<Map>(differentKeys(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) benchmark::DoNotOptimize(map.walkSafely());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// The longest that one insertion takes while a map grows to that many keys: what growth
/// costs the one commit that meets it. The least of several fillings, since what the
/// machine adds never repeats.
template <class Map>
void worstInsertion(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  auto const keys = differentKeys(static_cast<std::size_t>(state.range(0)));
  double leastWorst = 1e9;
  for (auto _ : state) {
    Map map;
    Clock::duration worst{};
    for (U32 const key : keys) {
      auto const start = Clock::now();
      map.insert(key);
      worst = std::max(worst, Clock::now() - start);
    }
    leastWorst = std::min(leastWorst, std::chrono::duration<double, std::micro>(worst).count());
  }
  state.counters["worst_us"] = leastWorst;
}

#define ON_BOTH_MAPS(function, sizes)         \
  BENCHMARK_TEMPLATE(function, Keyed)->sizes; \
  BENCHMARK_TEMPLATE(function, Standard)->sizes

ON_BOTH_MAPS(hit, Arg(1'000)->Arg(100'000)->Arg(1'000'000));
ON_BOTH_MAPS(miss, Arg(1'000)->Arg(100'000)->Arg(1'000'000));
ON_BOTH_MAPS(worstInsertion, Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Iterations(10));
ON_BOTH_MAPS(insertAll, Arg(1'000)->Arg(100'000)->Arg(1'000'000));
ON_BOTH_MAPS(replaceOne, Arg(100'000)->Arg(100'001));
ON_BOTH_MAPS(walk, Arg(100'000));
ON_BOTH_MAPS(walkSafely, Arg(100'000));
BENCHMARK_TEMPLATE(hitOfSteppingKeys, Keyed)->DenseRange(0, 20);

}  // namespace
