#include "endurance/Life.h"

#include <fmt/format.h>

#include "platform/zarn/AllocTrack.h"

namespace Endurance {

void Life::checkTruthOnTheWay(std::string const& when) const {
  if (auto const breaches = session.chip().breaches(); !breaches.empty())
    throw Fault(when + ": " + breaches.front());
}

void Life::checkTruth(std::string const& when) const {
  checkTruthOnTheWay(when);
  if (auto const contradictions = session.chip().contradictions(); !contradictions.empty())
    throw Fault(when + ": the hardware contradicts itself: " + contradictions.front());
}

void Life::checkFinished(std::string const& when) const {
  if (auto const lines = session.chain().unfinished(); !lines.empty())
    throw Fault(when + ": " + lines.front());
}

std::map<std::string_view, U64> livingObjects() {
  std::map<std::string_view, U64> living;
  for (auto const* type = Zarn::AllocTrackTypeInfo::first(); type; type = type->next())
    if (type->live() > 0) living[type->typeName()] += type->live();
  return living;
}

void checkNothingLeaked(std::map<std::string_view, U64> const& before) {
  for (auto const& [type, count] : livingObjects()) {
    auto const known = before.find(type);
    if (known == before.end() || known->second < count)
      throw Fault(fmt::format("{} objects of {} are left, where {} were before", count, type,
                              known == before.end() ? 0 : known->second));
  }
}

}  // namespace Endurance
