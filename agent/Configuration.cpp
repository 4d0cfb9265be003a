#include "agent/Configuration.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "agent/Document.h"
#include "agent/EntryReader.h"
#include "agent/Failure.h"
#include "agent/Words.h"

namespace DlbAgent {
namespace {

[[noreturn]] void cannotRead(std::string const& file, std::string_view why) {
  throw Failure(fmt::format("configuration \"{}\" cannot be read: {}; give the path of a JSON file",
                            file, why));
}

std::string textOf(std::string const& file) {
  std::error_code unknown;  // what it is instead shows when it is opened
  if (std::filesystem::is_directory(file, unknown)) cannotRead(file, "it is a folder");
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (!stream.is_open() || stream.bad()) cannotRead(file, std::strerror(errno ? errno : EIO));
  return text;
}

/// What all parts of the check share.
struct Check {
  Catalogue const& catalogue;
  Room const& room;
  Problems& problems;
  Configuration& configuration;

  /// The members of an object; a problem and none if it is something else.
  JsonValue::Object const& membersOf(std::string_view path, JsonValue const& value,
                                     std::string_view what) const {
    static JsonValue::Object const none;
    if (auto const* object = value.as<JsonValue::Object>()) return *object;
    problems.add(path, fmt::format("must be an object of {}, not {}", what, value.described()));
    return none;
  }
};

/// One table of the section "tables".
class TableCheck {
 public:
  TableCheck(Check const& check, TableType const& table)
      : check_(check), table_(table), limits_(check.room.limits(table)), keys_(check.problems) {}

  void entries(std::string const& path, JsonValue const& value) {
    for (auto const& [key, entry] : check_.membersOf(path, value, "entries by index"))
      this->entry(pathTo(path, key), key, entry);
  }

 private:
  // A bad key does not keep the entry's own errors back; the hardware is asked about sound ones.
  void entry(std::string const& path, std::string const& keyText, JsonValue const& value) {
    auto const key = readKey(path, keyText);
    auto const read = readEntry(table_, path, value, check_.problems);
    if (!key || !keys_.isNew(path, keyText, *key) || !read) return;
    if (auto const why = check_.room.misfit(table_, *key, *read); !why.empty())
      check_.problems.add(path, why);
    check_.configuration.rowIs(table_, *key, *read);
  }

  std::optional<Key> readKey(std::string const& path, std::string const& text) const {
    if (!table_.keyIsIndex()) return readTextKey(table_, path, text, check_.problems);
    auto const [outcome, index] = readNumber(text);
    if (outcome == NumberText::Outcome::notANumber)
      check_.problems.add(path, "is no index; an index is a number, as \"16\" or \"0x10\"");
    else if (outcome == NumberText::Outcome::tooLarge || index > limits_.highest)
      check_.problems.add(path, fmt::format("the highest index is {}", limits_.highest));
    else if (index < limits_.lowest)
      check_.problems.add(path, fmt::format("the lowest index is {}", limits_.lowest));
    else
      return Key(Vell::Value(index));
    return {};
  }

  Check const& check_;
  TableType const& table_;
  IndexLimits limits_;
  Spellings<Key> keys_;
};

void readTables(Check const& check, std::string const& path, JsonValue const& value) {
  std::map<TableType const*, std::string> names;
  for (auto const& [name, entries] : check.membersOf(path, value, "tables by name")) {
    auto const tablePath = pathTo(path, name);
    auto const* table = check.catalogue.find(name);
    if (!table) {
      check.problems.add(tablePath, "no such table; " + hintFor(name, check.catalogue.names()));
      continue;
    }
    auto const [first, isFirst] = names.try_emplace(table, name);
    if (!isFirst && first->second != name)
      check.problems.add(
          tablePath, fmt::format("is the same table as \"{}\"; keep one of them", first->second));
    TableCheck(check, *table).entries(tablePath, entries);
  }
}

constexpr std::string_view tablesSection = "tables";

void readSection(Check const& check, std::string const& name, JsonValue const& value) {
  if (name == tablesSection) return readTables(check, name, value);
  std::vector<std::string_view> known{tablesSection};
  for (auto const& section : chainSections()) {
    if (section.name == name)
      return section.read({check.room, check.problems, check.configuration.chain()}, name, value);
    known.push_back(section.name);
  }
  check.problems.add(pathTo("", name), "no such section; " + hintFor(name, known));
}

Failure failureOf(Problems const& problems, std::string_view origin) {
  std::vector<std::string> lines;
  for (auto const& line : problems.lines()) lines.push_back(fmt::format("{}: {}", origin, line));
  return Failure(std::move(lines));
}

}  // namespace

Configuration Configuration::fromFile(std::string const& file, Catalogue const& catalogue,
                                      Room const& room) {
  return fromText(textOf(file), file, catalogue, room);
}

Configuration Configuration::fromText(std::string_view text, std::string_view origin,
                                      Catalogue const& catalogue, Room const& room) {
  Configuration configuration;
  Problems problems;
  auto const document = readJson(text, problems);
  if (document) {
    Check const check{catalogue, room, problems, configuration};
    for (auto const& [name, value] : check.membersOf("", *document, "sections"))
      readSection(check, name, value);
    checkNames(configuration.chain(), problems);
  }
  if (!problems.lines().empty()) throw failureOf(problems, origin);
  return configuration;
}

Rows const& Configuration::of(TableType const& table) const {
  static Rows const none;
  auto const found = tables_.find(&table);
  return found == tables_.end() ? none : found->second;
}

void Configuration::rowIs(TableType const& table, Key const& key, Vell::Record entry) {
  tables_[&table].insert_or_assign(key, std::move(entry));
}

}  // namespace DlbAgent
