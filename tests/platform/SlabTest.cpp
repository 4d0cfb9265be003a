#include "platform/bruvel/Slab.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "platform/vell/ThreadControl.h"

namespace {

struct Block {
  unsigned char* memory;
  std::size_t bytes;
  unsigned char mark;
};

Block allocate(std::size_t bytes, unsigned char mark) {
  auto* const memory = static_cast<unsigned char*>(Bruvel::slabAllocOrStdMalloc(bytes));
  std::memset(memory, mark, bytes);
  return {memory, bytes, mark};
}

bool isIntact(Block const& block) {
  return std::all_of(block.memory, block.memory + block.bytes,
                     [&](unsigned char byte) { return byte == block.mark; });
}

/// Allocates and frees blocks of all sizes at random; every block must keep what was written to it.
void churn(unsigned seed, int steps) {
  std::mt19937 random(seed);
  std::vector<Block> blocks;
  for (int step = 0; step < steps; ++step) {
    if (blocks.empty() || random() % 5 < 3) {
      blocks.push_back(allocate(random() % 1200, static_cast<unsigned char>(random())));
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(blocks.back().memory) % 16, 0u);
      continue;
    }
    std::swap(blocks[random() % blocks.size()], blocks.back());
    ASSERT_TRUE(isIntact(blocks.back()));
    Bruvel::slabFreeOrStdFree(blocks.back().memory, blocks.back().bytes);
    blocks.pop_back();
  }
  for (Block const& block : blocks) {
    ASSERT_TRUE(isIntact(block));
    Bruvel::slabFreeOrStdFree(block.memory, block.bytes);
  }
}

TEST(Slab, BlocksOfAllSizesKeepTheirContents) {
  U64 const usedBefore = Bruvel::slabFigures().usedBytes;
  churn(1, 200'000);
  EXPECT_EQ(Bruvel::slabFigures().usedBytes, usedBefore);
  Bruvel::slabFreeOrStdFree(nullptr, 24);
}

TEST(Slab, FreeSlabsGoBackButOnePerClass) {
  auto const fill = [](std::size_t count) {
    std::vector<void*> blocks(count);
    for (void*& block : blocks) block = Bruvel::slabAllocOrStdMalloc(100);
    return blocks;
  };
  auto const drain = [](std::vector<void*> const& blocks) {
    for (void* const block : blocks) Bruvel::slabFreeOrStdFree(block, 100);
  };
  drain(fill(1));  // from here on the class has its slab
  auto const before = Bruvel::slabFigures();
  auto const many = fill(10'000);
  EXPECT_GE(Bruvel::slabFigures().slabs, before.slabs + 10'000 * 112 / (32 * 1024));
  EXPECT_EQ(Bruvel::slabFigures().usedBytes, before.usedBytes + 10'000 * 112);
  drain(many);
  EXPECT_EQ(Bruvel::slabFigures().slabs, before.slabs);
  EXPECT_EQ(Bruvel::slabFigures().usedBytes, before.usedBytes);
}

TEST(Slab, ThreadsShareTheSlabsOnceNodesAreShared) {
  U64 const usedBefore = Bruvel::slabFigures().usedBytes;
  Vell::ThreadControl::tsp_ = true;
  std::thread other(churn, 4u, 50'000);
  churn(5, 50'000);
  other.join();
  Vell::ThreadControl::tsp_ = false;
  EXPECT_EQ(Bruvel::slabFigures().usedBytes, usedBefore);
}

}  // namespace
