// Tables of text for a person at a terminal: columns as wide as their widest cell, headings of
// several lines that stand on the first row, colours where they are wanted.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace DlbAgent {

enum class Emphasis { plain, heading, good, changed, bad };

/// The text in that colour, if standard output is a terminal and NO_COLOR is not
/// set; otherwise as it is.
std::string emphasised(std::string_view text, Emphasis emphasis);

/// Columns of the terminal that standard output is; 80 if it is none.
std::size_t terminalWidth();

/// A name in camel case, broken between its words into lines of about ten letters.
std::string brokenName(std::string_view name);

class TextTable {
 public:
  enum class Align { left, right };

  /// `heading` may have several lines.
  void columnIs(std::string_view heading, Align align = Align::right);
  /// As many cells as there are columns.
  void rowIs(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  /// A line between the row before and the row after.
  void ruleIs() { rows_.emplace_back(); }

  /// All lines, each ended.
  std::string text() const;

 private:
  struct Column {
    std::vector<std::string> heading;  ///< from the lowest line up
    Align align;
  };

  std::vector<std::size_t> widths() const;
  std::vector<std::vector<std::string>> headingRows() const;
  std::string line(std::vector<std::string> const& cells,
                   std::vector<std::size_t> const& widths) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace DlbAgent
