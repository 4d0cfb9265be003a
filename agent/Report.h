// What became of the hardware in one pass over all tables: counts by table, and entry by entry.
//
// A table that the chip has no hardware for counts nothing: its figures stay 0.

#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/Catalogue.h"
#include "agent/Row.h"

namespace DlbAgent {

struct Figures {
  U64 matched = 0;    ///< entries that were in place
  U64 rewritten = 0;  ///< entries in whose place another one was
  U64 added = 0;      ///< entries in whose place was nothing
  U64 deleted = 0;    ///< entries that nobody wants any more
  U64 hardwareWrites = 0;
  U64 hardwareDeletes = 0;

  Figures& operator+=(Figures const& other);
};

/// How a figure is called: in JSON, and over its column.
struct FigureName {
  std::string_view name;
  std::string_view heading;
  U64 Figures::*figure;
};
inline constexpr std::array<FigureName, 6> figureNames{{
    {"matched", "matched", &Figures::matched},
    {"rewritten", "rewritten", &Figures::rewritten},
    {"added", "added", &Figures::added},
    {"deleted", "deleted", &Figures::deleted},
    {"hardwareWrites", "hardware\nwrites", &Figures::hardwareWrites},
    {"hardwareDeletes", "hardware\ndeletes", &Figures::hardwareDeletes},
}};

inline Figures& Figures::operator+=(Figures const& other) {
  for (auto const& each : figureNames) this->*each.figure += other.*each.figure;
  return *this;
}

/// An entry of the hardware that was not, or is not, as the configuration asks.
struct Change {
  enum class Kind {
    added,
    rewritten,
    deleted,
    homeless,  ///< wanted in a table that the chip has no hardware for: kept in software only
  };

  TableType const* table;
  Key key;
  Kind kind;
  std::optional<Vell::Record> held;    ///< what the hardware held, if anything
  std::optional<Vell::Record> wanted;  ///< what it is to hold; none if deleted
  std::string owner;  ///< the configuration's name for what the row belongs to; empty: none
};

struct TableReport {
  std::string_view table;  ///< short name
  Figures figures;
};

struct Report {
  std::vector<TableReport> tables;  ///< in alphabetical order
  std::vector<Change> changes;      ///< table by table in that order, each in the order of its keys
  std::vector<std::string> unfinished;  ///< a line for each entry that found no place, and why
  /// Where the hardware contradicted itself when it was opened, and where it does so after the run.
  std::vector<std::string> contradictionsFound;
  std::vector<std::string> contradictions;
  std::vector<std::string> breaches;  ///< operations of the run after which it did

  Figures totals() const {
    Figures totals;
    for (auto const& each : tables) totals += each.figures;
    return totals;
  }
};

}  // namespace DlbAgent
