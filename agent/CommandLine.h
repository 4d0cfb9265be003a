// The command line: commands, options, help and exit codes.

#pragma once

namespace DlbAgent {

/// Does what the arguments say and gives the exit code. Whatever goes wrong is on
/// standard error then.
int commandLine(int argumentCount, char const* const* arguments);

}  // namespace DlbAgent
