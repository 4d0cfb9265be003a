// Text forms of values, read side.
//
// A record with two or more attributes reads `Tag{first:1 second:2}`: the tag names the class,
// the attributes stand in declaration order. A record with one attribute reads as that
// attribute's value alone. Numbers are decimal, or hexadecimal behind 0x; truth values are `true`
// and `false`. Nothing may be left over: `strepToValue` (ValueText.h) checks that.
//
// Every error is a `Vell::RangeException` that names the attribute and the position in the text.

#pragma once

#include <concepts>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/vell/Ptr.h"
#include "platform/vell/Types.h"
#include "platform/zarn/Optional.h"

namespace Vell {

/// A text that is no value of the type asked for.
class RangeException : public std::runtime_error {
 public:
  RangeException(std::string_view attribute, std::size_t position, std::string_view problem);

  std::string const& attribute() const { return attribute_; }
  /// What was wrong there.
  std::string const& problem() const { return problem_; }
  /// Characters before the place of the error.
  std::size_t position() const { return position_; }

 private:
  std::string attribute_;
  std::string problem_;
  std::size_t position_;
};

}  // namespace Vell

namespace Zarn {

/// Inside a handler of a `Vell::RangeException`: throws it on as a failure of `attribute`, in whose
/// text it happened.
[[noreturn]] void rethrowFromDeserializeAttr(std::string_view attribute);

/// The live node at that address, or null.
template <class Node>
Vell::Ptr<Node> nodeAt(U64 address) {
  return address == 0 ? nullptr : std::remove_const_t<Node>::atAddress(address);
}

/// The unread rest of a text. Reading moves it on; a failed reading throws.
class CharRange {
 public:
  /// `text` must outlive the range.
  explicit CharRange(std::string_view text) : text_(text) {}

  /// Reads the tag, the opening brace and the first attribute.
  template <class V>
  void desAttrPre(std::string_view tag, std::string_view name, V& value) {
    need(tag, name);
    need("{", name);
    need(name, name);
    need(":", name);
    deserializeAttr(name, value);
  }
  /// Reads an attribute between the first and the last.
  template <class V>
  void desAttrIntra(std::string_view name, V& value) {
    need(" ", name);
    need(name, name);
    need(":", name);
    deserializeAttr(name, value);
  }
  /// Reads the last attribute and the closing brace.
  template <class V>
  void desAttrPost(std::string_view name, V& value) {
    desAttrIntra(name, value);
    need("}", name);
  }
  /// Reads a value alone. `name` is used in errors only.
  template <std::unsigned_integral V>
  void deserializeAttr(std::string_view name, V& value) {
    value = static_cast<V>(number(name, std::numeric_limits<V>::max()));
  }
  void deserializeAttr(std::string_view name, bool& value);
  /// An enumeration reads as its number, up to the one that `highestEnumerator` gives for its type.
  template <class V>
  requires std::is_enum_v<V>
  void deserializeAttr(std::string_view name, V& value) {
    try {
      value = static_cast<V>(number("enumerator", static_cast<U64>(highestEnumerator(V{}))));
    } catch (Vell::RangeException const&) {
      rethrowFromDeserializeAttr(name);
    }
  }
  /// A value that may be absent reads as the value, or as "-".
  template <class V>
  void deserializeAttr(std::string_view name, Optional<V>& value) {
    value.reset();
    if (rest().starts_with("-"))
      need("-", name);
    else
      deserializeAttr(name, value.emplace());
  }
  /// A pointer reads as the address of a live node of its class, or 0.
  template <class Node>
  void deserializeAttr(std::string_view name, Vell::Ptr<Node>& value) {
    try {
      value = sequenceToValueOfPtr<Node>();
    } catch (Vell::RangeException const&) {
      rethrowFromDeserializeAttr(name);
    }
  }
  /// A class that reads itself brings `deserialize(CharRange&, name)`.
  template <class V>
  requires requires(V& value, CharRange& range, std::string_view name) {
    value.deserialize(range, name);
  }
  void deserializeAttr(std::string_view name, V& value) { value.deserialize(*this, name); }

  /// Reads an address and finds what lies there.
  template <class Node>
  Vell::Ptr<Node> sequenceToValueOfPtr() {
    auto const at = position_;
    U64 const address = number("address", std::numeric_limits<U64>::max());
    auto node = nodeAt<Node>(address);
    if (address != 0 && !node) cannotConvert(at, "no live object of the class lies there");
    return node;
  }

  /// Takes the next characters, for a class that reads itself.
  std::string_view take(std::size_t characters, std::string_view name);
  /// Characters read so far.
  std::size_t position() const { return position_; }

  /// Refuses anything that is left over.
  void needEnd(std::string_view name) const;

 private:
  void need(std::string_view literal, std::string_view name);
  U64 number(std::string_view name, U64 largest);
  [[noreturn]] static void cannotConvert(std::size_t position, std::string_view problem);
  std::string_view rest() const { return text_.substr(position_); }

  std::string_view text_;
  std::size_t position_ = 0;
};

}  // namespace Zarn
