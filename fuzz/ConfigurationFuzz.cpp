// Configurations. One that is refused tells of each error in a line of its own, with the place; one that is
// accepted can be written as a configuration again, which is accepted with the same result.

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <optional>

#include "agent/Configuration.h"
#include "agent/Failure.h"
#include "agent/FieldValue.h"
#include "agent/Session.h"
#include "frame/FieldEntry.h"
#include "frame/Trait.h"
#include "fuzz/Expect.h"

namespace {

using namespace DlbAgent;
using Fuzz::expect;
using nlohmann::ordered_json;

constexpr std::string_view origin = "fuzz.json";

// ---- a configuration, written again ----

ordered_json fieldsOf(TableType const& table, Vell::Record const& record) {
  auto json = ordered_json::object();
  for (auto const* field : table.fields())
    json[std::string(field->name)] = valueJson(fieldOf(record, *field));
  return json;
}

template <class T>
ordered_json fieldsOf(typename T::Entry const& entry) {
  return fieldsOf(tableTypeOf<T>(),
                  *Asic::EntryReflection<typename T::Entry>::toValue(entry).record());
}

template <class T>
ordered_json groupJson(WantedGroup<T> const& group) {
  auto json = fieldsOf<T>(group.entry);
  json["adjId"] = group.key.adjId;
  json["type"] = Vell::concatenate(group.key.type);
  if constexpr (Asic::Trait::needsEntries<T>) {
    json["block"] = group.block;
    json.erase("ecmpSecondaryBlockPtr");  // follows from the block
    if (group.countsAllRows) json.erase("countSecondary");
  }
  return json;
}

ordered_json blockJson(std::vector<WantedRow> const& rows) {
  auto list = ordered_json::array();
  for (auto const& row : rows)
    list.push_back({{"nextHop", row.nextHop}, {"weightIdx", row.weightIdx}});
  return {{"rows", list}};
}

ordered_json toJson(Configuration const& configuration, Catalogue const& catalogue) {
  auto json = ordered_json::object();
  for (auto const& table : catalogue.tables())
    for (auto const& [key, record] : configuration.of(table))
      json["tables"][std::string(table.name())][key.text()] = fieldsOf(table, record);
  auto const& chain = configuration.chain();
  for (auto const& [name, entry] : chain.nextHops)
    json["nextHops"][name] = fieldsOf<NextHopTable>(entry);
  for (auto const& [name, rows] : chain.blocks) json["memberBlocks"][name] = blockJson(rows);
  forEachOf(chain.groups, [&]<class T>(std::map<std::string, WantedGroup<T>> const& groups) {
    for (auto const& [name, group] : groups)
      json[std::string(groupWords<T>.section)][name] = groupJson(group);
  });
  for (auto const& [name, adjacency] : chain.adjacencies)
    json["adjacencies"][name] = {{"id", adjacency.id}, {"group", adjacency.group}};
  return json;
}

// ---- what an error must look like ----

bool isOneLineOfText(std::string_view line) {
  using Handler = ordered_json::error_handler_t;
  auto const isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; };
  auto const inUtf8 = [&](Handler handler) {
    return ordered_json(line).dump(-1, ' ', false, handler);
  };
  return std::ranges::none_of(line, isControl) &&
         inUtf8(Handler::replace) == inUtf8(Handler::ignore);
}

/// Characters of the step of a path that `text` begins with; 0 if it begins with none.
std::size_t stepLength(std::string_view text) {
  if (text.starts_with('"')) {
    for (std::size_t i = 1; i < text.size(); ++i)
      if (text[i] == '\\')
        ++i;
      else if (text[i] == '"')
        return i + 1;
    return 0;
  }
  // A colon is part of a name as long as no blank follows.
  std::size_t length = 0;
  while (length < text.size() &&
         (std::isalnum(static_cast<unsigned char>(text[length])) || text[length] == '_' ||
          text[length] == '-' || (text[length] == ':' && !text.substr(length).starts_with(": "))))
    ++length;
  return length;
}

/// Whether `text` is "PATH: PROBLEM".
bool namesPath(std::string_view text) {
  for (bool isFirst = true; !text.starts_with(": "); isFirst = false) {
    if (text.starts_with('[')) {
      auto const end = text.find(']');
      if (end == text.npos) return false;
      text.remove_prefix(end + 1);
      continue;
    }
    if (!isFirst) {
      if (!text.starts_with('.')) return false;
      text.remove_prefix(1);
    }
    auto const length = stepLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return text.size() > 2;
}

/// Of the document as a whole there is no place but the file.
bool isOfWhole(std::string_view text) {
  return text.starts_with("must be an object of sections, not ") || text.starts_with("lies deeper");
}

bool namesPlace(std::string_view text) {
  unsigned line = 0, column = 0;
  int end = 0;
  if (std::sscanf(std::string(text).c_str(), "line %u, column %u: %n", &line, &column, &end) == 2)
    return end > 0 && line > 0 && column > 0;
  return namesPath(text) || isOfWhole(text);
}

void checkRefusal(Failure const& failure) {
  expect(!failure.lines().empty(), "a refusal tells why");
  for (auto const& line : failure.lines()) {
    expect(isOneLineOfText(line), "an error is one line of text", line);
    auto const prefix = fmt::format("{}: ", origin);
    expect(line.starts_with(prefix) && namesPlace(std::string_view(line).substr(prefix.size())),
           "an error names its place", line);
  }
}

// ---- the target ----

class Reader {
 public:
  /// What the text asks for, written as a configuration; nothing if it is refused.
  std::optional<std::string> read(std::string_view text) const {
    try {
      return toJson(Configuration::fromText(text, origin, catalogue_, room_), catalogue_).dump();
    } catch (Failure const& failure) {
      checkRefusal(failure);
      return {};
    }
  }

 private:
  Catalogue catalogue_;
  Session session_{catalogue_, "sim"};
  Room room_ = session_.room();
};

/// Accepted, and told to be the same as long as nothing that was refused before is left behind.
constexpr std::string_view sound =
    R"({"tables": {"DlbControlTable": {"3": {"samplingPeriod": 7}}}, "groups": {"g": {"adjId": 1}}})";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static auto const& reader = *new Reader;
  static auto const soundAtFirst = reader.read(sound);
  auto const first = reader.read(Fuzz::textOf(data, size));
  if (first) {
    auto const again = reader.read(*first);
    expect(again.has_value(), "what was accepted is accepted again", *first);
    expect(again == first, "what was accepted is the same again", *first + '\n' + *again);
  }
  expect(soundAtFirst && reader.read(sound) == soundAtFirst, "nothing of an input stays behind");
  return 0;
}
