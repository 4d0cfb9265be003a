#include "agent/Words.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <numeric>
#include <utility>

namespace DlbAgent {
namespace {

bool sameLetter(char a, char b) {
  auto const lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
  return lower(a) == lower(b);
}

/// Letters to insert, drop or exchange to make one word of the other; case does not count.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    auto diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      auto const exchanged = diagonal + !sameLetter(a[i], b[j]);
      diagonal = std::exchange(row[j + 1], std::min({row[j] + 1, row[j + 1] + 1, exchanged}));
    }
  }
  return row.back();
}

}  // namespace

NumberText readNumber(std::string_view text) {
  bool const hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  NumberText read{NumberText::Outcome::number, 0};
  auto const* const end = text.data() + text.size();
  auto const result = std::from_chars(text.data(), end, read.value, hexadecimal ? 16 : 10);
  if (result.ptr != end || result.ec == std::errc::invalid_argument)
    read.outcome = NumberText::Outcome::notANumber;
  else if (result.ec == std::errc::result_out_of_range)
    read.outcome = NumberText::Outcome::tooLarge;
  return read;
}

U64 largestOf(unsigned bits) { return ~U64{0} >> (64 - bits); }

std::string hintFor(std::string_view name, std::vector<std::string_view> const& known) {
  auto const far = [name](std::string_view each) { return distance(name, each); };
  auto const nearest = std::ranges::min_element(known, {}, far);
  if (nearest == known.end()) return "there are none";
  if (far(*nearest) <= std::max<std::size_t>(2, name.size() / 3))
    return fmt::format("did you mean \"{}\"?", *nearest);
  return fmt::format("there are: {}", fmt::join(known, ", "));
}

std::string clipped(std::string_view text, std::size_t most) {
  if (text.size() <= most) return std::string(text);
  auto const isInsideCharacter = [&](std::size_t at) { return (text[at] & 0xC0) == 0x80; };
  for (int bytes = 0; bytes < 3 && most > 0 && isInsideCharacter(most); ++bytes) --most;
  return fmt::format("{}...", text.substr(0, most));
}

std::string counted(U64 count, std::string_view one, std::string_view many) {
  return fmt::format("{} {}", count, count == 1 ? one : many);
}

}  // namespace DlbAgent
