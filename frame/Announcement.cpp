#include "frame/Announcement.h"

#include <cstdlib>
#include <mutex>

namespace Asic {
namespace {

constinit char const* agentName = nullptr;

}  // namespace

char const* agentProcessName() { return agentName; }

void agentProcessNameInit() {
  static std::once_flag once;
  std::call_once(once, [] { agentName = std::getenv("AGENT_PROCESS_NAME"); });
}

}  // namespace Asic
