// A message site: one place in the code that writes messages, with all of its text.
//
//   static constinit Fennlog::Site site{"{}: {} entryType: {}, refCnt: {}",
//   typeName, "handleEntry"};
//
// The texts given after the format fill its first placeholders for good; what remains, at
// most two, is filled with integers by each message. A placeholder is "{}" or "{:x}";
// "{{" and "}}" are braces.
//
// 1. A site is static: it is never destroyed before the last message that names it is written.
// 2. Its texts have static storage. They are copied when the site is numbered, so that messages can
//    be read after the plug-in that wrote them has been unloaded.
// 3. A format that breaks the rules above does not compile (as constinit), or stops the process at
//    the construction of the site.
//
// Threading: a site may be used by any thread.

#pragma once

#include <array>
#include <atomic>
#include <concepts>
#include <string>
#include <string_view>

#include "platform/vell/Types.h"

namespace Fennlog {

/// What a message can carry besides the text of its site.
inline constexpr std::size_t maxArguments = 2;

/// The first piece of a format text: how it begins, and how many characters of the format it takes.
struct FormatPiece {
  enum class Kind { end, literal, decimal, hexadecimal, malformed };
  Kind kind = Kind::end;
  std::size_t length = 0;
  std::string_view text;  ///< What a literal piece prints.
};

/// The piece that `format` begins with; `end` if it is empty.
constexpr FormatPiece firstPiece(std::string_view format) {
  using enum FormatPiece::Kind;
  if (format.empty()) return {};
  if (format.front() != '{' && format.front() != '}') {
    auto const text = format.substr(0, format.find_first_of("{}"));
    return {literal, text.size(), text};
  }
  if (format.starts_with("{{") || format.starts_with("}}"))
    return {literal, 2, format.substr(0, 1)};
  if (format.starts_with("{}")) return {decimal, 2, {}};
  if (format.starts_with("{:x}")) return {hexadecimal, 4, {}};
  return {malformed, format.size(), {}};
}

/// What a site's text is given as: not as a string that would not outlive the call.
template <class Text>
concept StaticText = std::same_as<Text, char const*> || std::same_as<Text, std::string_view>;

/// Where a faulty site ends up; their names are what the compiler shows.
void siteFormatIsMalformed(std::string_view format);
void siteHasTextsWithoutPlaceholder(std::string_view format);
void siteLeavesMoreThanTwoPlaceholders(std::string_view format);

class Site {
 public:
  static constexpr std::size_t maxTexts = 3;

  template <StaticText... Texts>
  constexpr explicit Site(StaticText auto format, Texts... texts)
      : format_(format), texts_{std::string_view(texts)...}, textCount_(sizeof...(Texts)) {
    static_assert(sizeof...(Texts) <= maxTexts,
                  "a site keeps at most three texts: put more of it into the format");
    check();
  }

  Site(Site const&) = delete;
  Site& operator=(Site const&) = delete;

  /// The format with the site's texts in it, and the placeholders of its messages left.
  std::string expanded() const;

  /// What stands for the site in a record: 0 until its first message, see Registry.h.
  U32 number() const { return number_.load(std::memory_order_relaxed); }
  void numberIs(U32 number) { number_.store(number, std::memory_order_relaxed); }

 private:
  constexpr void check() const;

  std::string_view format_;
  std::array<std::string_view, maxTexts> texts_;
  std::size_t textCount_;
  std::atomic<U32> number_{0};
};

constexpr void Site::check() const {
  using enum FormatPiece::Kind;
  std::size_t placeholders = 0;
  for (auto rest = format_; !rest.empty();) {
    auto const piece = firstPiece(rest);
    if (piece.kind == malformed) siteFormatIsMalformed(format_);
    // A text has no hexadecimal form.
    if (piece.kind == hexadecimal && placeholders < textCount_) siteFormatIsMalformed(format_);
    if (piece.kind == decimal || piece.kind == hexadecimal) ++placeholders;
    rest.remove_prefix(piece.length);
  }
  if (placeholders < textCount_) siteHasTextsWithoutPlaceholder(format_);
  if (placeholders > textCount_ + maxArguments) siteLeavesMoreThanTwoPlaceholders(format_);
}

}  // namespace Fennlog
