#include "agent/EntryReader.h"

#include <fmt/format.h>

#include "agent/Words.h"
#include "platform/vell/Inspect.h"

namespace DlbAgent {
namespace {

/// One field on its way into its entry.
class FieldReader {
 public:
  FieldReader(std::string const& path, Vell::AttributeData const& field, Problems& problems)
      : path_(path), field_(field), problems_(problems) {}

  /// The field's value; empty, and a problem added, if there is none.
  Vell::Value read(JsonValue const& value) const {
    switch (field_.shape) {
      case Vell::ValueShape::boolean:
        return readTruth(value);
      case Vell::ValueShape::number:
        return readNumberField(value);
      default:
        return refuse("a field of this kind cannot be configured; leave it out");
    }
  }

 private:
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

}  // namespace

Vell::Record readEntry(TableType const& table, std::string const& path, JsonValue const& value,
                       Problems& problems) {
  auto record = Vell::inspectMakeValue(table.entry());
  auto const* members = value.as<JsonValue::Object>();
  if (!members)
    problems.add(path, fmt::format("must be an object of fields, not {}", value.described()));
  else
    for (auto const& [name, fieldValue] : *members) {
      auto const fieldPath = pathTo(path, name);
      auto const* field = table.field(name);
      if (!field) {
        problems.add(fieldPath, "no such field; " + hintFor(name, table.fieldNames()));
        continue;
      }
      auto const read = FieldReader(fieldPath, *field, problems).read(fieldValue);
      if (!read.empty()) Vell::Inspect(record).set(field->id, read);
    }
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
