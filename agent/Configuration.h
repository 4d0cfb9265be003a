// A configuration: what the hardware is to hold, read from a JSON file and checked whole before
// anything is opened or written.
//
//   {"tables": {"DlbControlTable": {"0": {"portLoadingWeight": 64, "capPortLoadingAverage": true}},
//               "DlbEcmpGroupTable": {"0x10": {"portToMemberMap": {"1": 5, "0x2": "0x6"}}},
//               "DlbEcmpQualityMapTable": {"DlbEcmpQualityMapKey{portLoading:0 ...}": 7}}}
//
// Tables go by their short or qualified name, fields by their attribute name; a field that is left
// out has its default. Numbers may be given as texts: "64", "0x40". A key that is no index is
// written as its table tells it, with all parts. A field that is a collection is an object of its
// elements by key. An entry of a class with a single field may be given as the bare value of it.
// What has names (next hops, member blocks, groups, adjacencies) has sections of its own, which
// agent/Chain.h tells.

#pragma once

#include <map>
#include <string>
#include <vector>

#include "agent/Catalogue.h"
#include "agent/Chain.h"
#include "agent/Room.h"
#include "agent/Row.h"

namespace DlbAgent {

class Configuration {
 public:
  /// No entries at all.
  Configuration() = default;
  /// Reads a file. Throws a `Failure` with one line for each error in it, each with its path.
  static Configuration fromFile(std::string const& file, Catalogue const& catalogue,
                                Room const& room);
  /// The same from a text; `origin` stands before each error.
  static Configuration fromText(std::string_view text, std::string_view origin,
                                Catalogue const& catalogue, Room const& room);

  /// The entries of a table; none if the configuration does not name it.
  Rows const& of(TableType const& table) const;
  void rowIs(TableType const& table, Key const& key, Vell::Record entry);
  /// What has names.
  WantedChain const& chain() const { return chain_; }
  WantedChain& chain() { return chain_; }

 private:
  std::map<TableType const*, Rows> tables_;
  WantedChain chain_;
};

}  // namespace DlbAgent
