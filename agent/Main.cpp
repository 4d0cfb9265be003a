#include "agent/CommandLine.h"

int main(int argumentCount, char** arguments) {
  return DlbAgent::commandLine(argumentCount, arguments);
}
