#include "agent/Commands.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "agent/ChainTables.h"
#include "agent/ChainTree.h"
#include "agent/Contents.h"
#include "agent/Differences.h"
#include "agent/Failure.h"
#include "agent/FlowsetSpread.h"
#include "agent/Session.h"
#include "agent/Summary.h"
#include "agent/TextTable.h"
#include "agent/Tracing.h"
#include "agent/Words.h"
#include "config/DlbEcmpGroupSwTable.h"
#include "platform/fennlog/Fennlog.h"

namespace DlbAgent {
namespace {

using Access = Asic::Chip::Access;
using nlohmann::ordered_json;

/// Prints the one form that is wanted; the other is not made.
template <class Json, class Text>
void print(Options const& options, Json const& json, Text const& text) {
  if (options.format == Options::Format::json)
    fmt::print("{}\n", json().dump(2, ' ', false, ordered_json::error_handler_t::replace));
  else
    fmt::print("{}", text());
}

/// What every command on tables begins with.
struct Agent {
  explicit Agent(Options const& theOptions)
      : options(theOptions), session(std::make_unique<Session>(catalogue, options.chip)) {}

  Configuration configuration() const { return configuration(options.configuration); }
  Configuration configuration(std::string const& file) const {
    return Configuration::fromFile(file, catalogue, session->room());
  }

  /// Tracing begins here, behind the check of the configuration, which has tables of its own at
  /// work. The message ring is started when the hardware is open and not before, so that a run that
  /// comes to nothing does not push the messages of an earlier one aside. It stays until the
  /// process ends.
  void openChip(Access access) const {
    traceIs(options.traces, catalogue);
    session->open({.hardware = options.hardware,
                   .access = access,
                   .crashAfter = options.crashAfter,
                   .switches = options.chipSwitches});
    if (!options.messages.empty()) {
      static auto const ring = Fennlog::Handle::inFile(options.messages);
      Fennlog::defaultHandleIs(ring.get());
    }
  }

  void open(Access access) const {
    openChip(access);
    session->start();
  }

  /// After the replay.
  void warnOfTablesWithoutHardware(Configuration const& wanted) const {
    auto const warn = [&](auto const& table, U64 entries) {
      if (entries > 0 && !table.hasHardware())
        tell(fmt::format(
            "warning: chip \"{}\" has no hardware for {}: {} nowhere else", options.chip,
            table.type().name(),
            counted(entries, "entry is in software and", "entries are in software and")));
    };
    for (auto const& table : session->tables()) warn(table, wanted.of(table.type()).size());
    for (auto const* table : session->chain().tables()) warn(*table, table->handles().size());
  }

  /// What a replay of the configuration does, to the hardware or to a copy of it. The report is
  /// about the tables of this agent, and of no use after it.
  Report replayed(Access access) const {
    auto const wanted = configuration();
    open(access);
    auto report = session->replay(wanted);
    warnOfTablesWithoutHardware(wanted);
    return report;
  }

  Options const& options;
  Catalogue const catalogue;
  std::unique_ptr<Session> session;
};

ordered_json summaryWithChanges(Report const& report) {
  auto json = summaryJson(report);
  json["changes"] = changesJson(report);
  return json;
}

/// A warning for each entry that found no place, and for all that is wrong in the hardware then. The
/// exit code that follows from there being any.
int warnOfUnfinished(Report const& report, int code, Mood mood) {
  for (auto const& line : report.unfinished) tell("warning: " + line);
  for (auto const& line : report.contradictions)
    tell(fmt::format("warning: the hardware {} itself after that: {}; a further run mends it",
                     mood == Mood::done ? "contradicts" : "would contradict", line));
  for (auto const& line : report.breaches)
    tell(fmt::format("warning: {}on the way, {}", mood == Mood::done ? "" : "it would be that ",
                     line));
  bool const isWell =
      report.unfinished.empty() && report.contradictions.empty() && report.breaches.empty();
  return isWell ? code : exitProblem;
}

/// What is wrong, as the end of a sentence about the hardware.
std::string faultsOf(Report const& report) {
  if (!report.changes.empty())
    return counted(report.changes.size(), "entry differs", "entries differ");
  if (!report.unfinished.empty())
    return counted(report.unfinished.size(), "entry is not in place", "entries are not in place");
  return "it contradicts itself";
}

/// The changes if there are any, then the summary.
std::string changesAndSummary(Report const& report, Mood mood) {
  auto const changes = changesText(report);
  return changes + (changes.empty() ? "" : "\n") + summaryText(report, mood);
}

/// The groups that the hardware holds.
std::vector<GroupSpread> groupsHeld(Session const& session) {
  using TessarLoadBalance::DlbEcmpGroupTable;
  for (auto const& table : session.tables())
    if (table.type().qualifiedName() == DlbEcmpGroupTable::names.qualified)
      return groupsOf(table.held());
  return {};
}

/// All but that group are taken away.
void onlyGroupIs(std::vector<GroupSpread>& groups, U64 group) {
  if (groups.empty())
    throw Failure(
        fmt::format("no group {}: the hardware has no groups; bring it some with "
                    "dlb-agent run",
                    group));
  std::vector<U64> known;
  for (auto const& each : groups) known.push_back(each.group);
  std::erase_if(groups, [=](GroupSpread const& each) { return each.group != group; });
  if (groups.empty())
    throw Failure(
        fmt::format("no group {} in the hardware; there are: {}", group, fmt::join(known, ", ")));
}

/// How far a read is, for whoever watches; cleared away when it is over, however it ends.
class ProgressLine {
 public:
  ProgressLine() = default;
  ProgressLine(ProgressLine const&) = delete;
  ProgressLine& operator=(ProgressLine const&) = delete;
  ~ProgressLine() {
    if (percent_ > 0) fmt::print(stderr, "\r\x1b[K");
  }

