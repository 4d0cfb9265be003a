#include "platform/fennlog/Fennlog.h"

namespace Fennlog {

namespace {

constexpr U64 startupCapacity = 4096;

constinit Header startupHeader;
constinit Record startupRecords[startupCapacity];

// Never destroyed, since destructors of static objects write messages too.
union Startup {
  constexpr Startup() : handle(startupHeader, startupRecords, startupCapacity) {}
  ~Startup() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted.
  Handle handle;
};

constinit Startup startup;

}  // namespace

constinit std::atomic<Handle*> theDefaultHandle = &startup.handle;

void defaultHandleIs(Handle* handle) { theDefaultHandle.store(handle, std::memory_order_relaxed); }

Handle& startupHandle() { return startup.handle; }

}  // namespace Fennlog
