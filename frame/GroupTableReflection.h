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

  static constexpr Vell::AttributeData attributes[] = {
      {Record::keyField, "key", Vell::AttributeKind::value, Vell::AttributeAccess::isPublic,
       Vell::AttributeConstness::isConst, Vell::ValueShape::text},
      {Record::entryField, "entry", Vell::AttributeKind::field, Vell::AttributeAccess::isPublic,
       Vell::AttributeConstness::notConst, Vell::ValueShape::record},
  };
  static Record& recordOf(void const* object) {
    return static_cast<Record&>(*static_cast<Vell::Node*>(const_cast<void*>(object)));
  }
  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    auto const& record = recordOf(object);
    if (attribute.id == Record::keyField) return TextKeyOf<typename T::Key>::toValue(record.key());
    return Entry::toValue(record.entry());
  }
  static void set(void* object, Vell::AttributeData const&, Vell::Value const& value) {
    Vell::Ptr<Record> const record(&recordOf(object));
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
  using enum Vell::AttributeKind;
  using enum Vell::AttributeAccess;
  using enum Vell::AttributeConstness;
  using enum Vell::ValueShape;
  std::array<Vell::AttributeData, count + 2> all{};
  std::size_t next = 0;
  for (auto const& each : group) {
    if (each.name == "entryHandle")
      all[next++] = {0, "unresolvedEntry", collection, isPublic, notConst, record};
    if (each.name == "syncedEntry")
      all[next++] = {0, "entryInHwTable", operation, isPublic, isConst, boolean, 1};
    all[next++] = each;
  }
  for (U32 id = group.front().id; auto& each : all) each.id = id++;
  return all;
}

template <class T>
struct GroupTableReflection {
  static constexpr bool entriesWait = Trait::tableNeedsDeleteDance<T>;
  using Key = TextKeyOf<typename T::Key>;
  using Entry = EntryReflection<typename T::Entry>;
  using Arguments = std::span<Vell::Value const>;

  static constexpr auto attributes = [] {
    using enum Vell::AttributeKind;
    using enum Vell::AttributeAccess;
    using enum Vell::AttributeConstness;
    using enum Vell::ValueShape;
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

  static T& tableOf(void const* object) {
    return static_cast<T&>(*static_cast<Vell::Node*>(const_cast<void*>(object)));
  }
  static Vell::Ptr<Vell::Node> makeTable(Vell::String const& name, Arguments arguments) {
    if (!arguments.empty()) Vell::throwNewEntityArgsException(tableType, arguments.size());
    return new T(name);
  }
  static U64 addressOf(void const* object) { return reinterpret_cast<std::uintptr_t>(object); }

  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    auto const& table = tableOf(object);
    if (attribute.name == "entrys") return U64{table.entrys()};
    if (attribute.name == "indexAllocator") return addressOf(table.indexAllocator());
    if (attribute.name == "writeResponseSm") return addressOf(table.writeResponseSm());
    if (attribute.name == "readAccess") return T::readAccess;
    if (attribute.name == "writeAccess") return T::writeAccess;
    return U64{0};
  }

  static Vell::Value call(void* object, Vell::AttributeData const& attribute, Arguments arguments) {
    auto& table = tableOf(object);
    auto const name = attribute.name;
    if (name == "entryRemoveAll") {
      needArguments(arguments, 0);
      table.entryRemoveAll();
      return {};
    }
    if (name == "util") {
      needArguments(arguments, 0);
      return table.util() ? Vell::Value(table.util()->featureName()) : Vell::Value();
    }
    if (name == "entryRef")
      throw Vell::ArgumentError("the reference would end with the call; ask from code");
    if (name == "entryCommit" || name == "entryWriteAtIndex") return write(table, name, arguments);
    needArguments(arguments, 1);
    if (name == "swKeyFromHwIndex") {
      auto const key = table.swKeyFromHwIndex(indexOf(arguments[0]));
      return key ? Key::toValue(*key) : Vell::Value();
    }
    auto const key = Key::fromValue(arguments[0]);
    if (name == "entryHas") return table.entryHas(key);
    if (name == "entryInHwTable") return table.entryInHwTable(key);
    if (name == "hwIndexOnlyForCrossAgentCommunication")
      return U64{table.hwIndexOnlyForCrossAgentCommunication(key).value()};
    table.entryRemove(key);
    return {};
  }
  static Index indexOf(Vell::Value const& value) {
    return KeyValue<SwTableBase::Index>::fromValue(value).value();
  }
  static Vell::Value write(T& table, std::string_view name, Arguments arguments) {
    bool const atIndex = name == "entryWriteAtIndex";
    needArguments(arguments, atIndex ? 3 : 2);
    auto const key = Key::fromValue(arguments[atIndex]);
    auto const& entry = Entry::fromValue(arguments[atIndex + 1]);
    if (!table.indexAllocator())
      throw Vell::ArgumentError("the table has no index allocator yet; start it first");
    return addressOf((atIndex ? table.entryWriteAtIndex(indexOf(arguments[0]), key, entry)
                              : table.entryCommit(key, entry))
                         .get());
  }

