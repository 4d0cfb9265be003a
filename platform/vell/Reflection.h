// What the reflection data of a class is written with: the words of its attribute records, objects as records,
// and its public operations, which are called by their names.
//
// A class lists its operations once, as an array of `Operation`; `callOperation` of that array and of the
// attribute record is the class's `call`, and does not compile if a public operation has nothing behind it.

#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <type_traits>

#include "platform/vell/Inspect.h"
#include "platform/vell/Node.h"

namespace Vell {

/// The words that attribute records are written in.
namespace AttributeWords {
using enum AttributeKind;
using enum AttributeAccess;
using enum AttributeConstness;
using enum ValueShape;
}  // namespace AttributeWords

using Arguments = std::span<Value const>;

template <std::size_t count>
constexpr auto numberedFrom(U32 id, std::array<AttributeData, count> attributes) {
  for (auto& each : attributes) each.id = id++;
  return attributes;
}

template <class T>
T& nodeOf(void const* object) {
  return static_cast<T&>(*static_cast<Node*>(const_cast<void*>(object)));
}

// ---- values ----

inline Value addressValue(void const* object) {
  return U64{reinterpret_cast<std::uintptr_t>(object)};
}

/// Objects of a value class on their way through the reflection interface, as records of the type
/// `Reflection::type`.
template <class V, class Reflection>
struct RecordReflection {
  static Value toValue(V const& object) {
    return Record{&Reflection::type, std::make_shared<V>(object)};
  }
  /// The object of a record. Throws `ArgumentError` if the value is something else.
  static V const& fromValue(Value const& value) {
    auto const* record = value.record();
    if (!record || record->type != &Reflection::type)
      throw ArgumentError(concatenate("a record of ", Reflection::type.name, " is asked for"));
    return *static_cast<V const*>(record->object.get());
  }
  static Value makeValue() { return toValue(V()); }
  static U32 hash(void const* object) { return static_cast<V const*>(object)->hash(0); }
};

// ---- operations ----

inline void needArguments(Arguments arguments, std::size_t count) {
  if (arguments.size() != count)
    throw ArgumentError(
        concatenate("takes ", count, " arguments, and ", arguments.size(), " were given"));
}

/// A public operation: how many arguments it takes, and what it does. `Run` may give nothing, a number
/// of any width, or what else makes a value.
template <class T>
struct Operation {
  template <class Run>
  constexpr Operation(std::string_view theName, std::size_t count, Run)
      : name(theName), arguments(count), run([](T& object, Arguments with) -> Value {
          using Result = decltype(Run{}(object, with));
          if constexpr (std::is_void_v<Result>)
            return Run{}(object, with), Value();
          else if constexpr (std::unsigned_integral<Result> && !std::same_as<Result, bool>)
            return U64{Run{}(object, with)};
          else
            return Run{}(object, with);
        }) {}

  std::string_view name;
  std::size_t arguments;
  Value (*run)(T& object, Arguments arguments);
};

/// For an operation that looks at no argument.
constexpr auto anyArguments = ~std::size_t{0};

template <auto const& attributes, auto const& operations>
constexpr bool servesAll = std::ranges::all_of(attributes, [](AttributeData const& each) {
  return each.kind != AttributeKind::operation || each.access != AttributeAccess::isPublic ||
         std::ranges::any_of(operations,
                             [&](auto const& other) { return other.name == each.name; });
});

template <class T, auto const& operations>
Value callByName(void* object, std::string_view name, Arguments arguments) {
  auto const operation = std::ranges::find(operations, name, &Operation<T>::name);
  if (operation == std::end(operations))
    throw ArgumentError(concatenate("no operation \"", name, "\""));
  if (operation->arguments != anyArguments) needArguments(arguments, operation->arguments);
  return operation->run(nodeOf<T>(object), arguments);
}
template <class T, auto const& attributes, auto const& operations>
Value callOperation(void* object, AttributeData const& attribute, Arguments arguments) {
  static_assert(servesAll<attributes, operations>, "a public operation has nothing behind it");
  return callByName<T, operations>(object, attribute.name, arguments);
}

}  // namespace Vell
