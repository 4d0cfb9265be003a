#include "agent/LiveTable.h"

#include "platform/vell/Inspect.h"

namespace DlbAgent {
namespace {

using Status = Asic::ReconciliationStatus;

Vell::Ptr<Asic::SwTable> made(TableType const& type) {
  auto const node = Vell::inspectMake(type.table());
  Vell::Ptr<Asic::SwTable> table = static_cast<Asic::SwTable*>(node.get());
  keptForWarmExit(table);
  return table;
}

std::vector<Vell::Ptr<Asic::SwTable>>& keptTables() {
  static auto& kept = *new std::vector<Vell::Ptr<Asic::SwTable>>;
  return kept;
}

}  // namespace

// The warm exit, whole. An agent that ends must leave the hardware for the next one to find. However
// the process ends, by returning from main or by an exception on its way up, no table is destroyed.
// The tables keep their hooks and the chip in turn.
void keptForWarmExit(Vell::Ptr<Asic::SwTable> table) { keptTables().push_back(std::move(table)); }

void abandoned(Asic::SwTable& table) {
  table.utilIs(nullptr);
  std::erase_if(keptTables(), [&](auto const& each) { return each.get() == &table; });
}

Figures figuresOf(Asic::SwTable const& table, TableType const& type, Asic::Chip const& chip) {
  auto const& statistics = table.statistics();
  auto const operations = chip.operations(type.qualifiedName());
  return {.matched = statistics.of(Status::reconcileMatched),
          .rewritten = statistics.of(Status::reconcileRewritten),
          .added = statistics.of(Status::reconcileAdded),
          .deleted = statistics.of(Status::reconcileDeleted),
          .hardwareWrites = operations.writes,
          .hardwareDeletes = operations.deletes};
}

LiveTable::LiveTable(TableType const& type, std::string const& chipName)
    : type_(&type), runner_(made(type)), hasHooks_(runner_.attachUtil(chipName)) {}

IndexLimits LiveTable::limits() const {
  if (!type_->keyIsIndex()) return {0, ~U64{0}};
  Vell::Inspect table(runner_.table());
  return {*table.call("minIndex").number(), *table.call("maxIndex").number()};
}

void LiveTable::start(Vell::Ptr<Asic::Chip> const& chip) {
  runner_.start(chip);
  found_ = held();
}

Rows LiveTable::held() const {
  Rows rows;
  Vell::Inspect(runner_.table()).walk("syncedEntry", [&](auto const& key, auto const& entry) {
    rows.insert_or_assign(Key(key), *entry.record());
  });
  return rows;
}

void LiveTable::replay(Rows const& wanted) {
  for (auto const& [key, entry] : wanted) {
    auto const status = commit(key, entry);
    if (status == Status::reconcileMatched) continue;
    Change change{type_, key,   hasHardware() ? Change::Kind::added : Change::Kind::homeless,
                  {},    entry, {}};
    if (status == Status::reconcileRewritten) {
      change.kind = Change::Kind::rewritten;
      change.held = found_.at(key);
    }
    changes_.insert({key, std::move(change)});
  }
}

/// Commits one entry, and finds out from the table's own count what became of it.
Status LiveTable::commit(Key const& key, Vell::Record const& entry) {
  auto const before = runner_.table().statistics();
  Vell::Value const arguments[] = {key.value(), entry};
  Vell::Inspect(runner_.table()).call("entryCommit", arguments);
  for (auto const status : {Status::reconcileMatched, Status::reconcileRewritten})
    if (runner_.table().statistics().of(status) != before.of(status)) return status;
  return Status::reconcileAdded;
}

void LiveTable::purge() {
  if (hasHardware())
    for (auto const& [key, entry] : held())
      changes_.insert({key, {type_, key, Change::Kind::deleted, entry, {}, {}}});
  runner_.purge();
}

void LiveTable::change(Rows const& former, Rows const& wanted) {
  Vell::Inspect table(runner_.table());
  for (auto const& [key, entry] : wanted) {
    Vell::Value const arguments[] = {key.value(), entry};
    table.call("entryCommit", arguments);
  }
  for (auto const& [key, entry] : former) {
    Vell::Value const arguments[] = {key.value()};
    if (!wanted.contains(key)) table.call("entryRemove", arguments);
  }
}

Figures LiveTable::figures(Asic::Chip const& chip) const {
  return hasHardware() ? figuresOf(runner_.table(), *type_, chip) : Figures();
}

std::vector<Change> LiveTable::changes() const {
  std::vector<Change> changes;
  for (auto const& each : changes_) changes.push_back(each.second);
  return changes;
}

}  // namespace DlbAgent
