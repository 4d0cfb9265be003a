// What the chip makes of a flowset by itself, as traffic comes. A row of it takes over from the row
// that software wrote, until software writes again.

#pragma once

#include "platform/vell/Types.h"
#include "platform/zarn/Fields.h"

namespace Sim {

struct FlowsetState {
  U16 port = 0;
  U8 member = 0;
  U32 rate = 0;  ///< of all flows in the flowset, in Mbit/s

  static constexpr auto fields() {
    return Zarn::fieldList("Sim::FlowsetState", Zarn::field(1, "port", &FlowsetState::port),
                           Zarn::field(2, "member", &FlowsetState::member),
                           Zarn::field(3, "rate", &FlowsetState::rate));
  }
};

}  // namespace Sim
