// What loading the library does for one table class: it makes the table known and its plug-ins
// loaded. Each table's source holds one static `TableAnnouncement`. Loading creates no table.

#pragma once

#include <iostream>

#include "platform/ostler/Loader.h"
#include "platform/vell/ModuleInspectData.h"
#include "platform/vell/Ptr.h"
#include "platform/zarn/Trace.h"

namespace Asic {

/// The name of this agent: the environment variable AGENT_PROCESS_NAME as it was when the library
/// was loaded, or null. No table logic reads it.
char const* agentProcessName();
/// Stores the environment's value; only the first call in a process does.
void agentProcessNameInit();

template <class T>
class TableAnnouncement {
 public:
  TableAnnouncement() {
    agentProcessNameInit();
    T::module().loaded();
    swTableStat();
    loader_ = Ostler::Core::Loader::Singleton::instantiate<typename T::UtilLoader>();
  }

  /// The handle of the reconciliation summary, one for each table class, all of one name.
  static Zarn::TraceHandle& swTableStat() {
    static auto& handle = *new Zarn::TraceHandle("SwTableStat", false);
    return handle;
  }

 private:
  std::ios_base::Init streams_;  // this runs before main, possibly before the streams' own source
  Vell::Ptr<typename T::UtilLoader> loader_;
};

}  // namespace Asic
