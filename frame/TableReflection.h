// What the reflection data of every kind of table is made with. The data of one kind is its attribute
// record, its operations by name, and which of its maps each collection shows.

#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <span>
#include <string_view>
#include <type_traits>

#include "containers/HashMap2018Iterator.h"
#include "frame/AccessorBase.h"
#include "frame/FieldEntry.h"
#include "platform/vell/Inspect.h"
#include "platform/zarn/ValueText.h"

namespace Asic {

/// The words that attribute records are written in.
namespace AttributeWords {
using enum Vell::AttributeKind;
using enum Vell::AttributeAccess;
using enum Vell::AttributeConstness;
using enum Vell::ValueShape;
}  // namespace AttributeWords

using Arguments = std::span<Vell::Value const>;

template <std::size_t count>
constexpr auto numberedFrom(U32 id, std::array<Vell::AttributeData, count> attributes) {
  for (auto& each : attributes) each.id = id++;
  return attributes;
}

template <class T>
T& nodeOf(void const* object) {
  return static_cast<T&>(*static_cast<Vell::Node*>(const_cast<void*>(object)));
}

/// The qualified name of a class inside a table's class.
template <class T, OperationName suffix>
struct NestedName {
  static constexpr auto text = [] {
    constexpr auto table = T::names.qualified;
    std::array<char, table.size() + suffix.view().size()> joined{};
    std::ranges::copy(suffix.view(), std::ranges::copy(table, joined.begin()).out);
    return joined;
  }();
  static constexpr std::string_view view{text.data(), text.size()};
};

/// Keys on their way through the reflection interface: an index as a number, any key as its text.
template <class Key>
struct KeyValue {
  static Vell::Value toValue(Key const& key) {
    if constexpr (std::same_as<Key, SwTableBase::Index>)
      return static_cast<U64>(key.value());
    else
      return Zarn::valueToStrep(key);
  }
  static Key fromValue(Vell::Value const& value) {
    if (auto const* text = value.text()) return fromText(*text);
    if constexpr (std::same_as<Key, SwTableBase::Index>)
      if (auto const* number = value.number(); number && *number <= 0xFFFFFFFF)
        return static_cast<U32>(*number);
    throw Vell::ArgumentError("a key is asked for, as its text or as a 32-bit index");
  }

 private:
  static Key fromText(std::string const& text) {
    try {
      return Zarn::strepToValue<Key>(text);
    } catch (Vell::RangeException const& error) {
      throw Vell::ArgumentError(Vell::concatenate("no key: ", error.what()));
    }
  }
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

template <class T>
struct UtilLoaderReflection {
  static constexpr Vell::TypeData type{
      NestedName<T, "::UtilLoader">::view,
      {},
      {.makeNode = &makeFromName<T, typename T::UtilLoader, T::utilLoaderTypeNumber>}};
};

// ---- values ----

inline Vell::Value addressValue(void const* object) {
  return U64{reinterpret_cast<std::uintptr_t>(object)};
}

inline constexpr auto indexValue = [](auto const& index) {
  return Vell::Value(U64{index.value()});
};

inline Index indexOf(Vell::Value const& value) {
  return KeyValue<SwTableBase::Index>::fromValue(value).value();
}

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

inline void needArguments(Arguments arguments, std::size_t count) {
  if (arguments.size() != count)
    throw Vell::ArgumentError(
        Vell::concatenate("takes ", count, " arguments, and ", arguments.size(), " were given"));
}

/// A public operation: how many arguments it takes, and what it does. `Run` may give nothing, a number
/// of any width, or what else makes a value.
template <class T>
struct Operation {
  template <class Run>
  constexpr Operation(std::string_view theName, std::size_t count, Run)
      : name(theName), arguments(count), run([](T& object, Arguments with) -> Vell::Value {
          using Result = decltype(Run{}(object, with));
          if constexpr (std::is_void_v<Result>)
            return Run{}(object, with), Vell::Value();
          else if constexpr (std::unsigned_integral<Result> && !std::same_as<Result, bool>)
            return U64{Run{}(object, with)};
          else
            return Run{}(object, with);
        }) {}

