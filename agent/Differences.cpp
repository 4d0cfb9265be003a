#include "agent/Differences.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "agent/TextTable.h"
#include "platform/vell/Inspect.h"

namespace DlbAgent {
namespace {

using nlohmann::ordered_json;

/// One field of a changed entry; a value is empty where there is no entry.
struct FieldChange {
  std::string_view name;
  Vell::Value held;
  Vell::Value wanted;
};

std::vector<FieldChange> fieldChanges(Change const& change) {
  std::vector<FieldChange> fields;
  for (auto const* field : change.table->fields()) {
    FieldChange each{field->name, {}, {}};
    if (change.held) each.held = fieldOf(*change.held, *field);
    if (change.wanted) each.wanted = fieldOf(*change.wanted, *field);
    if (each.held != each.wanted) fields.push_back(std::move(each));
  }
  return fields;
}

std::string shown(Vell::Value const& value) { return valueJson(value).dump(); }

/// The fields of an entry that is there on one side only, those at their default left out.
std::string wholeEntry(Change const& change) {
  auto const& record = change.wanted ? *change.wanted : *change.held;
  auto const plain = Vell::inspectMakeValue(change.table->entry());
  std::vector<std::string> parts;
  for (auto const* field : change.table->fields())
    if (auto const value = fieldOf(record, *field); value != fieldOf(plain, *field))
      parts.push_back(fmt::format("{} {}", field->name, shown(value)));
  return parts.empty() ? "every field at its default" : fmt::format("{}", fmt::join(parts, ", "));
}

template <class FieldText>
std::string differingFields(Change const& change, FieldText const& fieldText) {
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

std::string changeLine(Change const& change) {
  auto const fields =
      change.kind == Change::Kind::rewritten
          ? differingFields(change,
                            [](FieldChange const& field) {
                              return fmt::format("{} {} -> {}", field.name, shown(field.held),
                                                 shown(field.wanted));
                            })
          : wholeEntry(change);
  auto const wording = wordingOf(change.kind);
  return emphasised(fmt::format("{} {}  {}", wording.sign, change.key.text(), fields),
                    wording.emphasis);
}

std::string differenceLine(Change const& change) {
  auto const fields =
      change.kind == Change::Kind::rewritten
          ? differingFields(change,
                            [](FieldChange const& field) {
                              return fmt::format("{} is {}, wanted {}", field.name,
                                                 shown(field.held), shown(field.wanted));
                            })
          : wholeEntry(change);
  auto const wording = wordingOf(change.kind);
  return emphasised(fmt::format("{}  {}: {}", change.key.text(), wording.difference, fields),
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
      auto& json = fields[std::string(field.name)];
      if (!field.held.empty()) json[names.held] = valueJson(field.held);
      if (!field.wanted.empty()) json[names.wanted] = valueJson(field.wanted);
    }
    list.push_back({{"table", change.table->name()},
                    {"index", change.key.text()},
                    {names.kind, wordingOf(change.kind).*names.wording},
                    {"fields", std::move(fields)}});
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

ordered_json valueJson(Vell::Value const& value) {
  if (auto const* truth = value.truth()) return *truth;
  if (auto const* number = value.number()) return *number;
  if (auto const* text = value.text()) return *text;
  return nullptr;
}

Vell::Value fieldOf(Vell::Record const& record, Vell::AttributeData const& field) {
  return Vell::Inspect(record).get(field.id);
}

}  // namespace DlbAgent
