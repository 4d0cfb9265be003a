#include "agent/FieldValue.h"

#include <fmt/format.h>

#include "agent/Words.h"
#include "platform/vell/Inspect.h"

namespace DlbAgent {
namespace {

using nlohmann::ordered_json;

std::string elementsText(Elements const& elements, std::size_t longest) {
  std::string text;
  for (auto const& [key, value] : elements) {
    text += fmt::format("{}{}:{}", text.empty() ? "{" : " ", key, value);
    if (text.size() >= longest) return counted(elements.size(), "element", "elements");
  }
  return text.empty() ? "{}" : text + '}';
}

}  // namespace

FieldValue fieldOf(Vell::Record const& record, Vell::AttributeData const& field) {
  Vell::Inspect const inspect(record);
  if (!isCollection(field)) return inspect.get(field.id);
  Elements elements;
  inspect.walk(field.id, [&](auto const& key, auto const& value) {
    elements.emplace(*key.number(), *value.number());
  });
  return elements;
}

ordered_json valueJson(Vell::Value const& value) {
  if (auto const* truth = value.truth()) return *truth;
  if (auto const* number = value.number()) return *number;
  if (auto const* text = value.text()) return *text;
  return nullptr;
}

ordered_json valueJson(FieldValue const& value) {
  if (auto const* plain = std::get_if<Vell::Value>(&value)) return valueJson(*plain);
  auto json = ordered_json::object();
  for (auto const& [key, element] : std::get<Elements>(value)) json[std::to_string(key)] = element;
  return json;
}

std::string valueText(Vell::AttributeData const& field, Vell::Value const& value) {
  if (auto const* number = value.number(); number && field.bits == 64)
    return fmt::format("{:#x}", *number);
  if (auto const* text = value.text()) return *text;
  return valueJson(value).dump();
}

std::string valueText(Vell::AttributeData const& field, FieldValue const& value,
                      std::size_t longest) {
  if (auto const* plain = std::get_if<Vell::Value>(&value)) return valueText(field, *plain);
  return elementsText(std::get<Elements>(value), longest);
}

}  // namespace DlbAgent
