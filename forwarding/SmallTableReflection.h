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
    using namespace Vell::AttributeWords;
    return std::to_array<Vell::AttributeData>({
        {T::resolvedEntryField, "resolvedEntry", collection, isPublic, isConst, record, 0, 32},
        {T::syncedEntryField, "syncedEntry", collection, isPublic, isConst, record, 0, 32},
        {0x28f, "entrys", value, isPublic, isConst, number, 32},
    });
  }();

  static constexpr std::array<Vell::Operation<T>, 0> operations{};
  static constexpr auto get = &Asic::valueOfTable<T>;

  template <class Use>
  static void show(T& table, std::string_view name, Use const& use) {
    if (name == "syncedEntry")
      use(table.syncedEntryMap(), Asic::indexValue, Asic::elementValue);
    else
      use(table.resolvedEntryMap(), &KeyOf::toValue, Asic::elementValue);
  }
  static Vell::Ptr<Vell::Node> makeAllocator(Vell::String const&, std::span<Vell::Value const>) {
    return new typename T::IndexAllocator;
  }

  static constexpr Vell::TypeData keyType{T::KeyNames::qualifiedKey, {}, {}};
  static constexpr Vell::TypeData allocatorType{
      T::KeyNames::allocator, {}, {.makeNode = &makeAllocator}};
  static constexpr Vell::TypeData const* types[] = {&Entry::type,
                                                    &Asic::HandleReflection<T, KeyOf>::type,
                                                    &Asic::RowUtilReflection<T>::type,
                                                    &Asic::UtilLoaderReflection<T>::type,
                                                    &Asic::tableType<T, SmallTableReflection>,
                                                    &Asic::syncedEntryType<T>,
                                                    &keyType,
                                                    &allocatorType};
  static inline constinit Vell::ModuleInspectData module{T::names.module, types};
};

}  // namespace Forwarding
