// Hardware files that something has damaged. An input is a list of patches to the file of a simulated chip
// that holds some rows. Such a file is refused, with its name and the mend, and left as it is; or it is
// opened, by a copy as by a live chip, and then the tables that were damaged can be read; all of them if the
// input says so.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "agent/ChainTables.h"
#include "agent/Configuration.h"
#include "agent/FieldValue.h"
#include "agent/Session.h"
#include "chips/sim/FileLayout.h"
#include "fuzz/Expect.h"
#include "platform/asic/TableRunner.h"
#include "platform/vell/Inspect.h"
#include "read/DlbEcmpFlowsetTableRead.h"

namespace {

using namespace DlbAgent;
using Access = Asic::Chip::Access;
using Fuzz::expect;
using Sim::DirectoryEntry;
using Sim::FileHeader;
using Sim::JournalRecord;
using Sim::JournalState;

/// What the file holds before it is damaged.
constexpr std::string_view contents = R"({
  "tables": {"DlbControlTable": {"1": {"samplingPeriod": 3}, "2": {}},
             "DlbEcmpFlowsetTable": {"0": {"portAssignment": 1}},
             "DlbEcmpGroupTable": {"5": {"portToMemberMap": {"1": 5, "2": 6}}},
             "DlbEcmpQualityMapTable":
               {"DlbEcmpQualityMapKey{portLoading:1 totalPortQsize:2 itmPortQsize:3 profile:0}": 7}},
  "nextHops": {"n": {"port": 1, "mac": "02:00:00:00:00:01", "vlan": 10}},
  "memberBlocks": {"b": {"rows": [{"nextHop": "n"}, {"nextHop": "n", "weightIdx": 1}]}},
  "groups": {"g": {"adjId": 7}}, "selectiveGroups": {"s": {"adjId": 8, "block": "b"}},
  "adjacencies": {"a": {"id": 3, "group": "s"}}})";

// ---- the file ----

std::filesystem::path newFolder() {
  // In memory where there is such a place.
  std::filesystem::path const shared("/dev/shm");
  auto const above =
      std::filesystem::is_directory(shared) ? shared : std::filesystem::temp_directory_path();
  auto pattern = (above / "dlb-fuzz-XXXXXX").string();
  expect(::mkdtemp(pattern.data()), "a folder for the file can be made", pattern);
  return pattern;
}

/// A file with holes: only what differs from zeros takes memory, and time to look at.
class File {
 public:
  struct Piece {
    U64 at;
    std::vector<U8> bytes;
    bool operator==(Piece const&) const = default;
  };

  explicit File(std::filesystem::path path) : path_(std::move(path)) {}

  std::string const& path() const { return path_.native(); }
  void remakeIs(std::span<Piece const> pieces, U64 size) {
    Open const file(path_, O_RDWR | O_CREAT);
    expect(::ftruncate(file.number, 0) == 0 && ::ftruncate(file.number, off_t(size)) == 0,
           "the file takes its size");
    for (auto const& piece : pieces) write(file, piece.at, piece.bytes);
  }
  void bytesAre(U64 at, std::span<U8 const> bytes) { write(Open(path_, O_RDWR), at, bytes); }
  U64 size() const { return std::filesystem::file_size(path_); }
  std::vector<U8> bytes(U64 at, U64 count) const {
    std::vector<U8> bytes(count);
    auto const got = ::pread(Open(path_, O_RDONLY).number, bytes.data(), count, off_t(at));
    bytes.resize(got < 0 ? 0 : std::size_t(got));
    return bytes;
  }
  /// The pages that are not all zeros.
  std::vector<Piece> pieces() const {
    static constexpr std::array<U8, 4096> zeros{};
    std::vector<Piece> pieces;
    std::array<U8, zeros.size()> page;
    Open const file(path_, O_RDONLY);
    for (off_t at = 0; (at = ::lseek(file.number, at, SEEK_DATA)) >= 0;) {
      auto const end = ::lseek(file.number, at, SEEK_HOLE);
      for (; at < end; at += off_t(page.size())) {
        auto const count = std::min(page.size(), std::size_t(end - at));
        expect(::pread(file.number, page.data(), count, at) == ssize_t(count),
               "the file can be read");
        if (std::memcmp(page.data(), zeros.data(), count) != 0)
          pieces.push_back({U64(at), {page.begin(), page.begin() + off_t(count)}});
      }
      at = end;
    }
    return pieces;
  }

 private:
  struct Open {
    Open(std::filesystem::path const& path, int flags)
        : number(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {
      expect(number >= 0, "the file can be opened", path.native());
    }
    ~Open() { ::close(number); }
    Open(Open const&) = delete;
    Open& operator=(Open const&) = delete;
    int number;
  };
  static void write(Open const& file, U64 at, std::span<U8 const> bytes) {
    expect(::pwrite(file.number, bytes.data(), bytes.size(), off_t(at)) == ssize_t(bytes.size()),
           "the file can be written");
  }

