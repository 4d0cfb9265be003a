// Counters of memory that is counted by what it holds, not by objects.

#pragma once

#include <string_view>

#include "platform/vell/Types.h"

namespace Vell::MemTrack {

class Impl {
 public:
  /// `name` must outlive the process's use of the counter.
  constexpr explicit Impl(std::string_view name) : name_(name) {}
  Impl(Impl const&) = delete;
  Impl& operator=(Impl const&) = delete;

  void allocated(U64 count) {
    live_ += count;
    total_ += count;
  }
  void released(U64 count) { live_ -= count; }

  std::string_view name() const { return name_; }
  /// How many there are now, and how many there ever were.
  U64 live() const { return live_; }
  U64 total() const { return total_; }

 private:
  std::string_view name_;
  U64 live_ = 0;
  U64 total_ = 0;
};

}  // namespace Vell::MemTrack
