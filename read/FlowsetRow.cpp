#include "read/FlowsetRow.h"

namespace TessarLoadBalance {

FlowsetRow::FlowsetRow(bool isAssigned, U16 port, U8 member)
    : assigned(isAssigned), portAssignment(port), memberAssignment(member) {}

// Out of line, so that the class's type data lies in the library alone and plug-ins share it.
FlowsetRow::~FlowsetRow() = default;

FlowsetRow const* FlowsetRow::of(DlbEcmpFlowsetTableRead::Entry const& entry) {
  return dynamic_cast<FlowsetRow const*>(&entry);
}

}  // namespace TessarLoadBalance
