// The reflection data of a block table: its attribute record, and the types of its module.

#pragma once

#include "frame/BlockTable.h"
#include "frame/HandleReflection.h"

namespace Asic {

/// A block on its way through the reflection interface, and as a class of its own.
template <class T>
struct EntryBlockReflection {
  using Block = typename T::EntryBlock;
  using Entry = typename T::Entry;
  static constexpr auto shape = Vell::ValueShape::record;

  static constexpr Vell::AttributeData attributes[] = {
      {0x82, "entry", Vell::AttributeKind::collection, Vell::AttributeAccess::isPublic,
       Vell::AttributeConstness::notConst, Vell::ValueShape::record, 0, 32},
      {0x83, "entryInternal", Vell::AttributeKind::collection, Vell::AttributeAccess::isPublic,
       Vell::AttributeConstness::notConst, Vell::ValueShape::record, 0, 32},
  };

  static Vell::Value toValue(Block const& block) {
    return Vell::Record{&type, std::make_shared<Block>(block)};
  }
  static Block const& fromValue(Vell::Value const& value) {
    auto const* const record = value.record();
    if (!record || record->type != &type)
      throw Vell::ArgumentError(Vell::concatenate("a record of ", type.name, " is asked for"));
    return *static_cast<Block const*>(record->object.get());
  }

  static Vell::Value makeValue() { return toValue(Block()); }
  static U32 hash(void const* object) { return static_cast<Block const*>(object)->hash(0); }
  static void walk(void const* object, Vell::AttributeData const&,
                   Vell::TypeFunctions::Visitor const& visitor) {
    auto const block = *static_cast<Block const*>(object);  // the visitor may change the block
    block.forEach([&](SwTableBase::Index offset, Entry const& row) {
      visitor(U64{offset.value()}, EntryReflection<Entry>::toValue(row));
    });
  }
  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const&) {
    auto const& map = static_cast<Block const*>(object)->entryInternal();
    return {map.count(), map.version()};
  }
  static void elementIs(void* object, Vell::AttributeData const&, Vell::Value const& key,
                        Vell::Value const& value) {
    auto& block = *static_cast<Block*>(object);
    auto const offset = KeyValue<SwTableBase::Index>::fromValue(key);
    if (value.empty())
      block.entryDel(offset);
    else
      block.entryIs(offset, EntryReflection<Entry>::fromValue(value));
  }

  static constexpr Vell::TypeData type{NestedName<T, "::EntryBlock">::view,
                                       attributes,
                                       {.makeValue = &makeValue,
                                        .hash = &hash,
                                        .walk = &walk,
                                        .figures = &figures,
                                        .elementIs = &elementIs}};
};

template <class T>
struct UnresolvedEntryBlockReflection {
  static constexpr Vell::AttributeData attributes[] = {
      {T::UnresolvedEntryBlock::entryBlockField, "entryBlock", Vell::AttributeKind::value,
       Vell::AttributeAccess::isPublic, Vell::AttributeConstness::isConst,
       Vell::ValueShape::record},
  };
  static Vell::Value get(void const* object, Vell::AttributeData const&) {
    auto const* node = static_cast<Vell::Node const*>(object);
    return EntryBlockReflection<T>::toValue(
        static_cast<typename T::UnresolvedEntryBlock const*>(node)->entryBlock());
  }
  static constexpr Vell::TypeData type{
      NestedName<T, "::UnresolvedEntryBlock">::view, attributes, {.get = &get}};
};

template <class T>
struct BlockTableReflection {
  using Block = EntryBlockReflection<T>;
  using Entry = typename T::Entry;
  using Arguments = std::span<Vell::Value const>;

  static constexpr auto attributes = [] {
    using enum Vell::AttributeKind;
    using enum Vell::AttributeAccess;
    using enum Vell::AttributeConstness;
    using enum Vell::ValueShape;
    return std::to_array<Vell::AttributeData>({
        {0x282, "indexAllocator", value, isPublic, isConst, pointer, 64},
        {0x283, "setResolvedEntryBlockMetaDataDefinedByUser", constant, isPublic, isConst, number,
         64},
        {0x284, "setResolvedEntryMetaDataDefinedByUser", constant, isPublic, isConst, number, 64},
        {0x285, "entryHandle", collection, isPublic, notConst, pointer, 64},
        {0x286, "resolvedEntryBlock", collection, isPublic, notConst, record},
        {0x287, "entryBlock", operation, isPublic, isConst, boolean, 1},
        {0x288, "entryInHwTable", operation, isPublic, isConst, boolean, 1},
        {0x289, "syncedEntry", collection, isPublic, notConst, record, 0, 32},
        {0x28a, "entryBlockRemoveAll", operation, isPublic, notConst},
        {0x28b, "handleEntryBlock", operation, notPublic, notConst},
        {0x28c, "readAccess", constant, isPublic, isConst, boolean, 1},
        {0x28d, "writeAccess", constant, isPublic, isConst, boolean, 1},
        {0x28e, "unresolvedEntryBlock", collection, isPublic, notConst, record},
        {0x28f, "entryBlocks", value, isPublic, isConst, number, 32},
        {0x290, "entryBlockRemove", operation, isPublic, notConst},
        {0x291, "entryBlockCommit", operation, isPublic, notConst, pointer, 64},
        {0x292, "entryBlockRef", operation, isPublic, notConst, pointer, 64},
        {0x293, "hwIndexOnlyForCrossAgentCommunication", operation, isPublic, isConst, number, 32},
        {0x294, "swKeyFromHwIndex", operation, isPublic, isConst, record},
        {0x295, "doInitAllocator", operation, notPublic, notConst},
        {0x296, "util", operation, isPublic, isConst, text},
        {0x297, "doMountHwTableMountInfo", staticOperation, isPublic, notConst},
        {0x298, "doMountHwTableRecoveryStatus", staticOperation, isPublic, notConst},
        {0x299, "doRecoverHwTable", staticOperation, isPublic, notConst},
        {0x29a, "cleanup", operation, notPublic, notConst},
    });
  }();

