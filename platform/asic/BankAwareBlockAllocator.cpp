#include "platform/asic/BankAwareBlockAllocator.h"

#include <algorithm>

#include "platform/vell/Assert.h"

namespace Asic {

void BankAwareBlockAllocator::bankCountIs(U32 banks) {
  if (banks == banks_) return;
  VELL_ASSERT(banks > 0 && !hasUsedIndices(), "banks > 0 && !hasUsedIndices()", banks,
              " banks are asked for, and ", totalUsedIndices(), " indices are in use in ", banks_);
  banks_ = banks;
  grow(0, size());
}

// While nothing is allocated the edges follow the size; then they stay where they are.
void BankAwareBlockAllocator::grow(U32 before, U32 size) {
  if (!hasUsedIndices()) {
    byPlace_.clear();
    byLength_.clear();
    bankLength_ = std::max(1u, static_cast<U32>((U64{size} + banks_ - 1) / banks_));
    before = 0;
  }
  while (before < size) {
    U32 const end = std::min(size, (before / bankLength_ + 1) * bankLength_);
    giveBack(before, end - before);
    before = end;
  }
}

U32 BankAwareBlockAllocator::runOf(Vell::ZarnType keyType, IndexKeyType const& keys,
                                   void const* key) const {
  return keyType == blockType_ ? keys.blockSize(key) : 1;
}

Index BankAwareBlockAllocator::newIndexForBlock(Vell::ZarnType keyType, void const* key,
                                                SwTable const* asking) {
  return newRun(keyType, key, getBlockSize(keyType, key), asking);
}

void BankAwareBlockAllocator::runIs(U32 first, U32 length) {
  if (length == 0) return;
  byPlace_.emplace(first, length);
  byLength_.emplace(length, first);
}

void BankAwareBlockAllocator::runDel(Runs::iterator run) {
  byLength_.erase({run->second, run->first});
  byPlace_.erase(run);
}

/// Takes the run's indices from `first` on; what lies before and behind stays free.
void BankAwareBlockAllocator::cut(Runs::iterator run, U32 first, U32 count) {
  auto const [from, length] = *run;
  runDel(run);
  runIs(from, first - from);
  runIs(first + count, from + length - (first + count));
}

Index BankAwareBlockAllocator::take(U32 count, U32 limit) {
  // The first one, unless it lies beyond the limit.
  auto fitting = byLength_.lower_bound({count, 0});
  while (fitting != byLength_.end() && U64{fitting->second} + count > limit) ++fitting;
  if (fitting == byLength_.end()) return {};
  auto const [length, from] = *fitting;
  U32 const end = std::min(from + length, limit);
  U32 const first = count <= smallBlockRows_ ? end - count : from;
  cut(byPlace_.find(from), first, count);
  return first;
}

bool BankAwareBlockAllocator::takeAt(Index first, U32 count) {
  auto run = byPlace_.upper_bound(first.value());
  if (run == byPlace_.begin()) return false;
  --run;
  // A free run lies within one bank, and so does all that lies within it.
  if (first.value() + count > run->first + run->second) return false;
  cut(run, first.value(), count);
  return true;
}

void BankAwareBlockAllocator::giveBack(Index first, U32 count) {
  U32 from = first.value(), end = from + count;
  auto const behind = byPlace_.lower_bound(end);
  if (behind != byPlace_.end() && behind->first == end && !isEdge(end)) {
    end += behind->second;
    runDel(behind);
  }
  auto before = byPlace_.lower_bound(from);
  if (before != byPlace_.begin() && !isEdge(from) &&
      std::prev(before)->first + std::prev(before)->second == from) {
    --before;
    from = before->first;
    runDel(before);
  }
  runIs(from, end - from);
}

}  // namespace Asic
