// The simulated chip: a chip whose hardware is a file, which outlives the process as a real chip
// does. `Options::hardware` names the file, `Options::switches` are those of Switches.h.

#pragma once

#include <memory>

#include "chips/sim/Hardware.h"
#include "chips/sim/SimHwTable.h"
#include "platform/asic/Chip.h"

namespace Sim {

class SimChip final : public Asic::Chip {
 public:
  SimChip() : Chip(Vell::String(feature)) {}

  /// A chip opens its hardware once. A missing file is made, with no valid row.
  void open(Options const& options) override;
  /// The same object every time; null before `open`.
  Vell::Ptr<Asic::HwTable> hwTable(std::string_view tableName) override;
  Operations operations(std::string_view tableName) const override;
  std::vector<JournalEntry> journal(std::size_t most) const override;
  std::string misfit(std::string_view tableName, Vell::Value const& key,
                     Vell::Record const& entry) const override;
  std::vector<std::string> contradictions() const override;
  std::vector<std::string> breaches() const override;
  U64 poll() override;
  U64 answersOutstanding() const override;
  std::optional<Traffic> simulateTraffic(U64 flows, U64 seed) override;

 private:
  std::shared_ptr<Hardware> hardware_;
  std::vector<Vell::Ptr<SimHwTable>> hwTables_;
};

}  // namespace Sim