  static T& tableOf(void const* object) {
    return static_cast<T&>(*static_cast<Vell::Node*>(const_cast<void*>(object)));
  }
  static Vell::Ptr<Vell::Node> makeTable(Vell::String const&, Arguments arguments) {
    if (!arguments.empty()) Vell::throwNewEntityArgsException(tableType, arguments.size());
    return new T;
  }
  static U64 addressOf(void const* object) { return reinterpret_cast<std::uintptr_t>(object); }

  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    auto const& table = tableOf(object);
    if (attribute.name == "entryBlocks") return U64{table.entryBlocks()};
    if (attribute.name == "indexAllocator") return addressOf(table.indexAllocator());
    if (attribute.name == "readAccess") return T::readAccess;
    if (attribute.name == "writeAccess") return T::writeAccess;
    return U64{0};
  }

  static Vell::Value call(void* object, Vell::AttributeData const& attribute, Arguments arguments) {
    auto& table = tableOf(object);
    auto const name = attribute.name;
    if (name == "entryBlockRemoveAll") {
      needArguments(arguments, 0);
      table.entryBlockRemoveAll();
      return {};
    }
    if (name == "util") {
      needArguments(arguments, 0);
      return table.util() ? Vell::Value(table.util()->featureName()) : Vell::Value();
    }
    needArguments(arguments, 1);
    if (name == "swKeyFromHwIndex") {
      auto const key =
          table.swKeyFromHwIndex(KeyValue<SwTableBase::Index>::fromValue(arguments[0]).value());
      return key ? Block::toValue(*key) : Vell::Value();
    }
    return callWithBlock(table, name, Block::fromValue(arguments[0]));
  }

  static Vell::Value callWithBlock(T& table, std::string_view name,
                                   typename T::EntryBlock const& block) {
    if (name == "entryBlock") return table.entryBlockHas(block);
    if (name == "entryInHwTable") return table.entryInHwTable(block);
    if (name == "entryBlockCommit") return addressOf(table.entryBlockCommit(block).get());
    if (name == "hwIndexOnlyForCrossAgentCommunication")
      return U64{table.hwIndexOnlyForCrossAgentCommunication(block).value()};
    if (name == "entryBlockRef")
      throw Vell::ArgumentError("the reference would end with the call; ask from code");
    table.entryBlockRemove(block);
    return {};
  }

  static void walk(void const* object, Vell::AttributeData const& attribute,
                   Vell::TypeFunctions::Visitor const& visitor) {
    auto& table = tableOf(object);
    Vell::Ptr<T> const held(&table);
    if (attribute.name == "syncedEntry") {
      for (typename T::SyncedEntryMap::Iterator at(table.syncedEntryMap()); at; at.advance())
        visitor(U64{at.key().value()}, EntryReflection<Entry>::toValue(at->value_));
    } else if (attribute.name == "resolvedEntryBlock") {
      walkMap(table.resolvedEntryBlockMap(),
              [&](auto const& node) { visitor(Block::toValue(node.key()), true); });
    } else if (attribute.name == "unresolvedEntryBlock") {
      walkMap(table.unresolvedMap(), [&](auto const& node) {
        visitor(Block::toValue(node.key()), Block::toValue(node.value_->entryBlock()));
      });
    } else {
      walkMap(table.entryHandleMap(), [&](auto const& node) {
        visitor(Block::toValue(node.key()), addressOf(node.value_.get()));
      });
    }
  }
  template <class Map, class Visitor>
  static void walkMap(Map const& map, Visitor&& visitor) {
    for (Zarn::HashMap2018IteratorGeneric at(map); at; at.advance())
      visitor(*at.currNodeMaybeStale());
  }

  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const& attribute) {
    auto const& table = tableOf(object);
    auto const of = [](auto const& map) -> Vell::CollectionFigures {
      return {map.count(), map.version()};
    };
    if (attribute.name == "syncedEntry") return of(table.syncedEntryMap());
    if (attribute.name == "resolvedEntryBlock") return of(table.resolvedEntryBlockMap());
    if (attribute.name == "unresolvedEntryBlock") return of(table.unresolvedMap());
    return of(table.entryHandleMap());
  }

  static constexpr Vell::TypeData tableType{
      T::names.qualified,
      attributes,
      {.makeNode = &makeTable, .get = &get, .call = &call, .walk = &walk, .figures = &figures}};
  static constexpr Vell::TypeData syncedEntryType{NestedName<T, "::ZarnSyncedEntry">::view, {}, {}};
  static constexpr Vell::TypeData const* types[] = {&EntryReflection<Entry>::type,
                                                    &Block::type,
                                                    &HandleReflection<T, Block>::type,
                                                    &UnresolvedEntryBlockReflection<T>::type,
                                                    &RowUtilReflection<T>::type,
                                                    &UtilLoaderReflection<T>::type,
                                                    &tableType,
                                                    &syncedEntryType};
  static inline constinit Vell::ModuleInspectData module{T::names.module, types};
};

}  // namespace Asic
