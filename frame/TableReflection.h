// What the reflection data of every kind of table is made with. The data of one kind is its attribute
// record, its operations by name, and which of its maps each collection shows.

#pragma once

#include <array>
#include <concepts>
#include <string_view>

#include "containers/CollectionReflection.h"
#include "frame/AccessorBase.h"
#include "frame/FieldEntry.h"
#include "platform/asic/KeyValue.h"
#include "platform/vell/Reflection.h"

namespace Asic {

namespace AttributeWords = Vell::AttributeWords;
using Vell::addressValue, Vell::Arguments, Vell::nodeOf, Vell::Operation;

// ---- values ----

/// What tables of every kind answer alike: counts, helpers by their address, and constants.
template <class T>
Vell::Value valueOfTable(void const* object, Vell::AttributeData const& attribute) {
  auto const& table = nodeOf<T>(object);
  auto const name = attribute.name;
  if (name == "readAccess") return T::readAccess;
  if (name == "writeAccess") return T::writeAccess;
  if constexpr (requires { table.entrys(); })
    if (name == "entrys") return U64{table.entrys()};
  if constexpr (requires { table.indexAllocator(); })
    if (name == "indexAllocator") return addressValue(table.indexAllocator());
  if constexpr (requires { table.writeResponseSm(); })
    if (name == "writeResponseSm") return addressValue(table.writeResponseSm());
  return attribute.shape == Vell::ValueShape::boolean ? Vell::Value(false) : Vell::Value(U64{0});
}

// ---- operations ----

/// The hooks' object itself stays behind the interface; its name tells which one it is.
template <class T>
constexpr Operation<T> utilOperation{"util", 0, [](T& table, Arguments) {
                                       auto const* const util = table.util();
                                       return util ? Vell::Value(util->featureName())
                                                   : Vell::Value();
                                     }};
/// A reference to an entry, which has to be asked for from code.
template <class T>
constexpr auto refuseReference = [](T&, Arguments) -> Vell::Value {
  throw Vell::ArgumentError("the reference would end with the call; ask from code");
};

// ---- collections ----

/// The keys of a table that have a value, as a collection.
template <class T>
struct EntriesOf {
  T const& table;

  U32 count() const {
    U32 count = 0;
    for (auto at = table.entryIteratorConst(); at; at.advance()) ++count;
    return count;
  }
  template <class Visit>
  void forEach(Visit const& visit) const {
    for (auto at = table.entryIteratorConst(); at; at.advance()) visit(at.key(), at.entry());
  }
  U32 version() const {
    if constexpr (requires { table.unresolvedMap(); })
      return table.resolvedEntryMap().version() + table.unresolvedMap().version();
    else
      return table.resolvedEntryMap().version();
  }
};

/// The value of an element: an entry as its record, absent or not, a counted object by its address.
inline constexpr auto elementValue = []<class Element>(Element const& element) -> Vell::Value {
  if constexpr (std::same_as<Element, bool>)
    return element;
  else if constexpr (requires { element.has_value(); })
    return element ? EntryReflection<typename Element::value_type>::toValue(*element)
                   : Vell::Value();
  else if constexpr (requires { element.get(); })
    return addressValue(element.get());
  else
    return EntryReflection<Element>::toValue(element);
};

// ---- making ----

/// Makes the object that is the table's type of that number from a name, which it may not care for.
template <class T, class Object, U32 typeNumber>
Vell::Ptr<Vell::Node> makeFromName(Vell::String const& name, Arguments arguments) {
  if (!arguments.empty())
    Vell::throwNewEntityArgsException(*T::module().types()[typeNumber], arguments.size());
  if constexpr (std::constructible_from<Object, Vell::String>)
    return new Object(name);
  else
    return new Object;
}
template <class T>
constexpr auto makeTable = &makeFromName<T, T, T::typeNumber>;

/// The type of a table itself: `R` has its attributes and operations, what reads a value, and `show` of its
/// collections.
template <class T, class R>
constexpr Vell::TypeData tableType{T::names.qualified,
                                   R::attributes,
                                   {.makeNode = makeTable<T>,
                                    .get = R::get,
                                    .call = &Vell::callOperation<T, R::attributes, R::operations>,
                                    .walk = &Zarn::CollectionReflection<T, R>::walk,
                                    .figures = &Zarn::CollectionReflection<T, R>::figures}};
template <class T>
constexpr Vell::TypeData syncedEntryType{NestedName<T, "::ZarnSyncedEntry">::view, {}, {}};

template <class T>
struct UtilLoaderReflection {
  static constexpr Vell::TypeData type{
      NestedName<T, "::UtilLoader">::view,
      {},
      {.makeNode = &makeFromName<T, typename T::UtilLoader, T::utilLoaderTypeNumber>}};
};

// ---- hooks ----

/// The hook class of a table that writes: it answers its three public operations. The ids from that of
/// `syncEntries` on depend on the kind of table.
template <class T, U32 syncEntriesId>
struct HookReflection {
  using Util = typename T::Util;

  static constexpr auto attributes = [] {
    using namespace AttributeWords;
    return std::to_array<Vell::AttributeData>({
        {0x202, "minIndex", operation, isPublic, isConst, number, 32},
        {0x203, "maxIndex", operation, isPublic, isConst, number, 32},
        {0x204, "hwTableEntryIs", operation, notPublic, isConst},
        {0x205, "hwTableEntryDel", operation, notPublic, isConst},
        {0x206, "updateHwIndexRefCountTracker", operation, notPublic, isConst},
        {0x207, "compareHwEntries", operation, notPublic, isConst, boolean, 1},
        {syncEntriesId, "syncEntries", operation, notPublic, isConst},
        {syncEntriesId + 1, "getHwIndex", staticOperation, notPublic, notConst, number, 32},
        {syncEntriesId + 2, "hwIndexForDependentField", operation, notPublic, isConst, number, 32},
        {syncEntriesId + 3, "dependentFieldValueToHwIndex", operation, isPublic, isConst, number,
         32},
    });
  }();
  static constexpr Operation<Util> operations[] = {
      {"minIndex", 0, [](Util& util, Arguments) { return util.minIndex(); }},
      {"maxIndex", 0, [](Util& util, Arguments) { return util.maxIndex(); }},
      {"dependentFieldValueToHwIndex", 1,
       [](Util& util, Arguments with) {
         return util.dependentFieldValueToHwIndex(indexOf(with[0]).value()).value();
       }},
  };
  static constexpr Vell::TypeData type{
      NestedName<T, "::Util">::view,
      attributes,
      {.call = &Vell::callOperation<Util, attributes, operations>}};
};

}  // namespace Asic
