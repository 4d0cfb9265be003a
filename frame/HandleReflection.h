// The reflection data of what tables with entry handles share: the handles, and the hook class.

#pragma once

#include <array>

#include "frame/FieldEntry.h"
#include "frame/HandleTable.h"
#include "frame/TableReflection.h"

namespace Asic {

/// The hook class of a table whose hooks are told rows by index.
template <class T>
struct RowUtilReflection {
  static constexpr auto attributes = [] {
    using enum Vell::AttributeKind;
    using enum Vell::AttributeAccess;
    using enum Vell::AttributeConstness;
    using enum Vell::ValueShape;
    return std::to_array<Vell::AttributeData>({
        {0x202, "minIndex", operation, isPublic, isConst, number, 32},
        {0x203, "maxIndex", operation, isPublic, isConst, number, 32},
        {0x204, "hwTableEntryIs", operation, notPublic, isConst},
        {0x205, "hwTableEntryDel", operation, notPublic, isConst},
        {0x206, "updateHwIndexRefCountTracker", operation, notPublic, isConst},
        {0x207, "compareHwEntries", operation, notPublic, isConst, boolean, 1},
        {0x209, "syncEntries", operation, notPublic, isConst},
        {0x20a, "getHwIndex", staticOperation, notPublic, notConst, number, 32},
        {0x20b, "hwIndexForDependentField", operation, notPublic, isConst, number, 32},
        {0x20c, "dependentFieldValueToHwIndex", operation, isPublic, isConst, number, 32},
    });
  }();

  static Vell::Value call(void* object, Vell::AttributeData const& attribute,
                          std::span<Vell::Value const> arguments) {
    auto const& util = static_cast<typename T::Util const&>(*static_cast<Vell::Node*>(object));
    if (attribute.name == "dependentFieldValueToHwIndex") {
      needArguments(arguments, 1);
      auto const field = KeyValue<SwTableBase::Index>::fromValue(arguments[0]);
      return U64{util.dependentFieldValueToHwIndex(field.value()).value()};
    }
    needArguments(arguments, 0);
    return U64{attribute.name == "minIndex" ? util.minIndex() : util.maxIndex()};
  }

  static constexpr Vell::TypeData type{NestedName<T, "::Util">::view, attributes, {.call = &call}};
};

/// A table's handles: their attributes, and the queue of pending entries as an operation would use
/// it. `Key` goes through the interface as `KeyOf` says.
template <class T, class KeyOf>
struct HandleReflection {
  using Handle = typename T::EntryHandle;
  using Entry = typename T::Entry;
  static constexpr HandleFields fields = T::handleFields;
  static constexpr bool hasBlockSize = fields.blockSize != 0;

  static constexpr auto attributes = [] {
    using enum Vell::AttributeKind;
    using enum Vell::AttributeAccess;
    using enum Vell::AttributeConstness;
    using enum Vell::ValueShape;
    std::array<Vell::AttributeData, 8 + hasBlockSize> all{};
    std::size_t next = 0;
    all[next++] = {fields.key, "key", value, isPublic, isConst, KeyOf::shape};
    all[next++] = {fields.swTable, "swTable", value, isPublic, isConst, pointer, 64};
    if (hasBlockSize)
      all[next++] = {fields.blockSize, "blockSize", field, isPublic, notConst, number, 32};
    all[next++] = {
        fields.pendingEntry, "pendingEntry", collection, isPublic, notConst, record, 0, 32};
    all[next++] = {fields.cleanup, "cleanup", operation, notPublic, notConst};
    // What the queue offers goes by its own names, under ids of the interface's own.
    all[next++] = {0x1f0, "pendingEntryEnq", operation, isPublic, notConst};
    all[next++] = {0x1f1, "pendingEntryDeq", operation, isPublic, notConst, record};
    all[next++] = {0x1f2, "pendingEntryFront", operation, isPublic, isConst, record};
    all[next++] = {0x1f3, "pendingEntryBack", operation, isPublic, isConst, record};
    return all;
  }();

  static Handle& handleOf(void const* object) {
    return static_cast<Handle&>(*static_cast<Vell::Node*>(const_cast<void*>(object)));
  }
  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    auto const& handle = handleOf(object);
    if (attribute.id == fields.key) return KeyOf::toValue(handle.key());
    if (hasBlockSize && attribute.id == fields.blockSize) return U64{handle.blockSize()};
    return U64{reinterpret_cast<std::uintptr_t>(handle.swTable())};
  }
  static void set(void* object, Vell::AttributeData const&, Vell::Value const& value) {
    handleOf(object).blockSizeIs(static_cast<U32>(*value.number()));
  }
  static Vell::Value call(void* object, Vell::AttributeData const& attribute,
                          std::span<Vell::Value const> arguments) {
    auto& handle = handleOf(object);
    if (attribute.name == "pendingEntryEnq") {
      needArguments(arguments, 1);
      handle.pendingEntryEnq(EntryReflection<Entry>::fromValue(arguments[0]));
      return {};
    }
    needArguments(arguments, 0);
    return EntryReflection<Entry>::toValue(
        attribute.name == "pendingEntryDeq"     ? handle.pendingEntryDeq()
        : attribute.name == "pendingEntryFront" ? handle.pendingEntryFront()
                                                : handle.pendingEntryBack());
  }
  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const&) {
    auto const& queue = handleOf(object).pendingEntry();
    return {queue.count(), queue.lastSequence()};
  }

  static constexpr Vell::TypeData type{
      NestedName<T, "::EntryHandle">::view,
      attributes,
      {.get = &get, .set = hasBlockSize ? &set : nullptr, .call = &call, .figures = &figures}};
};

}  // namespace Asic
