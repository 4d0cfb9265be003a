#include "agent/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent/Commands.h"
#include "agent/Failure.h"
#include "agent/Words.h"

namespace DlbAgent {
namespace {

constexpr char const* commonGroup = "Options of every command";

constexpr std::string_view exitCodes = R"(Exit codes:
  0  done; check: the hardware holds what was asked; plan: run would change nothing
  1  an error, told on standard error; check: the hardware differs
  2  plan: run would change the hardware)";

/// One command: what help says of it, what it takes, what it does.
struct Command {
  char const* name;
  char const* summary;
  std::string_view example;
  void (*takes)(CLI::App&, Options&);
  int (*run)(Options const&);
};

/// Numbers as everywhere else, "64" or "0x40"; made decimal for the parser behind.
CLI::Validator numberFrom(U64 least) {
  auto const check = [least](std::string& text) -> std::string {
    auto const [outcome, number] = readNumber(text);
    if (outcome == NumberText::Outcome::tooLarge) return text + " does not fit in 64 bits";
    if (outcome == NumberText::Outcome::notANumber || number < least)
      return fmt::format("must be a number from {} on, not {}", least, text);
    text = std::to_string(number);
    return {};
  };
  return {check, ""};
}

void takesConfiguration(CLI::App& app, Options& options) {
  app.add_option("CONFIG", options.configuration, "Configuration, a JSON file")->required();
}

void takesCrash(CLI::App& app, Options& options) {
  app.add_option("--crash-after", options.crashAfter,
                 "Die by SIGKILL right after the N-th operation took effect in the hardware")
      ->type_name("N")
      ->transform(numberFrom(1));
}

void takesConfigurationsAndCrash(CLI::App& app, Options& options) {
  takesConfiguration(app, options);
  app.add_option("--then", options.thenConfigurations,
                 "Then change to this one, as an agent does that lives on; may be repeated")
      ->type_name("CONFIG")
      ->allow_extra_args(false);
  takesCrash(app, options);
}

void takesTable(CLI::App& app, Options& options) {
  auto* const table =
      app.add_option("TABLE", options.table, "The table to show; all of them if left out");
  app.add_option(
         "--config", options.configuration,
         "Show what CONFIG knows by name instead: as a tree, what is needed below what needs "
         "it, each entry with the state that it would be in after a run")
      ->type_name("CONFIG")
      ->excludes(table);
}

void takesConfigurationAndName(CLI::App& app, Options& options) {
  takesConfiguration(app, options);
  app.add_option("NAME", options.name, "An adjacency, group, member block or next hop of CONFIG")
      ->required();
}

void takesFlowsets(CLI::App& app, Options& options) {
  auto* const index = app.add_option("--index", options.index, "Read that one flowset only")
                          ->type_name("I")
                          ->transform(numberFrom(0));
  app.add_option("--group", options.group, "Tell of the flowsets of that one group only")
      ->type_name("G")
      ->transform(numberFrom(0))
      ->excludes(index);
}

void takesTraffic(CLI::App& app, Options& options) {
  app.add_option("--flows", options.flows, "How many flows to simulate")
      ->type_name("N")
      ->transform(numberFrom(1))
      ->required();
  app.add_option("--seed", options.seed, "The same seed on the same hardware does the same")
      ->type_name("S")
      ->transform(numberFrom(0))
      ->required();
}

void takesMost(CLI::App& app, Options& options) {
  app.add_option("--most", options.most, "How many operations to print, the newest ones")
      ->type_name("N")
      ->transform(numberFrom(1))
      ->capture_default_str();
}

void takesMessageFile(CLI::App& app, Options& options) {
  app.add_option("FILE", options.messageFile,
                 "What an earlier command was given as --messages FILE")
      ->required();
}

void takesSizes(CLI::App& app, Options& options) {
  auto const add = [&](char const* name, U64& size, U64 least, char const* help) {
    app.add_option(name, size, help)
        ->type_name("N")
        ->transform(numberFrom(least))
        ->capture_default_str();
  };
  auto& sizes = options.sizes;
  add("--ports", sizes.ports, 1, "Ports, from 0 on, that everything is spread over");
  add("--dlb-groups", sizes.dlbGroups, 0, "DLB groups, each with up to 16 of the ports");
  add("--flowsets", sizes.flowsets, 0, "Flowsets, dealt out to the DLB groups in equal parts");
  add("--next-hops", sizes.nextHops, 0, "Next hops");
  add("--groups", sizes.groups, 0, "Groups on member blocks, every fourth a VXLAN one");
  add("--width", sizes.width, 1, "Rows of the largest member block");
  app.add_flag("--even", sizes.even,
               "A block for each group, all of --width rows; else some groups share one");
  add("--plain-groups", sizes.plainGroups, 0, "Groups without blocks, every fourth a VXLAN one");
  add("--adjacencies", sizes.adjacencies, 0, "Adjacencies, with a group of their own first");
  add("--seed", options.seed, 0, "The same seed and sizes print the same");
}

constexpr Command commands[] = {
    {"run", "Bring the hardware to what CONFIG asks: write what differs, delete what is stale",
     "dlb-agent run examples/leaf.json --hardware leaf.sim", &takesConfigurationsAndCrash,
     &runCommand},
    {"plan", "Tell what run would do, entry by entry, and touch nothing",
     "dlb-agent plan examples/leaf-changed.json --hardware leaf.sim", &takesConfiguration,
     &planCommand},
    {"check", "Tell where the hardware differs from what CONFIG asks",
     "dlb-agent check examples/leaf.json --hardware leaf.sim", &takesConfiguration, &checkCommand},
    {"show", "Show what the hardware holds, or a tree of what CONFIG knows by name",
     "dlb-agent show --config examples/groups.json --hardware leaf.sim", &takesTable, &showCommand},
    {"why", "Tell what an entry that CONFIG knows by name waits for, or where it is",
     "dlb-agent why examples/blocks.json b7 --hardware leaf.sim", &takesConfigurationAndName,
     &whyCommand},
    {"clear", "Delete everything that this agent holds in the hardware",
     "dlb-agent clear --hardware leaf.sim", &takesCrash, &clearCommand},
    {"read-flowsets", "Read back from the hardware which port each flowset is assigned to",
     "dlb-agent read-flowsets --group 3 --hardware leaf.sim", &takesFlowsets, &readFlowsetsCommand},
    {"simulate-traffic", "Simulation: play random flows through the hardware of a simulated chip",
     "dlb-agent simulate-traffic --flows 20000 --seed 1 --hardware leaf.sim", &takesTraffic,
     &simulateTrafficCommand},
    {"journal", "Print the newest operations on the hardware",
     "dlb-agent journal --most 5 --hardware leaf.sim", &takesMost, &journalCommand},
    {"messages", "Print the messages that an earlier command left in a file",
     "dlb-agent messages leaf.messages", &takesMessageFile, &messagesCommand},
    {"generate", "Print a random configuration of a switch's size; no hardware is needed",
     "dlb-agent generate --groups 200 --width 60 --even --seed 1 > even.json", &takesSizes,
     &generateCommand},
};

/// "NAME=VALUE" into the map of switches; the text of what is wrong, or an empty one.
std::string chipSwitchIs(std::map<std::string, std::string>& switches, std::string const& text) {
  auto const equals = text.find('=');
  if (equals == text.npos || equals == 0) return "a switch is written as NAME=VALUE, not " + text;
  auto const name = text.substr(0, equals);
  if (!switches.insert({name, text.substr(equals + 1)}).second)
    return "the switch " + name + " is given more than once";
  return {};
}

void addCommonOptions(CLI::App& app, Options& options) {
  auto const add = [](CLI::Option* option, char const* type) {
    option->group(commonGroup);
    if (type) option->type_name(type);
    return option;
  };
  add(app.add_option("--chip", options.chip, "The chip, by the name of its plug-in"), "NAME")
      ->capture_default_str();
  add(app.add_option("--hardware", options.hardware, "Where the chip's hardware is"), "FILE")
      ->capture_default_str();
  add(app.add_flag_callback(
          "--json", [&] { options.format = Options::Format::json; }, "Print JSON, for programs"),
      nullptr);
  add(app.add_option("--trace", options.traces,
                     "Trace a table, or SwTableStat, to standard error; LEVELS as 5,6,8 or 0-9; "
                     "may be repeated"),
      "TABLE=LEVELS")
      ->allow_extra_args(false);
  add(app.add_option("--messages", options.messages,
                     "Keep the newest messages in this file, for the command messages"),
      "FILE");
  add(app.add_option_function<std::vector<std::string>>(
          "--chip-switch",
          [&](auto const& texts) {
            for (auto const& text : texts)
              if (auto const error = chipSwitchIs(options.chipSwitches, text); !error.empty())
                throw CLI::ValidationError("--chip-switch", error);
          },
          "Set a switch of the chip, by the chip's own names; repeat it for others"),
      "NAME=VALUE")
      ->allow_extra_args(false);
}

std::string commonOptionsHelp(CLI::App const& app) {
  auto const inGroup = [](CLI::Option const* option) { return option->get_group() == commonGroup; };
  auto const* formatter = dynamic_cast<CLI::Formatter const*>(app.get_formatter().get());
  return formatter ? formatter->make_group(commonGroup, false, app.get_options(inGroup)) : "";
}

int reported(std::vector<std::string> const& lines) {
  for (auto const& line : lines) tell(line);
  return exitProblem;
}

/// Runs the command; its output is out, or told not to be, when this returns.
int runReported(Command const& command, Options const& options) {
  try {
    auto const code = command.run(options);
    if (std::fflush(stdout) == 0) return code;
    return reported({fmt::format("standard output cannot be written: {}", std::strerror(errno))});
  } catch (Failure const& failure) {
    return reported(failure.lines());
  } catch (std::exception const& error) {
    return reported({error.what()});
  }
}

/// An argument that nothing takes is told before what is missing, which may be only
/// its consequence.
int usageError(CLI::App const& app, CLI::ParseError const& error) {
  auto const chosen = app.get_subcommands();
  auto const leftOver = app.remaining(true);
  if (chosen.empty() && !leftOver.empty() && !leftOver.front().starts_with('-')) {
    std::vector<std::string_view> names;
    for (auto const& command : commands) names.push_back(command.name);
    auto const hint = hintFor(leftOver.front(), names);
    return reported({fmt::format("no command \"{}\"; {}", leftOver.front(), hint)});
  }
  auto const what = leftOver.empty() ? std::string(error.what())
                                     : fmt::format("nothing takes \"{}\"", leftOver.front());
  return reported({fmt::format("{}; see dlb-agent {}--help", what,
                               chosen.empty() ? "" : chosen.front()->get_name() + " ")});
}

}  // namespace

int commandLine(int argumentCount, char const* const* arguments) {
  Options options;
  CLI::App app("Keeps the dynamic load balancing tables of a switch as a configuration asks.",
               "dlb-agent");
  app.require_subcommand(1);
  app.fallthrough();
  addCommonOptions(app, options);
  for (auto const& command : commands) {
    auto* const subcommand = app.add_subcommand(command.name, command.summary);
    command.takes(*subcommand, options);
    subcommand->footer([&] {
      return fmt::format("{}\nExample:\n  {}\n\n{}", commonOptionsHelp(app), command.example,
                         exitCodes);
    });
  }
  app.footer(std::string(exitCodes));  // last: a command begins with the footer of its parent

  try {
    app.parse(argumentCount, arguments);
  } catch (CLI::ParseError const& error) {
    return error.get_exit_code() == 0 ? app.exit(error) : usageError(app, error);
  }
  auto const* const chosen = std::ranges::find_if(
      commands, [&](Command const& each) { return app.got_subcommand(each.name); });
  return runReported(*chosen, options);
}

}  // namespace DlbAgent
