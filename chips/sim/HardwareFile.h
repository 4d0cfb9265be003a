// The bytes of the hardware: a file mapped into memory, or a private copy of one.
//
// Invariants
//  1. A file that is not whole, of this version and of this layout is refused and left as it is.
//  2. A live file is locked against every other user, a copied one against live users, as long as
//     the object lives.
//  3. A file appears under its name complete or not at all: a new one is made under .NAME.new and
//     keeps its lock while it gets its name. What a process that died left there is used again.
//  4. A copy changes nothing and makes nothing; a missing file is copied as empty hardware.

#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "chips/sim/FileLayout.h"
#include "platform/asic/Chip.h"

namespace Sim {

/// A hardware file that cannot be used; the text names the file, what is wrong, and the mend.
class HardwareError : public std::runtime_error {
 public:
  HardwareError(std::string const& path, std::string const& problemAndMend)
      : std::runtime_error("hardware file \"" + path + "\" " + problemAndMend) {}
};

class HardwareFile {
 public:
  /// Opens or makes the file. Throws HardwareError.
  HardwareFile(std::string path, Asic::Chip::Access access, FileLayout const& layout);
  ~HardwareFile();
  HardwareFile(HardwareFile const&) = delete;
  HardwareFile& operator=(HardwareFile const&) = delete;

  std::string const& path() const { return path_; }
  /// As many bytes as the layout says.
  U8* bytes() const { return bytes_; }
  /// Gives a new file its name, the last step of opening; without it the file is taken back.
  void nameNewFile();

 private:
  /// An open file; closed, and thereby unlocked, with its owner.
  struct Descriptor {
    ~Descriptor();
    int number = -1;
  };
  /// A file that has its temporary name; removed with its owner.
  struct UnnamedFile {
    ~UnnamedFile();
    std::string path;
  };

  bool openLocked(std::string const& path, int flags);
  void check(FileLayout const& layout) const;
  std::vector<U8> readHead(std::size_t bytes) const;
  void makeNew(FileLayout const& layout);
  void map(int flags);

  std::string path_;
  Descriptor file_;
  UnnamedFile unnamed_;  // goes before the lock
  U8* bytes_ = nullptr;
  U64 size_;
};

}  // namespace Sim
