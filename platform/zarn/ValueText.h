// Text forms of whole values: a value to its text, and a text to a value.

#pragma once

#include <sstream>
#include <string>
#include <string_view>

#include "platform/zarn/CharRange.h"
#include "platform/zarn/Fields.h"

namespace Zarn {

/// The text form of a value.
template <class V>
std::string valueToStrep(V const& value) {
  std::ostringstream text;
  text << std::boolalpha << value;
  return std::move(text).str();
}

/// The value of a text, all of which must be consumed. Throws `Vell::RangeException`.
template <class V>
V strepToValue(std::string_view text) {
  CharRange range(text);
  V value{};
  if constexpr (HasFields<V>)
    FieldOps<V>::read(range, value, {});
  else
    range.deserializeAttr("value", value);
  range.needEnd("value");
  return value;
}

}  // namespace Zarn
