// Memory of a ring: a mapped file, or anonymous pages; and what is wrong with a file.
//
// 1. A mapping ends with its owner, the lock on its file too.
// 2. A file that is written is locked, so that no second process starts a ring over it.

#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/fennlog/Layout.h"

namespace Fennlog {

/// A trace file or ring that cannot be had; the text names the file and the mend.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
  Error(std::filesystem::path const& path, std::string const& problemAndMend)
      : Error("trace file \"" + path.string() + "\" " + problemAndMend) {}
};

/// An open file; closed with its owner.
class File {
 public:
  enum class Use { read, write, create };

  constexpr File() = default;
  /// Opens a regular file; one to be written or created is locked first. Throws Error.
  File(std::filesystem::path const& path, Use use);
  constexpr File(File&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  File& operator=(File&&) = delete;
  ~File();

  int descriptor() const { return descriptor_; }
  bool isOpen() const { return descriptor_ >= 0; }
  U64 size() const;

 private:
  int descriptor_ = -1;
};

class Mapping {
 public:
  constexpr Mapping() = default;
  /// Zeroed pages of this process.
  explicit Mapping(U64 bytes);
  /// The whole file at `path`, opened for `use`. A file to be created gets `bytes` zeros; the
  /// others are checked to be whole trace files of this version, see check. Throws Error.
  Mapping(std::filesystem::path const& path, File::Use use, U64 bytes = 0);
  constexpr Mapping(Mapping&& other) noexcept
      : file_(std::move(other.file_)),
        base_(std::exchange(other.base_, nullptr)),
        bytes_(other.bytes_) {}
  Mapping& operator=(Mapping&&) = delete;
  ~Mapping();

  bool isFile() const { return file_.isOpen(); }
  Header& header() const { return *reinterpret_cast<Header*>(base_); }
  char* dictionary() const { return base_ + headerBytes; }
  Record* records() const {
    return reinterpret_cast<Record*>(dictionary() + header().dictionaryBytes);
  }

 private:
  File file_;
  char* base_ = nullptr;
  U64 bytes_ = 0;
};

/// What a file is that already lies at a path.
enum class FileKind { thisVersion, otherVersion };

/// Throws Error unless `file`, at `path`, is a trace file and, if of this version, whole.
FileKind check(File const& file, std::filesystem::path const& path);

/// Throws Error if no ring can have that many records.
void checkCapacity(U64 capacity);

}  // namespace Fennlog
