// Reads messages back, as text, oldest first: from a handle of this process, or from the file that
// another process writes or has left behind.
//
// A record that is being written, or whose writer was killed in it, is left out. A message of a
// site that is not in the file's dictionary shows the site's number and its arguments. A
// placeholder that the message had no argument for stays as it is; arguments without a placeholder
// follow the text.
//
// Threading: any thread, also while messages are written.

#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/fennlog/Mapping.h"

namespace Fennlog {

class Handle;

struct Message {
  std::chrono::system_clock::time_point time;
  std::string text;
};

std::vector<Message> read(Handle const& handle);

/// Throws Error (Mapping.h), with the file and the mend, if it cannot be read, is no trace file, is
/// of another version, or is truncated or damaged.
std::vector<Message> readFile(std::filesystem::path const& path);

}  // namespace Fennlog
