// Allocation tracking per type: how many objects of a type exist now, and how many were ever made.
//
// A tracker is a static object of the class whose objects it counts, of constant initialisation, so
// that it counts before any constructor of its source has run. With the first object it enters
// itself in one process-wide list for good, so that a soak test or an agent can print memory by
// type. Counting is two plain increments: objects are made and freed on the owning agent's thread.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/vell/Types.h"

namespace Zarn {

class AllocTrackTypeInfo {
 public:
  /// `typeName` must outlive the process's use of the tracker (a literal, or a static array).
  constexpr explicit AllocTrackTypeInfo(std::string_view typeName) : typeName_(typeName) {}
  AllocTrackTypeInfo(AllocTrackTypeInfo const&) = delete;
  AllocTrackTypeInfo& operator=(AllocTrackTypeInfo const&) = delete;

  void allocated(std::size_t bytes) {
    if (!isListed_) [[unlikely]]
      list();
    ++live_;
    ++total_;
    liveBytes_ += bytes;
  }
  void released(std::size_t bytes) {
    --live_;
    liveBytes_ -= bytes;
  }

  std::string_view typeName() const { return typeName_; }
  /// Objects that exist now.
  U64 live() const { return live_; }
  /// Bytes that those objects take, without what they own elsewhere.
  U64 liveBytes() const { return liveBytes_; }
  /// Objects ever made.
  U64 total() const { return total_; }

  /// The process-wide list of types that had an object, newest first; null at its end.
  static AllocTrackTypeInfo const* first();
  AllocTrackTypeInfo const* next() const { return next_; }

 private:
  void list();

  std::string_view typeName_;
  bool isListed_ = false;
  U64 live_ = 0;
  U64 liveBytes_ = 0;
  U64 total_ = 0;
  AllocTrackTypeInfo const* next_ = nullptr;
};

}  // namespace Zarn
