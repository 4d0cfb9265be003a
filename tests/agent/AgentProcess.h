// Runs the built agent as a user does, in a folder of its own.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

namespace Testing {

struct Outcome {
  int code;  ///< exit code; 128 and the signal's number if one ended the process
  std::string out;
  std::string err;

  nlohmann::ordered_json json() const { return nlohmann::ordered_json::parse(out); }
};

/// A folder that is there for one test, and the agent at work in it.
class AgentProcess : public ::testing::Test {
 protected:
  AgentProcess() : folder_(madeFolder()) {}
  ~AgentProcess() override { std::filesystem::remove_all(folder_); }

  std::filesystem::path path(std::string const& name) const { return folder_ / name; }
  static std::string example(std::string const& name) { return DLB_EXAMPLES_DIR "/" + name; }
  /// A configuration beside the tests: six entries of two tables, and a change of it.
  static std::string small() { return DLB_AGENT_TESTS_DIR "/small.json"; }
  static std::string smallChanged() { return DLB_AGENT_TESTS_DIR "/small-changed.json"; }

  /// Runs `dlb-agent ARGUMENTS`; the arguments are as for a shell.
  Outcome agent(std::string const& arguments) const {
    auto const command =
        "cd " + folder_.string() + " && exec " DLB_AGENT_BINARY " >out 2>err " + arguments;
    int const status = std::system(command.c_str());
    int const code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return {code, content("out"), content("err")};
  }
  /// The same for a command that must succeed, which prints JSON.
  nlohmann::ordered_json json(std::string const& arguments) const {
    auto const outcome = agent(arguments + " --json");
    EXPECT_EQ(outcome.code, 0) << arguments << "\n" << outcome.err;
    return outcome.code == 0 ? outcome.json() : nlohmann::ordered_json();
  }

  static nlohmann::ordered_json configuration(std::string const& file) {
    std::ifstream stream(file);
    return nlohmann::ordered_json::parse(stream);
  }
  /// Writes and deletes by table, where there are any, of a restart with `after` on what `before`
  /// left. The chip stops the process at any operation that leaves a row pointing at nothing.
  nlohmann::ordered_json operations(nlohmann::ordered_json const& before,
                                    nlohmann::ordered_json const& after,
                                    std::string const& options = {}) const {
    contentIs("before.json", before.dump());
    contentIs("after.json", after.dump());
    std::filesystem::remove(path("dlb-hardware.sim"));
    json("run before.json" + strict);
    auto operations = nlohmann::ordered_json::object();
    auto const run = json("run after.json" + strict + options);
    for (auto const& [table, figures] : run.at("tables").items())
      if (figures.at("hardwareWrites") != 0 || figures.at("hardwareDeletes") != 0)
        operations[table] = {figures.at("hardwareWrites"), figures.at("hardwareDeletes")};
    EXPECT_EQ(agent("check after.json").code, 0);
    return operations;
  }

  std::string content(std::string const& name) const {
    std::ifstream stream(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  void contentIs(std::string const& name, std::string_view text) const {
    std::ofstream(path(name), std::ios::binary) << text;
  }
  std::string const strict = " --chip-switch stop-at-breach=on";
  bool exists(std::string const& name) const { return std::filesystem::exists(path(name)); }

 private:
  static std::filesystem::path madeFolder() {
    auto pattern = (std::filesystem::temp_directory_path() / "dlb-agent-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder: " + pattern);
    return pattern;
  }

  std::filesystem::path folder_;
};

/// "matched rewritten added deleted hardwareWrites hardwareDeletes", as numbers.
inline std::string figures(nlohmann::ordered_json const& summary, std::string const& table = {}) {
  auto const& of = table.empty() ? summary.at("totals") : summary.at("tables").at(table);
  EXPECT_EQ(of.size(), 6u);
  std::ostringstream text;
  for (auto const* name :
       {"matched", "rewritten", "added", "deleted", "hardwareWrites", "hardwareDeletes"})
    text << (text.tellp() > 0 ? " " : "") << of.at(name);
  return text.str();
}

}  // namespace Testing
