// The trace ring: what is read back is what was written, whatever happened to writer and file.

#include "platform/fennlog/Fennlog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <limits>
#include <set>
#include <thread>

#include "platform/fennlog/Reader.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using namespace std::chrono_literals;

enum class Kind : std::int8_t { below = -3 };

std::vector<std::string> texts(std::vector<Fennlog::Message> const& messages) {
  std::vector<std::string> result;
  for (auto const& message : messages) result.push_back(message.text);
  return result;
}

// The text of the Error that `action` throws.
template <class Action>
std::string errorOf(Action action) {
  try {
    action();
  } catch (Fennlog::Error const& error) {
    return error.what();
  }
  return "no error";
}

// Writes go to a ring of 8 records; the handle that was the default comes back at the end.
class FennlogTest : public testing::Test {
 protected:
  FennlogTest() { Fennlog::defaultHandleIs(ring_.get()); }
  ~FennlogTest() override {
    Fennlog::defaultHandleIs(&Fennlog::startupHandle());
    Vell::ThreadControl::tsp_ = false;
    std::filesystem::remove_all(folder_);
  }

  std::filesystem::path file(std::string const& name) const { return folder_ / name; }

  std::unique_ptr<Fennlog::Handle> ring_ = Fennlog::Handle::inMemory(8);

 private:
  static std::filesystem::path newFolder() {
    auto pattern = (std::filesystem::path(testing::TempDir()) / "fennlog-XXXXXX").string();
    return ::mkdtemp(pattern.data());
  }
  std::filesystem::path folder_ = newFolder();
};

TEST_F(FennlogTest, formatsOnlyWhatWasWritten) {
  static constinit Fennlog::Site plain{"{}: {}", "Table", "handleEntry"};
  static constinit Fennlog::Site two{"{}: {} type: {}, refCnt: {}", "Table", "amend"};
  static constinit Fennlog::Site hex{"{}: at 0x{:x} {{{}}}", "Set{U8}"};
  Fennlog::write(plain);
  Fennlog::write(two, Kind::below, std::numeric_limits<U64>::max());
  Fennlog::write(two, true, U8{255});
  Fennlog::write(hex, 0xBEEF, std::numeric_limits<std::int64_t>::min());
  // A message that does not fit its site is shown as it is, and never stops the process.
  Fennlog::write(two, 1);
  Fennlog::write(plain, 2, 3);
  EXPECT_THAT(texts(Fennlog::read(*ring_)),
              ElementsAre("Table: handleEntry",                                   //
                          "Table: amend type: -3, refCnt: 18446744073709551615",  //
                          "Table: amend type: 1, refCnt: 255",                    //
                          "Set{U8}: at 0xbeef {-9223372036854775808}",            //
                          "Table: amend type: 1, refCnt: {}",                     //
                          "Table: handleEntry: 2, 3"));
}

TEST_F(FennlogTest, keepsTheLatestMessagesInOrderWithTheirTimes) {
  static constinit Fennlog::Site site{"message {}"};
  for (int i = 0; i < 8 * 3 + 3; ++i) Fennlog::write(site, i);
  auto const before = std::chrono::system_clock::now();
  for (int i : {27, 28}) Fennlog::write(site, i);
  auto const after = std::chrono::system_clock::now();
  auto const messages = Fennlog::read(*ring_);
  ASSERT_THAT(messages, SizeIs(8));
  for (std::size_t i = 0; i < 8; ++i)
    EXPECT_EQ(messages[i].text, "message " + std::to_string(21 + i));
  EXPECT_GT(messages[6].time, before - 5ms);
  EXPECT_GE(messages[7].time, messages[6].time);
  EXPECT_LT(messages[7].time, after + 5ms);
}

TEST_F(FennlogTest, dropsMessagesWithoutADefaultHandle) {
  static constinit Fennlog::Site site{"dropped"};
  Fennlog::defaultHandleIs(nullptr);
  Fennlog::write(site);
  EXPECT_THAT(Fennlog::read(*ring_), SizeIs(0));

  Fennlog::defaultHandleIs(ring_.get());
  ring_.reset();
  EXPECT_EQ(Fennlog::defaultHandle(), nullptr) << "a destroyed ring is no default";
  Fennlog::write(site);
}