  void show(U64 rows, U64 ofRows) {
    auto const percent = rows * 100 / ofRows;
    if (!watched_ || percent == percent_) return;
    percent_ = percent;
    fmt::print(stderr, "\rreading flowsets: {}%", percent);
  }

 private:
  bool const watched_ = isatty(STDERR_FILENO) != 0;
  U64 percent_ = 0;
};

std::vector<Flowset> allFlowsets(FlowsetReader& reader) {
  ProgressLine line;
  return reader.all([&](U64 rows, U64 ofRows) { line.show(rows, ofRows); });
}

/// A table of that name, of entries by key or of entries that have handles.
TableType const& shownTable(Agent const& agent, std::string const& name) {
  if (auto const* const chained = findChainType(name)) return *chained;
  if (auto const* const table = agent.catalogue.find(name)) return *table;
  auto known = agent.catalogue.names();
  for (auto const* type : chainTypes()) known.push_back(type->name());
  throw Failure(fmt::format("no table \"{}\"; {}", name, hintFor(name, known)));
}

/// Entries by the names that the configuration has for them, on a copy of the hardware.
int showByName(Options const& options) {
  Agent const agent(options);
  auto const report = agent.replayed(Access::copy);
  auto const tree = agent.session->chain().tree();
  print(
      options,
      [&] {
        return ordered_json{{"chain", treeJson(tree)}};
      },
      [&] { return tree.empty() ? "The configuration names no entries.\n" : treeText(tree); });
  return warnOfUnfinished(report, exitFine, Mood::wouldBe);
}

}  // namespace

int runCommand(Options const& options) {
  Agent const agent(options);
  // All of them are checked before anything is touched.
  auto wanted = agent.configuration();
  std::vector<Configuration> later;
  for (auto const& file : options.thenConfigurations) later.push_back(agent.configuration(file));
  agent.open(Access::live);
  // A report holds entries, which must not stay for its sake when they are removed.
  auto report = std::make_unique<Report>(agent.session->replay(wanted));
  auto json = summaryJson(*report);
  auto text = summaryText(*report, Mood::done);
  auto totals = report->totals();
  for (std::size_t i = 0; i < later.size(); ++i) {
    report = nullptr;
    agent.session->change(wanted, later[i]);
    agent.session->settle();
    wanted = std::move(later[i]);
    report = std::make_unique<Report>(agent.session->report());
    auto const former = std::exchange(totals, report->totals());
    Figures const made{.hardwareWrites = totals.hardwareWrites - former.hardwareWrites,
                       .hardwareDeletes = totals.hardwareDeletes - former.hardwareDeletes};
    auto const& file = options.thenConfigurations[i];
    json["then"].push_back({{"configuration", file},
                            {"hardwareWrites", made.hardwareWrites},
                            {"hardwareDeletes", made.hardwareDeletes}});
    text += fmt::format("Then changed to \"{}\": {} hardware writes, {} hardware deletes.\n", file,
                        made.hardwareWrites, made.hardwareDeletes);
  }
  agent.warnOfTablesWithoutHardware(wanted);
  print(
      options, [&] { return json; }, [&] { return text; });
  return warnOfUnfinished(*report, exitFine, Mood::done);
}

int planCommand(Options const& options) {
  Agent const agent(options);
  auto report = agent.replayed(Access::copy);
  std::erase_if(report.changes,
                [](auto const& each) { return each.kind == Change::Kind::homeless; });
  print(
      options, [&] { return summaryWithChanges(report); },
      [&] { return changesAndSummary(report, Mood::wouldBe); });
  return warnOfUnfinished(report, report.changes.empty() ? exitFine : exitWouldChange,
                          Mood::wouldBe);
}

int checkCommand(Options const& options) {
  Agent const agent(options);
  auto const report = agent.replayed(Access::copy);
  bool const equal =
      report.changes.empty() && report.unfinished.empty() && report.contradictionsFound.empty();
  auto const json = [&] {
    ordered_json outcome{{"equal", equal}, {"differences", differencesJson(report)}};
    if (!report.unfinished.empty()) outcome["unfinished"] = report.unfinished;
    if (!report.contradictionsFound.empty()) outcome["contradictions"] = report.contradictionsFound;
    return outcome;
  };
  auto const text = [&] {
    if (equal) return fmt::format("The hardware holds what \"{}\" asks.\n", options.configuration);
    auto lines = differencesText(report) + '\n';
    for (auto const& each : report.contradictionsFound)
      lines += fmt::format("The hardware contradicts itself: {}; dlb-agent run mends it.\n", each);
    return fmt::format("{}The hardware does not hold what \"{}\" asks: {}.\n", lines,
                       options.configuration, faultsOf(report));
  };
  print(options, json, text);
  return warnOfUnfinished(report, equal ? exitFine : exitProblem, Mood::wouldBe);
}

int showCommand(Options const& options) {
  if (!options.configuration.empty()) return showByName(options);
  Agent const agent(options);
  auto const* const only = options.table.empty() ? nullptr : &shownTable(agent, options.table);
  agent.open(Access::copy);
  auto const& chain = agent.session->chain();
  std::map<std::string_view, std::pair<TableType const*, Rows>> held;  // by the tables' names
  auto const keep = [&](TableType const& type, auto const& table) {
    if (!only || only == &type) held[type.name()] = {&type, table.held()};
  };
  for (auto const& table : agent.session->tables()) keep(table.type(), table);
  for (auto const* table : chain.tables()) keep(table->type(), *table);
  auto const tree = only ? std::vector<ChainNode>() : chain.heldTree();
  auto const json = [&] {
    auto all = ordered_json{{"tables", ordered_json::object()}};
    for (auto const& [name, table] : held)
      all["tables"][std::string(name)] = rowsJson(*table.first, table.second);
    if (!tree.empty()) all["chain"] = treeJson(tree);
    return all;
  };
  auto const text = [&] {
    std::string all;
    for (auto const& each : held)
      all += (all.empty() ? "" : "\n") + rowsText(*each.second.first, each.second.second);
    return tree.empty() ? all : all + "\n" + treeText(tree);
  };
  print(options, json, text);
  return exitFine;
}

int whyCommand(Options const& options) {
  Agent const agent(options);
  agent.replayed(Access::copy);
  auto const why = agent.session->chain().why(options.name);
  print(
      options,
      [&] {
        return ordered_json{{"why", why.substr(0, why.size() - 1)}};
      },
      [&] { return why; });
  return exitFine;
}

int clearCommand(Options const& options) {
  Agent const agent(options);
  agent.open(Access::live);
  auto const report = agent.session->replay({});
  print(
      options, [&] { return summaryWithChanges(report); },
      [&] { return changesAndSummary(report, Mood::done); });
  return exitFine;
}

int readFlowsetsCommand(Options const& options) {
  Agent const agent(options);
  agent.open(Access::copy);
  auto groups = groupsHeld(*agent.session);
  auto& reader = agent.session->flowsets();
  reader.replayEnded();
  if (options.index) {
    auto const flowset = reader.one(*options.index);
    print(
        options, [&] { return flowsetJson(flowset); },
        [&] { return flowsetText(groups, flowset); });
    return exitFine;
  }
  if (options.group) onlyGroupIs(groups, *options.group);
  auto flowsets = allFlowsets(reader);
  if (options.group)
    std::erase_if(flowsets, [&](Flowset const& each) { return !groups.front().has(each); });
  addFlowsets(groups, flowsets);
  print(
      options, [&] { return spreadJson(groups, flowsets); },
      [&] { return spreadText(groups, flowsets, terminalWidth()); });
  return exitFine;
}

// The tables stay out of it: the traffic is the hardware's own work.
int simulateTrafficCommand(Options const& options) {
  Agent const agent(options);
  agent.openChip(Access::live);
  auto const traffic = agent.session->chip().simulateTraffic(options.flows, options.seed);
  if (!traffic)
    throw Failure(
        fmt::format("chip \"{}\" cannot simulate traffic; choose a simulated chip with "
                    "--chip",
                    options.chip));
  print(
      options, [&] { return trafficJson(*traffic); },
      [&] {
        return fmt::format(
            "{}\nHow the flowsets spread over the ports now: dlb-agent read-flowsets "
            "--hardware {}\n",
            trafficText(*traffic), options.hardware);
      });
  return exitFine;
}

int journalCommand(Options const& options) {
  Agent const agent(options);
  agent.open(Access::copy);
  auto const journal = agent.session->chip().journal(options.most);
  print(
      options, [&] { return journalJson(journal); }, [&] { return journalText(journal); });
  return exitFine;
}

int messagesCommand(Options const& options) {
  auto const messages = Fennlog::readFile(options.messageFile);
  print(
      options, [&] { return messagesJson(messages); }, [&] { return messagesText(messages); });
  return exitFine;
}

// The chip tells what it has room for; its hardware is not opened.
int generateCommand(Options const& options) {
  checkRoom(options.sizes, Agent(options).session->room());
  fmt::print("{}", generated(options.sizes, options.seed));
  return exitFine;
}

}  // namespace DlbAgent
