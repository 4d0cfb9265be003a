// A value that may be absent.

#pragma once

#include <optional>

namespace Zarn {

template <class T>
using Optional = std::optional<T>;

}  // namespace Zarn
