// Which generic logic a table class gets. The choice is made here and nowhere else, at compile
// time, from the table's traits:
//
//   if the table only reads its hardware:                         ReadAccessor
//   if the client knows the key (an index, or a structured key):  DirectAccessor
//   if an allocator gives the index, and an entry takes rows:     BlockAccessor
//   if an allocator gives the index, and entries need others:     SelectiveGroupAccessor
//   if an allocator gives the index:                              GroupAccessor
//
// A table that needs something else is described by a trait; nothing tests for a concrete table.

#pragma once

#include "frame/BlockAccessor.h"
#include "frame/DirectAccessor.h"
#include "frame/GroupAccessor.h"
#include "frame/ReadAccessor.h"
#include "frame/SelectiveGroupAccessor.h"
#include "frame/Trait.h"

namespace Asic {

template <class T>
concept ReadTableClass = Trait::isKnownIndexTable<T> && !Trait::writesHardware<T>;

template <class T>
concept DirectTableClass = Trait::writesHardware<T> &&
    (Trait::isKnownIndexTable<T> || Trait::isKeyTable<T>);

template <class T>
concept BlockTableClass =
    Trait::writesHardware<T> && Trait::isUnknownIndexTable<T> && Trait::isBlockTable<T>;

template <class T>
concept GroupTableClass =
    Trait::writesHardware<T> && Trait::isUnknownIndexTable<T> && !Trait::isBlockTable<T>;

template <class T>
concept SelectiveGroupTableClass = GroupTableClass<T> && Trait::tableNeedsDeleteDance<T>;

/// Names the variant for `T`; a table class of no known kind does not compile.
template <class T>
struct AccessorVariant;

template <ReadTableClass T>
struct AccessorVariant<T> {
  using Type = ReadAccessor<T>;
};

template <DirectTableClass T>
struct AccessorVariant<T> {
  using Type = DirectAccessor<T>;
};

template <BlockTableClass T>
struct AccessorVariant<T> {
  using Type = BlockAccessor<T>;
};

template <GroupTableClass T>
struct AccessorVariant<T> {
  using Type = GroupAccessor<T>;
};

template <SelectiveGroupTableClass T>
struct AccessorVariant<T> {
  using Type = SelectiveGroupAccessor<T>;
};

template <class T>
class SwTable::Accessor : public AccessorVariant<T>::Type {
  using AccessorVariant<T>::Type::Type;
};

}  // namespace Asic
