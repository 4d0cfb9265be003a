// The reflection data of a group table: its attribute record, and the types of its module.

#pragma once

#include "frame/GroupTable.h"
#include "frame/HandleReflection.h"
#include "frame/SelectiveGroupTable.h"

namespace Asic {

/// A key on its way through the reflection interface: its text.
template <class Key>
struct TextKeyOf : KeyValue<Key> {
  static constexpr auto shape = Vell::ValueShape::text;
};

/// The record of an entry that waits.
template <class T>
struct UnresolvedGroupEntryReflection {
  using Record = typename T::UnresolvedEntry;
  using Entry = EntryReflection<typename T::Entry>;

  static constexpr auto attributes = [] {
    using namespace AttributeWords;
    return std::to_array<Vell::AttributeData>({
        {Record::keyField, "key", value, isPublic, isConst, text},
        {Record::entryField, "entry", field, isPublic, notConst, record},
    });
  }();
  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    auto const& record = nodeOf<Record>(object);
    if (attribute.id == Record::keyField) return TextKeyOf<typename T::Key>::toValue(record.key());
    return Entry::toValue(record.entry());
  }
  static void set(void* object, Vell::AttributeData const&, Vell::Value const& value) {
    Vell::Ptr<Record> const record(&nodeOf<Record>(object));
    auto const entry = Entry::fromValue(value);
    if (Vell::Ptr<SwTable> const table = record->swTable())
      static_cast<T&>(*table).unresolvedEntryIs(*record, entry);
    else
      record->entryIs(entry);
  }
  static constexpr Vell::TypeData type{
      NestedName<T, "::UnresolvedEntry">::view, attributes, {.get = &get, .set = &set}};
};

/// The attributes of a table whose entries wait, made of those of a table whose entries do not: two
/// more, and all of them numbered through.
template <std::size_t count>
constexpr auto withUnresolvedEntries(std::array<Vell::AttributeData, count> const& group) {
  using namespace AttributeWords;
  std::array<Vell::AttributeData, count + 2> all{};
  std::size_t next = 0;
  for (auto const& each : group) {
    if (each.name == "entryHandle")
      all[next++] = {0, "unresolvedEntry", collection, isPublic, notConst, record};
    if (each.name == "syncedEntry")
      all[next++] = {0, "entryInHwTable", operation, isPublic, isConst, boolean, 1};
    all[next++] = each;
  }
  return Vell::numberedFrom(group.front().id, all);
}

template <class T>
struct GroupTableReflection {
  static constexpr bool entriesWait = Trait::tableNeedsDeleteDance<T>;
  using Key = TextKeyOf<typename T::Key>;
  using Entry = EntryReflection<typename T::Entry>;

  static constexpr auto attributes = [] {
    using namespace AttributeWords;
    constexpr auto group = std::to_array<Vell::AttributeData>({
        {0x282, "indexAllocator", value, isPublic, isConst, pointer, 64},
        {0x283, "writeResponseSm", value, isPublic, isConst, pointer, 64},
        {0x284, "setResolvedEntryBlockMetaDataDefinedByUser", constant, isPublic, isConst, number,
         64},
        {0x285, "setResolvedEntryMetaDataDefinedByUser", constant, isPublic, isConst, number, 64},
        {0x286, "entryHandle", collection, isPublic, notConst, pointer, 64},
        {0x287, "entryHas", operation, isPublic, isConst, boolean, 1},
        {0x288, "resolvedEntry", collection, isPublic, notConst, record},
        {0x289, "entry", collection, isPublic, isConst, record},
        {0x28a, "syncedEntry", collection, isPublic, notConst, record, 0, 32},
        {0x28b, "entryRemoveAll", operation, isPublic, notConst},
        {0x28c, "handleEntry", operation, notPublic, notConst},
        {0x28d, "readAccess", constant, isPublic, isConst, boolean, 1},
        {0x28e, "writeAccess", constant, isPublic, isConst, boolean, 1},
        {0x28f, "entryWriteAtIndex", operation, isPublic, notConst, pointer, 64},
        {0x290, "entrys", value, isPublic, isConst, number, 32},
        {0x291, "entryRemove", operation, isPublic, notConst},
        {0x292, "entryCommit", operation, isPublic, notConst, pointer, 64},
        {0x293, "entryRef", operation, isPublic, notConst, pointer, 64},
        {0x294, "hwIndexOnlyForCrossAgentCommunication", operation, isPublic, isConst, number, 32},
        {0x295, "swKeyFromHwIndex", operation, isPublic, isConst, text},
        {0x296, "doInitAllocator", operation, notPublic, notConst},
        {0x297, "cleanup", operation, notPublic, notConst},
        {0x298, "util", operation, isPublic, isConst, text},
        {0x299, "doMountHwTableMountInfo", staticOperation, isPublic, notConst},
        {0x29a, "doMountHwTableRecoveryStatus", staticOperation, isPublic, notConst},
        {0x29b, "doRecoverHwTable", staticOperation, isPublic, notConst},
    });
    if constexpr (entriesWait)
      return withUnresolvedEntries(group);
    else
      return group;
  }();

