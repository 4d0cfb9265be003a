// The compile-time properties of a table class, from which the generic logic picks its variants.

#pragma once

#include <concepts>
#include <type_traits>

#include "platform/asic/SwTable.h"

namespace Asic::Trait {

/// The client knows the key, and the key is the hardware index.
template <class T>
inline constexpr bool isKnownIndexTable =
    std::derived_from<T, SwKnownIndexTable>&& std::same_as<typename T::Key, SwTableBase::Index>;

/// The client knows the key, which is structured; the hardware's index for it is
/// the plug-in's affair.
template <class T>
inline constexpr bool isKeyTable =
    std::derived_from<T, SwKnownIndexTable> && !std::same_as<typename T::Key, SwTableBase::Index>;

/// The table writes its hardware.
template <class T>
inline constexpr bool writesHardware = T::writeAccess;

/// The table's indices come from an allocator, and its entries have handles.
template <class T>
inline constexpr bool isUnknownIndexTable = requires {
  typename T::IndexAllocator;
};

/// An entry takes rows that the table writes to the end by itself, as a block of them.
template <class T>
inline constexpr bool isBlockTable = requires {
  typename T::Rows;
};

/// Entries need entries of other tables, and wait for them in records.
template <class T>
inline constexpr bool needsEntries = requires {
  typename T::UnresolvedRecord;
};

/// An entry takes one row, which holds the index of an entry that it needs: it must not be written
/// before that one has an index, and the needed entry must not go while the row points at it. So an
/// entry leaves in steps: its row is written without a value, and deleted when that is acknowledged.
template <class T>
inline constexpr bool tableNeedsDeleteDance =
    isUnknownIndexTable<T> && !isBlockTable<T> && needsEntries<T>;

}  // namespace Asic::Trait
