// The reflection data of the agent's own tables: what a tool that shows tables asks for.

#pragma once

#include "forwarding/SmallTable.h"
#include "frame/HandleReflection.h"

namespace Forwarding {

/// A key on its way through the reflection interface: its id.
template <class Key>
struct IdKeyOf {
  static constexpr auto shape = Vell::ValueShape::number;
  static Vell::Value toValue(Key const& key) { return U64{key.id}; }
};

template <class T>
struct SmallTableReflection {
  using KeyOf = IdKeyOf<typename T::Key>;
  using Entry = Asic::EntryReflection<typename T::Entry>;

  static constexpr auto attributes = [] {
    using enum Vell::AttributeKind;
    using enum Vell::ValueShape;
    constexpr auto isPublic = Vell::AttributeAccess::isPublic;
    constexpr auto isConst = Vell::AttributeConstness::isConst;
    return std::to_array<Vell::AttributeData>({
        {T::resolvedEntryField, "resolvedEntry", collection, isPublic, isConst, record, 0, 32},
        {T::syncedEntryField, "syncedEntry", collection, isPublic, isConst, record, 0, 32},
        {0x28f, "entrys", value, isPublic, isConst, number, 32},
    });
  }();

  static T& tableOf(void const* object) {
    return static_cast<T&>(*static_cast<Vell::Node*>(const_cast<void*>(object)));
  }
  static Vell::Ptr<Vell::Node> makeTable(Vell::String const&,
                                         std::span<Vell::Value const> arguments) {
    if (!arguments.empty()) Vell::throwNewEntityArgsException(tableType, arguments.size());
    return new T;
  }
  static Vell::Value get(void const* object, Vell::AttributeData const&) {
    return U64{tableOf(object).entrys()};
  }
  static void walk(void const* object, Vell::AttributeData const& attribute,
                   Vell::TypeFunctions::Visitor const& visitor) {
    auto& table = tableOf(object);
    Vell::Ptr<T> const held(&table);
    if (attribute.id == T::syncedEntryField)
      for (typename T::SyncedEntryMap::Iterator at(table.syncedEntryMap()); at; at.advance())
        visitor(U64{at.key().value()}, Entry::toValue(at->value_));
    else
      for (Zarn::HashMap2018IteratorGeneric at(table.resolvedEntryMap()); at; at.advance())
        visitor(KeyOf::toValue(at.currNodeMaybeStale()->key()),
                Entry::toValue(at.currNodeMaybeStale()->value_));
  }
  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const& attribute) {
    auto const& table = tableOf(object);
    if (attribute.id == T::syncedEntryField)
      return {table.syncedEntryMap().count(), table.syncedEntryMap().version()};
    return {table.resolvedEntryMap().count(), table.resolvedEntryMap().version()};
  }
  static Vell::Ptr<Vell::Node> makeAllocator(Vell::String const&, std::span<Vell::Value const>) {
    return new typename T::IndexAllocator;
  }

  static constexpr Vell::TypeData tableType{
      T::names.qualified,
      attributes,
      {.makeNode = &makeTable, .get = &get, .walk = &walk, .figures = &figures}};
  static constexpr Vell::TypeData syncedEntryType{
      Asic::NestedName<T, "::ZarnSyncedEntry">::view, {}, {}};
  static constexpr Vell::TypeData keyType{T::KeyNames::qualifiedKey, {}, {}};
  static constexpr Vell::TypeData allocatorType{
      T::KeyNames::allocator, {}, {.makeNode = &makeAllocator}};
  static constexpr Vell::TypeData const* types[] = {&Entry::type,
                                                    &Asic::HandleReflection<T, KeyOf>::type,
                                                    &Asic::RowUtilReflection<T>::type,
                                                    &Asic::UtilLoaderReflection<T>::type,
                                                    &tableType,
                                                    &syncedEntryType,
                                                    &keyType,
                                                    &allocatorType};
  static inline constinit Vell::ModuleInspectData module{T::names.module, types};
};

}  // namespace Forwarding
