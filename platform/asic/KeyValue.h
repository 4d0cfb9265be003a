// Keys and indices of tables on their way through the reflection interface.

#pragma once

#include <concepts>
#include <string>

#include "platform/asic/SwTableBase.h"
#include "platform/vell/Inspect.h"
#include "platform/zarn/ValueText.h"

namespace Asic {

/// An index as a number, any key as its text.
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

inline constexpr auto indexValue = [](auto const& index) {
  return Vell::Value(U64{index.value()});
};

inline Index indexOf(Vell::Value const& value) {
  return KeyValue<SwTableBase::Index>::fromValue(value).value();
}

}  // namespace Asic
