// What each command does. A command prints to standard output, gives the exit code, and throws when
// it cannot do what it was asked.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/Generate.h"

namespace DlbAgent {

/// What the command line said.
struct Options {
  enum class Format { text, json };

  std::string chip = "sim";
  std::string hardware = "dlb-hardware.sim";
  std::map<std::string, std::string> chipSwitches;
  Format format = Format::text;
  std::vector<std::string> traces;
  std::string messages;  ///< where the message ring goes; empty: in memory only

  std::string configuration;
  std::vector<std::string> thenConfigurations;  ///< what comes after it, one by one
  std::string table;                            ///< the one to show; empty: all
  std::string name;                             ///< of the entry that is asked about
  std::string messageFile;
  U64 most = 20;
  std::optional<U64> index;  ///< the one flowset to read
  std::optional<U64> group;  ///< the one group to read the flowsets of
  U64 flows = 0;
  U64 seed = 1;
  Sizes sizes;  ///< of what is generated
  U64 crashAfter = 0;
};

/// The exit codes, by what they say.
enum ExitCode : int { exitFine = 0, exitProblem = 1, exitWouldChange = 2 };

int runCommand(Options const& options);
int planCommand(Options const& options);
int checkCommand(Options const& options);
int showCommand(Options const& options);
int whyCommand(Options const& options);
int clearCommand(Options const& options);
int readFlowsetsCommand(Options const& options);
int simulateTrafficCommand(Options const& options);
int journalCommand(Options const& options);
int messagesCommand(Options const& options);
int generateCommand(Options const& options);

}  // namespace DlbAgent
