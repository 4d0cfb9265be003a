#include "platform/zarn/CharRange.h"

#include <charconv>

#include "platform/vell/Assert.h"

namespace Vell {

RangeException::RangeException(std::string_view attribute, std::size_t position,
                               std::string_view problem)
    : std::runtime_error(concatenate(attribute, ", position ", position, ": ", problem)),
      attribute_(attribute),
      problem_(problem),
      position_(position) {}

}  // namespace Vell

namespace Zarn {

void rethrowFromDeserializeAttr(std::string_view attribute) {
  try {
    throw;
  } catch (Vell::RangeException const& error) {
    throw Vell::RangeException(attribute, error.position(), error.problem());
  }
}

void CharRange::need(std::string_view literal, std::string_view name) {
  if (!rest().starts_with(literal))
    throw Vell::RangeException(name, position_, Vell::concatenate("expected \"", literal, "\""));
  position_ += literal.size();
}

std::string_view CharRange::take(std::size_t characters, std::string_view name) {
  auto const taken = rest().substr(0, characters);
  if (taken.size() != characters)
    throw Vell::RangeException(name, position_,
                               Vell::concatenate("expected ", characters, " characters"));
  position_ += characters;
  return taken;
}

void CharRange::needEnd(std::string_view name) const {
  if (!rest().empty())
    throw Vell::RangeException(name, position_,
                               Vell::concatenate("\"", rest(), "\" is left over after the value"));
}

U64 CharRange::number(std::string_view name, U64 largest) {
  auto const text = rest();
  bool const hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  char const* const begin = text.data() + (hexadecimal ? 2 : 0);
  U64 value = 0;
  auto const [end, error] =
      std::from_chars(begin, text.data() + text.size(), value, hexadecimal ? 16 : 10);
  if (error == std::errc::invalid_argument)
    throw Vell::RangeException(name, position_, "expected a number");
  if (error == std::errc::result_out_of_range || value > largest)
    throw Vell::RangeException(name, position_,
                               Vell::concatenate("the number is larger than ", largest));
  position_ += static_cast<std::size_t>(end - text.data());
  return value;
}

void CharRange::cannotConvert(std::size_t position, std::string_view problem) {
  throw Vell::RangeException("address", position, problem);
}

void CharRange::deserializeAttr(std::string_view name, bool& value) {
  bool const isTrue = rest().starts_with("true");
  if (!isTrue && !rest().starts_with("false"))
    throw Vell::RangeException(name, position_, "expected true or false");
  need(isTrue ? "true" : "false", name);
  value = isTrue;
}

}  // namespace Zarn
