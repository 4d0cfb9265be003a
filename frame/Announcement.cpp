#include "frame/Announcement.h"

#include <cstdlib>
#include <mutex>
#include <string>

namespace Asic {
namespace {

// Never freed: it may be asked for until the process ends.
constinit std::string const* agentName = nullptr;

}  // namespace

char const* agentProcessName() { return agentName ? agentName->c_str() : nullptr; }

void agentProcessNameInit() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (char const* const name = std::getenv("AGENT_PROCESS_NAME"))
      agentName = new std::string(name);
  });
}

}  // namespace Asic