  std::string_view name;
  std::size_t arguments;
  Vell::Value (*run)(T& object, Arguments arguments);
};

/// The hooks' object itself stays behind the interface; its name tells which one it is.
template <class T>
constexpr Operation<T> utilOperation{"util", 0, [](T& table, Arguments) {
                                       auto const* const util = table.util();
                                       return util ? Vell::Value(util->featureName())
                                                   : Vell::Value();
                                     }};
/// For an operation that looks at no argument.
constexpr auto anyArguments = ~std::size_t{0};
/// A reference to an entry, which has to be asked for from code.
template <class T>
constexpr auto refuseReference = [](T&, Arguments) -> Vell::Value {
  throw Vell::ArgumentError("the reference would end with the call; ask from code");
};

template <auto const& attributes, auto const& operations>
constexpr bool servesAll = std::ranges::all_of(attributes, [](Vell::AttributeData const& each) {
  return each.kind != Vell::AttributeKind::operation ||
         each.access != Vell::AttributeAccess::isPublic ||
         std::ranges::any_of(operations,
                             [&](auto const& other) { return other.name == each.name; });
});

template <class T, auto const& operations>
Vell::Value callByName(void* object, std::string_view name, Arguments arguments) {
  auto const operation = std::ranges::find(operations, name, &Operation<T>::name);
  if (operation == std::end(operations))
    throw Vell::ArgumentError(Vell::concatenate("no operation \"", name, "\""));
  if (operation->arguments != anyArguments) needArguments(arguments, operation->arguments);
  return operation->run(nodeOf<T>(object), arguments);
}
template <class T, auto const& attributes, auto const& operations>
Vell::Value callOperation(void* object, Vell::AttributeData const& attribute, Arguments arguments) {
  static_assert(servesAll<attributes, operations>, "a public operation has nothing behind it");
  return callByName<T, operations>(object, attribute.name, arguments);
}

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
  U32 version() const {
    if constexpr (requires { table.unresolvedMap(); })
      return table.resolvedEntryMap().version() + table.unresolvedMap().version();
    else
      return table.resolvedEntryMap().version();
  }
};

/// Visits the keys and values of a collection, which may change meanwhile; of a set, its keys.
template <class Collection, class Visit>
void forEachOf(Collection const& collection, Visit const& visit) {
  if constexpr (requires { collection.table; }) {
    for (auto at = collection.table.entryIteratorConst(); at; at.advance())
      visit(at.key(), at.entry());
  } else if constexpr (requires { typename Collection::Iterator; }) {
    for (typename Collection::Iterator at(collection); at; at.advance())
      visit(at.key(), at->value_);
  } else {
    for (Zarn::HashMap2018IteratorGeneric at(collection); at; at.advance()) {
      auto const& node = *at.currNodeMaybeStale();
      if constexpr (requires { node.value_; })
        visit(node.key(), node.value_);
      else
        visit(node.key(), true);
    }
  }
}

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

/// The collections of a table. `Shown::show(table, name, use)` calls `use` with the collection of that
/// name, and with what makes values of its keys and of its elements.
template <class T, class Shown>
struct CollectionReflection {
  static void walk(void const* object, Vell::AttributeData const& attribute,
                   Vell::TypeFunctions::Visitor const& visitor) {
    Vell::Ptr<T> const table(&nodeOf<T>(object));
    Shown::show(*table, attribute.name,
                [&](auto const& collection, auto const& keyValue, auto const& valueOf) {
                  forEachOf(collection, [&](auto const& key, auto const& element) {
                    visitor(keyValue(key), valueOf(element));
                  });
                });
  }
  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const& attribute) {
    Vell::CollectionFigures figures{};
    Shown::show(nodeOf<T>(object), attribute.name, [&](auto const& collection, auto&&...) {
      figures = {collection.count(), collection.version()};
    });
    return figures;
  }
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
  static constexpr Vell::TypeData type{NestedName<T, "::Util">::view,
                                       attributes,
                                       {.call = &callOperation<Util, attributes, operations>}};
};

}  // namespace Asic