TEST_F(FennlogTest, severalThreadsLoseNothing) {
  static constinit Fennlog::Site site{"thread {} wrote {}"};
  constexpr int each = 2048;
  auto const ring = Fennlog::Handle::inMemory(4 * each);
  Fennlog::defaultHandleIs(ring.get());
  Vell::ThreadControl::tsp_ = true;
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([t] {
        for (int i = 0; i < each; ++i) Fennlog::write(site, t, i);
      });
    }
    for (int i = 0; i < 20; ++i) Fennlog::read(*ring);
  }
  std::set<std::string> different;
  for (auto const& message : Fennlog::read(*ring)) different.insert(message.text);
  EXPECT_THAT(different, SizeIs(4 * each));
}

TEST_F(FennlogTest, fileOutlivesAKilledProcess) {
  static constinit Fennlog::Site early{"numbered before the file was made"};
  static constinit Fennlog::Site site{"{}: step {}", "child"};
  auto const path = file("trace");
  Fennlog::write(early);

  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  auto const child = ::fork();
  if (child == 0) {
    ::alarm(60);  // In case that the parent fails before it kills this.
    auto const handle = Fennlog::Handle::inFile(path, {.capacity = 64});
    Fennlog::defaultHandleIs(handle.get());
    Fennlog::write(early);
    char const ready = 'r';
    for (U32 i = 0;; ++i) {
      Fennlog::write(site, i);
      if (i == 1000 && ::write(pipe[1], &ready, 1) != 1) ::_exit(1);
    }
  }
  char ready = 0;
  ASSERT_EQ(::read(pipe[0], &ready, 1), 1);
  EXPECT_THAT(errorOf([&] { Fennlog::Handle::inFile(path); }), HasSubstr("another process"));
  // The writer runs at full speed meanwhile: what is read is whole all the same.
  for (int i = 0; i < 100; ++i) {
    for (auto const& text : texts(Fennlog::readFile(path))) {
      ASSERT_THAT(text, testing::StartsWith("child: step "));
    }
  }
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ::close(pipe[0]);
  ::close(pipe[1]);

  auto const messages = Fennlog::readFile(path);
  ASSERT_GE(messages.size(), 63U) << "only the record that the writer was killed in may be missing";
  auto const first = std::stoul(messages.front().text.substr(sizeof "child: step"));
  for (std::size_t i = 0; i < messages.size(); ++i) {
    EXPECT_EQ(messages[i].text, "child: step " + std::to_string(first + i));
  }
  EXPECT_LT(std::chrono::abs(messages.back().time - std::chrono::system_clock::now()), 10s);
}

TEST_F(FennlogTest, leavesOutTheRecordThatWasBeingWritten) {
  static constinit Fennlog::Site site{"number {}"};
  for (int i = 0; i < 9; ++i) Fennlog::write(site, i);
  // As a writer leaves it that was killed after it took position 9: slot 1 holds position 1 still.
  const_cast<Fennlog::Header&>(ring_->header()).next = 10;
  EXPECT_THAT(texts(Fennlog::read(*ring_)),
              ElementsAre("number 2", "number 3", "number 4", "number 5", "number 6", "number 7",
                          "number 8"));
}

TEST_F(FennlogTest, newRunKeepsTheFileOfTheOneBefore) {
  static constinit Fennlog::Site site{"run {}"};
  for (int run = 1; run <= 3; ++run) {
    auto const handle = Fennlog::Handle::inFile(file("trace"), {.capacity = 16});
    Fennlog::defaultHandleIs(handle.get());
    Fennlog::write(site, run);
  }
  EXPECT_THAT(texts(Fennlog::readFile(file("trace"))), ElementsAre("run 3"));
  EXPECT_THAT(texts(Fennlog::readFile(file("trace.1"))), ElementsAre("run 2"));
}

