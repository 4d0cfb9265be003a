// How a ring lies in memory and in its file: a header, the dictionary, the records.
//
//   Header                    one page
//   dictionary                dictionaryBytes; entries {U32 number, U32 length, text padded to 8}
//   Record[capacity]
//
// 1. All of it is in the byte order of the machine that wrote it.
// 2. `next` is the position of the next record, counted from the first one ever; position p lies in
//    slot p mod capacity. It goes up before the slot is written, and the slot's `sequence` is
//    stored last: a slot of position p is whole if its sequence is p + 1.
// 3. `dictionaryUsed` goes up after the entry before it is whole; the same holds for
//    `calibrationInUse` and the calibration that it names. A process may be killed at any store.

#pragma once

#include <atomic>

#include "platform/fennlog/Clock.h"
#include "platform/vell/Types.h"

namespace Fennlog {

struct alignas(32) Record {
  std::atomic<U64> ticks;
  std::atomic<U32> site;  ///< See RecordSite.
  std::atomic<U32> sequence;
  std::atomic<U64> arguments[2];
};
static_assert(sizeof(Record) == 32, "the file's layout, and two records in a cache line");

/// The site word of a record: the site's number, how many arguments follow, and which are signed.
struct RecordSite {
  static constexpr U32 numberMask = (1U << 24) - 1;
  static constexpr U32 countShift = 24;
  static constexpr U32 countMask = 3;
  static constexpr U32 signedShift = 28;  ///< One bit for each argument.
};

struct Header {
  static constexpr U64 magicNumber = 0x314c'4e4e'4546'0a89;  // as bytes: 0x89 '\n' "FENNL1"
  static constexpr U32 currentVersion = 1;

  U64 magic = magicNumber;
  U32 version = currentVersion;
  U32 recordBytes = sizeof(Record);
  U64 fileBytes = 0;
  U64 capacity = 0;
  U64 dictionaryBytes = 0;
  std::atomic<U64> dictionaryUsed = 0;
  std::atomic<U32> calibrationInUse = 0;
  Calibration calibrations[2];
  alignas(64) std::atomic<U64> next = 0;
};

struct DictionaryEntry {
  U32 number;
  U32 length;  ///< Of the text that follows, in bytes.
};

constexpr U64 headerBytes = 4096;
constexpr U64 dictionaryEntryBytes(U64 length) {
  return sizeof(DictionaryEntry) + (length + 7) / 8 * 8;
}

static_assert(sizeof(Header) <= headerBytes, "the dictionary begins at the second page");
static_assert(std::atomic<U64>::is_always_lock_free && std::atomic<U32>::is_always_lock_free,
              "a lock would lie outside the file, where its reader cannot take it");

}  // namespace Fennlog
