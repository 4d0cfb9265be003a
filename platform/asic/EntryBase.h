// The base of every table entry.

#pragma once

#include "platform/vell/Types.h"

namespace Asic {

class EntryBase {
 public:
  virtual ~EntryBase() = default;
  /// Hardware rows that the entry takes: 1 unless a class of blocks says otherwise.
  virtual U32 getBlockSize() const { return 1; }

  U32 blockSize() const { return getBlockSize(); }
  /// Entries are never keys of a map: this serves the reflection interface alone, and mixes nothing
  /// but the seed and the block size, which equal entries share.
  U32 hash(U32 seed) const;

 protected:
  EntryBase() = default;
  EntryBase(EntryBase const&) = default;
  EntryBase(EntryBase&&) = default;
  EntryBase& operator=(EntryBase const&) = default;
  EntryBase& operator=(EntryBase&&) = default;
};

}  // namespace Asic