  static constexpr auto get = &valueOfTable<T>;
  static T& started(T& table) {
    if (!table.indexAllocator())
      throw Vell::ArgumentError("the table has no index allocator yet; start it first");
    return table;
  }
  static constexpr Operation<T> operations[] = {
      {"entryHas", 1,
       [](T& table, Arguments with) { return table.entryHas(Key::fromValue(with[0])); }},
      {"entryInHwTable", 1,
       [](T& table, Arguments with) { return table.entryInHwTable(Key::fromValue(with[0])); }},
      {"entryRemoveAll", 0, [](T& table, Arguments) { table.entryRemoveAll(); }},
      {"entryWriteAtIndex", 3,
       [](T& table, Arguments with) {
         auto const key = Key::fromValue(with[1]);
         auto const& entry = Entry::fromValue(with[2]);
         return addressValue(started(table).entryWriteAtIndex(indexOf(with[0]), key, entry).get());
       }},
      {"entryRemove", 1,
       [](T& table, Arguments with) { table.entryRemove(Key::fromValue(with[0])); }},
      {"entryCommit", 2,
       [](T& table, Arguments with) {
         auto const key = Key::fromValue(with[0]);
         auto const& entry = Entry::fromValue(with[1]);
         return addressValue(started(table).entryCommit(key, entry).get());
       }},
      {"entryRef", Vell::anyArguments, refuseReference<T>},
      {"hwIndexOnlyForCrossAgentCommunication", 1,
       [](T& table, Arguments with) {
         return table.hwIndexOnlyForCrossAgentCommunication(Key::fromValue(with[0])).value();
       }},
      {"swKeyFromHwIndex", 1,
       [](T& table, Arguments with) {
         auto const key = table.swKeyFromHwIndex(indexOf(with[0]));
         return key ? Key::toValue(*key) : Vell::Value();
       }},
      utilOperation<T>,
  };

  template <class Use>
  static void show(T& table, std::string_view name, Use const& use) {
    if constexpr (entriesWait)
      if (name == "unresolvedEntry")
        return use(table.unresolvedMap(), &Key::toValue,
                   [](auto const& record) { return Entry::toValue(record->entry()); });
    if (name == "syncedEntry")
      use(table.syncedEntryMap(), indexValue, elementValue);
    else if (name == "entryHandle")
      use(table.entryHandleMap(), &Key::toValue, elementValue);
    else if (name == "entry")
      use(EntriesOf<T>{table}, &Key::toValue, elementValue);
    else
      use(table.resolvedEntryMap(), &Key::toValue, elementValue);
  }

  static constexpr auto types = [] {
    std::array<Vell::TypeData const*, 6 + entriesWait> all{};
    all[T::entryTypeNumber] = &Entry::type;
    all[T::entryHandleTypeNumber] = &HandleReflection<T, Key>::type;
    if constexpr (entriesWait)
      all[T::unresolvedEntryTypeNumber] = &UnresolvedGroupEntryReflection<T>::type;
    all[T::utilTypeNumber] = &RowUtilReflection<T>::type;
    all[T::utilLoaderTypeNumber] = &UtilLoaderReflection<T>::type;
    all[T::typeNumber] = &tableType<T, GroupTableReflection>;
    all[T::syncedEntryTypeNumber] = &syncedEntryType<T>;
    return all;
  }();
  static inline constinit Vell::ModuleInspectData module{T::names.module, types};
};

}  // namespace Asic
