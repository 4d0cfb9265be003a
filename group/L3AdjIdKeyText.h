// An L3 adjacency as the traces of its tables show it: open at its end.

#pragma once

#include <ostream>
#include <string>

#include "platform/l3/L3AdjIdKey.h"

namespace TessarLoadBalance {

struct L3AdjIdKeyText {
  TessarL3Common::L3AdjIdKey key;

  friend std::ostream& operator<<(std::ostream& out, L3AdjIdKeyText const& text) {
    return out << "L3AdjIdKey{adjId:" << std::to_string(text.key.adjId)
               << " type:" << text.key.type;
  }
};

}  // namespace TessarLoadBalance
