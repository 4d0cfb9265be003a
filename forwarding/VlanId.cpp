#include "forwarding/VlanId.h"

#include <string>

#include "platform/vell/Inspect.h"

namespace Forwarding {
namespace {

std::string refusal(U64 value) {
  return Vell::concatenate("a VLAN is 1 to ", VlanId::last, ", or 0 for untagged, not ", value);
}

}  // namespace

void VlanId::deserialize(Zarn::CharRange& range, std::string_view name) {
  auto const at = range.position();
  U16 read = 0;
  range.deserializeAttr(name, read);
  if (read > last) throw Vell::RangeException(name, at, refusal(read));
  *this = VlanId(read);
}

}  // namespace Forwarding

void Zarn::FieldType<Forwarding::VlanId>::fromValue(Forwarding::VlanId& field,
                                                    Vell::Value const& value) {
  auto const read = *value.number();
  if (read > Forwarding::VlanId::last) throw Vell::ArgumentError(Forwarding::refusal(read));
  field = Forwarding::VlanId(read);
}
