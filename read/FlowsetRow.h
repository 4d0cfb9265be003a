// A row of the flowset table as a chip that tells its contents hands it to a handler.
//
//   table->readAllReqIs(ResponseNotify::eachEntry, [](std::any const& answer) {
//     auto const& [index, entry] = std::any_cast<DlbEcmpFlowsetTableRead::Response const&>(answer);
//     if (auto const* row = FlowsetRow::of(entry); row && row->assigned) ...
//   });

#pragma once

#include "read/DlbEcmpFlowsetTableRead.h"

namespace TessarLoadBalance {

class FlowsetRow final : public DlbEcmpFlowsetTableRead::Entry {
 public:
  FlowsetRow(bool isAssigned, U16 port, U8 member);
  ~FlowsetRow() override;

  bool assigned;        ///< whether the flowset has a port and a member
  U16 portAssignment;   ///< port assigned to the flowset
  U8 memberAssignment;  ///< member assigned to the flowset

  /// The row behind an entry, or null if the chip told no more than that the row exists.
  static FlowsetRow const* of(DlbEcmpFlowsetTableRead::Entry const& entry);
};

}  // namespace TessarLoadBalance
