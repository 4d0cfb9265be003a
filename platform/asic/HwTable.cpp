#include "platform/asic/HwTable.h"

#include <algorithm>

#include "platform/asic/Chip.h"
#include "platform/asic/ReadResponseSm.h"
#include "platform/asic/SwTable.h"
#include "platform/asic/WriteResponseSm.h"
#include "platform/vell/ModuleInspectData.h"

namespace Asic {
namespace {

constexpr Vell::TypeData hwTableType{"Asic::HwTable", {}, {}};
constexpr Vell::TypeData chipType{"Asic::Chip", {}, {}};
constexpr Vell::TypeData readResponseSmType{"Asic::ReadResponseSm", {}, {}};
constexpr Vell::TypeData writeResponseSmType{"Asic::WriteResponseSm", {}, {}};
constexpr Vell::TypeData const* types[] = {&hwTableType, &chipType, &readResponseSmType,
                                           &writeResponseSmType};
constinit Vell::ModuleInspectData module("AsicHardware", types);

/// Hands what has been taken by now to the machine that is active at that moment, if it is ready, by
/// `handle(machine, response)`, which tells whether the response was of use.
template <class Response, class Machine, class Handle>
U64 deliver(HwTable& hwTable, std::deque<Response>& responses, Machine* const& active,
            Handle const& handle) {
  Vell::Ptr<HwTable> const held(&hwTable);
  U64 delivered = 0;
  // What comes meanwhile waits for the next time: a handler may ask again and again.
  for (auto left = responses.size(); left > 0 && active && active->isReady() && !responses.empty();
       --left) {
    auto const response = std::move(responses.front());
    responses.pop_front();
    Vell::Ptr<Machine> const machine(active);
    delivered += handle(*machine, response);
  }
  return delivered;
}

}  // namespace

Vell::ZarnType HwTable::typeData() const { return {&module, 0}; }
Vell::ZarnType Chip::typeData() const { return {&module, 1}; }
Vell::ZarnType ReadResponseSm::typeData() const { return {&module, 2}; }
Vell::ZarnType WriteResponseSm::typeData() const { return {&module, 3}; }

void HwTable::writeIs(Index index) {
  auto const at = std::size_t{index.value()};
  if (at >= newestWrites_.size()) newestWrites_.resize(std::max(at + 1, 2 * newestWrites_.size()));
  if (newestWrites_[at] == 0) ++unansweredWrites_;
  newestWrites_[at] = ++lastWrite_;
}

void HwTable::writesOvertaken(Index index) {
  if (newestWrite(index) == 0) return;
  newestWrites_[index.value()] = 0;
  --unansweredWrites_;
}

U64 HwTable::deliverReadResponses() {
  return deliver(*this, readResponses_, readResponseSm_,
                 [](ReadResponseSm& machine, ReadResponse const& response) {
                   machine.handleReadResponse(response);
                   return true;
                 });
}

U64 HwTable::deliverWriteResponses() {
  return deliver(*this, writeResponses_, writeResponseSm_,
                 [this](WriteResponseSm& machine, WriteResponse const& response) {
                   // Number 0 is no write.
                   if (response.write == 0 || newestWrite(response.index) != response.write)
                     return false;
                   writesOvertaken(response.index);  // it is answered
                   machine.handleWriteResponse(response);
                   return true;
                 });
}

}  // namespace Asic
