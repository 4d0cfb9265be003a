// What ends a command: one or more lines for standard error, each naming the thing, its place and
// the mend. The command line prints them with `tell`, and the exit code is 1.

#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace DlbAgent {

/// Prints a line to standard error. If that cannot be written, there is nobody to tell.
inline void tell(std::string_view line) {
  std::fprintf(stderr, "dlb-agent: %.*s\n", static_cast<int>(line.size()), line.data());
}

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
