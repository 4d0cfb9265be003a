// A restart of the whole agent that finds everything in its place, from the sync of the first table to
// the purge of the last one and the report on it, on the simulated chip. Per row of the hardware, beside
// the two ways of doing less of RestartBench.cpp; both read each row from the chip's file once and unpack
// it, and know beforehand what is wanted of it.

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "SideBySide.h"
#include "agent/Generate.h"
#include "agent/Session.h"
#include "chips/sim/Hardware.h"
#include "chips/sim/Tables.h"

namespace {

using Access = Asic::Chip::Access;
using DlbAgent::Configuration;

/// A folder with a hardware file, as an earlier run of the agent has left it.
class HardwareLeft {
 public:
  explicit HardwareLeft(std::string const& text) {
    auto pattern = (std::filesystem::temp_directory_path() / "dlb-bench-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) return;
    folder_ = pattern;
    // In a process of its own, which ends warm and lets go of the file.
    auto const child = ::fork();
    if (child == 0) {
      DlbAgent::Catalogue const catalogue;
      DlbAgent::Session session(catalogue, "sim");
      session.open({.hardware = file()});
      session.start();
      session.replay(Configuration::fromText(text, "text", catalogue, session.room()));
      ::_exit(0);
    }
    int status = 1;
    isLeft_ = child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
  }
  HardwareLeft(HardwareLeft const&) = delete;
  HardwareLeft& operator=(HardwareLeft const&) = delete;
  ~HardwareLeft() {
    if (!folder_.empty()) std::filesystem::remove_all(folder_);
  }
  bool isLeft() const { return isLeft_; }
  std::string file() const { return folder_ / "hardware"; }

 private:
  std::filesystem::path folder_;
  bool isLeft_ = false;
};

template <class Tables>
struct WantedRows;
/// What is wanted, by the number of the table and by row.
template <class... Lines>
struct WantedRows<Sim::SimTables<Lines...>> {
  template <class T>
  using Rows = std::vector<Zarn::Optional<typename Sim::RowOf<T>::Type>>;

  std::tuple<Rows<typename Lines::Table>...> tables;
};

class Less {
 public:
  /// What the file holds is what is wanted.
  explicit Less(std::string const& file)
      : layout_(Sim::Tables::shapes),
        hardware_({.hardware = file, .access = Access::copy}, layout_, {}) {
    forEachTable([this](auto line, auto& wanted) {
      wanted.resize(line.rows);
      forEachHeld(line, [&](U32 row, auto const& held) { wanted[row] = held, ++rows_; });
    });
  }
  U64 rows() const { return rows_; }

  /// The rows that are in their place.
  [[gnu::noinline]] U64 reconciledByHand() {
    U64 inPlace = 0;
    forEachTable([&]<class Line>(Line line, auto& wanted) {
      std::unordered_map<U32, typename Line::Table::Entry> found, kept;
      forEachHeld(line, [&](U32 row, auto const& held) { found.emplace(row, held); });
      for (U32 row = 0; row < line.rows; ++row) {
        if (!wanted[row]) continue;
        auto const at = found.find(row);
        if (at == found.end() || at->second != *wanted[row]) continue;
        kept.emplace(row, *wanted[row]);
        found.erase(at);
        ++inPlace;
      }
    });
    return inPlace;
  }
  [[gnu::noinline]] U64 comparedInOrder() {
    U64 equal = 0;
    forEachTable([&](auto line, auto& wanted) {
      forEachHeld(line, [&](U32 row, auto const& held) { equal += wanted[row] == held; });
    });
    return equal;
  }

 private:
  template <class Visitor>
  void forEachTable(Visitor const& visitor) {
    Sim::Tables::forEach([&]<class Line>(Line line) {
      if constexpr (!Asic::ReadTableClass<typename Line::Table>)
        visitor(line, std::get<Sim::Tables::numberOf<typename Line::Table>>(wanted_.tables));
    });
  }
  template <class Line, class Visitor>
  void forEachHeld(Line, Visitor const& visitor) const {
    for (U32 row = 0; row < Line::rows; ++row)
      if (auto const bytes = hardware_.row(Sim::Tables::numberOf<typename Line::Table>, row);
          !bytes.empty())
        visitor(row, Sim::RowCodec<typename Line::Table::Entry>::unpack(bytes));
  }

  Sim::FileLayout layout_;
  Sim::Hardware hardware_;
  WantedRows<Sim::Tables> wanted_;
  U64 rows_ = 0;
};

void agentRestart(benchmark::State& state, DlbAgent::Sizes const& sizes) {
  auto const text = DlbAgent::generated(sizes, 1);
  HardwareLeft const left(text);
  if (!left.isLeft()) return state.SkipWithError("the first run did not end");
  Less less(left.file());
  auto const rows = less.rows();
  DlbAgent::Catalogue const catalogue;
  Bench::SideBySide sides;
  for (auto _ : state) {
    DlbAgent::Session session(catalogue, "sim");
    auto const wanted = Configuration::fromText(text, "text", catalogue, session.room());
    session.open({.hardware = left.file(), .access = Access::copy});
    DlbAgent::Report report;
    U64 byHand = 0, inOrder = 0;
    sides.turn(
        state, rows,
        [&] {
          session.start();
          report = session.replay(wanted);
        },
        [&] { byHand = less.reconciledByHand(); });
    sides.floor(rows, [&] { inOrder = less.comparedInOrder(); });
    U64 operations = 0;
    for (auto const& table : report.tables)
      operations += table.figures.hardwareWrites + table.figures.hardwareDeletes;
    if (operations != 0 || !report.changes.empty() || byHand != rows || inOrder != rows)
      state.SkipWithError("a row was not found in its place");
    report = {};
    session.die();
  }
  state.counters["rows"] = static_cast<double>(rows);
  sides.report(state);
}
BENCHMARK_CAPTURE(agentRestart, spine, {})
    ->Name("restart/agent/spine")
    ->Iterations(9)
    ->UseManualTime();
BENCHMARK_CAPTURE(agentRestart, even,
                  {.groups = 200, .width = 60, .even = true, .plainGroups = 0, .adjacencies = 200})
    ->Name("restart/agent/200x60")
    ->Iterations(9)
    ->UseManualTime();

}  // namespace
