#include "endurance/ProcessDeaths.h"

#include <fmt/format.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

#include "agent/Generate.h"

namespace Endurance {
namespace {

constexpr DlbAgent::Sizes sizes{.ports = 4,
                                .dlbGroups = 2,
                                .flowsets = 16,
                                .nextHops = 8,
                                .groups = 6,
                                .width = 4,
                                .plainGroups = 10,
                                .adjacencies = 20};

}  // namespace

DlbAgent::Configuration ProcessDeaths::written(std::string const& file, U64 seed) const {
  auto const text = DlbAgent::generated(sizes, seed);
  std::ofstream(folder_ + "/" + file) << text;
  DlbAgent::Session const session(place_.catalogue, place_.chip);
  return DlbAgent::Configuration::fromText(text, file, place_.catalogue, session.room());
}

int ProcessDeaths::agent(std::string const& arguments) const {
  auto const command =
      fmt::format("cd '{}' && exec '" DLB_AGENT_BINARY "' --chip {} --hardware '{}' {} >out 2>&1",
                  folder_, place_.chip, place_.hardware, arguments);
  int const status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void ProcessDeaths::play(Random& random) {
  auto const former = written("former.json", random());
  auto const next = written("next.json", random());
  auto const last = written("last.json", random());

  Image().restoreTo(place_.hardware);
  Life(place_).run(last);
  auto const cold = pictureOf(place_.chip, place_.hardware);
  Image().restoreTo(place_.hardware);
  Life(place_).run(former);
  Image const start(place_.hardware);
  U64 operations = 0;
  {
    Life life(place_);
    life.run(next);
    life.session.change(next, last);
    life.session.settle();
    operations = life.operationCount();
  }

  auto const after = 1 + below(operations, random);
  auto const when = fmt::format("a process that dies after operation {} of {}", after, operations);
  start.restoreTo(place_.hardware);
  auto const strict = std::string(" --chip-switch stop-at-breach=on");
  if (agent(fmt::format("run next.json --then last.json --crash-after {}{}", after, strict)) !=
      128 + SIGKILL)
    throw Fault(when + " did not die");
  if (agent("run last.json" + strict) != 0) throw Fault(when + ": the next one fails");
  if (auto const difference = Picture::difference(pictureOf(place_.chip, place_.hardware), cold);
      !difference.empty())
    throw Fault(when + ": not what a cold start gives: " + difference);
  ++deaths_;
}

}  // namespace Endurance
