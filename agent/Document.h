// A JSON document with everything in it that a configuration may get wrong: members keep their
// order and their duplicates, and numbers that are no whole numbers of 64 bits keep their text.

#pragma once

#include <fmt/format.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/vell/Types.h"

namespace DlbAgent {

/// Problems found so far, each with its path in the file; collected so that all are told at once.
class Problems {
 public:
  void add(std::string_view path, std::string_view text);
  std::vector<std::string> const& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
};

/// Keys of one object that may be spelled in more than one way; each is taken once.
template <class Key>
class Spellings {
 public:
  explicit Spellings(Problems& problems) : problems_(problems) {}

  /// False, and a problem added, if another spelling of the key has been there.
  bool isNew(std::string const& path, std::string const& text, Key const& key) {
    auto const [first, isFirst] = texts_.try_emplace(key, text);
    // The same text twice has been found as a duplicate key already.
    if (!isFirst && first->second != text)
      problems_.add(path,
                    fmt::format("is the same key as \"{}\"; keep one of them", first->second));
    return isFirst;
  }

 private:
  Problems& problems_;
  std::map<Key, std::string> texts_;  ///< how each key was first written
};

/// The path of a member below `path`; a key that is no plain name stands in quotes.
std::string pathTo(std::string_view path, std::string_view key);

/// The path of an element of the list at `path`.
std::string elementOf(std::string_view path, std::size_t element);

class JsonValue {
 public:
  struct Null {};
  using List = std::vector<JsonValue>;
  struct OddNumber {
    std::string text;  ///< negative, fractional or too large
  };
  struct Member;
  using Object = std::vector<Member>;
  using Content = std::variant<Null, bool, U64, OddNumber, std::string, List, Object>;

  JsonValue() = default;
  explicit JsonValue(Content content);
  JsonValue(JsonValue&&) noexcept;
  JsonValue& operator=(JsonValue&&) noexcept;
  ~JsonValue();

  template <class Kind>
  Kind const* as() const {
    return std::get_if<Kind>(&content_);
  }
  /// What it is, for errors: "an object", "5", "\"abc\"".
  std::string described() const;

 private:
  Content content_;
};

struct JsonValue::Member {
  std::string key;
  JsonValue value;
};

/// Reads a whole document. Adds a problem for each duplicate key, and for a fault of syntax; behind
/// one of those nothing can be read, and there is no value.
std::optional<JsonValue> readJson(std::string_view text, Problems& problems);

}  // namespace DlbAgent
