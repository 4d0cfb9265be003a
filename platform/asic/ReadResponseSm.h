// The response machine of a table that reads hardware: brings the answers to its table's hooks.
//
//   chip -> HwTable::readResponseIs     keeps the answer
//        -> Chip::poll -> HwTable::deliverReadResponses
//             -> ReadResponseSm::handleReadResponse
//                  -> Util::doNotifyReadResponse, or doNotifyReadResponseAll at the end of a read
//                       -> the table, which calls the client's handler

#pragma once

#include "platform/asic/ReadResponse.h"
#include "platform/asic/ResponseSm.h"

namespace Asic {

class ReadResponseSm final : public ResponseSm {
 public:
  /// A new machine for that table, not active yet.
  static Vell::Ptr<ReadResponseSm> ReadResponseSmIs(SwTable* swTable);
  ~ReadResponseSm() override;
  Vell::ZarnType typeData() const override;

  /// Brings one answer to the hooks of the table. An exception of the client's handler passes out.
  void handleReadResponse(ReadResponse const& response);

 private:
  explicit ReadResponseSm(SwTable* swTable) : ResponseSm(swTable) {}
  void enter(HwTable& hwTable) override;
  void leave(HwTable& hwTable) override;
};

}  // namespace Asic
