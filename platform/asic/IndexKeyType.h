// What an index allocator does with keys of one class without knowing it.

#pragma once

#include "platform/vell/Types.h"

namespace Asic {

struct IndexKeyType {
  void* (*copy)(void const* key);
  void (*destroy)(void* key);
  U32 (*hash)(void const* key, U32 seed);
  bool (*isEq)(void const* a, void const* b);
  /// Indices that the key takes if its type is allocated in blocks.
  U32 (*blockSize)(void const* key);
};

/// For a class with copies, equality, `hash(seed)`, and `getBlockSize()` if its keys are blocks.
template <class Key>
inline constexpr IndexKeyType indexKeyType{
    .copy = [](void const* key) -> void* { return new Key(*static_cast<Key const*>(key)); },
    .destroy = [](void* key) { delete static_cast<Key*>(key); },
    .hash = [](void const* key, U32 seed) { return static_cast<Key const*>(key)->hash(seed); },
    .isEq = [](void const* a, void const* b) -> bool {
      return *static_cast<Key const*>(a) == *static_cast<Key const*>(b);
    },
    .blockSize = [](void const* key) -> U32 {
      if constexpr (requires { static_cast<Key const*>(key)->getBlockSize(); })
        return static_cast<Key const*>(key)->getBlockSize();
      else
        return 1;
    }};

}  // namespace Asic
