#include "forwarding/MacAddress.h"

#include <charconv>

#include "platform/vell/Inspect.h"

namespace Forwarding {
namespace {

constexpr std::size_t bytes = MacAddress::bits / 8;
constexpr std::size_t textLength = 3 * bytes - 1;
constexpr std::string_view form = "an address is six bytes, as \"02:00:00:00:00:01\"";

}  // namespace

std::optional<MacAddress> MacAddress::fromText(std::string_view text) {
  if (text.size() != textLength) return {};
  U64 value = 0;
  for (std::size_t i = 0; i < bytes; ++i) {
    char const* const digits = text.data() + 3 * i;
    U8 byte = 0;
    if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) return {};
    if (i + 1 < bytes && digits[2] != ':') return {};
    value = value << 8 | byte;
  }
  return MacAddress(value);
}

std::string MacAddress::text() const {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (U32 shift = bits; shift > 0; shift -= 8) {
    if (!text.empty()) text += ':';
    text += digits[value_ >> (shift - 4) & 15];
    text += digits[value_ >> (shift - 8) & 15];
  }
  return text;
}

void MacAddress::deserialize(Zarn::CharRange& range, std::string_view name) {
  auto const at = range.position();
  auto const read = fromText(range.take(textLength, name));
  if (!read) throw Vell::RangeException(name, at, form);
  *this = *read;
}

}  // namespace Forwarding

void Zarn::FieldType<Forwarding::MacAddress>::fromValue(Forwarding::MacAddress& field,
                                                        Vell::Value const& value) {
  auto const* const text = value.text();
  auto const read = text ? Forwarding::MacAddress::fromText(*text) : std::nullopt;
  if (!read) throw Vell::ArgumentError(std::string(Forwarding::form));
  field = *read;
}
