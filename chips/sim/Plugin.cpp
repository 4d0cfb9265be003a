// What the plug-in brings: the chip, and the hooks of every table in the list.

#include "chips/sim/SimChip.h"
#include "chips/sim/Tables.h"
#include "platform/plugin/Registry.h"

extern "C" U32 asicFeaturePlugin(Plugin::Registration* registration) {
  if (!registration) return Plugin::interfaceVersion;
  registration->featureIs(Asic::Chip::prefix, Asic::Chip::feature,
                          []() -> Vell::Ptr<Zarn::Entity> { return new Sim::SimChip; });
  Sim::Tables::forEach([&]<class Line>(Line) {
    using Table = typename Line::Table;
    registration->featureIs(Table::UtilLoader::prefix, Table::UtilLoader::suffix,
                            []() -> Vell::Ptr<Zarn::Entity> {
                              return new typename Sim::UtilClass<Table>::Type(Line::rows);
                            });
  });
  return Plugin::interfaceVersion;
}
