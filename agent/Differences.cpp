#include "agent/Differences.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "agent/FieldValue.h"
#include "agent/TextTable.h"
#include "platform/vell/Inspect.h"

namespace DlbAgent {
namespace {

using nlohmann::ordered_json;

/// How long a collection may read on a line of its own.
constexpr std::size_t longestElements = 60;

/// A difference in one field of a changed entry, or in one element of it; a value is empty where
/// there is none.
struct FieldChange {
  Vell::AttributeData const* field;
  std::optional<U64> element;  ///< its key, in a field that is a collection
  Vell::Value held;
  Vell::Value wanted;

  std::string name() const {
    return element ? fmt::format("{}[{}]", field->name, *element) : std::string(field->name);
  }
  std::string heldText() const { return valueText(*field, held); }
  std::string wantedText() const { return valueText(*field, wanted); }
};

Vell::Value elementOf(Elements const& elements, U64 key) {
  auto const found = elements.find(key);
  return found == elements.end() ? Vell::Value() : Vell::Value(found->second);
}

void addElementChanges(std::vector<FieldChange>& changes, Vell::AttributeData const& field,
                       Elements const& held, Elements const& wanted) {
  auto keys = held;
  keys.insert(wanted.begin(), wanted.end());
  for (auto const& each : keys) {
    auto const key = each.first;
    FieldChange change{&field, key, elementOf(held, key), elementOf(wanted, key)};
    if (change.held != change.wanted) changes.push_back(std::move(change));
  }
}

/// A field of a side that may have no entry.
template <class Kind>
Kind sideOf(std::optional<Vell::Record> const& record, Vell::AttributeData const& field) {
  return record ? std::get<Kind>(fieldOf(*record, field)) : Kind();
}

std::vector<FieldChange> fieldChanges(Change const& change) {
  std::vector<FieldChange> changes;
  for (auto const* field : change.table->fields()) {
    if (isCollection(*field)) {
      addElementChanges(changes, *field, sideOf<Elements>(change.held, *field),
                        sideOf<Elements>(change.wanted, *field));
      continue;
    }
    FieldChange each{field,
                     {},
                     sideOf<Vell::Value>(change.held, *field),
                     sideOf<Vell::Value>(change.wanted, *field)};
    if (each.held != each.wanted) changes.push_back(std::move(each));
  }
  return changes;
}

/// The fields of an entry that is there on one side only, those at their default left out.
std::string wholeEntry(Change const& change) {
  auto const& record = change.wanted ? *change.wanted : *change.held;
  auto const plain = Vell::inspectMakeValue(change.table->entry());
  std::vector<std::string> parts;
  for (auto const* field : change.table->fields())
    if (auto const value = fieldOf(record, *field); value != fieldOf(plain, *field))
      parts.push_back(fmt::format("{} {}", field->name, valueText(*field, value, longestElements)));
  return parts.empty() ? "every field at its default" : fmt::format("{}", fmt::join(parts, ", "));
}

// An element that is on one side only has a sign of its own.
std::string fieldChangeText(FieldChange const& field) {
  if (field.held.empty()) return fmt::format("+{} {}", field.name(), field.wantedText());
  if (field.wanted.empty()) return fmt::format("-{} {}", field.name(), field.heldText());
  return fmt::format("{} {} -> {}", field.name(), field.heldText(), field.wantedText());
}

std::string fieldDifferenceText(FieldChange const& field) {
  if (field.held.empty())
    return fmt::format("{} is missing, wanted {}", field.name(), field.wantedText());
  if (field.wanted.empty())
    return fmt::format("{} is {}, unexpected", field.name(), field.heldText());
  return fmt::format("{} is {}, wanted {}", field.name(), field.heldText(), field.wantedText());
}

std::string differingFields(Change const& change, std::string (*fieldText)(FieldChange const&)) {
  std::vector<std::string> parts;
  for (auto const& field : fieldChanges(change)) parts.push_back(fieldText(field));
  // A chip may see a difference that no field shows.
  return parts.empty() ? "no field differs" : fmt::format("{}", fmt::join(parts, ", "));
}

/// How the two commands tell a kind of change.
struct Wording {
  std::string_view change;
  std::string_view difference;
  std::string_view sign;
  Emphasis emphasis;
};
Wording wordingOf(Change::Kind kind) {
  switch (kind) {
    case Change::Kind::added:
    case Change::Kind::homeless:  // shown as missing; no plan lists it
      return {"added", "missing", "+", Emphasis::good};
    case Change::Kind::rewritten:
      return {"rewritten", "different", "~", Emphasis::changed};
    case Change::Kind::deleted:
      return {"deleted", "unexpected", "-", Emphasis::bad};
  }
  return {};
}

/// The key, and what the row belongs to.
std::string placeOf(Change const& change) {
  return change.owner.empty() ? change.key.text()
                              : fmt::format("{} ({})", change.key.text(), change.owner);
}

std::string changeLine(Change const& change) {
  auto const fields = change.kind == Change::Kind::rewritten
                          ? differingFields(change, &fieldChangeText)
                          : wholeEntry(change);
  auto const wording = wordingOf(change.kind);
  return emphasised(fmt::format("{} {}  {}", wording.sign, placeOf(change), fields),
                    wording.emphasis);
}

std::string differenceLine(Change const& change) {
  auto const fields = change.kind == Change::Kind::rewritten
                          ? differingFields(change, &fieldDifferenceText)
                          : wholeEntry(change);
  auto const wording = wordingOf(change.kind);
  return emphasised(fmt::format("{}  {}: {}", placeOf(change), wording.difference, fields),
                    wording.emphasis);
}

template <class Line>
std::string byTable(Report const& report, Line const& line) {
  std::string text;
  TableType const* table = nullptr;
  for (auto const& change : report.changes) {
    if (change.table != table) text += emphasised(change.table->name(), Emphasis::heading) + '\n';
    table = change.table;
    text += fmt::format("  {}\n", line(change));
  }
  return text;
}

/// What stands under which name in the JSON of one of the commands.
struct Names {
  std::string kind;
  std::string_view Wording::*wording;
  std::string held;
  std::string wanted;
};

ordered_json listOf(Report const& report, Names const& names) {
  auto list = ordered_json::array();
  for (auto const& change : report.changes) {
    auto fields = ordered_json::object();
    for (auto const& field : fieldChanges(change)) {
      auto* json = &fields[std::string(field.field->name)];
      if (field.element) json = &(*json)[std::to_string(*field.element)];
      if (!field.held.empty()) (*json)[names.held] = valueJson(field.held);
      if (!field.wanted.empty()) (*json)[names.wanted] = valueJson(field.wanted);
    }
    list.push_back({{"table", change.table->name()},
                    {"index", change.key.text()},
                    {names.kind, wordingOf(change.kind).*names.wording},
                    {"fields", std::move(fields)}});
    if (!change.owner.empty()) list.back()["owner"] = change.owner;
  }
  return list;
}

}  // namespace

ordered_json changesJson(Report const& report) {
  return listOf(report, {"change", &Wording::change, "old", "new"});
}

std::string changesText(Report const& report) { return byTable(report, changeLine); }

ordered_json differencesJson(Report const& report) {
  return listOf(report, {"difference", &Wording::difference, "held", "wanted"});
}

std::string differencesText(Report const& report) { return byTable(report, differenceLine); }

}  // namespace DlbAgent
