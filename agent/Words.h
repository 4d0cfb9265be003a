// Texts as people write them: numbers, names with a slip in them, counted nouns.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/vell/Types.h"

namespace DlbAgent {

struct NumberText {
  enum class Outcome { number, notANumber, tooLarge };
  Outcome outcome;
  U64 value;
};

/// Reads "64" or "0x40", all of it; what does not fit in 64 bits is too large.
NumberText readNumber(std::string_view text);

/// The largest number of that many bits, 1 to 64.
U64 largestOf(unsigned bits);

/// What to say after an unknown name: the known one that was probably meant, or else all of them.
std::string hintFor(std::string_view name, std::vector<std::string_view> const& known);

/// The text, or its beginning if it is longer than a line should be.
std::string clipped(std::string_view text, std::size_t most = 60);

/// "1 entry", "2 entries".
std::string counted(U64 count, std::string_view one, std::string_view many);

}  // namespace DlbAgent
