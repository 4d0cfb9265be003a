// The smallest legal plug-in: one table of sixteen rows, whose hardware is memory of this process.
// Copy it, rename what says "Template", and put your chip where the map is. Everything a plug-in
// must do is here, and nothing that it only may do; docs/plugin-guide.md tells the whole.

#include <algorithm>
#include <csignal>
#include <map>
#include <stdexcept>

#include "config/DlbEcmpControlSwTable.h"
#include "platform/asic/Chip.h"
#include "platform/plugin/Registry.h"

namespace Template {

using Table = TessarLoadBalance::DlbEcmpControlTable;
using Entry = Table::Entry;
constexpr U32 rows = 16;

// The hardware behind the table. A real chip keeps here what it needs to reach the
// hardware: a device, a base address. The tables hold uses of this object, so that it
// may outlive the chip object.
class HwTable final : public Asic::HwTable {
 public:
  explicit HwTable(U64 crashAfter) : crashAfter_(crashAfter) {}

  Entry const* row(U32 row) const {
    auto const found = rows_.find(row);
    return found == rows_.end() ? nullptr : &found->second;
  }
  void rowIs(U32 row, Entry const& entry) {
    if (row >= rows) return;  // no hook may fail or throw: what cannot be done is left
    rows_[row] = entry;
    ++operations_.writes;
    crashIfDue();
  }
  void rowDel(U32 row) {
    if (row >= rows) return;
    rows_.erase(row);
    ++operations_.deletes;
    crashIfDue();
  }
  Asic::Chip::Operations const& operations() const { return operations_; }

 private:
  void crashIfDue() const {
    if (operations_.writes + operations_.deletes == crashAfter_) std::raise(SIGKILL);
  }

  std::map<U32, Entry> rows_;
  Asic::Chip::Operations operations_;
  U64 crashAfter_;
};

// The chip: an agent makes one and opens it, then gives it to each table.
class Chip final : public Asic::Chip {
 public:
  Chip() : Asic::Chip(Vell::String(feature)) {}

  // Refuse what you do not know, before anything is touched. `hardware` and `access` say nothing to
  // memory, which is nobody else's.
  void open(Options const& options) override {
    if (!options.switches.empty())
      throw std::runtime_error("the template chip has no switch \"" +
                               options.switches.begin()->first + "\"; leave it out");
    hwTable_ = new HwTable(options.crashAfter);
  }
  // Null for a table that this chip does not have, and before `open`.
  Vell::Ptr<Asic::HwTable> hwTable(std::string_view tableName) override {
    return tableName == Table::names.qualified ? hwTable_ : nullptr;
  }
  Operations operations(std::string_view tableName) const override {
    return hwTable_ && tableName == Table::names.qualified ? hwTable_->operations() : Operations{};
  }
  // This chip remembers nothing, and may say so.
  std::vector<JournalEntry> journal(std::size_t) const override { return {}; }

 private:
  Vell::Ptr<HwTable> hwTable_;
};

// The hooks of the table, in the order of their life. Every table gets an object of its own.
class Util final : public Asic::TableUtil<Table> {
 public:
  // Lowest and highest index; asked at any time, also before the chip is open.
  U32 minIndex() const override { return 0; }
  U32 maxIndex() const override { return rows - 1; }

  // Once, before any commit: tell the table each row that the hardware holds from before, and the
  // tracker that its index is in use.
  void syncEntries(Asic::HwTable& hwTable, Vell::Ptr<Table> const& swTable) const override {
    for (U32 index = minIndex(); index <= maxIndex(); ++index) {
      auto const* const entry = static_cast<HwTable&>(hwTable).row(index);
      if (!entry) continue;
      Asic::IndexUserTracker::Stub::tracker(hwTable).recover(index);
      swTable->syncedEntryIs(index, Entry(*entry));
    }
  }

  // During replay, for a key with a synced row: true saves the write.
  bool compareHwEntries(Table& swTable, Key key, Entry const& resolvedEntry) const override {
    auto const* const hwTable = hwTableOf(swTable);
    auto const* const entry = hwTable ? hwTable->row(key.value()) : nullptr;
    return entry && *entry == resolvedEntry;
  }

  // Before each operation that changes the use of an index.
  void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Key key,
                                    Asic::IndexUserTracker::OpType operation) const override {
    if (hwTable) Asic::IndexUserTracker::Stub::tracker(*hwTable).update(key.value(), operation);
  }

  // After return the hardware holds the entry. A key without a value keeps its row, with the
  // default entry in it, so that the next sync finds it.
  void hwTableEntryIs(Table& swTable, Key key, Zarn::Optional<Entry> const& entry) const override {
    if (auto* const hwTable = hwTableOf(swTable))
      hwTable->rowIs(key.value(), entry.value_or(Entry{}));
  }

  // After return the hardware no longer holds the row. Deleting what is not there is no fault.
  void hwTableEntryDel(Table& swTable, Key key) const override {
    if (auto* const hwTable = hwTableOf(swTable)) hwTable->rowDel(key.value());
  }

 private:
  // Null when the agent runs the table without a chip. The cast holds because the agent takes chip
  // and hooks from one plug-in.
  static HwTable* hwTableOf(Table& swTable) { return static_cast<HwTable*>(swTable.hwTable()); }
};

}  // namespace Template

// The one symbol of a plug-in. It is called with null first: answer the version and do nothing
// else, for if the versions differ, nothing here fits the library.
extern "C" U32 asicFeaturePlugin(Plugin::Registration* registration) {
  if (!registration) return Plugin::interfaceVersion;
  registration->featureIs(Asic::Chip::prefix, Asic::Chip::feature,
                          []() -> Vell::Ptr<Zarn::Entity> { return new Template::Chip; });
  registration->featureIs("AsicFeature", Template::Table::names.qualified,
                          []() -> Vell::Ptr<Zarn::Entity> { return new Template::Util; });
  return Plugin::interfaceVersion;
}
