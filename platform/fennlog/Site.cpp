#include "platform/fennlog/Site.h"

#include "platform/vell/Assert.h"

namespace Fennlog {

void siteFormatIsMalformed(std::string_view format) {
  VELL_ASSERT(false, "format takes {} and, for integers, {:x}", "site format \"", format, "\"");
}

void siteHasTextsWithoutPlaceholder(std::string_view format) {
  VELL_ASSERT(false, "placeholders >= texts", "site format \"", format, "\"");
}

void siteLeavesMoreThanTwoPlaceholders(std::string_view format) {
  VELL_ASSERT(false, "placeholders <= texts + 2", "site format \"", format, "\"");
}

namespace {

void appendEscaped(std::string& format, std::string_view text) {
  for (char const c : text) format.append(c == '{' || c == '}' ? 2 : 1, c);
}

}  // namespace

std::string Site::expanded() const {
  std::string result;
  auto rest = format_;
  for (std::size_t filled = 0; filled < textCount_;) {
    auto const piece = firstPiece(rest);
    if (piece.kind == FormatPiece::Kind::literal) {
      result += rest.substr(0, piece.length);
    } else {
      appendEscaped(result, texts_[filled++]);
    }
    rest.remove_prefix(piece.length);
  }
  return result.append(rest);
}

}  // namespace Fennlog
