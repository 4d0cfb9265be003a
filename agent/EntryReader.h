// One entry of a configuration, read by the reflection data of its class; and keys that are texts.

#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "agent/Catalogue.h"
#include "agent/Document.h"
#include "agent/Row.h"

namespace DlbAgent {

/// A field that stands among an entry's own in the configuration, and who reads it.
struct FieldBeside {
  std::string_view name;
  std::function<void(std::string const& path, JsonValue const&)> read;
  bool isRefused = false;  ///< it always adds a problem: no hint leads to it
};

/// The entry that `value` describes: an object of fields, or the bare value of an entry's only
/// field. None, and a problem added for each field that is unknown or does not fit, or if a reader
/// of the fields `beside` added one.
std::optional<Vell::Record> readEntry(TableType const& table, std::string const& path,
                                      JsonValue const& value, Problems& problems,
                                      std::span<FieldBeside const> beside = {});

/// The key of that text, in the form that the table itself gives it; a problem and none if the
/// table cannot read it.
std::optional<Key> readTextKey(TableType const& table, std::string const& path,
                               std::string const& text, Problems& problems);

}  // namespace DlbAgent
