// The reflection data of a direct table: its attribute record, and the four types of its module.
//
// The attributes stand in id order from 0x202 on; a table with a structured key has neither
// `minIndex` nor `maxIndex`, and the ids behind them run two lower.

#pragma once

#include <array>
#include <string_view>

#include "containers/HashMap2018Iterator.h"
#include "frame/FieldEntry.h"
#include "frame/TableReflection.h"
#include "frame/Trait.h"
#include "platform/vell/Inspect.h"

namespace Asic {

/// One attribute of every direct table, before it has its id.
struct DirectTableAttribute {
  std::string_view name;
  Vell::AttributeKind kind;
  Vell::AttributeAccess access;
  Vell::AttributeConstness constness;
  Vell::ValueShape shape = Vell::ValueShape::nothing;
  U8 bits = 0;
};

inline constexpr auto directTableAttributes = [] {
  using enum Vell::AttributeKind;
  using enum Vell::AttributeAccess;
  using enum Vell::AttributeConstness;
  using enum Vell::ValueShape;
  return std::to_array<DirectTableAttribute>({
      {"isOwnedByMergeTable", constant, isPublic, isConst, boolean, 1},
      {"isExternalKeyType", constant, isPublic, isConst, boolean, 1},
      {"setResolvedEntryBlockMetaDataDefinedByUser", constant, isPublic, isConst, number, 64},
      {"setResolvedEntryMetaDataDefinedByUser", constant, isPublic, isConst, number, 64},
      {"entryHas", operation, isPublic, isConst, boolean, 1},
      {"resolvedEntry", collection, isPublic, notConst, record},
      {"entry", collection, isPublic, isConst, record},
      {"syncedEntry", collection, isPublic, notConst, record},
      {"entryRemoveAll", operation, isPublic, notConst},
      {"minIndex", operation, isPublic, isConst, number, 32},
      {"maxIndex", operation, isPublic, isConst, number, 32},
      {"handleEntry", operation, notPublic, notConst},
      {"readAccess", constant, isPublic, isConst, boolean, 1},
      {"writeAccess", constant, isPublic, isConst, boolean, 1},
      {"entrys", value, isPublic, isConst, number, 32},
      {"entryRemove", operation, isPublic, notConst},
      {"entryCommit", operation, isPublic, notConst},
      {"util", operation, isPublic, isConst, text},
      {"doMountHwTableMountInfo", staticOperation, isPublic, notConst},
      {"doMountHwTableRecoveryStatus", staticOperation, isPublic, notConst},
      {"doRecoverHwTable", staticOperation, isPublic, notConst},
      {"autoCommitSyncedEntries", operation, isPublic, notConst},
      {"cleanup", operation, notPublic, notConst},
  });
}();

/// The attributes of direct tables with their ids, for tables with or without an index key.
template <bool keyIsHwIndex>
inline constexpr auto numberedDirectTableAttributes = [] {
  constexpr std::size_t left = keyIsHwIndex ? 0 : 2;
  std::array<Vell::AttributeData, directTableAttributes.size() - left> numbered{};
  U32 id = 0x202;
  for (auto const& each : directTableAttributes) {
    if (!keyIsHwIndex && (each.name == "minIndex" || each.name == "maxIndex")) continue;
    numbered[id - 0x202] = {id,         each.name, each.kind, each.access, each.constness,
                            each.shape, each.bits};
    ++id;
  }
  return numbered;
}();

/// The hook class answers its three public operations.
template <class T>
struct DirectUtilReflection {
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
        {0x208, "syncEntries", operation, notPublic, isConst},
        {0x209, "getHwIndex", staticOperation, notPublic, notConst, number, 32},
        {0x20a, "hwIndexForDependentField", operation, notPublic, isConst, number, 32},
        {0x20b, "dependentFieldValueToHwIndex", operation, isPublic, isConst, number, 32},
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
};

template <class T>
struct DirectTableReflection {
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Arguments = std::span<Vell::Value const>;

  static T& tableOf(void const* object) {
    auto* node = static_cast<Vell::Node*>(const_cast<void*>(object));
    return static_cast<T&>(*node);
  }

