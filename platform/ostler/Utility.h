// Exceptions of operations that refuse what a client asks.

#pragma once

#include <string>

namespace Ostler::Utility {

/// Throws an `Exception` with that text.
template <class Exception>
[[noreturn]] void raise(std::string const& text) {
  throw Exception(text);
}

}  // namespace Ostler::Utility
