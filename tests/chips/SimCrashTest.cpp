// The process dies; the hardware holds whole operations, all that took effect and no other.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "Life.h"

namespace Chips {
namespace {

class SimCrashTest : public ChipTest {};

// What the file holds, each time that it changed while a process makes one operation instruction by
// instruction. Empty if processes may not be stepped here.
template <class Prepare, class Operate>
std::vector<std::string> everyStateOf(std::string const& file, Prepare prepare, Operate operate) {
  auto const child = ::fork();
  if (child == 0) {
    auto life = prepare();
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(1);
    std::raise(SIGSTOP);
    operate(life);
    std::raise(SIGUSR1);
    ::_exit(0);
  }
  std::vector<std::string> states;
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!WIFSTOPPED(status)) return states;
  states.push_back(bytesOf(file));
  auto const size = states.front().size();
  auto const descriptor = ::open(file.c_str(), O_RDONLY);
  auto* const seen =
      static_cast<char*>(::mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor, 0));
  ::close(descriptor);
  while (::ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) == 0 &&
         ::waitpid(child, &status, 0) == child && WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP)
    if (std::string_view const now(seen, size); now != states.back()) states.emplace_back(now);
  EXPECT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGUSR1) << "the operation came to its end";
  ::munmap(seen, size);
  ::kill(child, SIGKILL);
  ::waitpid(child, &status, 0);
  return states;
}

TEST_F(SimCrashTest, atEveryInstructionTheRowIsTheOldOrTheNew) {
  auto const open = [&] {
    auto life = std::make_unique<Life<Control>>(opened(hardware));
    life->runner.replayEnded();
    return life;
  };
  std::string const copy = path("copy.hw");
  auto const check = [&](auto operate, std::optional<Control::Entry> from,
                         std::optional<Control::Entry> to) {
    auto const states = everyStateOf(hardware, open, operate);
    if (states.empty()) return false;
    EXPECT_GE(states.size(), 6u) << "number, record, published, row, applied";
    bool isDone = false;
    for (auto const& state : states) {
      bytesAre(copy, state);
      Life<Control> life(opened(copy));
      auto const rows = life.synced();
      auto const row = rows.find(3);
      auto const found =
          row == rows.end() ? std::nullopt : std::optional<Control::Entry>(row->second);
      EXPECT_EQ(rows.size(), 1u + found.has_value());
      EXPECT_EQ(rows.at(2), control(2)) << "a neighbour";
      isDone = isDone || found != from;
      EXPECT_EQ(found, isDone ? to : from);
      auto const last = life.chip->journal(1);
      EXPECT_EQ(last.front().row, isDone ? 3u : 2u) << "the journal agrees";
    }
    EXPECT_TRUE(isDone);
    return true;
  };
  auto const write = [](auto const& life) { life->table->entryCommit(3, control(0x2AAAAAAA)); };
  auto const remove = [](auto const& life) {
    life->table->resolvedKeyPriorIs(Asic::SwTable::KeyPrior::value);
    life->table->util()->hwTableEntryDel(*life->table, 3);
  };
  // The journal's ring has been filled once, and its newest operation is one of row 2.
  auto const replay = [&](Life<Control>::Rows const& rows) {
    std::filesystem::remove(hardware);
    auto const life = open();
    for (auto const& [index, entry] : rows) life->table->entryCommit(index, entry);
    for (U32 n = 1026; n > 1; --n) life->table->entryCommit(2, control(n));
  };
  replay({});
  if (!check(write, {}, control(0x2AAAAAAA))) GTEST_SKIP() << "processes cannot be stepped here";
  replay({{3, control(1)}});
  check(write, control(1), control(0x2AAAAAAA));
  replay({{3, control(1)}});
  check(remove, control(1), {});
}

}  // namespace
}  // namespace Chips
