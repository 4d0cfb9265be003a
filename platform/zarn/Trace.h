// Trace: one line of text for what a table does, written only where somebody asked for it.
//
// A handle has a name and one bit for each level (0 to 31). `on(level)` is one test, and a line's
// text is built only behind it. Several handles may carry one name; levels are set by name, for the
// handles that exist and for those still to be made.
//
// Threading: handles are made at library load and on first use; levels and sink are
// set by the owner.

#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/vell/Types.h"

namespace Zarn {

class TraceHandle {
 public:
  static constexpr unsigned levels = 32;
  using Sink = std::function<void(std::string_view line)>;

  /// `allOn` starts the handle with every level on; levels set for its name go before it.
  explicit TraceHandle(std::string_view name, bool allOn = false);
  ~TraceHandle();
  TraceHandle(TraceHandle const&) = delete;
  TraceHandle& operator=(TraceHandle const&) = delete;

  std::string const& name() const { return name_; }
  bool on(unsigned level) const { return (enabled_ >> level & 1) != 0; }

  /// Writes the parts, one after the other, as one line. Call it behind `on`.
  template <class... Parts>
  void write(Parts const&... parts) const {
    std::ostringstream line;
    line << std::boolalpha;
    (line << ... << parts);
    emit(std::move(line).str());
  }

  /// Sets the levels of all handles of that name, bit n for level n. A name without "::" also means
  /// the handles whose qualified name ends in it. Where several settings mean a handle, the newest
  /// holds.
  static void levelsIs(std::string_view name, U32 mask);
  /// Where lines go; an empty sink brings back standard error. A sink may call this while it runs.
  static void sinkIs(Sink sink);

 private:
  static void emit(std::string const& line);

  std::string name_;
  U32 enabled_;
  TraceHandle* previous_ = nullptr;
  TraceHandle* next_ = nullptr;
};

}  // namespace Zarn