  static void walk(void const* object, Vell::AttributeData const& attribute,
                   Vell::TypeFunctions::Visitor const& visitor) {
    auto& table = tableOf(object);
    Vell::Ptr<T> const held(&table);
    if (attribute.name == "syncedEntry") {
      for (typename T::SyncedEntryMap::Iterator at(table.syncedEntryMap()); at; at.advance())
        visitor(U64{at.key().value()}, Entry::toValue(at->value_));
    } else if (attribute.name == "entryHandle") {
      for (Zarn::HashMap2018IteratorGeneric at(table.entryHandleMap()); at; at.advance())
        visitor(Key::toValue(at.currNodeMaybeStale()->key()),
                addressOf(at.currNodeMaybeStale()->value_.get()));
    } else if (attribute.name == "entry") {
      for (auto at = table.entryIteratorConst(); at; at.advance())
        visitor(Key::toValue(at.key()), Entry::toValue(at.entry()));
    } else if (attribute.name == "unresolvedEntry") {
      if constexpr (entriesWait)
        for (Zarn::HashMap2018IteratorGeneric at(table.unresolvedMap()); at; at.advance())
          visitor(Key::toValue(at.currNodeMaybeStale()->key()),
                  Entry::toValue(at.currNodeMaybeStale()->value_->entry()));
    } else {
      for (Zarn::HashMap2018IteratorGeneric at(table.resolvedEntryMap()); at; at.advance()) {
        auto const& value = at.currNodeMaybeStale()->value_;
        visitor(Key::toValue(at.currNodeMaybeStale()->key()),
                value ? Entry::toValue(*value) : Vell::Value());
      }
    }
  }

  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const& attribute) {
    auto const& table = tableOf(object);
    auto const of = [](auto const& map) -> Vell::CollectionFigures {
      return {map.count(), map.version()};
    };
    if (attribute.name == "syncedEntry") return of(table.syncedEntryMap());
    if (attribute.name == "entryHandle") return of(table.entryHandleMap());
    auto figures = of(table.resolvedEntryMap());
    if constexpr (entriesWait) {
      if (attribute.name == "unresolvedEntry") return of(table.unresolvedMap());
      if (attribute.name == "entry") figures.version += table.unresolvedMap().version();
    }
    if (attribute.name == "entry") {
      figures.count = 0;
      for (auto at = table.entryIteratorConst(); at; at.advance()) ++figures.count;
    }
    return figures;
  }

  static constexpr Vell::TypeData tableType{
      T::names.qualified,
      attributes,
      {.makeNode = &makeTable, .get = &get, .call = &call, .walk = &walk, .figures = &figures}};
  static constexpr Vell::TypeData syncedEntryType{NestedName<T, "::ZarnSyncedEntry">::view, {}, {}};
  static constexpr auto types = [] {
    std::array<Vell::TypeData const*, 6 + entriesWait> all{};
    all[T::entryTypeNumber] = &Entry::type;
    all[T::entryHandleTypeNumber] = &HandleReflection<T, Key>::type;
    if constexpr (entriesWait)
      all[T::unresolvedEntryTypeNumber] = &UnresolvedGroupEntryReflection<T>::type;
    all[T::utilTypeNumber] = &RowUtilReflection<T>::type;
    all[T::utilLoaderTypeNumber] = &UtilLoaderReflection<T>::type;
    all[T::typeNumber] = &tableType;
    all[T::syncedEntryTypeNumber] = &syncedEntryType;
    return all;
  }();
  static inline constinit Vell::ModuleInspectData module{T::names.module, types};
};

}  // namespace Asic
