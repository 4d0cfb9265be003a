// Chip plug-ins: shared objects that bring the classes behind a chip.
//
// A plug-in exports one C symbol, `asicFeaturePlugin`, of the type `Plugin::EntryFunction`:
//
//   1. It is called with null, and only answers the interface version that it was built for. A
//   version
//      other than `interfaceVersion` ends the matter: the plug-in is refused,
//      nothing else is called.
//   2. It is called again with a `Registration`, enters its features there, and answers the same.
//
// The plug-in's chip is named by its file: `sim.so` brings the chip "sim". A chip that is there
// already is not loaded again, so that an earlier folder of the search path goes before a later
// one. Plug-ins stay loaded until the process ends.
//
// Search path, in this order: the folders of the environment variable DLB_PLUGIN_PATH (separated by
// colons), `dlb-tables` beside this library (an installed one), `plugins` beside this library (a
// build tree). In each, the files `PREFIX/CHIP.so`.
//
// Threading: from library load and the owner's thread only.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/vell/Ptr.h"
#include "platform/vell/Types.h"
#include "platform/zarn/Entity.h"

namespace Plugin {

/// Raised with every change of what a plug-in may rely on: the hook classes' slots,
/// the entry values.
inline constexpr U32 interfaceVersion = 2;
inline constexpr char const* entrySymbol = "asicFeaturePlugin";

/// Makes a new feature object; the caller gets the only use.
using Factory = Vell::Ptr<Zarn::Entity> (*)();

/// What a plug-in enters its features in.
class Registration {
 public:
  explicit Registration(std::string chip) : chip_(std::move(chip)) {}

  std::string const& chip() const { return chip_; }
  /// Enters the feature `typeName` of the family `prefix`, for instance
  /// "AsicFeature" and "TessarLoadBalance::DlbControlTable". A second factory for
  /// the same feature replaces the first.
  void featureIs(std::string_view prefix, std::string_view typeName, Factory factory);

 private:
  std::string chip_;
};

using EntryFunction = U32(Registration*);

/// A plug-in that could not be loaded.
struct Problem {
  std::string file;
  std::string text;  ///< what is wrong and what to do about it
};

/// Loads one plug-in file. An empty text means that it is loaded, or that its chip already was.
std::string loadFile(std::string const& file);
/// Loads all plug-ins of that prefix on the search path, once for each prefix; see `problems`.
void loadAll(std::string_view prefix);
/// The folders that `loadAll` looks in, in order.
std::vector<std::string> searchPath();
/// Every plug-in file that was refused so far.
std::vector<Problem> const& problems();

/// The chips whose plug-ins bring that feature, in alphabetical order.
std::vector<std::string> chipsWith(std::string_view prefix, std::string_view typeName);
/// A new object of a chip's feature, or null if the chip has none.
Vell::Ptr<Zarn::Entity> make(std::string_view chip, std::string_view prefix,
                             std::string_view typeName);

}  // namespace Plugin