  std::filesystem::path path_;
};

// ---- the chip ----

Asic::Chip::Options optionsFor(std::string const& file, Access access) {
  Asic::Chip::Options options;
  options.hardware = file;
  options.access = access;
  return options;
}

/// The chip with that file open; what it says if it refuses the file.
struct Opening {
  Opening(std::string const& file, Access access) : chip(chipNamed("sim")) {
    try {
      chip->open(optionsFor(file, access));
    } catch (std::runtime_error const& error) {
      refusal = error.what();
    }
  }
  Vell::Ptr<Asic::Chip> chip;
  std::string refusal = {};
};

/// In a process of its own: the tables of a session stay to the end of one.
void makeSoundFile(std::string const& path) {
  auto const child = ::fork();
  expect(child >= 0, "a process can be made");
  if (child == 0) {
    Catalogue const catalogue;
    Session session(catalogue, "sim");
    auto const wanted = Configuration::fromText(contents, "contents", catalogue, session.room());
    session.open(optionsFor(path, Access::live));
    session.start();
    session.replay(wanted);
    ::_exit(0);
  }
  int status = 0;
  expect(::waitpid(child, &status, 0) == child && status == 0, "a sound file can be made");
}

/// Lets the table find what the hardware holds, and reads every field of it.
void readThrough(Vell::Ptr<Asic::SwTable> table, TableType const* type,
                 Vell::Ptr<Asic::Chip> const& chip) {
  Asic::TableRunner runner(table);
  expect(runner.attachUtil("sim"), "the chip has hooks for all tables");
  runner.start(chip);
  if (type)
    Vell::Inspect(*table).walk("syncedEntry", [&](auto const&, auto const& entry) {
      for (auto const* field : type->fields()) {
        auto const text = valueText(*field, fieldOf(*entry.record(), *field), 1000);
        expect(field->shape == Vell::ValueShape::text || !text.empty(), "a field has a text");
      }
    });
  table->utilIs(nullptr);  // the table goes, and the rows stay
}

/// `isRead(qualified name)` says which tables.
template <class Predicate>
void readTables(Vell::Ptr<Asic::Chip> const& chip, Predicate const& isRead) {
  using FlowsetRead = TessarLoadBalance::DlbEcmpFlowsetTableRead;
  static Catalogue const catalogue;
  auto const made = [](TableType const& type) {
    auto const node = Vell::inspectMake(type.table());
    return Vell::Ptr<Asic::SwTable>(static_cast<Asic::SwTable*>(node.get()));
  };
  for (auto const& type : catalogue.tables())
    if (isRead(type.qualifiedName())) readThrough(made(type), &type, chip);
  for (auto const* type : chainTypes())
    if (isRead(type->qualifiedName())) readThrough(made(*type), type, chip);
  if (isRead(FlowsetRead::names.qualified)) readThrough(new FlowsetRead, nullptr, chip);
  for (auto const& each : chip->journal(~std::size_t{0}))
    expect(each.number > 0 && !each.table.empty() && !each.operation.empty(), "a journal's entry");
}

// ---- the target ----

class Target {
 public:
  Target() {
    makeSoundFile(file_.path());
    size_ = file_.size();
    sound_ = file_.pieces();
    auto const start = file_.bytes(0, sizeof header_);
    std::memcpy(&header_, start.data(), sizeof header_);
    directory_.resize(header_.tables);
    auto const entries = file_.bytes(sizeof header_, directory_.size() * sizeof(DirectoryEntry));
    std::memcpy(directory_.data(), entries.data(), entries.size());
  }
  ~Target() { std::filesystem::remove_all(folder_); }
  Target(Target const&) = delete;
  Target& operator=(Target const&) = delete;

  void run(std::span<U8 const> input) {
    file_.remakeIs(sound_, size_);
    damage(input);
    auto const damaged = file_.pieces();
    auto const size = file_.size();
    auto const isUntouched = [&] { return file_.size() == size && file_.pieces() == damaged; };

    std::string const refusal = Opening(file_.path(), Access::copy).refusal;
    expect(isUntouched(), "a copy leaves the file as it is", refusal);
    auto const interrupted = journalState();
    {
      Opening const live(file_.path(), Access::live);
      expect(live.refusal == refusal, "a live chip and a copy agree", live.refusal + refusal);
    }
    if (!refusal.empty()) {
      expect(refusal.starts_with("hardware file \"" + file_.path() + "\" ") &&
                 refusal.find("; ") != refusal.npos,
             "a refusal names the file and the mend", refusal);
      expect(isUntouched(), "a file that is refused stays as it is", refusal);
      return;
    }
    checkJournal(interrupted);
    auto const opened = file_.pieces();
    Opening const copy(file_.path(), Access::copy);
    expect(copy.refusal.empty(), "what was opened can be opened again", copy.refusal);
    readTables(copy.chip, [&](std::string_view table) { return allAreRead_ || isTouched(table); });
    if (allAreRead_) copy.chip->contradictions();
    expect(file_.pieces() == opened, "reading changes nothing");
  }

