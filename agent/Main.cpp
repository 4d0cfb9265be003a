#include <fcntl.h>

#include "agent/CommandLine.h"

namespace {

/// A standard stream that the caller has closed would be the number of the next file opened, and
/// what is printed would go into it: into the hardware, say. It is opened on nothing instead, and
/// for reading, so that printing fails and is reported.
void holdStandardStreams() {
  for (int stream = 0; stream <= 2; ++stream)
    if (fcntl(stream, F_GETFD) < 0) static_cast<void>(open("/dev/null", O_RDONLY));
}

}  // namespace

int main(int argumentCount, char** arguments) {
  holdStandardStreams();
  return DlbAgent::commandLine(argumentCount, arguments);
}
