// An allocator of single indices: a new key gets the lowest free one that is no candidate for the old
// place of another entry, or, when there is none, the lowest of those.
//
// A hierarchical bitmap: a bit of a word of the lowest level is a free index, a bit of a higher
// level a word below that has one. Taking and giving back look at one word a level, four for a
// million indices, and scan nothing at any occupancy.

#pragma once

#include <map>
#include <set>
#include <vector>

#include "platform/asic/GenericIndexAllocator.h"

namespace Asic {

/// A set of numbers below a size, by words of 64 bits and summaries of them.
class BitmapTree {
 public:
  static constexpr U32 none = 0xFFFFFFFF;

  /// Numbers from `before` up to `size` join the set.
  void grow(U32 before, U32 size);
  /// The lowest number; `none` if there is none.
  U32 lowest() const;
  bool has(U32 number) const {
    return number / 64 < levels_[0].size() && (levels_[0][number / 64] >> number % 64 & 1) != 0;
  }
  void insert(U32 number);
  void erase(U32 number);

 private:
  std::vector<std::vector<U64>> levels_{1};  ///< level 0 holds the numbers themselves
};

class FirstFreeIndexAllocator : public GenericIndexAllocator {
 public:
  void candidateIs(Index index) override;
  void candidateDel(Index index) override;

 private:
  Index take(U32 count, U32 limit) override;
  bool takeAt(Index first, U32 count) override;
  void giveBack(Index first, U32 count) override;
  void grow(U32 before, U32 size) override;

  BitmapTree free_;                ///< but those held back
  std::map<U32, U32> candidates_;  ///< entries that may have their place there, by index
  std::set<U32> heldBack_;         ///< candidates that are free
};

}  // namespace Asic
