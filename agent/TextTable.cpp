#include "agent/TextTable.h"

#include <fmt/color.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <numeric>
#include <sstream>

namespace DlbAgent {
namespace {

constexpr std::string_view gap = "  ";

bool wantsColours() {
  auto const* const refused = std::getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) && (!refused || !*refused);
}

fmt::text_style styleOf(Emphasis emphasis) {
  switch (emphasis) {
    case Emphasis::heading:
      return fmt::emphasis::bold;
    case Emphasis::good:
      return fg(fmt::terminal_color::green);
    case Emphasis::changed:
      return fg(fmt::terminal_color::yellow);
    case Emphasis::bad:
      return fg(fmt::terminal_color::red);
    case Emphasis::plain:
      break;
  }
  return {};
}

}  // namespace

std::string emphasised(std::string_view text, Emphasis emphasis) {
  static bool const colours = wantsColours();
  if (!colours || emphasis == Emphasis::plain) return std::string(text);
  return fmt::format(styleOf(emphasis), "{}", text);
}

std::size_t terminalWidth() {
  winsize size{};
  bool const told = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return told ? size.ws_col : 80;
}

std::string brokenName(std::string_view name) {
  constexpr std::size_t most = 10;
  std::string broken;
  std::size_t lineStart = 0;
  for (std::size_t from = 0; from < name.size();) {
    auto const rest = name.substr(from + 1);
    auto const isUpper = [](char c) { return std::isupper(static_cast<unsigned char>(c)) != 0; };
    auto const length =
        1 + static_cast<std::size_t>(std::ranges::find_if(rest, isUpper) - rest.begin());
    if (broken.size() > lineStart && broken.size() - lineStart + length > most) {
      broken += '\n';
      lineStart = broken.size();
    }
    broken += name.substr(from, length);
    from += length;
  }
  return broken;
}

void TextTable::columnIs(std::string_view heading, Align align) {
  Column column{{}, align};
  std::istringstream lines{std::string(heading)};
  for (std::string each; std::getline(lines, each);) column.heading.push_back(each);
  std::ranges::reverse(column.heading);
  columns_.push_back(std::move(column));
}

std::vector<std::size_t> TextTable::widths() const {
  std::vector<std::size_t> widths(columns_.size());
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    for (auto const& each : columns_[column].heading)
      widths[column] = std::max(widths[column], each.size());
    for (auto const& row : rows_)
      if (!row.empty()) widths[column] = std::max(widths[column], row[column].size());
  }
  return widths;
}

std::vector<std::vector<std::string>> TextTable::headingRows() const {
  std::size_t height = 0;
  for (auto const& column : columns_) height = std::max(height, column.heading.size());
  std::vector<std::vector<std::string>> rows;
  while (height-- > 0) {
    auto& row = rows.emplace_back();
    for (auto const& column : columns_)
      row.push_back(height < column.heading.size() ? column.heading[height] : "");
  }
  return rows;
}

std::string TextTable::line(std::vector<std::string> const& cells,
                            std::vector<std::size_t> const& widths) const {
  std::string line;
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    if (column > 0) line += gap;
    line += columns_[column].align == Align::left
                ? fmt::format("{:<{}}", cells[column], widths[column])
                : fmt::format("{:>{}}", cells[column], widths[column]);
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::string TextTable::text() const {
  auto const widths = this->widths();
  auto const gaps = gap.size() * (columns_.empty() ? 0 : columns_.size() - 1);
  std::string const rule(std::accumulate(widths.begin(), widths.end(), gaps), '-');
  std::string text;
  for (auto const& row : headingRows())
    text += emphasised(line(row, widths), Emphasis::heading) + '\n';
  for (auto const& row : rows_) text += (row.empty() ? rule : line(row, widths)) + '\n';
  return text;
}

}  // namespace DlbAgent
