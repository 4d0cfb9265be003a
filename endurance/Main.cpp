// The command line of dlb-endurance.

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <filesystem>

#include "agent/Failure.h"
#include "endurance/Trials.h"

#ifdef __SANITIZE_ADDRESS__
extern "C" void __sanitizer_set_death_callback(void (*callback)());
#endif

namespace Endurance {
namespace {

using Clock = std::chrono::steady_clock;

struct Command {
  char const* name;
  char const* summary;
  char const* trials;  ///< what they are called
  U64 count;           ///< unless one is given
  Summary (*run)(Trials const&);
  bool isSequence = false;  ///< a trial goes on where the one before it ended
};

constexpr Command commands[] = {
    {"crashes", "Agents that die at every operation, and one that comes after each", "scenarios",
     100'000, &crashes},
    {"pairs", "Pairs of configurations: where one was, the other comes", "pairs", 100'000, &pairs},
    {"acknowledgements", "A chip that loses, doubles, delays and reorders what it tells",
     "schedules", 100'000, &acknowledgements},
    {"soak", "Changes, failures, full tables, bad acknowledgements and restarts, for long",
     "epochs", 1'000'000, &soak, true},
    {"watchers", "Trees of watchers that commit, remove, drop handles, subscribe and unsubscribe",
     "trees", 1'000'000, &watchers},
};

Clock::time_point started;
U64 current = 0;
Command const* chosen = nullptr;
Trials given;

std::string repetition() {
  auto const first = chosen->isSequence ? given.first : current;
  return fmt::format(
      "dlb-endurance: that was trial {}; again: dlb-endurance {} --seed {} "
      "--first {} --count {}\n",
      current, chosen->name, given.seed, first, current - first + 1);
}

void tellRepetition() {
  auto const text = repetition();
  static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
}

/// An assertion, a fault of the machine or a sanitizer stops the process where it finds something.
void onSignal(int signal) {
  std::signal(signal, SIG_DFL);
  tellRepetition();
  std::raise(signal);
}

class Folder {
 public:
  Folder() {
    // In memory where there is such a place: the files are small and many.
    std::filesystem::path const shared("/dev/shm");
    auto pattern =
        ((std::filesystem::is_directory(shared) ? shared : std::filesystem::temp_directory_path()) /
         "dlb-endurance-XXXXXX")
            .string();
    if (!::mkdtemp(pattern.data())) throw Fault("no folder for files can be made: " + pattern);
    path = pattern;
  }
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;
  ~Folder() { std::filesystem::remove_all(path); }

  std::filesystem::path path;
};

int run(Command const& command, Trials trials) {
  chosen = &command;
  given = trials;
  current = trials.first;
  started = Clock::now();
  std::signal(SIGABRT, &onSignal);
#ifdef __SANITIZE_ADDRESS__
  __sanitizer_set_death_callback(&tellRepetition);
#else
  for (auto const signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) std::signal(signal, &onSignal);
#endif
  try {
    Folder const folder;
    trials.folder = folder.path;
    auto const summary = command.run(trials);
    std::chrono::duration<double> const seconds = Clock::now() - started;
    fmt::print("{}: {} from number {} on, seed {}, {:.1f} s\n", command.name, command.trials,
               trials.first, trials.seed, seconds.count());
    for (auto const& line : summary) fmt::print("  {}\n", line);
    return 0;
  } catch (DlbAgent::Failure const& failure) {
    for (auto const& line : failure.lines()) fmt::print(stderr, "dlb-endurance: {}\n", line);
  } catch (std::exception const& error) {
    fmt::print(stderr, "dlb-endurance: {}\n", error.what());
  }
  fmt::print(stderr, "{}", repetition());
  return 1;
}

int commandLine(int argumentCount, char const* const* arguments) {
  CLI::App app("Long trials of the tables on the simulated chip.", "dlb-endurance");
  app.require_subcommand(1);
  Trials trials;
  for (auto const& command : commands) {
    auto* const sub = app.add_subcommand(command.name, command.summary);
    sub->add_option("--count", trials.count,
                    fmt::format("How many {} [{}]", command.trials, command.count));
    sub->add_option("--seed", trials.seed, "The same seed makes the same trials")
        ->capture_default_str();
    sub->add_option("--first", trials.first, "The number of the first")->capture_default_str();
    sub->add_option("--seconds", trials.seconds, "End after so long, whatever their number");
  }
  CLI11_PARSE(app, argumentCount, arguments);
  for (auto const& command : commands) {
    auto* const sub = app.get_subcommand(command.name);
    if (!sub->parsed()) continue;
    if (sub->count("--count") == 0) trials.count = command.count;
    return run(command, trials);
  }
  return 1;
}

}  // namespace

bool Trials::isTimeUp() const {
  return seconds > 0 && Clock::now() - started > std::chrono::seconds(seconds);
}

void Trials::trialIs(U64 number) { current = number; }

}  // namespace Endurance

int main(int argumentCount, char** arguments) {
  return Endurance::commandLine(argumentCount, arguments);
}
