#include "agent/EntryReader.h"

#include <fmt/format.h>

#include <algorithm>

#include "agent/FieldValue.h"
#include "agent/Words.h"
#include "platform/vell/Inspect.h"

namespace DlbAgent {
namespace {

/// One field on its way into its entry.
class FieldReader {
 public:
  FieldReader(std::string const& path, Vell::AttributeData const& field, Problems& problems)
      : path_(path), field_(field), problems_(problems) {}

  /// Stores the field; adds a problem for all that cannot be stored.
  void read(JsonValue const& value, Vell::Inspect& entry) const {
    if (isCollection(field_)) return readElements(value, entry);
    auto const read = readPlain(value);
    if (read.empty()) return;
    try {
      entry.set(field_.id, read);
    } catch (Vell::InspectError const& error) {
      refuse(error.reason());
    }
  }

 private:
  /// The value; empty, and a problem added, if there is none.
  Vell::Value readPlain(JsonValue const& value) const {
    switch (field_.shape) {
      case Vell::ValueShape::boolean:
        return readTruth(value);
      case Vell::ValueShape::number:
        return readNumberField(value);
      case Vell::ValueShape::text:
        if (auto const* text = value.as<std::string>()) return *text;
        return refuse(fmt::format("must be a text, not {}", value.described()));
      default:
        return refuse("a field of this kind cannot be configured; leave it out");
    }
  }

  void readElements(JsonValue const& value, Vell::Inspect& entry) const {
    auto const* members = value.as<JsonValue::Object>();
    if (!members) {
      refuse(fmt::format("must be an object of numbers by key, as {{\"1\": 5}}, not {}",
                         value.described()));
      return;
    }
    Spellings<U64> keys(problems_);
    for (auto const& [text, element] : *members) {
      auto const path = pathTo(path_, text);
      FieldReader const reader(path, field_, problems_);
      auto const key = reader.readElementKey(text);
      auto const read = reader.readNumberField(element);
      if (key && keys.isNew(path, text, *key) && !read.empty())
        entry.elementIs(field_.id, *key, read);
    }
  }

  std::optional<U64> readElementKey(std::string const& text) const {
    auto const [outcome, key] = readNumber(text);
    if (outcome == NumberText::Outcome::number && key <= largestOf(field_.keyBits)) return key;
    refuse(outcome == NumberText::Outcome::notANumber
               ? "is no key; a key is a number, as \"16\" or \"0x10\""
               : fmt::format("the highest key is {}", largestOf(field_.keyBits)));
    return {};
  }

  Vell::Value refuse(std::string_view why) const {
    problems_.add(path_, why);
    return {};
  }

  Vell::Value readTruth(JsonValue const& value) const {
    if (auto const* truth = value.as<bool>()) return *truth;
    return refuse(fmt::format("must be true or false, not {}", value.described()));
  }

  Vell::Value readNumberField(JsonValue const& value) const {
    if (auto const* number = value.as<U64>()) return fitting(*number);
    if (auto const* odd = value.as<JsonValue::OddNumber>()) return readOdd(odd->text);
    if (auto const* text = value.as<std::string>()) return readText(*text, value.described());
    return refuse(fmt::format("must be a number, not {}", value.described()));
  }

  Vell::Value fitting(U64 number) const {
    return number <= largestOf(field_.bits) ? Vell::Value(number)
                                            : tooLarge(std::to_string(number));
  }

  Vell::Value tooLarge(std::string_view number) const {
    return refuse(fmt::format("{} does not fit in {} bits; the largest value is {}",
                              clipped(number), field_.bits, largestOf(field_.bits)));
  }

  Vell::Value readOdd(std::string_view text) const {
    if (text.starts_with('-'))
      return refuse(fmt::format("{} is negative; the least value is 0", clipped(text)));
    bool const digitsOnly = text.find_first_not_of("0123456789") == text.npos;
    return digitsOnly ? tooLarge(text)
                      : refuse(fmt::format("{} is no whole number, written with digits only",
                                           clipped(text)));
  }

  Vell::Value readText(std::string const& text, std::string_view described) const {
    auto const [outcome, number] = readNumber(text);
    if (outcome == NumberText::Outcome::number) return fitting(number);
    if (outcome == NumberText::Outcome::tooLarge) return tooLarge(text);
    return refuse(fmt::format("{} is no number; write it as 64, \"64\" or \"0x40\"", described));
  }

  std::string const& path_;
  Vell::AttributeData const& field_;
  Problems& problems_;
};

void readFields(TableType const& table, std::string const& path, JsonValue::Object const& members,
                std::span<FieldBeside const> beside, Vell::Inspect& entry, Problems& problems) {
  for (auto const& [name, value] : members) {
    auto const fieldPath = pathTo(path, name);
    auto const other = std::ranges::find(beside, std::string_view(name), &FieldBeside::name);
    if (other != beside.end()) {
      other->read(fieldPath, value);
    } else if (auto const* field = table.field(name)) {
      FieldReader(fieldPath, *field, problems).read(value, entry);
    } else {
      auto known = table.fieldNames();
      for (auto const& each : beside)
        each.isRefused ? void(std::erase(known, each.name)) : known.push_back(each.name);
      problems.add(fieldPath, "no such field; " + hintFor(name, known));
    }
  }
}

/// The field that a bare value in the place of the object stands for, or null.
Vell::AttributeData const* onlyField(TableType const& table) {
  auto const& fields = table.fields();
  return fields.size() == 1 && !isCollection(*fields.front()) ? fields.front() : nullptr;
}

void readBareValue(TableType const& table, std::string const& path, JsonValue const& value,
                   Vell::Inspect& entry, Problems& problems) {
  auto const* const only = onlyField(table);
  bool const isNothing = value.as<JsonValue::Null>() || value.as<JsonValue::List>();
  if (only && !isNothing) return FieldReader(path, *only, problems).read(value, entry);
  auto const bare = only ? fmt::format(" or the bare {}", only->name) : "";
  problems.add(path, fmt::format("must be an object of fields{}, not {}", bare, value.described()));
}

}  // namespace

std::optional<Vell::Record> readEntry(TableType const& table, std::string const& path,
                                      JsonValue const& value, Problems& problems,
                                      std::span<FieldBeside const> beside) {
  auto const before = problems.lines().size();
  auto const record = Vell::inspectMakeValue(table.entry());
  Vell::Inspect entry(record);
  if (auto const* members = value.as<JsonValue::Object>())
    readFields(table, path, *members, beside, entry, problems);
  else
    readBareValue(table, path, value, entry, problems);
  if (problems.lines().size() > before) return {};
  return record;
}

// A table without chip hooks that holds this one key tells how the key reads.
std::optional<Key> readTextKey(TableType const& table, std::string const& path,
                               std::string const& text, Problems& problems) {
  auto const scratch = Vell::inspectMake(table.table());
  Vell::Inspect inspect(*scratch);
  std::optional<Key> key;
  try {
    Vell::Value const arguments[] = {text, Vell::inspectMakeValue(table.entry())};
    inspect.call("entryCommit", arguments);
    inspect.walk("resolvedEntry", [&](auto const& each, auto const&) { key.emplace(each); });
  } catch (Vell::InspectError const& error) {
    problems.add(path, error.reason());
  }
  return key;
}

}  // namespace DlbAgent
