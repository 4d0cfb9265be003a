// A handle: a ring of the latest messages, in memory or in a mapped file that outlives the process.
//
// 1. Writing never fails, waits or allocates, except at the first message of a site, which numbers
//    the site, and once a second in a file, which sets the clocks right.
// 2. The ring keeps the latest `capacity` messages; older ones are overwritten.
// 3. A file is readable at every moment, also after its writer was killed between two stores. Its
//    blocks are reserved at the start, so that a full disk shows there and not later.
// 4. A handle that is destroyed while it is the default leaves no default.
//
// Threading: one writer. With Vell::ThreadControl::tsp_ any number: each message then
// takes its slot atomically. Reading is safe beside writers. Only the process that
// made a handle writes to it.

#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <string_view>

#include "platform/fennlog/Layout.h"
#include "platform/fennlog/Mapping.h"
#include "platform/fennlog/Registry.h"
#include "platform/fennlog/Site.h"
#include "platform/vell/ThreadControl.h"

namespace Fennlog {

struct FileOptions {
  U64 capacity = 65536;             ///< Records of 32 bytes; a power of two, 2 to 2^28.
  U64 dictionaryBytes = 256 << 10;  ///< For site texts; sites beyond it are shown by number.
};

/// When a message is from. Reading the counter is most of what a message costs, so one that
/// directly follows another in the same operation may go without.
enum class Time : U8 { now, asMessageBefore };

class Handle {
 public:
  /// A ring of `capacity` records (a power of two, 2 to 2^28) in memory.
  static std::unique_ptr<Handle> inMemory(U64 capacity);

  /// A fresh ring in the file at `path`. A trace file of an earlier run that lies there is kept as
  /// PATH.1, in place of the one kept before; anything else there is refused, as is a file that
  /// another process is writing. Throws Error.
  static std::unique_ptr<Handle> inFile(std::filesystem::path const& path,
                                        FileOptions options = {});

  /// A handle on `capacity` records that the caller provides and keeps; see inMemory.
  constexpr Handle(Header& header, Record* records, U64 capacity)
      : header_(&header), records_(records), mask_(capacity - 1) {}

  Handle(Handle const&) = delete;
  Handle& operator=(Handle const&) = delete;
  ~Handle();

  /// Adds a message. `signedArguments` has bit i set if argument i is to be printed as signed.
  void write(Time time, Site& site, U32 argumentCount, U32 signedArguments, U64 first, U64 second);

  /// Puts a site's text where readers of the file find it, if there is room. For the registry.
  void siteIs(U32 number, std::string_view text);

  U64 capacity() const { return mask_ + 1; }
  Header const& header() const { return *header_; }
  Record const* records() const { return records_; }

 private:
  static constexpr U64 never = ~U64{0};

  explicit Handle(Mapping mapping);
  U64 claimedPosition();
  void calibrationIsDue();

  Header* header_;
  Record* records_;
  U64 mask_;
  std::atomic<U64> lastTicks_ = 0;            ///< Of the newest message that read the counter.
  std::atomic<U64> nextCalibration_ = never;  ///< In ticks.
  Mapping mapping_;                           ///< None if the caller provides the records.
  std::mutex mutex_;                          ///< For dictionary and calibrations.
};

inline U64 Handle::claimedPosition() {
  auto& next = header_->next;
  if (Vell::ThreadControl::tsp_) return next.fetch_add(1, std::memory_order_relaxed);
  auto const position = next.load(std::memory_order_relaxed);
  next.store(position + 1, std::memory_order_relaxed);
  return position;
}

inline void Handle::write(Time time, Site& site, U32 argumentCount, U32 signedArguments, U64 first,
                          U64 second) {
  constexpr auto relaxed = std::memory_order_relaxed;
  U32 number = site.number();
  if (number == 0) [[unlikely]]
    number = Registry::numberOf(site);

  U64 const position = claimedPosition();
  // Whoever sees any of what follows must see that the position is taken.
  std::atomic_thread_fence(std::memory_order_release);
  Record& record = records_[position & mask_];
  U64 const ticks = time == Time::now ? ticksNow() : lastTicks_.load(relaxed);
  lastTicks_.store(ticks, relaxed);
  record.ticks.store(ticks, relaxed);
  record.site.store(
      number | argumentCount << RecordSite::countShift | signedArguments << RecordSite::signedShift,
      relaxed);
  record.arguments[0].store(first, relaxed);
  record.arguments[1].store(second, relaxed);
  record.sequence.store(static_cast<U32>(position + 1), std::memory_order_release);

  if (ticks >= nextCalibration_.load(relaxed)) [[unlikely]]
    calibrationIsDue();
}

}  // namespace Fennlog
