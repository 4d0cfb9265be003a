#include "chips/sim/Switches.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "platform/vell/Assert.h"

namespace Sim {
namespace {

bool toNumber(std::string_view text, U64& number) {
  auto const* const end = text.data() + text.size();
  auto const result = std::from_chars(text.data(), end, number);
  return result.ec == std::errc{} && result.ptr == end;
}

bool setFreezeAfter(Switches& switches, std::string_view value) {
  return toNumber(value, switches.freezeAfter.emplace());
}

bool setDelayReads(Switches& switches, std::string_view value) {
  return toNumber(value, switches.delayReads);
}

template <bool Switches::*flag>
bool setFlag(Switches& switches, std::string_view value) {
  switches.*flag = value == "on";
  return value == "on" || value == "off";
}

bool setLoseReadEnds(Switches& switches, std::string_view value) {
  return toNumber(value, switches.loseReadEnds);
}

bool setFlipRow(Switches& switches, std::string_view value) {
  auto const colon = value.rfind(':');
  if (colon == value.npos || colon == 0) return false;
  auto& address = switches.flipRow.emplace();
  address.table = value.substr(0, colon);
  return toNumber(value.substr(colon + 1), address.row);
}

template <U32 Switches::WriteFaults::*fault>
bool setPercent(Switches& switches, std::string_view value) {
  U64 percent = 0;
  if (!toNumber(value, percent) || percent > 100) return false;
  switches.writes.*fault = static_cast<U32>(percent);
  return true;
}

bool setFaultsUntil(Switches& switches, std::string_view value) {
  return toNumber(value, switches.writes.until);
}

bool setFaultSeed(Switches& switches, std::string_view value) {
  return toNumber(value, switches.faultSeed);
}

struct KnownSwitch {
  std::string_view name;
  std::string_view value;
  bool (*set)(Switches&, std::string_view value);  // false if the value is malformed
};
using Faults = Switches::WriteFaults;
constexpr std::string_view percent = "PERCENT from 0 to 100";
constexpr KnownSwitch knownSwitches[] = {
    {"delay-acks", percent, &setPercent<&Faults::late>},
    {"delay-reads", "N", &setDelayReads},
    {"duplicate-acks", percent, &setPercent<&Faults::doubled>},
    {"fault-seed", "S", &setFaultSeed},
    {"faults-until", "N", &setFaultsUntil},
    {"flip-row", "TABLE:ROW", &setFlipRow},
    {"freeze-after", "N", &setFreezeAfter},
    {"interleave-reads", "on|off", &setFlag<&Switches::interleaveReads>},
    {"lose-acks", percent, &setPercent<&Faults::lost>},
    {"lose-read-ends", "N", &setLoseReadEnds},
    {"refuse-writes", percent, &setPercent<&Faults::refused>},
    {"reorder-acks", percent, &setPercent<&Faults::reordered>},
    {"stop-at-breach", "on|off", &setFlag<&Switches::stopAtBreach>},
};

std::string knownList() {
  std::string list;
  for (auto const& each : knownSwitches)
    list += Vell::concatenate(list.empty() ? "" : ", ", each.name, '=',
                              each.value.substr(0, each.value.find(' ')));
  return list;
}

}  // namespace

Switches switchesOf(std::map<std::string, std::string> const& given) {
  Switches switches;
  for (auto const& [name, value] : given) {
    auto const* const known = std::ranges::find(knownSwitches, name, &KnownSwitch::name);
    if (known == std::end(knownSwitches))
      throw std::runtime_error(Vell::concatenate("the simulated chip has no switch \"", name,
                                                 "\"; its switches are ", knownList()));
    if (!known->set(switches, value))
      throw std::runtime_error(Vell::concatenate("switch ", name, " of the simulated chip takes ",
                                                 known->value, ", not \"", value,
                                                 "\"; its switches are ", knownList()));
  }
  return switches;
}

}  // namespace Sim
