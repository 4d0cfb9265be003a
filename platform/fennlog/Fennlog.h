// The always-on binary trace: what happened last, at a cost that the hottest path can bear.
//
//   static constinit Fennlog::Site site{"{}: {} refCnt: {}", "DlbControlTable", "entryDel"};
//   Fennlog::write(site, count);
//
// A message is one record of 32 bytes in the ring of the default handle: counter, site, up to
// two integers. Text is made when the ring is read (Reader.h), in this process or from the
// file that a dead one left.
//
// 1. There is a default handle from before the first static constructor on: a ring of 4096 records
//    in memory. Whoever wants a file says so with defaultHandleIs.
// 2. Without a default handle messages are dropped.
// 3. Writing never fails and never waits.
//
// Threading: see Ring.h. The default handle is changed while nobody writes.

#pragma once

#include <atomic>
#include <type_traits>

#include "platform/fennlog/Ring.h"
#include "platform/fennlog/Site.h"

namespace Fennlog {

extern std::atomic<Handle*> theDefaultHandle;

/// Where messages go; null if they are dropped.
inline Handle* defaultHandle() { return theDefaultHandle.load(std::memory_order_relaxed); }

/// Sends messages to `handle` from now on; null drops them. The caller keeps the handle.
void defaultHandleIs(Handle* handle);

/// The ring in memory that a process starts with.
Handle& startupHandle();

template <class Argument>
constexpr bool printsAsSigned() {
  if constexpr (std::is_enum_v<Argument>) {
    return std::is_signed_v<std::underlying_type_t<Argument>>;
  } else {
    return std::is_signed_v<Argument>;
  }
}

/// Adds a message of `site` to the default handle. The arguments are integers or enums, and fill
/// the placeholders that the site's texts left.
template <Time time = Time::now, class... Arguments>
inline void write(Site& site, Arguments... arguments) {
  static_assert(sizeof...(Arguments) <= maxArguments,
                "a record holds two arguments: split the message, or fix more text at the site");
  static_assert(((std::is_integral_v<Arguments> || std::is_enum_v<Arguments>)&&...),
                "a record holds integers: texts belong to the site, where they cost nothing");
  Handle* const handle = defaultHandle();
  if (handle == nullptr) [[unlikely]]
    return;
  U64 const values[maxArguments] = {static_cast<U64>(arguments)...};
  U32 signedArguments = 0;
  U32 bit = 1;
  ((signedArguments |= printsAsSigned<Arguments>() ? bit : 0, bit <<= 1), ...);
  handle->write(time, site, sizeof...(Arguments), signedArguments, values[0], values[1]);
}

}  // namespace Fennlog
