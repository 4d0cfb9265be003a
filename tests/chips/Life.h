// One life of an agent's process with one table, played inside the test's process, and a folder for
// the hardware file that is there before it and after it.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "config/DlbControlSwTable.h"
#include "config/DlbEcmpControlSwTable.h"
#include "platform/asic/TableRunner.h"
#include "platform/plugin/Registry.h"

namespace Chips {

using Control = TessarLoadBalance::DlbControlTable;
using Ecmp = TessarLoadBalance::DlbEcmpControlTable;
using Access = Asic::Chip::Access;
using Options = Asic::Chip::Options;

inline Options opened(std::string hardware, Access access = Access::live) {
  Options options;
  options.hardware = std::move(hardware);
  options.access = access;
  return options;
}
inline Options faulty(std::string hardware, std::map<std::string, std::string> switches) {
  auto options = opened(std::move(hardware));
  options.switches = std::move(switches);
  return options;
}

inline Vell::Ptr<Asic::Chip> newChip(std::string_view name = "sim") {
  auto const made = Plugin::make(name, Asic::Chip::prefix, Asic::Chip::feature);
  return static_cast<Asic::Chip*>(made.get());
}

/// Begins with the table synced and the replay open; ends as a process does, with
/// the hardware as it is.
template <class T>
class Life {
 public:
  using Rows = std::map<U32, typename T::Entry>;

  explicit Life(Options const& options) : Life(newChip(), "sim") { start(options); }
  Life(Vell::Ptr<Asic::Chip> theChip, std::string_view chipName)
      : chip(std::move(theChip)), table(new T), runner(table) {
    EXPECT_TRUE(runner.attachUtil(chipName));
  }
  ~Life() { table->utilIs(nullptr); }

  void start(Options const& options) {
    chip->open(options);
    runner.start(chip);
  }
  /// Replays a configuration to its end.
  void replay(Rows const& wanted) {
    for (auto const& [index, entry] : wanted) table->entryCommit(index, entry);
    runner.replayEnded();
    runner.purge();
  }
  Rows synced() const {
    Rows rows;
    for (Zarn::HashMap2018IteratorGeneric at(table->syncedEntryMap()); at; at.advance())
      rows.emplace(at.currNodeMaybeStale()->key().value(), at.currNodeMaybeStale()->value_);
    return rows;
  }
  Asic::Chip::Operations operations() const { return chip->operations(T::names.qualified); }

  Vell::Ptr<Asic::Chip> chip;
  Vell::Ptr<T> table;
  Asic::TableRunner runner;
};

/// The rows of a table that a hardware file holds.
template <class T>
typename Life<T>::Rows rowsIn(std::string const& file) {
  return Life<T>(opened(file, Access::copy)).synced();
}

/// A control entry with a different number in each field; `n` below 2^30.
inline Control::Entry control(U32 n) {
  Control::Entry entry;
  entry.portLoadingWeight = n;
  entry.totalQsizeWeight = ~n;
  entry.samplingPeriod = n + 1;
  entry.capItmPortQsizeAverage = n % 2;
  return entry;
}

inline Ecmp::Entry ecmp(U32 n) {
  Ecmp::Entry entry;
  entry.baseEcmpIndex = static_cast<U16>(n % 7);
  entry.randomSelectionSeed = n;
  return entry;
}

inline std::string bytesOf(std::string const& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
inline void bytesAre(std::string const& file, std::string_view bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}

/// The text of what `action` throws.
template <class Action>
std::string errorOf(Action action) {
  try {
    action();
  } catch (std::runtime_error const& error) {
    return error.what();
  }
  return "no error";
}

class ChipTest : public testing::Test {
 protected:
  ~ChipTest() override { std::filesystem::remove_all(folder); }

  std::string path(std::string const& name) const { return folder / name; }

  std::filesystem::path const folder = [] {
    auto pattern = (std::filesystem::path(testing::TempDir()) / "chips-XXXXXX").string();
    return std::filesystem::path(::mkdtemp(pattern.data()));
  }();
  std::string const hardware = path("leaf.hw");
};

}  // namespace Chips
