// An agent's life on a simulated chip, inside this process, and the hardware that it leaves.

#pragma once

#include <map>
#include <string>

#include "agent/Session.h"
#include "endurance/Picture.h"
#include "endurance/Trials.h"

namespace Endurance {

using Switches = std::map<std::string, std::string>;

/// What all lives of a command share.
struct Place {
  DlbAgent::Catalogue const& catalogue;
  std::string chip;      ///< by its plug-in
  std::string hardware;  ///< the file
};

/// Begins with the hardware read, and ends as a killed process does.
class Life {
 public:
  explicit Life(Place const& place, Switches const& switches = {})
      : session(place.catalogue, place.chip) {
    session.open({.hardware = place.hardware, .switches = switches});
    session.start();
  }
  Life(Life const&) = delete;
  Life& operator=(Life const&) = delete;
  ~Life() { session.die(); }

  void run(DlbAgent::Configuration const& wanted) { session.bringTo(wanted); }
  /// All operations so far, or those of one kind.
  Asic::Chip::Operations operations() const {
    Asic::Chip::Operations all;
    for (auto const& table : session.tables()) add(all, table.type());
    for (auto const* table : session.chain().tables()) add(all, table->type());
    return all;
  }
  U64 operationCount() const {
    auto const all = operations();
    return all.writes + all.deletes;
  }
  /// Throws a `Fault` if an operation of this life made the hardware contradict itself.
  void checkTruthOnTheWay(std::string const& when) const;
  /// The same, and if it does so now.
  void checkTruth(std::string const& when) const;
  /// Throws a `Fault` if something wanted is not in the hardware.
  void checkFinished(std::string const& when) const;

  DlbAgent::Session session;

 private:
  void add(Asic::Chip::Operations& all, DlbAgent::TableType const& type) const {
    auto const some = session.chip().operations(type.qualifiedName());
    all = {all.writes + some.writes, all.deletes + some.deletes};
  }
};

/// What no life is left of: objects of all tracked types that exist now.
std::map<std::string_view, U64> livingObjects();
/// Throws a `Fault` that names the types of which more exist than before.
void checkNothingLeaked(std::map<std::string_view, U64> const& before);

}  // namespace Endurance
