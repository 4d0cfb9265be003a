// The keys of an index allocator, each with the indices that it holds, by the hash of the key.
//
// Open addressing with linear probing, at most half full. A look-up reads one line of slots and the
// record that it finds; in a space of a million indices, where each step is a cache miss, chains
// of nodes cost twice as much. Records do not move.

#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "platform/asic/Index.h"
#include "platform/asic/IndexKeyType.h"
#include "platform/vell/ModuleInspectData.h"

namespace Asic {

/// A key that holds indices; owns its copy of the key.
struct IndexRecord {
  Vell::ZarnType type;
  IndexKeyType const* keys;
  void* key;
  U32 hash;
  Index first;
  U32 count;

  IndexRecord(Vell::ZarnType keyType, IndexKeyType const* ops, void const* value, U32 keyHash,
              Index index, U32 run)
      : type(keyType), keys(ops), key(ops->copy(value)), hash(keyHash), first(index), count(run) {}
  IndexRecord(IndexRecord const&) = delete;
  IndexRecord& operator=(IndexRecord const&) = delete;
  ~IndexRecord() { keys->destroy(key); }

  bool isOf(Vell::ZarnType keyType, void const* other) const {
    return type == keyType && keys->isEq(key, other);
  }
};

class IndexRecords {
 public:
  IndexRecords() = default;
  /// Leaves `from` empty.
  IndexRecords(IndexRecords&& from) noexcept
      : slots_(std::exchange(from.slots_, {})),
        used_(std::exchange(from.used_, 0)),
        shift_(from.shift_) {}
  ~IndexRecords();

  /// Null if the key has no record.
  IndexRecord* find(Vell::ZarnType type, void const* key, U32 hash) const;
  /// The key has none yet.
  void insert(std::unique_ptr<IndexRecord> record);
  /// The record is one of these.
  std::unique_ptr<IndexRecord> extract(IndexRecord const& record);

  template <class Visitor>
  void forEach(Visitor&& visitor) const {
    for (auto const& slot : slots_)
      if (slot.record) visitor(*slot.record);
  }

 private:
  struct Slot {
    IndexRecord* record = nullptr;
    U32 hash = 0;  ///< the record's, so that a look-up passes by the records of others
  };

  /// Where a record of that hash lies if the slots before it are not taken.
  std::size_t home(U32 hash) const { return hash * U64{0x9E3779B97F4A7C15} >> shift_; }
  std::size_t next(std::size_t slot) const { return (slot + 1) & (slots_.size() - 1); }
  void put(Slot const& slot);
  void grow();

  std::vector<Slot> slots_;  ///< a power of two of them, or none
  std::size_t used_ = 0;
  U32 shift_ = 64;
};

}  // namespace Asic
