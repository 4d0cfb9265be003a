#include "endurance/Draft.h"

#include <algorithm>

#include "agent/ChainTables.h"
#include "config/DlbControlSwTable.h"
#include "config/DlbEcmpFlowsetSwTable.h"
#include "config/DlbEcmpGroupSwTable.h"
#include "config/DlbEcmpPortControlSwTable.h"
#include "endurance/Trials.h"
#include "frame/FieldEntry.h"

namespace Endurance {
namespace {

using namespace TessarLoadBalance;
using DlbAgent::Configuration;

/// Draws `place` anew with that chance; one in five is then empty.
template <class T, class Draw>
void redrawPlace(std::optional<T>& place, U32 percent, Random& random, Draw const& draw) {
  if (below(100, random) >= percent) return;
  place.reset();
  if (below(5, random) != 0) place = draw();
}

std::string name(char const* kind, U32 number) { return kind + std::to_string(number); }

template <class T, class Fill>
void addRows(Configuration& configuration, DlbAgent::Catalogue const& catalogue,
             std::vector<std::optional<U32>> const& values, Fill const& fill) {
  auto const& table = *catalogue.find(T::names.qualified);
  for (U32 index = 0; index < values.size(); ++index) {
    if (!values[index]) continue;
    typename T::Entry entry;
    fill(entry, *values[index]);
    configuration.rowIs(table, DlbAgent::Key(Vell::Value(U64{index})),
                        *Asic::EntryReflection<typename T::Entry>::toValue(entry).record());
  }
}

/// The group's fields but its block.
template <class Entry>
void fillGroup(Entry& entry, U32 value) {
  if constexpr (requires { entry.secondaryBlockValid; }) {
    entry.secondaryBlockValid = true;
  } else {
    entry.lbMode = value % 2;
    entry.fastLinkFailover = value > 1;
  }
}

}  // namespace

void Draft::redraw(Sizes const& sizes, U32 percent, Random& random) {
  auto const redrawAll = [&](auto& places, U32 count, auto const& draw) {
    places.resize(count);
    for (U32 place = 0; place < count; ++place)
      redrawPlace(places[place], percent, random, [&] { return draw(place); });
  };
  auto const number = [&](U32 bound) { return static_cast<U32>(below(bound, random)); };
  for (auto& table : rows_) redrawAll(table, sizes.rows, [&](U32) { return number(4); });
  redrawAll(nextHops_, sizes.nextHops, [&](U32 place) {
    return sizes.twins ? number(sizes.nextHops) : 2 * place + number(2);
  });
  redrawAll(blocks_, sizes.blocks, [&](U32 place) {
    std::vector<Row> rows(1 + number(sizes.width));
    for (auto& row : rows)
      row = {number(sizes.nextHops), static_cast<U8>(sizes.twins ? number(2) : place)};
    return rows;
  });
  redrawAll(groups_, sizes.groups, [&](U32 place) {
    if (!sizes.twins) return Group{place % 4, place, number(sizes.blocks), number(4)};
    return Group{number(4), number(sizes.groups), number(sizes.blocks), number(4)};
  });
  redrawAll(adjacencies_, sizes.adjacencies, [&](U32) { return number(sizes.groups); });
}

template <class T>
void Draft::addGroup(DlbAgent::WantedChain& chain, U32 number, Group const& group) const {
  auto& section = std::get<DlbAgent::WantedGroups<T>>(chain.groups);
  typename T::Key const key{group.adjId, TessarL3Common::L3AdjIdKeyType::ecmpGroup};
  auto const isKey = [&](auto const& each) { return each.second.key == key; };
  if (std::ranges::any_of(section, isKey)) return;
  DlbAgent::WantedGroup<T> wanted{.key = key, .entry = {}};
  fillGroup(wanted.entry, group.value);
  if constexpr (Asic::Trait::needsEntries<T>) {
    wanted.block = name("b", group.block);
    wanted.countsAllRows = group.value > 0;
    if (!chain.blocks.contains(wanted.block)) return;
    if (!wanted.countsAllRows) wanted.entry.countSecondary = Zarn::U12(1);
  }
  section.emplace(name("g", number), wanted);
}

Configuration Draft::configuration(DlbAgent::Catalogue const& catalogue) const {
  Configuration configuration;
  addRows<DlbControlTable>(configuration, catalogue, rows_[0],
                           [](auto& entry, U32 value) { entry.portLoadingWeight = value; });
  addRows<DlbEcmpPortControlTable>(configuration, catalogue, rows_[1], [](auto& entry, U32 value) {
    entry.qualityMappingProfilePtr = static_cast<U8>(value);
  });
  addRows<DlbEcmpFlowsetTable>(configuration, catalogue, rows_[2], [](auto& entry, U32 value) {
    entry.portAssignment = static_cast<U16>(value);
  });
  addRows<DlbEcmpGroupTable>(configuration, catalogue, rows_[3], [](auto& entry, U32 value) {
    for (U16 port = 0; port < value; ++port) entry.portToMemberMapIs(port, port);
  });

  auto& chain = configuration.chain();
  for (U32 i = 0; i < nextHops_.size(); ++i) {
    if (!nextHops_[i]) continue;
    DlbAgent::NextHopTable::Entry entry;
    entry.port = static_cast<U16>(*nextHops_[i]);
    chain.nextHops.emplace(name("n", i), entry);
  }
  for (U32 i = 0; i < blocks_.size(); ++i) {
    if (!blocks_[i]) continue;
    std::vector<DlbAgent::WantedRow> rows;
    for (auto const& row : *blocks_[i])
      if (row.nextHop < nextHops_.size() && nextHops_[row.nextHop])
        rows.push_back({name("n", row.nextHop), row.weight});
    if (!rows.empty()) chain.blocks.emplace(name("b", i), rows);
  }
  for (U32 i = 0; i < groups_.size(); ++i) {
    if (!groups_[i]) continue;
    switch (groups_[i]->section) {
      case 0:
        addGroup<DlbAgent::GroupTable>(chain, i, *groups_[i]);
        break;
      case 1:
        addGroup<DlbAgent::VxlanGroupTable>(chain, i, *groups_[i]);
        break;
      case 2:
        addGroup<DlbAgent::SelectiveGroupTable>(chain, i, *groups_[i]);
        break;
      default:
        addGroup<DlbAgent::VxlanSelectiveGroupTable>(chain, i, *groups_[i]);
    }
  }
  auto const isThere = [&](std::string const& group) {
    bool found = false;
    DlbAgent::forEachOf(chain.groups,
                        [&](auto const& section) { found = found || section.contains(group); });
    return found;
  };
  for (U32 i = 0; i < adjacencies_.size(); ++i)
    if (adjacencies_[i] && isThere(name("g", *adjacencies_[i])))
      chain.adjacencies.emplace(name("a", i),
                                DlbAgent::WantedAdjacency{i, name("g", *adjacencies_[i])});
  return configuration;
}

}  // namespace Endurance
