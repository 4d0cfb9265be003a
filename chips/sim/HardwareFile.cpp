#include "chips/sim/HardwareFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/vell/Assert.h"

namespace Sim {
namespace {

constexpr auto startEmpty = "; restore it from a copy, or delete it to start with empty hardware";
constexpr auto useItsMaker =
    "; use the plug-in that made it, or delete it to start with empty hardware";
constexpr auto inUse = "is in use by another process; end that process, or name another file";

[[noreturn]] void failed(std::string const& path, std::string_view action, std::string_view mend) {
  throw HardwareError(
      path, Vell::concatenate("cannot be ", action, ": ", std::strerror(errno), "; ", mend));
}

bool isSameFile(int descriptor, std::string const& path) {
  struct stat opened, named;
  return ::fstat(descriptor, &opened) == 0 && ::stat(path.c_str(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

}  // namespace

HardwareFile::Descriptor::~Descriptor() {
  if (number >= 0) ::close(number);
}

HardwareFile::UnnamedFile::~UnnamedFile() {
  if (!path.empty()) ::unlink(path.c_str());
}

HardwareFile::HardwareFile(std::string path, Asic::Chip::Access access, FileLayout const& layout)
    : path_(std::move(path)), size_(layout.fileBytes()) {
  if (path_.empty()) throw HardwareError(path_, "has no name; say which file holds the hardware");
  bool const live = access == Asic::Chip::Access::live;
  if (openLocked(path_, live ? O_RDWR : O_RDONLY)) {
    check(layout);
    map(live ? MAP_SHARED : MAP_PRIVATE);
  } else if (live) {
    makeNew(layout);
    map(MAP_SHARED);
  } else {
    map(MAP_PRIVATE | MAP_ANONYMOUS);
    std::ranges::copy(layout.head(), bytes_);
  }
}

HardwareFile::~HardwareFile() {
  if (bytes_) ::munmap(bytes_, size_);
}

// False if there is no such file. A file that lost its name before it was locked belongs to the
// past: the name is then looked up again.
bool HardwareFile::openLocked(std::string const& path, int flags) {
  int const lock = (flags & O_ACCMODE) == O_RDONLY ? LOCK_SH : LOCK_EX;
  for (;;) {
    // O_NONBLOCK: a pipe that lies there is to be refused, not waited for.
    Descriptor opened{::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0644)};
    if (opened.number < 0) {
      if (errno == ENOENT && !(flags & O_CREAT)) return false;
      failed(path_, "opened", "check that its folder is there and that you may write to it");
    }
    struct stat facts;
    if (::fstat(opened.number, &facts) != 0 || !S_ISREG(facts.st_mode))
      throw HardwareError(path_, "is not a regular file; name another file");
    if (::flock(opened.number, lock | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK) failed(path_, "locked", "name a file on another file system");
      throw HardwareError(path_, inUse);
    }
    if (!isSameFile(opened.number, path)) continue;
    std::swap(file_.number, opened.number);
    return true;
  }
}

std::vector<U8> HardwareFile::readHead(std::size_t bytes) const {
  std::vector<U8> head(bytes);
  auto const got = ::pread(file_.number, head.data(), head.size(), 0);
  if (got < 0) failed(path_, "read", "check the disk");
  head.resize(static_cast<std::size_t>(got));
  return head;
}

void HardwareFile::check(FileLayout const& layout) const {
  auto const refuse = [&](auto const&... parts) {
    throw HardwareError(path_, Vell::concatenate(parts...));
  };
  FileHeader header{};
  auto const start = readHead(sizeof header);
  std::ranges::copy(start, reinterpret_cast<U8*>(&header));
  if (start.size() < sizeof header.magic || header.magic != FileHeader::magicText)
    refuse("is not a hardware file of the simulated chip; name another file");
  if (start.size() < sizeof header) refuse("is truncated in its header", startEmpty);
  if (header.version != FileHeader::currentVersion)
    refuse("has file version ", header.version, ", and this chip reads version ",
           FileHeader::currentVersion, useItsMaker);

  struct stat facts;
  if (::fstat(file_.number, &facts) != 0) failed(path_, "read", "check the disk");
  auto const bytes = static_cast<U64>(facts.st_size);
  if (bytes < header.headBytes) refuse("is truncated in its header", startEmpty);
  auto const head = readHead(header.headBytes);  // as long as the file's maker made it
  if (head.size() < sizeof header || FileLayout::checksum(head) != header.checksum)
    refuse("has a damaged header", startEmpty);
  if (bytes != header.fileBytes)
    refuse(bytes < header.fileBytes ? "is truncated: " : "was added to: ", bytes,
           " bytes instead of ", header.fileBytes, startEmpty);
  if (!std::ranges::equal(head, layout.head()))
    refuse("was made for other tables or rows than this chip has", useItsMaker);
}

// Whoever makes a file holds the lock on its temporary name, so that nobody else can give it its
// name once it is found missing below.
void HardwareFile::makeNew(FileLayout const& layout) {
  auto const name = path_.rfind('/') + 1;
  // Hidden, and of our own making: what else lies in the folder is the user's.
  auto const temporary = path_.substr(0, name) + "." + path_.substr(name) + ".new";
  openLocked(temporary, O_RDWR | O_CREAT);
  unnamed_.path = temporary;
  if (::access(path_.c_str(), F_OK) == 0) throw HardwareError(path_, inUse);
  // Reserved now: a store to a mapped page for which the disk has no block kills the process.
  auto const size = static_cast<off_t>(size_);
  errno = ::ftruncate(file_.number, 0) != 0 ? errno : ::posix_fallocate(file_.number, 0, size);
  if (errno != 0) failed(path_, "given its size", "free some space on the disk");
  auto const head = layout.head();
  if (::pwrite(file_.number, head.data(), head.size(), 0) != static_cast<ssize_t>(head.size()))
    failed(path_, "written", "check the disk");
}

void HardwareFile::nameNewFile() {
  if (unnamed_.path.empty()) return;
  if (::rename(unnamed_.path.c_str(), path_.c_str()) != 0)
    failed(path_, "created", "check that its folder may be written");
  unnamed_.path.clear();
}

void HardwareFile::map(int flags) {
  void* const base = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, flags, file_.number, 0);
  if (base == MAP_FAILED) failed(path_, "mapped", "name a file on another file system");
  bytes_ = static_cast<U8*>(base);
}

}  // namespace Sim
