// The tables of entries that the configuration knows by name, by their reflection data.

#pragma once

#include <array>
#include <tuple>

#include "agent/Catalogue.h"
#include "forwarding/AdjacencySwTable.h"
#include "forwarding/NextHopSwTable.h"
#include "group/EcmpGroup1DlbSwTable.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "group/VxlanEcmpGroup1DlbSwTable.h"
#include "group/VxlanEcmpGroup1SelectiveDlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace DlbAgent {

using NextHopTable = Forwarding::NextHopTable;
using MemberTable = TessarLoadBalance::DlbEcmpMember1Table;
using GroupTable = TessarLoadBalance::EcmpGroup1DlbTable;
using VxlanGroupTable = TessarLoadBalance::VxlanEcmpGroup1DlbTable;
using SelectiveGroupTable = TessarLoadBalance::EcmpGroup1SelectiveDlbTable;
using VxlanSelectiveGroupTable = TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable;
using AdjacencyTable = Forwarding::AdjacencyTable;

/// One thing for each table of groups. The tables share one space of indices.
template <template <class> class Each>
using OfGroupTables = std::tuple<Each<GroupTable>, Each<VxlanGroupTable>, Each<SelectiveGroupTable>,
                                 Each<VxlanSelectiveGroupTable>>;
template <class>
struct OneOfEach {};
inline constexpr std::size_t groupTables = std::tuple_size_v<OfGroupTables<OneOfEach>>;

/// What the groups of a table are called.
struct GroupWords {
  std::string_view section;  ///< of a configuration
  std::string_view kind;     ///< one of them
};
template <class T>
inline constexpr GroupWords groupWords{};
template <>
inline constexpr GroupWords groupWords<GroupTable>{"groups", "group"};
template <>
inline constexpr GroupWords groupWords<VxlanGroupTable>{"vxlanGroups", "VXLAN group"};
template <>
inline constexpr GroupWords groupWords<SelectiveGroupTable>{"selectiveGroups", "selective group"};
template <>
inline constexpr GroupWords groupWords<VxlanSelectiveGroupTable>{"vxlanSelectiveGroups",
                                                                 "VXLAN selective group"};

/// The type of one of them.
template <class T>
TableType const& tableTypeOf() {
  static auto const types = T::module().types();
  static TableType const type(*types[T::typeNumber], *types[T::entryTypeNumber]);
  return type;
}

/// All of them, in the order in which one needs the other: what is needed comes first.
inline std::array<TableType const*, 3 + groupTables> chainTypes() {
  return {&tableTypeOf<NextHopTable>(),        &tableTypeOf<MemberTable>(),
          &tableTypeOf<GroupTable>(),          &tableTypeOf<VxlanGroupTable>(),
          &tableTypeOf<SelectiveGroupTable>(), &tableTypeOf<VxlanSelectiveGroupTable>(),
          &tableTypeOf<AdjacencyTable>()};
}

/// The one of that name, short or qualified, or null.
inline TableType const* findChainType(std::string_view name) {
  for (auto const* type : chainTypes())
    if (type->name() == name || type->qualifiedName() == name) return type;
  return nullptr;
}

}  // namespace DlbAgent
