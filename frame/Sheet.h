// A table's data sheet: the facts that one table does not share with another. The rest of the frame
// reads them from here.

#pragma once

#include <concepts>
#include <string_view>

#include "platform/vell/Types.h"
#include "platform/zarn/Fields.h"

namespace Asic {

/// What a table is called.
struct TableNames {
  std::string_view
      qualified;            ///< "TessarLoadBalance::DlbControlTable": traces, plug-ins, reflection
  std::string_view module;  ///< "DlbControlSwTable": the module of its reflection data

  /// "DlbControlTable": messages
  constexpr std::string_view brief() const { return qualified.substr(qualified.rfind(':') + 1); }
};

/// The constants that the hash maps of a direct table combine with the process's seed.
struct DirectMapConstants {
  U32 resolvedEntry;
  U32 syncedEntry;
};

/// The same of a table of blocks.
struct BlockMapConstants {
  U32 entryHandle;
  U32 resolvedEntryBlock;
  U32 unresolved;
};

/// The same of a table whose keys take one index each.
struct HandleMapConstants {
  U32 entryHandle;
  U32 resolvedEntry;
  U32 unresolved = 0;  ///< in tables whose entries wait for others
};

template <class S>
concept DirectSheet = requires {
  { S::names } -> std::convertible_to<TableNames>;
  { S::maps } -> std::convertible_to<DirectMapConstants>;
  typename S::Key;
  typename S::Entry;
}
&&Zarn::HasFields<typename S::Entry>;

}  // namespace Asic
