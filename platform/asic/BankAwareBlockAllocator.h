// An allocator of blocks: runs of consecutive indices that never cross the edge of a bank of the
// hardware's memory.
//
// A new block gets the smallest free run that is large enough, over all banks, and the lowest of
// those: banks fill one after the other as far as blocks fit, and large runs stay whole the longest.
// Small blocks are cut from the high end of a run and larger ones from the low end, so that small
// ones that come and go do not cut up the space of large ones.
//
// Free runs are kept by place and by length: what a block costs grows with the logarithm of the
// number of free runs, and never with the space.

#pragma once

#include <map>
#include <set>
#include <utility>

#include "platform/asic/GenericIndexAllocator.h"

namespace Asic {

class BankAwareBlockAllocator : public GenericIndexAllocator {
 public:
  /// The type of keys that take a block; keys of other types take one index each.
  void splAllocationIs(Vell::ZarnType keyType) { blockType_ = keyType; }
  /// Into how many equal banks the indices are divided, the last one being perhaps shorter. Set
  /// before anything is allocated; the same number again is nothing. If the hardware table grows
  /// afterwards, banks of that length are added at its end.
  void bankCountIs(U32 banks);
  U32 bankLength() const { return bankLength_; }
  /// Blocks of up to so many rows are cut from the high end.
  void smallBlockRowsIs(U32 rows) { smallBlockRows_ = rows; }

  /// The key's index if it has one, else the first of a new run as long as its block; exhausted if
  /// there is none, and for a block without rows.
  Index newIndexForBlock(Vell::ZarnType keyType, void const* key, SwTable const* asking = nullptr);
  /// The length of the longest block that there is room for.
  U32 longestFreeRun() const { return byLength_.empty() ? 0 : byLength_.rbegin()->first; }

 private:
  using Runs = std::map<U32, U32>;  ///< first index to length

  Index take(U32 count, U32 limit) override;
  bool takeAt(Index first, U32 count) override;
  void giveBack(Index first, U32 count) override;
  void grow(U32 before, U32 size) override;
  U32 runOf(Vell::ZarnType keyType, IndexKeyType const& keys, void const* key) const override;

  void runIs(U32 first, U32 length);
  void runDel(Runs::iterator run);
  void cut(Runs::iterator run, U32 first, U32 count);
  bool isEdge(U32 index) const { return index % bankLength_ == 0; }

  Vell::ZarnType blockType_;
  U32 banks_ = 1;
  U32 bankLength_ = 1;
  U32 smallBlockRows_ = 0;
  Runs byPlace_;
  std::set<std::pair<U32, U32>> byLength_;  ///< length and first index
};

}  // namespace Asic
