#include "platform/fennlog/Mapping.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <system_error>

namespace Fennlog {

namespace {

constexpr U64 largestCapacity = U64{1} << 28;
constexpr U64 largestDictionary = U64{1} << 32;

[[noreturn]] void failed(std::filesystem::path const& path, std::string const& action,
                         std::string const& mend) {
  throw Error(path,
              "cannot be " + action + ": " + std::generic_category().message(errno) + "; " + mend);
}

char* mapped(U64 bytes, int protection, int flags, int descriptor) {
  void* const base = ::mmap(nullptr, bytes, protection, flags, descriptor, 0);
  return base == MAP_FAILED ? nullptr : static_cast<char*>(base);
}

bool sizesAgree(Header const& header) {
  return header.recordBytes == sizeof(Record) && std::has_single_bit(header.capacity) &&
         header.capacity <= largestCapacity && header.dictionaryBytes <= largestDictionary &&
         header.dictionaryBytes % alignof(Header) == 0 &&
         header.dictionaryUsed.load() <= header.dictionaryBytes &&
         header.calibrationInUse.load() < 2 &&
         header.fileBytes ==
             headerBytes + header.dictionaryBytes + header.capacity * sizeof(Record);
}

}  // namespace

File::File(std::filesystem::path const& path, Use use) {
  int const flags = use == Use::read ? O_RDONLY : use == Use::write ? O_RDWR : O_RDWR | O_CREAT;
  // O_NONBLOCK: a pipe that lies there is to be refused, not waited for.
  descriptor_ = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0644);
  if (descriptor_ < 0) failed(path, "opened", "check that the path is right and permitted");
  File guard(std::move(*this));  // Closes it if one of the checks throws.
  struct stat facts;
  if (::fstat(guard.descriptor_, &facts) != 0 || !S_ISREG(facts.st_mode)) {
    throw Error(path, "is not a regular file; name another path");
  }
  if (use != Use::read && ::flock(guard.descriptor_, LOCK_EX | LOCK_NB) != 0) {
    throw Error(path, "is being written by another process; end that, or name another path");
  }
  std::swap(descriptor_, guard.descriptor_);
}

File::~File() {
  if (isOpen()) ::close(descriptor_);
}

U64 File::size() const {
  struct stat facts;
  return ::fstat(descriptor_, &facts) == 0 ? static_cast<U64>(facts.st_size) : 0;
}

Mapping::Mapping(U64 bytes) : bytes_(bytes) {
  base_ = mapped(bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1);
  if (base_ == nullptr) throw Error("no memory for a trace ring; ask for a smaller capacity");
}

Mapping::Mapping(std::filesystem::path const& path, File::Use use, U64 bytes)
    : file_(path, use), bytes_(bytes) {
  int protection = PROT_READ;
  if (use == File::Use::create) {
    protection |= PROT_WRITE;
    if (::ftruncate(file_.descriptor(), 0) != 0) failed(path, "emptied", "name another path");
    // Reserved now: a store to a mapped page for which the disk has no block kills the process.
    errno = ::posix_fallocate(file_.descriptor(), 0, static_cast<off_t>(bytes));
    if (errno != 0)
      failed(path, "given its size", "free some space, or ask for a smaller capacity");
  } else {
    if (check(file_, path) == FileKind::otherVersion) {
      throw Error(path, "was written by another version; read it with the program that wrote it");
    }
    bytes_ = file_.size();
  }
  base_ = mapped(bytes_, protection, MAP_SHARED, file_.descriptor());
  if (base_ == nullptr) failed(path, "mapped", "name a path on another file system");
}

Mapping::~Mapping() {
  if (base_ != nullptr) ::munmap(base_, bytes_);
}

FileKind check(File const& file, std::filesystem::path const& path) {
  constexpr auto mend = "; delete it, or move it away";
  Header header;
  auto const got = ::pread(file.descriptor(), static_cast<void*>(&header), sizeof header, 0);
  if (got < 0) failed(path, "read", "check the disk");
  auto const bytes = static_cast<U64>(got);
  if (bytes < sizeof header.magic || header.magic != Header::magicNumber) {
    throw Error(path, "is not a trace file; name another path");
  }
  if (bytes >= offsetof(Header, recordBytes) && header.version != Header::currentVersion) {
    return FileKind::otherVersion;
  }
  if (bytes < sizeof header) throw Error(path, std::string("is truncated") + mend);
  if (!sizesAgree(header)) throw Error(path, std::string("is damaged in its header") + mend);
  if (file.size() != header.fileBytes) {
    throw Error(path, "has " + std::to_string(file.size()) + " bytes instead of " +
                          std::to_string(header.fileBytes) + mend);
  }
  return FileKind::thisVersion;
}

void checkCapacity(U64 capacity) {
  if (std::has_single_bit(capacity) && capacity >= 2 && capacity <= largestCapacity) return;
  throw Error("a trace ring cannot have " + std::to_string(capacity) +
              " records; give it a power of two from 2 to 2^28");
}

}  // namespace Fennlog
