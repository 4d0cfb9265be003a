// What ends a command: one or more lines for standard error, each naming the thing, its place and
// the mend. Main.cpp prints them, and the exit code is 1.

#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace DlbAgent {

class Failure : public std::runtime_error {
 public:
  explicit Failure(std::string const& line) : Failure(std::vector{line}) {}
  /// `lines` has at least one.
  explicit Failure(std::vector<std::string> lines)
      : runtime_error(lines.front()), lines_(std::move(lines)) {}

  std::vector<std::string> const& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
};

}  // namespace DlbAgent