TEST_F(FennlogTest, sitesBeyondTheDictionaryAreShownByNumber) {
  static std::string const longText(40'000, 'x');
  static Fennlog::Site fits{"{}", std::string_view(longText)};
  static Fennlog::Site tooMuch{"{}{}", std::string_view(longText), "y"};
  static constinit Fennlog::Site small{"small {}"};
  auto const handle =
      Fennlog::Handle::inFile(file("trace"), {.capacity = 16, .dictionaryBytes = 65536});
  Fennlog::defaultHandleIs(handle.get());
  Fennlog::write(fits);
  Fennlog::write(tooMuch, 7, -8);
  Fennlog::write(small, 9);
  EXPECT_THAT(
      texts(Fennlog::readFile(file("trace"))),
      ElementsAre(longText, "site " + std::to_string(tooMuch.number()) + ": 7, -8", "small 9"));
}

struct Damage {
  char const* name;
  void (*inflict)(std::filesystem::path const&);
  char const* problem;
  bool isRefusedForWriting = true;
};

template <class Value>
void overwrite(std::filesystem::path const& path, std::size_t at, Value value) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(at));
  file.write(reinterpret_cast<char const*>(&value), sizeof value);
}

using Fennlog::Header;
Damage const damages[] = {
    {"empty", [](auto& path) { std::filesystem::resize_file(path, 0); }, "is not a trace file"},
    {"version", [](auto& path) { overwrite(path, offsetof(Header, version), U32{2}); },
     "another version", false},
    {"header", [](auto& path) { std::filesystem::resize_file(path, 60); }, "is truncated"},
    {"truncated", [](auto& path) { std::filesystem::resize_file(path, 8704); },
     "8704 bytes instead"},
    {"capacity", [](auto& path) { overwrite(path, offsetof(Header, capacity), U64{48}); },
     "header"},
    {"used", [](auto& path) { overwrite(path, offsetof(Header, dictionaryUsed), ~U64{0}); },
     "header"},
    {"rate", [](auto& path) { overwrite(path, offsetof(Header, calibrations) + 16, -1.0); }, "rate",
     false},
    {"number", [](auto& path) { overwrite(path, 4096, U32{0}); }, "dictionary", false},
    {"pipe",
     [](auto& path) {
       std::filesystem::remove(path);
       ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
     },
     "is not a regular file"},
    {"missing", [](auto& path) { std::filesystem::remove(path); }, "No such file", false},
};

TEST_F(FennlogTest, damagedFilesAreRefusedWithNameAndMend) {
  static constinit Fennlog::Site site{"written"};
  auto const path = file("trace");
  for (auto const& damage : damages) {
    SCOPED_TRACE(damage.name);
    std::filesystem::remove(path);
    {
      auto const handle = Fennlog::Handle::inFile(path, {.capacity = 64, .dictionaryBytes = 4096});
      Fennlog::defaultHandleIs(handle.get());
      Fennlog::write(site);
    }
    damage.inflict(path);
    auto const error = errorOf([&] { Fennlog::readFile(path); });
    EXPECT_THAT(error, HasSubstr(damage.problem));
    EXPECT_THAT(error, HasSubstr("\"" + path.string() + "\""));
    EXPECT_THAT(error, HasSubstr("; ")) << "the mend follows a semicolon";
    // What a run of our own left behind makes room for the next one, anything else stays.
    auto const writing = errorOf([&] { Fennlog::Handle::inFile(path, {.capacity = 64}); });
    EXPECT_THAT(writing, HasSubstr(damage.isRefusedForWriting ? damage.problem : "no error"));
  }
  EXPECT_THAT(errorOf([] { Fennlog::Handle::inMemory(1000); }), HasSubstr("power of two"));
  EXPECT_THAT(errorOf([&] { Fennlog::Handle::inFile(file("no/trace")); }), HasSubstr("no/trace"));
}

}  // namespace
