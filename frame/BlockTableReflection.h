// The reflection data of a block table: its attribute record, and the types of its module.

#pragma once

#include "frame/BlockTable.h"
#include "frame/HandleReflection.h"

namespace Asic {

/// A block on its way through the reflection interface, and as a class of its own.
template <class T>
struct EntryBlockReflection
    : Vell::RecordReflection<typename T::EntryBlock, EntryBlockReflection<T>> {
  using Block = typename T::EntryBlock;
  using Entry = EntryReflection<typename T::Entry>;
  static constexpr auto shape = Vell::ValueShape::record;

  static constexpr auto attributes = [] {
    using namespace AttributeWords;
    return std::to_array<Vell::AttributeData>({
        {0x82, "entry", collection, isPublic, notConst, record, 0, 32},
        {0x83, "entryInternal", collection, isPublic, notConst, record, 0, 32},
    });
  }();

  static void walk(void const* object, Vell::AttributeData const&,
                   Vell::TypeFunctions::Visitor const& visitor) {
    auto const block = *static_cast<Block const*>(object);  // the visitor may change the block
    block.forEach([&](SwTableBase::Index offset, typename T::Entry const& row) {
      visitor(indexValue(offset), Entry::toValue(row));
    });
  }
  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const&) {
    auto const& map = static_cast<Block const*>(object)->entryInternal();
    return {map.count(), map.version()};
  }
  static void elementIs(void* object, Vell::AttributeData const&, Vell::Value const& key,
                        Vell::Value const& value) {
    auto& block = *static_cast<Block*>(object);
    auto const offset = indexOf(key).value();
    if (value.empty())
      block.entryDel(offset);
    else
      block.entryIs(offset, Entry::fromValue(value));
  }

  static constexpr Vell::TypeData type{NestedName<T, "::EntryBlock">::view,
                                       attributes,
                                       {.makeValue = &EntryBlockReflection::makeValue,
                                        .hash = &EntryBlockReflection::hash,
                                        .walk = &walk,
                                        .figures = &figures,
                                        .elementIs = &elementIs}};
};

template <class T>
struct UnresolvedEntryBlockReflection {
  using Record = typename T::UnresolvedEntryBlock;

  static constexpr auto attributes = [] {
    using namespace AttributeWords;
    return std::to_array<Vell::AttributeData>(
        {{Record::entryBlockField, "entryBlock", value, isPublic, isConst, record}});
  }();
  static Vell::Value get(void const* object, Vell::AttributeData const&) {
    return EntryBlockReflection<T>::toValue(nodeOf<Record>(object).entryBlock());
  }
  static constexpr Vell::TypeData type{
      NestedName<T, "::UnresolvedEntryBlock">::view, attributes, {.get = &get}};
};

template <class T>
struct BlockTableReflection {
  using Block = EntryBlockReflection<T>;

  static constexpr auto attributes = [] {
    using namespace AttributeWords;
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

  /// An operation on a block.
  template <class Run>
  static constexpr Operation<T> ofBlock(std::string_view name, Run) {
    return {name, 1,
            [](T& table, Arguments with) { return Run{}(table, Block::fromValue(with[0])); }};
  }
  using Key = typename T::EntryBlock;
  static constexpr Operation<T> operations[] = {
      ofBlock("entryBlock", [](T& table, Key const& key) { return table.entryBlockHas(key); }),
      ofBlock("entryInHwTable", [](T& table, Key const& key) { return table.entryInHwTable(key); }),
      {"entryBlockRemoveAll", 0, [](T& table, Arguments) { table.entryBlockRemoveAll(); }},
      ofBlock("entryBlockRemove", [](T& table, Key const& key) { table.entryBlockRemove(key); }),
      ofBlock(
          "entryBlockCommit",
          [](T& table, Key const& key) { return addressValue(table.entryBlockCommit(key).get()); }),
      ofBlock("entryBlockRef", [](T& table, Key const&) { return refuseReference<T>(table, {}); }),
      ofBlock("hwIndexOnlyForCrossAgentCommunication",
              [](T& table, Key const& key) {
                return table.hwIndexOnlyForCrossAgentCommunication(key).value();
              }),
      {"swKeyFromHwIndex", 1,
       [](T& table, Arguments with) {
         auto const key = table.swKeyFromHwIndex(indexOf(with[0]));
         return key ? Block::toValue(*key) : Vell::Value();
       }},
      utilOperation<T>,
  };

  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    if (attribute.name == "entryBlocks") return U64{nodeOf<T>(object).entryBlocks()};
    return valueOfTable<T>(object, attribute);
  }

  template <class Use>
  static void show(T& table, std::string_view name, Use const& use) {
    if (name == "syncedEntry")
      use(table.syncedEntryMap(), indexValue, elementValue);
    else if (name == "resolvedEntryBlock")
      use(table.resolvedEntryBlockMap(), &Block::toValue, elementValue);
    else if (name == "unresolvedEntryBlock")
      use(table.unresolvedMap(), &Block::toValue,
          [](auto const& record) { return Block::toValue(record->entryBlock()); });
    else
      use(table.entryHandleMap(), &Block::toValue, elementValue);
  }

  static constexpr Vell::TypeData const* types[] = {&EntryReflection<typename T::Entry>::type,
                                                    &Block::type,
                                                    &HandleReflection<T, Block>::type,
                                                    &UnresolvedEntryBlockReflection<T>::type,
                                                    &RowUtilReflection<T>::type,
                                                    &UtilLoaderReflection<T>::type,
                                                    &tableType<T, BlockTableReflection>,
                                                    &syncedEntryType<T>};
  static inline constinit Vell::ModuleInspectData module{T::names.module, types};
};

}  // namespace Asic
