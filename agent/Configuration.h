// A configuration: what the hardware is to hold, read from a JSON file and checked whole before
// anything is opened or written.
//
//   {"tables": {"DlbControlTable": {"0": {"portLoadingWeight": 64,
//   "capPortLoadingAverage": true}}}}
//
// Tables go by their short or qualified name, fields by their attribute name; a field that is left
// out has its default. Numbers may be given as texts: "64", "0x40". Every top-level section has one
// reader in the list at the end of Configuration.cpp.

#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "agent/Catalogue.h"
#include "agent/Row.h"

namespace DlbAgent {

/// Valid indices of a table.
struct IndexLimits {
  U64 lowest;
  U64 highest;
};
using LimitsOf = std::function<IndexLimits(TableType const&)>;

class Configuration {
 public:
  /// No entries at all.
  Configuration() = default;
  /// Reads a file. Throws a `Failure` with one line for each error in it, each with its path.
  static Configuration fromFile(std::string const& file, Catalogue const& catalogue,
                                LimitsOf const& limitsOf);
  /// The same from a text; `origin` stands before each error.
  static Configuration fromText(std::string_view text, std::string_view origin,
                                Catalogue const& catalogue, LimitsOf const& limitsOf);

  /// The entries of a table; none if the configuration does not name it.
  Rows const& of(TableType const& table) const;
  void rowIs(TableType const& table, Key const& key, Vell::Record entry);

 private:
  std::map<TableType const*, Rows> tables_;
};

}  // namespace DlbAgent
