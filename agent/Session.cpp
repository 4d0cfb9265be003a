#include "agent/Session.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>

#include "agent/Answers.h"
#include "agent/Failure.h"
#include "platform/plugin/Registry.h"

namespace DlbAgent {

Vell::Ptr<Asic::Chip> chipNamed(std::string const& name) {
  using Asic::Chip;
  Plugin::loadAll(Chip::prefix);
  if (auto const made = Plugin::make(name, Chip::prefix, Chip::feature)) {
    // Another file of that name serves; whoever builds the refused one must not miss it.
    for (auto const& problem : Plugin::problems())
      if (std::filesystem::path(problem.file).stem() == name)
        tell(fmt::format("warning: refused: {}; another file brings chip \"{}\"", problem.text,
                         name));
    return static_cast<Chip*>(made.get());
  }

  auto const found = Plugin::chipsWith(Chip::prefix, Chip::feature);
  std::vector<std::string> lines{fmt::format("no chip \"{}\"", name)};
  lines.push_back(
      found.empty()
          ? "no chips were found; set DLB_PLUGIN_PATH to the folder that plug-ins lie in"
          : fmt::format("chips found: {}; choose one with --chip", fmt::join(found, ", ")));
  lines.push_back(fmt::format("folders searched: {}", fmt::join(Plugin::searchPath(), ", ")));
  for (auto const& problem : Plugin::problems())
    lines.push_back(fmt::format("refused: {}", problem.text));
  throw Failure(std::move(lines));
}

Session::Session(Catalogue const& catalogue, std::string const& chipName)
    : chip_(chipNamed(chipName)), chain_(chipName), flowsets_(chipName) {
  for (auto const& type : catalogue.tables()) tables_.emplace_back(type, chipName);
}

LiveTable const& Session::liveTable(TableType const& type) const {
  return *std::ranges::find(tables_, &type, [](auto const& each) { return &each.type(); });
}

Room Session::room() const {
  auto const misfit = [this](TableType const& type, Key const& key, Vell::Record const& entry) {
    // A chip says nothing of a table that it does not have.
    return chip_->misfit(type.qualifiedName(), key.value(), entry);
  };
  return {[this](TableType const& type) { return liveTable(type).limits(); }, misfit};
}

void Session::start() {
  for (auto& table : tables_) table.start(chip_);
  chain_.start(chip_);
  flowsets_.start(chip_);
}

// Nothing stale is deleted before everything wanted is in place.
Report Session::replay(Configuration const& wanted) {
  auto contradictionsFound = chip_->contradictions();
  bringTo(wanted);
  auto report = this->report();
  report.contradictionsFound = std::move(contradictionsFound);
  return report;
}

void Session::bringTo(Configuration const& wanted) {
  commit(wanted);
  replayEnded();
  purge();
}

void Session::commit(Configuration const& wanted) {
  for (auto& table : tables_) table.replay(wanted.of(table.type()));
  chain_.replay(wanted.chain());
}

void Session::replayEnded() {
  for (auto& table : tables_) table.replayEnded();
  chain_.replayEnded(*chip_);
  flowsets_.replayEnded();
}

void Session::purge() {
  for (auto& table : tables_) table.purge();
  chain_.purge();
  flowsets_.purge();
}

void Session::change(Configuration const& former, Configuration const& wanted) {
  for (auto& table : tables_) table.change(former.of(table.type()), wanted.of(table.type()));
  chain_.change(wanted.chain());
}

void Session::settle() {
  awaitAnswers(
      *chip_, [&] { return chip_->answersOutstanding() == 0; }, [] {});
}

void Session::die() {
  for (auto& table : tables_) table.abandon();
  chain_.abandon();
}

Report Session::report() const {
  Report report;
  for (auto const& table : tables_) {
    report.tables.push_back({table.type().name(), table.figures(*chip_)});
    std::ranges::move(table.changes(), std::back_inserter(report.changes));
  }
  for (auto const* table : chain_.tables()) report.tables.push_back(table->figures(*chip_));
  std::ranges::move(chain_.changes(), std::back_inserter(report.changes));
  report.unfinished = chain_.unfinished();
  report.contradictions = chip_->contradictions();
  report.breaches = chip_->breaches();
  report.tables.push_back({flowsets_.name(), flowsets_.figures()});
  std::ranges::sort(report.tables, {}, &TableReport::table);
  std::ranges::stable_sort(report.changes, {}, [](auto const& each) { return each.table->name(); });
  return report;
}

}  // namespace DlbAgent
