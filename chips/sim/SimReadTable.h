// The flowset table of the hardware as it is read back, and the hooks of the table that reads it.

#pragma once

#include <algorithm>
#include <optional>

#include "chips/sim/FlowsetState.h"
#include "chips/sim/ReadEngine.h"
#include "chips/sim/RowCodec.h"
#include "chips/sim/SimHwTable.h"
#include "config/DlbEcmpFlowsetSwTable.h"
#include "read/FlowsetRow.h"

namespace Sim {

/// What the chip holds of a flowset: what traffic made of it, else what software wrote, else
/// nothing.
class Flowsets {
 public:
  using Configured = TessarLoadBalance::DlbEcmpFlowsetTable::Entry;

  Flowsets(Hardware& hardware, U32 configuredTable, U32 stateTable)
      : hardware_(hardware), configuredTable_(configuredTable), stateTable_(stateTable) {}

  U32 rows() const { return static_cast<U32>(hardware_.rows(stateTable_)); }
  /// Empty if the flowset is not assigned.
  std::optional<FlowsetState> state(U32 flowset) const {
    if (auto const bytes = hardware_.row(stateTable_, flowset); !bytes.empty())
      return RowCodec<FlowsetState>::unpack(bytes);
    auto const bytes = hardware_.row(configuredTable_, flowset);
    if (bytes.empty()) return {};
    auto const entry = RowCodec<Configured>::unpack(bytes);
    return FlowsetState{.port = entry.portAssignment, .member = entry.memberAssignment, .rate = 0};
  }
  void stateIs(U32 flowset, FlowsetState const& state) {
    hardware_.stateIs(stateTable_, flowset, RowCodec<FlowsetState>::pack(state));
  }

 private:
  Hardware& hardware_;
  U32 configuredTable_;
  U32 stateTable_;
};

class SimReadTable final : public SimHwTable {
 public:
  /// Answers that wait undelivered at most, for want of a response machine; the rest is owed.
  static constexpr std::size_t mostWaiting = 4096;

  SimReadTable(std::shared_ptr<Hardware> hardware, U32 configuredTable, U32 stateTable)
      : SimHwTable(std::move(hardware), stateTable),
        flowsets_(this->hardware(), configuredTable, stateTable),
        reads_(flowsets_.rows(), this->hardware().switches()) {}

  static SimReadTable& of(Asic::HwTable& hwTable) {
    return static_cast<SimReadTable&>(SimHwTable::of(hwTable));
  }

  Asic::TransactionId readIs(std::optional<U32> row) { return reads_.begin(row); }
  U64 poll() override {
    for (U32 left = ReadEngine::answersPerPoll; left > 0 && readResponses() < mostWaiting; --left) {
      auto const answer = reads_.next();
      if (!answer) break;
      readResponseIs(response(*answer));
    }
    reads_.tick();
    return deliverReadResponses();
  }
  U64 outstanding() const override { return reads_.owed() + readResponses(); }

 private:
  Asic::ReadResponse response(ReadAnswer const& answer) const {
    if (!answer.row) return {answer.id, Asic::ReadResponse::endOfRead};
    auto const state = flowsets_.state(*answer.row);
    auto const held = state.value_or(FlowsetState{});
    return {
        answer.id, *answer.row,
        std::make_shared<TessarLoadBalance::FlowsetRow>(state.has_value(), held.port, held.member)};
  }

  Flowsets flowsets_;
  ReadEngine reads_;
};

/// The hooks. Nothing is told at the sync: the table holds no contents, and every row exists.
class SimReadUtil final : public TessarLoadBalance::DlbEcmpFlowsetTableRead::Util {
 public:
  using Table = TessarLoadBalance::DlbEcmpFlowsetTableRead;
  using Key = Table::Key;

  explicit SimReadUtil(U32 rows) : rows_(rows) {}

  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return rows_ - 1; }
  U32 numEntries() const override { return rows_; }

  Asic::TransactionId hwTableReadReqIs(Asic::HwTable* hwTable,
                                       Zarn::Optional<Key> const& key) const override {
    if (!hwTable) return ++lastIdWithoutHardware_;
    return SimReadTable::of(*hwTable).readIs(key ? std::optional<U32>(key->value())
                                                 : std::optional<U32>());
  }
  void syncEntries(Asic::HwTable&, Vell::Ptr<Table> const&) const override {}

  void doNotifyReadResponse(Asic::SwTable& swTable,
                            Asic::ReadResponse const& response) const override {
    static_cast<Table&>(swTable).invokeReadResponseHandler(
        response.transactionId, response.idx, static_cast<Table::Entry const&>(*response.entry),
        response.idx.value());
  }
  /// An end is all the answer to a read of a row that is not there, whose reader is told the index
  /// that it asked for, and nothing of a row.
  void doNotifyReadResponseAll(Asic::SwTable& swTable, Asic::TransactionId id) const override {
    auto& table = static_cast<Table&>(swTable);
    auto const asked = table.readRequest(id).key;
    table.invokeReadResponseHandler(id, Asic::ReadResponse::endOfRead, Table::Entry(),
                                    asked.value_or(Key()));
  }

 private:
  U32 rows_;
  mutable U64 lastIdWithoutHardware_ = U64{1} << 63;  // far from the ids of the hardware's reads
};

}  // namespace Sim
