#include "agent/ChainTable.h"

#include <fmt/format.h>

#include <utility>

namespace DlbAgent {

using State = Asic::SwTableBase::EntryState;

ChainTable::ChainTable(std::string_view kind, TableType const& type,
                       Vell::Ptr<Asic::SwTable> const& table, std::string const& chipName)
    : kind_(kind), type_(&type), runner_(table) {
  keptForWarmExit(table);
  runner_.attachUtil(chipName);
}

void ChainTable::start(Vell::Ptr<Asic::Chip> const& chip) {
  runner_.start(chip);
  noteFound();
}

void ChainTable::handleIs(std::string const& name, Handle handle) {
  names_.emplace(handle.get(), name);
  handles_[name] = std::move(handle);
}

auto ChainTable::handlesTaken() -> Handles {
  names_.clear();
  return std::exchange(handles_, {});
}

void ChainTable::removeUnnamed(Handles const& former) {
  for (auto const& each : former)
    if (!has(*each.second)) remove(*each.second);
}

auto ChainTable::handle(std::string const& name) const -> Handle {
  auto const found = handles_.find(name);
  return found == handles_.end() ? nullptr : found->second;
}

// A row that was found and is rewritten is in place from the start; the hardware may still owe the
// answer to that.
bool ChainTable::isInHardware(EntryHandle const& handle) const {
  if (handle.entryState() == State::success) return true;
  auto const* const hwTable = swTable().hwTable();
  return handle.entryState() == State::indexReconciled &&
         (!hwTable || hwTable->newestWrite(handle.hwIndex()) == 0);
}

std::string ChainTable::placeText(EntryHandle const& handle) const {
  auto const rows = rowsOf(handle);
  auto const first = handle.hwIndex();
  if (rows == 0 || first.isExhausted()) return {};
  if (rows == 1) return fmt::format("row {}", first.value());
  return fmt::format("rows {} to {}", first.value(), first.value() + rows - 1);
}

std::string ChainTable::hindranceOf(EntryHandle const& handle) const {
  switch (handle.entryState()) {
    case State::inProgress:
    case State::indexReconciled:
      return "the hardware has not acknowledged its write";
    case State::failedNoIndex:
      // With a place of its own it has failed at nothing but the hardware.
      return indexOf(handle).isExhausted()
                 ? shortageOf(handle)
                 : fmt::format("the hardware refused to write row {}", indexOf(handle).value());
    default:
      return fmt::format("its state is {}", Vell::concatenate(handle.entryState()));
  }
}

TableReport ChainTable::figures(Asic::Chip const& chip) const {
  return {type_->name(), hasHardware() ? figuresOf(swTable(), *type_, chip) : Figures()};
}

}  // namespace DlbAgent
