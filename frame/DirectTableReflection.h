// The reflection data of a direct table: its attribute record, and the four types of its module.
//
// The attributes stand in id order from 0x202 on; a table with a structured key has neither
// `minIndex` nor `maxIndex`, and the ids behind them run two lower.

#pragma once

#include "frame/TableReflection.h"
#include "frame/Trait.h"

namespace Asic {

inline constexpr auto directTableAttributes = [] {
  using namespace AttributeWords;
  return std::to_array<Vell::AttributeData>({
      {0, "isOwnedByMergeTable", constant, isPublic, isConst, boolean, 1},
      {0, "isExternalKeyType", constant, isPublic, isConst, boolean, 1},
      {0, "setResolvedEntryBlockMetaDataDefinedByUser", constant, isPublic, isConst, number, 64},
      {0, "setResolvedEntryMetaDataDefinedByUser", constant, isPublic, isConst, number, 64},
      {0, "entryHas", operation, isPublic, isConst, boolean, 1},
      {0, "resolvedEntry", collection, isPublic, notConst, record},
      {0, "entry", collection, isPublic, isConst, record},
      {0, "syncedEntry", collection, isPublic, notConst, record},
      {0, "entryRemoveAll", operation, isPublic, notConst},
      {0, "minIndex", operation, isPublic, isConst, number, 32},
      {0, "maxIndex", operation, isPublic, isConst, number, 32},
      {0, "handleEntry", operation, notPublic, notConst},
      {0, "readAccess", constant, isPublic, isConst, boolean, 1},
      {0, "writeAccess", constant, isPublic, isConst, boolean, 1},
      {0, "entrys", value, isPublic, isConst, number, 32},
      {0, "entryRemove", operation, isPublic, notConst},
      {0, "entryCommit", operation, isPublic, notConst},
      {0, "util", operation, isPublic, isConst, text},
      {0, "doMountHwTableMountInfo", staticOperation, isPublic, notConst},
      {0, "doMountHwTableRecoveryStatus", staticOperation, isPublic, notConst},
      {0, "doRecoverHwTable", staticOperation, isPublic, notConst},
      {0, "autoCommitSyncedEntries", operation, isPublic, notConst},
      {0, "cleanup", operation, notPublic, notConst},
  });
}();

/// The attributes of direct tables with their ids, for tables with or without an index key.
template <bool keyIsHwIndex>
inline constexpr auto numberedDirectTableAttributes = [] {
  constexpr std::size_t left = keyIsHwIndex ? 0 : 2;
  std::array<Vell::AttributeData, directTableAttributes.size() - left> chosen{};
  std::ranges::copy_if(directTableAttributes, chosen.begin(), [](auto const& each) {
    return keyIsHwIndex || (each.name != "minIndex" && each.name != "maxIndex");
  });
  return Vell::numberedFrom(0x202, chosen);
}();

template <class T>
struct DirectTableReflection {
  using Key = KeyValue<typename T::Key>;
  using Entry = EntryReflection<typename T::Entry>;
  using Hooks = HookReflection<T, 0x208>;

  static constexpr auto attributes = numberedDirectTableAttributes<Trait::isKnownIndexTable<T>>;

  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    if (attribute.name == "isExternalKeyType") return Trait::isKeyTable<T>;
    return valueOfTable<T>(object, attribute);
  }

  static constexpr Operation<T> operations[] = {
      {"entryHas", 1,
       [](T& table, Arguments with) { return table.entryHas(Key::fromValue(with[0])); }},
      {"entryRemoveAll", 0, [](T& table, Arguments) { table.entryRemoveAll(); }},
      // These two are not called in a table without an index key: it has no such attributes.
      {"minIndex", 0,
       [](auto& table, Arguments) -> U32 {
         if constexpr (Trait::isKnownIndexTable<T>) return table.minIndex();
         return 0;
       }},
      {"maxIndex", 0,
       [](auto& table, Arguments) -> U32 {
         if constexpr (Trait::isKnownIndexTable<T>) return table.maxIndex();
         return 0;
       }},
      {"entryRemove", 1,
       [](T& table, Arguments with) { table.entryRemove(Key::fromValue(with[0])); }},
      {"entryCommit", 2,
       [](T& table, Arguments with) {
         table.entryCommit(Key::fromValue(with[0]), Entry::fromValue(with[1]));
       }},
      utilOperation<T>,
      {"autoCommitSyncedEntries", 0, [](T& table, Arguments) { table.autoCommitSyncedEntries(); }},
  };

  template <class Use>
  static void show(T& table, std::string_view name, Use const& use) {
    if (name == "syncedEntry")
      use(table.syncedEntryMap(), &Key::toValue, elementValue);
    else if (name == "entry")
      use(EntriesOf<T>{table}, &Key::toValue, elementValue);
    else
      use(table.resolvedEntryMap(), &Key::toValue, elementValue);
  }

  static constexpr Vell::TypeData const* types[] = {&Entry::type, &Hooks::type,
                                                    &UtilLoaderReflection<T>::type,
                                                    &tableType<T, DirectTableReflection>};
  static inline constinit Vell::ModuleInspectData module{T::names.module, types};
};

}  // namespace Asic
