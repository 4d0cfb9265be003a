// The loader of a table's chip hooks: one singleton for each table class, which has the plug-ins
// loaded that may bring them.

#pragma once

#include <string>
#include <string_view>

#include "platform/ostler/Loader.h"

namespace Asic {

/// Loads the chip plug-ins when the table's library is loaded; see Announcement.h.
template <class T>
class TableUtilLoader : public Ostler::Core::Loader::Singleton {
 public:
  static constexpr std::string_view prefix = "AsicFeature";
  static constexpr std::string_view suffix = T::names.qualified;

  static Vell::ZarnType type() { return {&T::module(), T::utilLoaderTypeNumber}; }
  Vell::ZarnType typeData() const override { return type(); }
  std::string prefixPath() const override { return std::string(prefix); }
  std::string suffixPath() const override { return std::string(suffix); }
};

}  // namespace Asic
