#include "chips/sim/SimChip.h"

#include <algorithm>
#include <stdexcept>

#include "chips/sim/Tables.h"

namespace Sim {
namespace {

FileLayout const& layout() {
  static FileLayout const layout(Tables::shapes);
  return layout;
}

constexpr std::size_t tableCount = Tables::shapes.size();

std::size_t numberOf(std::string_view tableName) {
  auto const found = std::ranges::find(Tables::shapes, tableName, &TableShape::name);
  return static_cast<std::size_t>(found - Tables::shapes.begin());
}

}  // namespace

void SimChip::open(Options const& options) {
  if (hardware_)
    throw std::runtime_error("the simulated chip has opened hardware file \"" + hardware_->path() +
                             "\" already; make another chip for another file");
  hardware_ = std::make_shared<Hardware>(options, layout());
  for (U32 table = 0; table < tableCount; ++table)
    hwTables_.push_back(new SimHwTable(hardware_, table));
}

Vell::Ptr<Asic::HwTable> SimChip::hwTable(std::string_view tableName) {
  auto const table = numberOf(tableName);
  return table < hwTables_.size() ? hwTables_[table] : nullptr;
}

Asic::Chip::Operations SimChip::operations(std::string_view tableName) const {
  auto const table = numberOf(tableName);
  return table < hwTables_.size() ? hardware_->operations(static_cast<U32>(table)) : Operations{};
}

std::vector<Asic::Chip::JournalEntry> SimChip::journal(std::size_t most) const {
  return hardware_ ? hardware_->journal(most) : std::vector<JournalEntry>();
}

}  // namespace Sim
