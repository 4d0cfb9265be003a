// Fatal assertions: limits between components. They are checked in every build, since a broken
// limit means that what would follow reaches live hardware.
//
// VELL_ASSERT(condition, "expression", detail...) stops the process when `condition` is false, with
// the expression's text (given, not stringified, so that tools cannot reformat it), the place, and
// the details streamed one after the other. Details are evaluated only on failure.

#pragma once

#include <sstream>
#include <string>
#include <string_view>

namespace Vell {

/// Prints `fatal assertion "EXPRESSION" at FILE:LINE in FUNCTION: DETAIL` to
/// standard error and aborts.
[[noreturn]] void fatalAssertion(std::string_view expression, std::string const& detail,
                                 char const* file, unsigned line, char const* function);

/// Streams its arguments one after the other into one text.
template <class... Parts>
std::string concatenate(Parts const&... parts) {
  std::ostringstream text;
  static_cast<void>((text << ... << parts));
  return std::move(text).str();
}

/// Whether this build checks, at every transition, invariants that no input can break; the presets
/// for debugging and for sanitizers do. What it costs is not for live traffic.
#if defined(DLB_CHECK_INVARIANTS)
inline constexpr bool checksInvariants = true;
#else
inline constexpr bool checksInvariants = false;
#endif

}  // namespace Vell

#define VELL_ASSERT(condition, expression, ...)                                                \
  do {                                                                                         \
    if (!(condition)) [[unlikely]]                                                             \
      ::Vell::fatalAssertion(expression, ::Vell::concatenate(__VA_ARGS__), __FILE__, __LINE__, \
                             __PRETTY_FUNCTION__);                                             \
  } while (false)