  static Vell::Ptr<Vell::Node> makeTable(Vell::String const&, Arguments arguments) {
    if (!arguments.empty()) Vell::throwNewEntityArgsException(tableType, arguments.size());
    return new T;
  }

  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    if (attribute.name == "entrys") return U64{tableOf(object).entrys()};
    if (attribute.name == "readAccess") return T::readAccess;
    if (attribute.name == "writeAccess") return T::writeAccess;
    if (attribute.name == "isExternalKeyType") return Trait::isKeyTable<T>;
    return attribute.shape == Vell::ValueShape::boolean ? Vell::Value(false) : Vell::Value(U64{0});
  }

  static Vell::Value call(void* object, Vell::AttributeData const& attribute, Arguments arguments) {
    auto& table = tableOf(object);
    auto const name = attribute.name;
    if (name == "entryCommit") {
      needArguments(arguments, 2);
      table.entryCommit(KeyValue<Key>::fromValue(arguments[0]),
                        EntryReflection<Entry>::fromValue(arguments[1]));
    } else if (name == "entryHas") {
      needArguments(arguments, 1);
      return table.entryHas(KeyValue<Key>::fromValue(arguments[0]));
    } else if (name == "entryRemove") {
      needArguments(arguments, 1);
      table.entryRemove(KeyValue<Key>::fromValue(arguments[0]));
    } else {
      needArguments(arguments, 0);
      return callWithoutArguments(table, name);
    }
    return {};
  }

  static Vell::Value callWithoutArguments(T& table, std::string_view name) {
    if constexpr (Trait::isKnownIndexTable<T>) {
      if (name == "minIndex") return U64{table.minIndex()};
      if (name == "maxIndex") return U64{table.maxIndex()};
    }
    if (name == "entryRemoveAll") table.entryRemoveAll();
    if (name == "autoCommitSyncedEntries") table.autoCommitSyncedEntries();
    // The hooks' object itself stays behind the interface; its name tells which one it is.
    if (name == "util" && table.util()) return Vell::Value(table.util()->featureName());
    return {};
  }

  static void walk(void const* object, Vell::AttributeData const& attribute,
                   Vell::TypeFunctions::Visitor const& visitor) {
    auto& table = tableOf(object);
    Vell::Ptr<T> const held(&table);
    if (attribute.name == "syncedEntry") {
      for (Zarn::HashMap2018IteratorGeneric at(table.syncedEntryMap()); at; at.advance())
        visitor(KeyValue<Key>::toValue(at.currNodeMaybeStale()->key()),
                EntryReflection<Entry>::toValue(at.currNodeMaybeStale()->value_));
      return;
    }
    bool const valuesOnly = attribute.name == "entry";
    for (Zarn::HashMap2018IteratorGeneric at(table.resolvedEntryMap()); at; at.advance()) {
      auto const key = KeyValue<Key>::toValue(at.currNodeMaybeStale()->key());
      auto const& value = at.currNodeMaybeStale()->value_;
      if (value)
        visitor(key, EntryReflection<Entry>::toValue(*value));
      else if (!valuesOnly)
        visitor(key, {});
    }
  }

  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const& attribute) {
    auto const& table = tableOf(object);
    if (attribute.name == "syncedEntry")
      return {table.syncedEntryMap().count(), table.syncedEntryMap().version()};
    auto const& resolved = table.resolvedEntryMap();
    if (attribute.name == "resolvedEntry") return {resolved.count(), resolved.version()};
    U32 withValue = 0;
    using Walk = Zarn::HashMap2018UnsafeIteratorConstGeneric<typename T::ResolvedEntryMap>;
    for (Walk at(resolved); at; ++at) withValue += at.currNode()->value_.has_value();
    return {withValue, resolved.version()};
  }

  static constexpr Vell::TypeData utilType{NestedName<T, "::Util">::view,
                                           DirectUtilReflection<T>::attributes,
                                           {.call = &DirectUtilReflection<T>::call}};
  static constexpr Vell::TypeData tableType{
      T::names.qualified,
      numberedDirectTableAttributes<Trait::isKnownIndexTable<T>>,
      {.makeNode = &makeTable, .get = &get, .call = &call, .walk = &walk, .figures = &figures}};
  static constexpr Vell::TypeData const* types[] = {&EntryReflection<Entry>::type, &utilType,
                                                    &UtilLoaderReflection<T>::type, &tableType};
  static inline constinit Vell::ModuleInspectData module{T::names.module, types};
};

}  // namespace Asic
