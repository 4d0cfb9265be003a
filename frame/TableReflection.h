// What the reflection data of every kind of table is made with.

#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <span>
#include <string_view>

#include "frame/AccessorBase.h"
#include "platform/vell/Inspect.h"
#include "platform/zarn/ValueText.h"

namespace Asic {

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

inline void needArguments(std::span<Vell::Value const> arguments, std::size_t count) {
  if (arguments.size() != count)
    throw Vell::ArgumentError(
        Vell::concatenate("takes ", count, " arguments, and ", arguments.size(), " were given"));
}

/// A table's loader is made from a name only.
template <class T>
struct UtilLoaderReflection {
  static Vell::Ptr<Vell::Node> make(Vell::String const&, std::span<Vell::Value const> arguments) {
    if (!arguments.empty()) Vell::throwNewEntityArgsException(type, arguments.size());
    return new typename T::UtilLoader;
  }
  static constexpr Vell::TypeData type{
      NestedName<T, "::UtilLoader">::view, {}, {.makeNode = &make}};
};

}  // namespace Asic
