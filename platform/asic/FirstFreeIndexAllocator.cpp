#include "platform/asic/FirstFreeIndexAllocator.h"

#include <algorithm>
#include <bit>

#include "platform/vell/Assert.h"

namespace Asic {

void BitmapTree::grow(U32 before, U32 size) {
  std::size_t words = (U64{size} + 63) / 64;
  levels_[0].resize(words);
  for (std::size_t level = 1; words > 1; ++level) {
    if (levels_.size() == level) {
      levels_.emplace_back();
      // A level that is new tells of all that lies below it.
      auto const& below = levels_[level - 1];
      levels_[level].resize((words + 63) / 64);
      for (std::size_t i = 0; i < below.size(); ++i)
        if (below[i] != 0) levels_[level][i / 64] |= U64{1} << i % 64;
    }
    words = (words + 63) / 64;
    levels_[level].resize(words);
  }
  // Word by word; `insert` tells the levels above.
  for (U64 number = before, end; number < size; number = end) {
    end = std::min<U64>((number / 64 + 1) * 64, size);
    insert(static_cast<U32>(number));
    levels_[0][number / 64] |= ~U64{0} >> (64 - (end - number)) << number % 64;
  }
}

U32 BitmapTree::lowest() const {
  U64 at = 0;
  for (std::size_t level = levels_.size(); level-- > 0;) {
    if (levels_[level].empty() || levels_[level][at] == 0) return none;
    at = at * 64 + static_cast<U32>(std::countr_zero(levels_[level][at]));
  }
  return static_cast<U32>(at);
}

void BitmapTree::insert(U32 number) {
  std::size_t at = number;
  for (auto& level : levels_) {
    auto& word = level[at / 64];
    bool const isTold = word != 0;
    word |= U64{1} << at % 64;
    if (isTold) return;
    at /= 64;
  }
}

void BitmapTree::erase(U32 number) {
  std::size_t at = number;
  for (auto& level : levels_) {
    auto& word = level[at / 64];
    word &= ~(U64{1} << at % 64);
    if (word != 0) return;
    at /= 64;
  }
}

Index FirstFreeIndexAllocator::take(U32 count, U32 limit) {
  VELL_ASSERT(count == 1, "count == 1", "single indices are allocated here, not runs of ", count);
  U32 lowest = free_.lowest();
  if (lowest >= limit && !heldBack_.empty()) lowest = *heldBack_.begin();
  if (lowest >= limit) return {};
  takeAt(lowest, 1);
  return lowest;
}

bool FirstFreeIndexAllocator::takeAt(Index first, U32) {
  if (heldBack_.erase(first.value()) > 0) return true;
  if (!free_.has(first.value())) return false;
  free_.erase(first.value());
  return true;
}

void FirstFreeIndexAllocator::giveBack(Index first, U32) {
  if (candidates_.contains(first.value()))
    heldBack_.insert(first.value());
  else
    free_.insert(first.value());
}

void FirstFreeIndexAllocator::grow(U32 before, U32 size) {
  free_.grow(before, size);
  for (auto at = candidates_.lower_bound(before); at != candidates_.end() && at->first < size;
       ++at) {
    free_.erase(at->first);
    heldBack_.insert(at->first);
  }
}

void FirstFreeIndexAllocator::candidateIs(Index index) {
  if (candidates_[index.value()]++ > 0) return;
  if (index.value() >= size() || !free_.has(index.value())) return;
  free_.erase(index.value());
  heldBack_.insert(index.value());
}

void FirstFreeIndexAllocator::candidateDel(Index index) {
  auto const found = candidates_.find(index.value());
  if (found == candidates_.end() || --found->second > 0) return;
  candidates_.erase(found);
  if (heldBack_.erase(index.value()) > 0) free_.insert(index.value());
}

}  // namespace Asic
