#include "agent/Document.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <set>

#include "agent/Words.h"

namespace DlbAgent {
namespace {

using nlohmann::json;

/// Deeper than any configuration, and shallow enough to be walked by recursion.
constexpr std::size_t deepest = 64;

/// A container that is being read, and the key whose value comes next.
struct Open {
  JsonValue::Content content;
  std::set<std::string, std::less<>> keys;
  std::string key;
};

std::string lineAndColumn(std::string_view text, std::size_t position) {
  auto const before = text.substr(0, std::min(position ? position - 1 : 0, text.size()));
  auto const lines = std::ranges::count(before, '\n');
  auto const column = before.size() - (lines ? before.rfind('\n') + 1 : 0);
  return fmt::format("line {}, column {}", lines + 1, column + 1);
}

/// The parser's words without its own names and its own place.
std::string_view withoutPreamble(std::string_view what) {
  auto const skip = [&](std::string_view until, std::size_t from) {
    auto const found = what.find(until, from);
    if (found != what.npos) what.remove_prefix(found + until.size());
  };
  skip("] ", 0);
  if (what.starts_with("parse error")) skip(": ", 0);
  return what;
}

class Builder : public nlohmann::json_sax<json> {
 public:
  Builder(std::string_view text, Problems& problems) : text_(text), problems_(problems) {}

  JsonValue root;

  bool null() override { return add(JsonValue()); }
  bool boolean(bool value) override { return add(JsonValue(value)); }
  bool number_integer(number_integer_t value) override {
    if (value >= 0) return add(JsonValue(static_cast<U64>(value)));
    return add(JsonValue(JsonValue::OddNumber{std::to_string(value)}));
  }
  bool number_unsigned(number_unsigned_t value) override { return add(JsonValue(U64{value})); }
  bool number_float(number_float_t, string_t const& text) override {
    return add(JsonValue(JsonValue::OddNumber{text}));
  }
  bool string(string_t& value) override { return add(JsonValue(std::move(value))); }
  bool binary(binary_t&) override { return false; }  // not in texts
  bool start_object(std::size_t) override { return open(JsonValue::Object()); }
  bool start_array(std::size_t) override { return open(JsonValue::List()); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override {
    auto& object = open_.back();
    object.key = name;
    if (!object.keys.insert(std::move(name)).second)
      problems_.add(path(), "stands here more than once; keep one of them");
    return true;
  }

  bool parse_error(std::size_t position, std::string const&,
                   json::exception const& error) override {
    auto const place = lineAndColumn(text_, position);
    if (!dynamic_cast<json::out_of_range const*>(&error))
      problems_.add(place, withoutPreamble(error.what()));
    else if (open_.empty())
      problems_.add(place, "a number beyond all sizes; the check ends here");
    else
      problems_.add(path(),
                    fmt::format("a number beyond all sizes at {}; the check ends here", place));
    return false;
  }

 private:
  bool open(JsonValue::Content content) {
    if (open_.size() == deepest) {
      problems_.add(path(Elements::leftOut), fmt::format("lies deeper than {} levels", deepest));
      return false;
    }
    open_.push_back({std::move(content), {}, {}});
    return true;
  }

  bool close() {
    JsonValue closed(std::move(open_.back().content));
    open_.pop_back();
    return add(std::move(closed));
  }

  bool add(JsonValue value) {
    if (open_.empty())
      root = std::move(value);
    else if (auto* object = std::get_if<JsonValue::Object>(&open_.back().content))
      object->push_back({open_.back().key, std::move(value)});
    else if (auto* list = std::get_if<JsonValue::List>(&open_.back().content))
      list->push_back(std::move(value));
    return true;
  }

  /// Elements of lists that are only deep would bury the names.
  enum class Elements { told, leftOut };
  std::string path(Elements elements = Elements::told) const {
    std::string path;
    for (auto const& each : open_)
      if (auto const* list = std::get_if<JsonValue::List>(&each.content)) {
        if (elements == Elements::told) path = elementOf(path, list->size());
      } else {
        path = pathTo(path, each.key);
      }
    return path;
  }

  std::string_view text_;
  Problems& problems_;
  std::vector<Open> open_;
};

/// The text of a key with all its parts: where it is cut off, the place is lost.
constexpr std::size_t longestKey = 200;

/// A text in quotes, on one line.
std::string inQuotes(std::string_view text) {
  return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

/// The text on one line: names in it may hold anything. Control characters and what is
/// no UTF-8 read as they would in quotes, and the rest as it is.
std::string onOneLine(std::string_view text) {
  auto const quoted = inQuotes(text);
  std::string line;
  for (std::size_t i = 1; i + 1 < quoted.size(); ++i) {
    if (quoted[i] == '\\' && (quoted[i + 1] == '\\' || quoted[i + 1] == '"')) ++i;
    if (quoted[i] == '\x7F')
      line += "\\u007f";
    else
      line += quoted[i];
  }
  return line;
}

struct Describer {
  std::string operator()(JsonValue::Null) const { return "null"; }
  std::string operator()(JsonValue::List const&) const { return "a list"; }
  std::string operator()(JsonValue::Object const&) const { return "an object"; }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(U64 value) const { return std::to_string(value); }
  std::string operator()(JsonValue::OddNumber const& number) const { return clipped(number.text); }
  std::string operator()(std::string const& text) const { return inQuotes(clipped(text)); }
};

}  // namespace

void Problems::add(std::string_view path, std::string_view text) {
  lines_.push_back(onOneLine(path.empty() ? std::string(text) : fmt::format("{}: {}", path, text)));
}

std::string pathTo(std::string_view path, std::string_view key) {
  auto const plain = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == ':';
  };
  auto const step = !key.empty() && std::ranges::all_of(key, plain)
                        ? std::string(key)
                        : inQuotes(clipped(key, longestKey));
  return path.empty() ? step : fmt::format("{}.{}", path, step);
}

std::string elementOf(std::string_view path, std::size_t element) {
  return fmt::format("{}[{}]", path, element);
}

// Out of line, where a member is a whole type.
JsonValue::JsonValue(Content content) : content_(std::move(content)) {}
JsonValue::JsonValue(JsonValue&&) noexcept = default;
JsonValue& JsonValue::operator=(JsonValue&&) noexcept = default;
JsonValue::~JsonValue() = default;

std::string JsonValue::described() const { return std::visit(Describer(), content_); }

std::optional<JsonValue> readJson(std::string_view text, Problems& problems) {
  if (auto const zero = text.find('\0'); zero != text.npos) {
    problems.add(lineAndColumn(text, zero + 1), "a zero byte, which no JSON text has");
    return {};
  }
  Builder builder(text, problems);
  if (!json::sax_parse(text.begin(), text.end(), &builder)) return {};
  return std::move(builder.root);
}

}  // namespace DlbAgent
