// What an index costs in a space of a million, at several occupancies: the oldest of a thousand keys
// lets go of its index and a new key takes one. Beside it the least: a map from key to index, and a
// last-in first-out list of free indices of one size, which merges nothing and picks nothing.

#include <deque>
#include <random>
#include <unordered_map>
#include <vector>

#include "SideBySide.h"
#include "platform/asic/BankAwareBlockAllocator.h"
#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/asic/SwTable.h"

namespace {

constexpr U32 space = 1u << 20;
constexpr U32 ring = 1000;

struct Key {
  U32 number;
  U32 size;

  U32 hash(U32 seed) const { return (number ^ seed) * 0x9E3779B1u; }
  U32 getBlockSize() const { return size; }
  friend bool operator==(Key const& a, Key const& b) { return a.number == b.number; }
};

constexpr Vell::TypeData keyData{"Key", {}, {}};
constexpr Vell::TypeData const* types[] = {&keyData};
constinit Vell::ModuleInspectData module{"AllocatorBench", types};
constexpr Vell::ZarnType keyType{&module, 0};

class Table final : public Asic::SwKnownIndexTable {
 public:
  Table() : SwKnownIndexTable("") {}
  Vell::ZarnType typeData() const override { return keyType; }
};

template <class Allocator>
class Space final : public Allocator {
 public:
  Space() {
    this->setTableAttr(*table_, {keyType, &Asic::indexKeyType<Key>, [](auto*) { return false; }});
    this->sizeIs(space);
    if constexpr (hasBlocks) {
      this->splAllocationIs(keyType);
      this->bankCountIs(4);
      this->smallBlockRowsIs(2);
    }
    this->initializedIs(true);
  }
  Vell::ZarnType typeData() const override { return keyType; }

  Asic::Index take(Key const& key) {
    if constexpr (hasBlocks)
      return this->newIndexForBlock(keyType, &key);
    else
      return this->newIndexForKey(keyType, &key);
  }
  void giveBack(Key const& key) { this->releaseIndexFromTable(keyType, &key, *table_); }

 private:
  static constexpr bool hasBlocks = std::is_base_of_v<Asic::BankAwareBlockAllocator, Allocator>;
  Vell::Ptr<Table> table_{new Table};
};

class LeastSpace {
 public:
  explicit LeastSpace(U32 size) {
    for (U32 first = 0; first + size <= space; first += size) free_.push_back(first);
  }
  [[gnu::noinline]] void take(U32 key) {
    auto const [at, isNew] = held_.try_emplace(key, 0);
    if (!isNew) return;
    at->second = free_.back();
    free_.pop_back();
  }
  [[gnu::noinline]] void giveBack(U32 key) {
    auto const at = held_.find(key);
    free_.push_back(at->second);
    held_.erase(at);
  }

 private:
  std::unordered_map<U32, U32> held_;
  std::vector<U32> free_;
};

/// Fills the space so far, and more, with keys of random sizes, and lets random ones go again, so
/// that what is free lies in many places. Returns the next number of a key.
template <class Allocator>
U32 fill(Space<Allocator>& indices, U32 percent, U32 largest) {
  std::mt19937 random(7);
  std::vector<Key> held;
  U32 const wanted = static_cast<U32>(U64{space} * percent / 100);
  U32 number = 0;
  for (int round = 0; round < 4; ++round) {
    while (indices.totalUsedIndices() < wanted) {
      Key const key{number++, largest == 1 ? 1 : 2 + static_cast<U32>(random() % (largest - 1))};
      if (indices.take(key).isExhausted()) break;
      held.push_back(key);
    }
    if (round == 3) break;
    std::ranges::shuffle(held, random);
    for (std::size_t gone = held.size() / 4; gone > 0; --gone) {
      indices.giveBack(held.back());
      held.pop_back();
    }
  }
  return number;
}

template <class Allocator>
void pair(benchmark::State& state, U32 size, U32 percent) {
  Space<Allocator> indices;
  LeastSpace least(size);
  std::deque<Key> held;
  for (U32 i = 0; i < ring; ++i) {
    held.push_back({0x80000000 + i, size});
    indices.take(held.back());
    least.take(held.back().number);
  }
  U32 number = fill(indices, percent, size == 1 ? 1 : 64);
  // The least is as full, so that its map has as many keys.
  for (U32 key = 0; key < U64{space} / size * percent / 100 - ring; ++key) least.take(key);
  Bench::SideBySide sides;
  std::vector<Key> next;
  bool isFull = false;
  for (auto _ : state) {
    next.clear();
    for (U32 i = 0; i < ring; ++i) next.push_back({number++ | 0x40000000, size});
    sides.turn(
        state, ring,
        [&] {
          for (U32 i = 0; i < ring; ++i) {
            indices.giveBack(held[i]);
            isFull |= indices.take(next[i]).isExhausted();
          }
        },
        [&] {
          for (U32 i = 0; i < ring; ++i) {
            least.giveBack(held[i].number);
            least.take(next[i].number);
          }
        });
    held.assign(next.begin(), next.end());
  }
  if (isFull) state.SkipWithError("no room where a block of that size had just left");
  state.counters["used_percent"] = 100.0 * indices.totalUsedIndices() / space;
  sides.report(state);
}

void single(benchmark::State& state) {
  pair<Asic::FirstFreeIndexAllocator>(state, 1, static_cast<U32>(state.range(0)));
}
void block(benchmark::State& state) {
  pair<Asic::BankAwareBlockAllocator>(state, static_cast<U32>(state.range(0)),
                                      static_cast<U32>(state.range(1)));
}
BENCHMARK(single)->Name("allocator/single")->Arg(50)->Arg(90)->Arg(99)->UseManualTime();
BENCHMARK(block)
    ->Name("allocator/block")
    ->ArgsProduct({{4, 16, 64}, {50, 90, 99}})
    ->UseManualTime();

}  // namespace