 private:
  enum Flags : U8 { remakeChecksum = 1, cutOff = 2, addTo = 4, allAreRead = 128 };
  enum class Region : U8 { head, journalState, record, rows };

  /// FLAGS (and above them how far the file is cut), then patches: REGION and length, NUMBER, OFFSET (two
  /// bytes), BYTES. What the number and the offset count from depends on the region; what lies outside of
  /// it begins at its start again.
  void damage(std::span<U8 const> input) {
    auto const take = [&] {
      U8 const byte = input.empty() ? U8{0} : input.front();
      if (!input.empty()) input = input.subspan(1);
      return byte;
    };
    auto const flags = take();
    allAreRead_ = flags & allAreRead;
    touched_.clear();
    while (!input.empty()) {
      auto const kind = take();
      auto const number = take();
      U64 const offset = take() | U64{take()} << 8;
      auto const length = std::min<std::size_t>(kind >> 2, input.size());
      patch(static_cast<Region>(kind & 3), number, offset, input.first(length));
      input = input.subspan(length);
    }
    if (flags & remakeChecksum) {
      auto const head = file_.bytes(0, header_.headBytes);
      auto const checksum = Sim::FileLayout::checksum(head);
      file_.bytesAre(offsetof(FileHeader, checksum),
                     {reinterpret_cast<U8 const*>(&checksum), sizeof checksum});
    }
    if (flags & cutOff) std::filesystem::resize_file(file_.path(), size_ >> (flags >> 3 & 15));
    if (flags & addTo) std::filesystem::resize_file(file_.path(), file_.size() + 1);
  }

  void patch(Region region, U8 number, U64 offset, std::span<U8 const> bytes) {
    auto const within = [&](U64 at, U64 length) {
      auto const start = offset % length;
      file_.bytesAre(at + start, bytes.first(std::min<U64>(bytes.size(), length - start)));
    };
    switch (region) {
      case Region::head:
        return within(0, header_.headBytes);
      case Region::journalState:
        return within(header_.journalAt, sizeof(JournalState));
      case Region::record:
        return within(recordAt(number), header_.journalRecordBytes);
      case Region::rows:
        auto const& table = directory_[number % directory_.size()];
        touched_.insert(table.name.data());
        return within(table.firstRow, U64{table.rows} * table.rowBytes);
    }
  }

  U64 recordAt(U64 number) const {
    return header_.journalAt + sizeof(JournalState) +
           number % header_.journalRecords * header_.journalRecordBytes;
  }
  JournalState journalState() const { return read<JournalState>(header_.journalAt); }

  template <class T>
  T read(U64 at) const {
    T value{};
    auto const bytes = file_.bytes(at, sizeof value);
    std::memcpy(&value, bytes.data(), bytes.size());
    return value;
  }

  /// An operation that was interrupted is done now, as it says of itself.
  void checkJournal(JournalState const& before) {
    auto const now = journalState();
    expect(now.published == before.published && now.applied == now.published,
           "nothing is left to be done");
    if (before.applied == before.published) return;
    auto const record = read<JournalRecord>(recordAt(now.published));
    if (record.operation > 2) return;  // no row was changed
    auto const& table = directory_.at(record.table);
    touched_.insert(table.name.data());
    auto const row = file_.bytes(table.firstRow + record.row * table.rowBytes, table.rowBytes);
    if (record.operation == 1) expect(row[0] & 1, "a row that was written is valid");
    if (record.operation == 2)
      expect(std::ranges::all_of(row, [](U8 byte) { return byte == 0; }), "a deleted row is zeros");
  }

  bool isTouched(std::string_view table) const { return touched_.contains(table); }

  std::filesystem::path folder_ = newFolder();
  File file_{folder_ / "chip.hw"};
  U64 size_ = 0;
  std::vector<File::Piece> sound_;
  FileHeader header_{};
  std::vector<DirectoryEntry> directory_;
  // Of the input that is run. Most inputs leave most tables as they were, and to read them all takes long.
  std::set<std::string, std::less<>> touched_;
  bool allAreRead_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Target target;
  target.run({data, size});
  return 0;
}
