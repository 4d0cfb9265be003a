#include "chips/sim/FileLayout.h"

#include <algorithm>
#include <cstring>

#include "platform/vell/Assert.h"

namespace Sim {
namespace {

constexpr U64 roundedUp(U64 bytes) { return (bytes + 7) / 8 * 8; }

U64 fingerprintOf(std::span<TableShape const> shapes) {
  Fingerprint print;
  for (auto const& shape : shapes) {
    print.mix(shape.name);
    print.mix(U64{shape.rows});
    print.mix(shape.rowFingerprint);
    print.mix(U64{shape.stateTable});
  }
  return print.value();
}

DirectoryEntry directoryEntry(TableShape const& shape, U64 firstRow) {
  DirectoryEntry entry{{}, firstRow, shape.rows, shape.rowBytes};
  VELL_ASSERT(shape.name.size() < entry.name.size(), "shape.name.size() < entry.name.size()",
              shape.name, " is too long for the directory");
  std::ranges::copy(shape.name, entry.name.begin());
  return entry;
}

}  // namespace

FileLayout::FileLayout(std::span<TableShape const> shapes) : shapes_(shapes) {
  for (auto const& shape : shapes)
    recordBytes_ = std::max(recordBytes_, roundedUp(sizeof(JournalRecord) + shape.rowBytes));
  head_.resize(sizeof(FileHeader) + shapes.size() * sizeof(DirectoryEntry));

  U64 at = journalAt() + sizeof(JournalState) + journalRecords * recordBytes_;
  for (std::size_t table = 0; table < shapes.size(); ++table) {
    auto const entry = directoryEntry(shapes[table], at);
    std::memcpy(head_.data() + sizeof(FileHeader) + table * sizeof entry, &entry, sizeof entry);
    firstRows_.push_back(at);
    at += roundedUp(U64{shapes[table].rows} * shapes[table].rowBytes);
  }
  fileBytes_ = at;

  FileHeader header{.magic = FileHeader::magicText,
                    .version = FileHeader::currentVersion,
                    .headBytes = static_cast<U32>(head_.size()),
                    .fileBytes = fileBytes_,
                    .fingerprint = fingerprintOf(shapes),
                    .journalAt = journalAt(),
                    .journalRecords = journalRecords,
                    .journalRecordBytes = static_cast<U32>(recordBytes_),
                    .tables = shapes.size(),
                    .checksum = 0};
  std::memcpy(head_.data(), &header, sizeof header);
  header.checksum = checksum(head_);
  std::memcpy(head_.data(), &header, sizeof header);
}

}  // namespace Sim
