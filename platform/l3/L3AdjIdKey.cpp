#include "platform/l3/L3AdjIdKey.h"

#include <array>
#include <string>

#include "platform/vell/Inspect.h"

namespace TessarL3Common {
namespace {

template <class Key>
constexpr auto attributes = Zarn::FieldOps<Key>::attributes();
template <class Key>
constexpr Vell::TypeData data{Key::fields().tag, attributes<Key>, {}};

// Numbers 0 to 2 are for keys of next hops that no table here is addressed by.
constexpr Vell::TypeData otherKey{"TessarL3Common::ExternalNextHopKey", {}, {}};
constexpr Vell::TypeData const* types[] = {&otherKey, &otherKey, &otherKey, &data<L3AdjIdKey>,
                                           &data<VxlanL3UnderlayAdjIdKey>};
constinit Vell::ModuleInspectData module{"ExternalNextHopKeys", types};

}  // namespace

Vell::ZarnType L3AdjIdKey::keyType() { return {&module, 3}; }
Vell::ZarnType VxlanL3UnderlayAdjIdKey::keyType() { return {&module, 4}; }

std::ostream& operator<<(std::ostream& out, L3AdjIdKeyType type) {
  static constexpr std::array names{"unknown", "nextHop", "ecmpGroup", "tunnel"};
  auto const number = static_cast<std::size_t>(type);
  return number < names.size() ? out << names[number] : out << std::to_string(number);
}

}  // namespace TessarL3Common
