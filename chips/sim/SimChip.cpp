#include "chips/sim/SimChip.h"

#include <algorithm>
#include <stdexcept>

#include "chips/sim/Tables.h"
#include "chips/sim/Traffic.h"
#include "frame/FieldEntry.h"
#include "frame/TableReflection.h"

namespace Sim {
namespace {

FileLayout const& layout() {
  static FileLayout const layout(Tables::shapes);
  return layout;
}

std::size_t numberOf(std::string_view tableName) {
  auto const found = std::ranges::find(Tables::shapes, tableName, &TableShape::name);
  return static_cast<std::size_t>(found - Tables::shapes.begin());
}

}  // namespace

void SimChip::open(Options const& options) {
  if (hardware_)
    throw std::runtime_error("the simulated chip has opened hardware file \"" + hardware_->path() +
                             "\" already; make another chip for another file");
  hardware_ = std::make_shared<Hardware>(options, layout(), pointerRules);
  Tables::forEach([&]<class Line>(Line) {
    constexpr auto number = Tables::numberOf<typename Line::Table>;
    if constexpr (Asic::ReadTableClass<typename Line::Table>) {
      constexpr auto written = Tables::numberOf<TessarLoadBalance::DlbEcmpFlowsetTable>;
      hwTables_.push_back(new SimReadTable(hardware_, written, number));
    } else {
      hwTables_.push_back(new SimHwTable(hardware_, number));
    }
  });
}

Vell::Ptr<Asic::HwTable> SimChip::hwTable(std::string_view tableName) {
  auto const table = numberOf(tableName);
  return table < hwTables_.size() ? hwTables_[table] : nullptr;
}

Asic::Chip::Operations SimChip::operations(std::string_view tableName) const {
  auto const table = numberOf(tableName);
  return table < hwTables_.size() ? hardware_->operations(static_cast<U32>(table)) : Operations{};
}

std::string SimChip::misfit(std::string_view tableName, Vell::Value const& key,
                            Vell::Record const& entry) const {
  std::string why;
  Tables::forEach([&]<class Line>(Line) {
    using Table = typename Line::Table;
    if (Table::names.qualified != tableName) return;
    if constexpr (!Asic::ReadTableClass<Table>) {
      using Key = typename Table::UtilKey;
      using Entry = typename Table::Entry;
      why = KeyRows<Key>::misfit(Asic::KeyValue<Key>::fromValue(key), Line::rows);
      if (why.empty())
        why = RowCodec<Entry>::misfit(Asic::EntryReflection<Entry>::fromValue(entry));
    }
  });
  return why;
}

U64 SimChip::poll() {
  Vell::Ptr<SimChip> const held(this);  // a handler may drop the last use
  U64 delivered = 0;
  for (auto const& each : hwTables_) delivered += each->poll();
  return delivered;
}

U64 SimChip::answersOutstanding() const {
  U64 answers = 0;
  for (auto const& each : hwTables_) answers += each->outstanding();
  return answers;
}

std::optional<Asic::Chip::Traffic> SimChip::simulateTraffic(U64 flows, U64 seed) {
  if (!hardware_) return Traffic{.flows = flows, .unserved = flows};
  return Sim::Traffic(*hardware_, seed).played(flows);
}

std::vector<std::string> SimChip::contradictions() const {
  return hardware_ ? hardware_->contradictions() : std::vector<std::string>();
}

std::vector<std::string> SimChip::breaches() const {
  return hardware_ ? hardware_->breaches() : std::vector<std::string>();
}

std::vector<Asic::Chip::JournalEntry> SimChip::journal(std::size_t most) const {
  return hardware_ ? hardware_->journal(most) : std::vector<JournalEntry>();
}

}  // namespace Sim
