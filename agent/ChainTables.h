// The tables of entries that the configuration knows by name, by their reflection data.

#pragma once

#include <array>

#include "agent/Catalogue.h"
#include "forwarding/AdjacencySwTable.h"
#include "forwarding/NextHopSwTable.h"
#include "group/EcmpGroup1DlbSwTable.h"
#include "group/VxlanEcmpGroup1DlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"

namespace DlbAgent {

using NextHopTable = Forwarding::NextHopTable;
using MemberTable = TessarLoadBalance::DlbEcmpMember1Table;
using GroupTable = TessarLoadBalance::EcmpGroup1DlbTable;
using VxlanGroupTable = TessarLoadBalance::VxlanEcmpGroup1DlbTable;
using AdjacencyTable = Forwarding::AdjacencyTable;

/// The type of one of them.
template <class T>
TableType const& tableTypeOf() {
  static auto const types = T::module().types();
  static TableType const type(*types[T::typeNumber], *types[T::entryTypeNumber]);
  return type;
}

/// All of them, in the order in which one needs the other: what is needed comes first.
inline std::array<TableType const*, 5> chainTypes() {
  return {&tableTypeOf<NextHopTable>(), &tableTypeOf<MemberTable>(), &tableTypeOf<GroupTable>(),
          &tableTypeOf<VxlanGroupTable>(), &tableTypeOf<AdjacencyTable>()};
}

/// The one of that name, short or qualified, or null.
inline TableType const* findChainType(std::string_view name) {
  for (auto const* type : chainTypes())
    if (type->name() == name || type->qualifiedName() == name) return type;
  return nullptr;
}

}  // namespace DlbAgent
