#include "platform/zarn/U12.h"

#include "platform/vell/Inspect.h"

namespace Zarn {
namespace {

std::string refusal(U64 value) {
  return Vell::concatenate("a number of 12 bits is up to ", U12::largest, ", not ", value);
}

}  // namespace

void U12::deserialize(CharRange& range, std::string_view name) {
  auto const at = range.position();
  U64 read = 0;
  range.deserializeAttr(name, read);
  if (read > largest) throw Vell::RangeException(name, at, refusal(read));
  *this = U12(read);
}

void FieldType<U12>::fromValue(U12& field, Vell::Value const& value) {
  auto const read = *value.number();
  if (read > U12::largest) throw Vell::ArgumentError(refusal(read));
  field = U12(read);
}

}  // namespace Zarn
