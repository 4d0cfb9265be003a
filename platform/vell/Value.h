// A value that travels through the reflection interface: nothing, a truth value, a
// number, a text, or a record (an object of a value class, held by counted reference and
// never shared with a table).

#pragma once

#include <memory>
#include <string>
#include <variant>

#include "platform/vell/ModuleInspectData.h"
#include "platform/vell/Types.h"

namespace Vell {

struct Record {
  TypeData const* type;
  std::shared_ptr<void> object;

  friend bool operator==(Record const&, Record const&) = default;
};

class Value {
 public:
  using Content = std::variant<std::monostate, bool, U64, std::string, Record>;

  Value() = default;
  explicit(false) Value(bool truth) : content_(truth) {}
  explicit(false) Value(U64 number) : content_(number) {}
  explicit(false) Value(std::string text) : content_(std::move(text)) {}
  explicit(false) Value(char const* text) : content_(std::string(text)) {}
  explicit(false) Value(Record record) : content_(std::move(record)) {}

  bool empty() const { return std::holds_alternative<std::monostate>(content_); }
  bool const* truth() const { return std::get_if<bool>(&content_); }
  U64 const* number() const { return std::get_if<U64>(&content_); }
  std::string const* text() const { return std::get_if<std::string>(&content_); }
  Record const* record() const { return std::get_if<Record>(&content_); }

  friend bool operator==(Value const&, Value const&) = default;

 private:
  Content content_;
};

}  // namespace Vell
