// The hardware file: who may use it, and what is refused.

#include <sys/stat.h>

#include <cstring>

#include "Life.h"
#include "chips/sim/FileLayout.h"

namespace Chips {
namespace {

using Sim::FileHeader;
using Sim::JournalState;
using testing::AllOf;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

template <class Value>
void overwrite(std::string& bytes, std::size_t at, Value value) {
  std::memcpy(bytes.data() + at, &value, sizeof value);
}

// Changes the head as another build of the chip would have written it.
template <class Change>
void remake(std::string& bytes, Change change) {
  FileHeader header;
  std::memcpy(&header, bytes.data(), sizeof header);
  change(header);
  overwrite(bytes, 0, header);
  auto const* const head = reinterpret_cast<U8 const*>(bytes.data());
  overwrite(bytes, offsetof(FileHeader, checksum),
            Sim::FileLayout::checksum({head, header.headBytes}));
}

U64 journalAt(std::string const& bytes) {
  FileHeader header;
  std::memcpy(&header, bytes.data(), sizeof header);
  return header.journalAt;
}

// The newest operation was interrupted, and says something else of itself than was done.
void interruptedIs(std::string& bytes, U32 operation, U8 firstByteOfRow) {
  FileHeader header;
  std::memcpy(&header, bytes.data(), sizeof header);
  JournalState state;
  std::memcpy(&state, bytes.data() + header.journalAt, sizeof state);
  overwrite(bytes, header.journalAt, JournalState{state.published, state.published - 1});
  auto const record = header.journalAt + sizeof state +
                      state.published % header.journalRecords * header.journalRecordBytes;
  overwrite(bytes, record + offsetof(Sim::JournalRecord, operation), operation);
  overwrite(bytes, record + sizeof(Sim::JournalRecord), firstByteOfRow);
}

struct Damage {
  char const* name;
  void (*inflict)(std::string& bytes);
  char const* problem;
};
Damage const damages[] = {
    {"empty", [](auto& bytes) { bytes.clear(); }, "is not a hardware file"},
    {"version", [](auto& bytes) { overwrite(bytes, offsetof(FileHeader, version), U32{2}); },
     "has file version 2, and this chip reads version 1"},
    {"short directory", [](auto& bytes) { bytes.resize(sizeof(FileHeader) + 1); }, "is truncated"},
    {"truncated", [](auto& bytes) { bytes.pop_back(); }, "is truncated"},
    {"longer", [](auto& bytes) { bytes.push_back(0); }, "was added to"},
    {"header", [](auto& bytes) { bytes[offsetof(FileHeader, journalAt)] ^= 8; }, "damaged header"},
    {"directory", [](auto& bytes) { bytes[sizeof(FileHeader) + 3] ^= 1; }, "damaged header"},
    {"other tables", [](auto& bytes) { remake(bytes, [](auto& head) { ++head.fingerprint; }); },
     "was made for other tables or rows"},
    {"applied",
     [](auto& bytes) {
       overwrite(bytes, journalAt(bytes), JournalState{1, 2});
     },
     "damaged journal"},
    {"published",
     [](auto& bytes) {
       overwrite(bytes, journalAt(bytes), JournalState{3, 1});
     },
     "damaged journal"},
    {"beyond all numbers",
     [](auto& bytes) {
       overwrite(bytes, journalAt(bytes), JournalState{~U64{0}, ~U64{0}});
     },
     "damaged journal"},
    {"written row not valid", [](auto& bytes) { interruptedIs(bytes, 1, 2); }, "damaged journal"},
    {"deleted row not zeros", [](auto& bytes) { interruptedIs(bytes, 2, 1); }, "damaged journal"},
};

class SimFileTest : public ChipTest {
 protected:
  static std::string openError(std::string const& file, Access access = Access::live) {
    return errorOf([&] { newChip()->open(opened(file, access)); });
  }
};

TEST_F(SimFileTest, damagedFilesAreRefusedWithNameAndMendAndLeftAsTheyAre) {
  { Life<Control>(opened(hardware)).replay({{3, control(3)}, {4, control(4)}}); }
  auto const sound = bytesOf(hardware);
  for (auto const& damage : damages) {
    SCOPED_TRACE(damage.name);
    auto damaged = sound;
    damage.inflict(damaged);
    bytesAre(hardware, damaged);
    for (auto const access : {Access::live, Access::copy})
      EXPECT_THAT(openError(hardware, access),
                  AllOf(StartsWith("hardware file \"" + hardware + "\" "),
                        HasSubstr(damage.problem), HasSubstr("; ")));
    EXPECT_EQ(bytesOf(hardware), damaged);
  }
  bytesAre(hardware, sound);
  EXPECT_THAT(rowsIn<Control>(hardware), SizeIs(2));
}

TEST_F(SimFileTest, whatIsNoFileIsRefused) {
  ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
  EXPECT_THAT(openError(path("pipe")), HasSubstr("is not a regular file; name another"));
  EXPECT_THAT(openError(folder), HasSubstr("cannot be opened: Is a directory"));
  EXPECT_THAT(openError(path("no/leaf.hw")), AllOf(HasSubstr("no/leaf.hw\" cannot be opened"),
                                                   HasSubstr("check that its folder")));
  EXPECT_THAT(openError(""), HasSubstr("say which file holds the hardware"));
}

TEST_F(SimFileTest, oneLiveUserOrManyCopies) {
  auto const inUse = HasSubstr("is in use by another process; end that process");
  {
    Life<Control> const live(opened(hardware));
    EXPECT_THAT(openError(hardware), inUse);
    EXPECT_THAT(openError(hardware, Access::copy), inUse);
    EXPECT_THAT(errorOf([&] { live.chip->open(opened(path("other.hw"))); }),
                HasSubstr("leaf.hw\" already; make another chip"));
  }
  Life<Control> const copy(opened(hardware, Access::copy));
  EXPECT_EQ(openError(hardware, Access::copy), "no error");
  EXPECT_THAT(openError(hardware), inUse);
}

TEST_F(SimFileTest, aCopyTouchesNothing) {
  {
    Life<Control> copy(opened(hardware, Access::copy));
    copy.replay({{1, control(1)}});
    EXPECT_EQ(copy.operations().writes, 1u);
    EXPECT_FALSE(std::filesystem::exists(hardware));
  }
  { Life<Control>(opened(hardware)).replay({{1, control(1)}, {2, control(2)}}); }
  ASSERT_EQ(::chmod(hardware.c_str(), 0400), 0);
  auto const before = bytesOf(hardware);
  Life<Control> copy(opened(hardware, Access::copy));
  copy.replay({{1, control(1)}, {2, control(3)}, {4, control(4)}});
  EXPECT_EQ(copy.operations().writes, 2u) << "the copy holds what the file holds";
  EXPECT_TRUE(copy.table->util()->compareHwEntries(*copy.table, 4, control(4)));
  EXPECT_EQ(bytesOf(hardware), before);
}

TEST_F(SimFileTest, aNewFileIsMadeOverWhatADeadProcessLeft) {
  auto const aside = path(".leaf.hw.new");
  bytesAre(aside, std::string(100000, 'x'));
  bytesAre(hardware + ".new", "a file of the user's");
  { Life<Control>(opened(hardware)).replay({{1, control(1)}}); }
  EXPECT_THAT(rowsIn<Control>(hardware), SizeIs(1));
  EXPECT_FALSE(std::filesystem::exists(aside));
  EXPECT_EQ(bytesOf(hardware + ".new"), "a file of the user's");
}

}  // namespace
}  // namespace Chips
