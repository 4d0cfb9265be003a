// The value of one field of an entry, and how it reads: a plain value, or the elements of a field
// that is a collection.

#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <variant>

#include "platform/vell/Value.h"

namespace DlbAgent {

/// Elements by key, in ascending order.
using Elements = std::map<U64, U64>;
using FieldValue = std::variant<Vell::Value, Elements>;

/// Whether the attribute of a value class is a collection of the object's own.
inline bool isCollection(Vell::AttributeData const& attribute) {
  return attribute.kind == Vell::AttributeKind::collection && attribute.keyBits > 0;
}

/// The value of a field of a record.
FieldValue fieldOf(Vell::Record const& record, Vell::AttributeData const& field);

/// A number, a truth value or a text; null for nothing.
nlohmann::ordered_json valueJson(Vell::Value const& value);
/// The same, and {KEY: value} for elements.
nlohmann::ordered_json valueJson(FieldValue const& value);

/// For people. Numbers of 64 bits, which are bitmaps mostly, read in hexadecimal.
std::string valueText(Vell::AttributeData const& field, Vell::Value const& value);
/// The same; elements as "{1:5 2:6}", or only their count if that is longer than `longest`.
std::string valueText(Vell::AttributeData const& field, FieldValue const& value,
                      std::size_t longest);

}  // namespace DlbAgent
