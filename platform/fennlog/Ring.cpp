#include "platform/fennlog/Ring.h"

#include <unistd.h>

#include <cstring>
#include <new>
#include <string>

#include "platform/fennlog/Fennlog.h"

namespace Fennlog {

namespace {

constexpr U64 pageBytes = 4096;
constexpr double nanosecondsBetweenCalibrations = 1e9;

U64 ticksOfNextCalibration(Calibration const& now) {
  return now.ticks + static_cast<U64>(nanosecondsBetweenCalibrations / now.nanosecondsPerTick);
}

void beginRing(Mapping const& mapping, U64 capacity, U64 dictionaryBytes) {
  auto& header = *new (&mapping.header()) Header;
  header.capacity = capacity;
  header.dictionaryBytes = dictionaryBytes;
  header.fileBytes = headerBytes + dictionaryBytes + capacity * sizeof(Record);
  header.calibrations[0] = calibrate();
}

std::filesystem::path withSuffix(std::filesystem::path path, char const* suffix) {
  return path += suffix;
}

void moveFile(std::filesystem::path const& from, std::filesystem::path const& to) {
  std::error_code problem;
  std::filesystem::rename(from, to, problem);
  if (problem) {
    throw Error(from, "cannot be renamed to \"" + to.string() + "\": " + problem.message() +
                          "; move that away, or name another path");
  }
}

bool isThere(std::filesystem::path const& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

// Refuses what is not ours to move, or still in use.
void checkPreviousRun(std::filesystem::path const& path) {
  if (isThere(path)) check(File(path, File::Use::write), path);
}

void keepPreviousRun(std::filesystem::path const& path) {
  checkPreviousRun(path);
  if (isThere(path)) moveFile(path, withSuffix(path, ".1"));
}

/// A name beside `path` that no other process uses; the file there goes again unless it was moved.
struct Aside {
  explicit Aside(std::filesystem::path const& path)
      : name(path.parent_path() /
             ("." + path.filename().string() + ".new" + std::to_string(::getpid()))) {}
  ~Aside() {
    std::error_code ignored;
    std::filesystem::remove(name, ignored);
  }
  std::filesystem::path const name;
};

/// A new file aside; its errors name the path that the caller knows.
Mapping mappingAside(Aside const& aside, std::filesystem::path const& path, U64 bytes) {
  try {
    return Mapping(aside.name, File::Use::create, bytes);
  } catch (Error const& error) {
    std::string text = error.what();
    auto const shown = aside.name.string();
    if (auto const at = text.find(shown); at != text.npos)
      text.replace(at, shown.size(), path.string());
    throw Error(text);
  }
}

}  // namespace

std::unique_ptr<Handle> Handle::inMemory(U64 capacity) {
  checkCapacity(capacity);
  Mapping mapping(headerBytes + capacity * sizeof(Record));
  beginRing(mapping, capacity, 0);
  return std::unique_ptr<Handle>(new Handle(std::move(mapping)));
}

std::unique_ptr<Handle> Handle::inFile(std::filesystem::path const& path, FileOptions options) {
  checkCapacity(options.capacity);
  if (options.dictionaryBytes > (U64{1} << 32)) {
    throw Error(path, "cannot have a dictionary of more than 2^32 bytes; ask for a smaller one");
  }
  auto const dictionaryBytes = (options.dictionaryBytes + pageBytes - 1) / pageBytes * pageBytes;
  // Made aside, so that what lies at the path is whole from its first moment.
  checkPreviousRun(path);
  Aside const aside(path);
  auto mapping =
      mappingAside(aside, path, headerBytes + dictionaryBytes + options.capacity * sizeof(Record));
  beginRing(mapping, options.capacity, dictionaryBytes);
  keepPreviousRun(path);
  moveFile(aside.name, path);
  return std::unique_ptr<Handle>(new Handle(std::move(mapping)));
}

Handle::Handle(Mapping mapping)
    : header_(&mapping.header()),
      records_(mapping.records()),
      mask_(header_->capacity - 1),
      mapping_(std::move(mapping)) {
  if (!mapping_.isFile()) return;
  nextCalibration_ = ticksOfNextCalibration(header_->calibrations[0]);
  Registry::handleIsEnrolled(*this);
}

Handle::~Handle() {
  if (defaultHandle() == this) defaultHandleIs(nullptr);
  if (mapping_.isFile()) Registry::handleResigns(*this);
}

void Handle::siteIs(U32 number, std::string_view text) {
  std::lock_guard const lock(mutex_);
  auto const used = header_->dictionaryUsed.load(std::memory_order_relaxed);
  auto const bytes = dictionaryEntryBytes(text.size());
  if (bytes > header_->dictionaryBytes - used) return;
  DictionaryEntry const entry{number, static_cast<U32>(text.size())};
  auto* const place = mapping_.dictionary() + used;
  std::memcpy(place, &entry, sizeof entry);
  std::memcpy(place + sizeof entry, text.data(), text.size());
  header_->dictionaryUsed.store(used + bytes, std::memory_order_release);
}

void Handle::calibrationIsDue() {
  std::unique_lock const lock(mutex_, std::try_to_lock);
  if (!lock) return;  // Another thread does it, or a later message.
  auto const unused = 1 - header_->calibrationInUse.load(std::memory_order_relaxed);
  auto const now = calibrate();
  header_->calibrations[unused] = now;
  header_->calibrationInUse.store(unused, std::memory_order_release);
  nextCalibration_.store(ticksOfNextCalibration(now), std::memory_order_relaxed);
}

}  // namespace Fennlog
