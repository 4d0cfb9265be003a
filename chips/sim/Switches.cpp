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

bool setInterleaveReads(Switches& switches, std::string_view value) {
  switches.interleaveReads = value == "on";
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

struct KnownSwitch {
  std::string_view name;
  std::string_view value;
  bool (*set)(Switches&, std::string_view value);  // false if the value is malformed
};
constexpr KnownSwitch knownSwitches[] = {
    {"delay-reads", "N", &setDelayReads},      {"flip-row", "TABLE:ROW", &setFlipRow},
    {"freeze-after", "N", &setFreezeAfter},    {"interleave-reads", "on|off", &setInterleaveReads},
    {"lose-read-ends", "N", &setLoseReadEnds},
};

std::string knownList() {
  std::string list;
  for (auto const& each : knownSwitches)
    list += Vell::concatenate(list.empty() ? "" : ", ", each.name, '=', each.value);
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
