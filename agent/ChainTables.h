// The two tables of next hops and member blocks, by their reflection data.

#pragma once

#include "agent/Catalogue.h"

namespace DlbAgent {

TableType const& nextHopType();
TableType const& memberType();

}  // namespace DlbAgent
