// The reflection interface: reach an object by the ids or names of its attributes.
//
// Only public attributes are answered; an unknown or non-public one, a wrong kind of access, and a
// value that does not fit are refused with `InspectError`, whose text names the class, the
// attribute and what was wrong. A refused access changes nothing.

#pragma once

#include <span>
#include <stdexcept>
#include <string_view>

#include "platform/vell/ModuleInspectData.h"
#include "platform/vell/Node.h"
#include "platform/vell/Ptr.h"
#include "platform/vell/Value.h"

namespace Vell {

class InspectError : public std::runtime_error {
 public:
  explicit InspectError(std::string const& reason) : InspectError("", reason) {}
  /// `where` stands before the reason in `what()`.
  InspectError(std::string const& where, std::string const& reason)
      : std::runtime_error(where + reason), reason_(reason) {}

  /// What was wrong, for a caller that has names of its own for the place.
  std::string const& reason() const { return reason_; }

 private:
  std::string reason_;
};

/// A wrong argument, thrown by the functions behind a class; users see it as an `InspectError` that
/// names the class and the attribute.
class ArgumentError : public std::invalid_argument {
 public:
  using invalid_argument::invalid_argument;
};

/// One object as the reflection interface sees it. It holds no use of the object.
class Inspect {
 public:
  explicit Inspect(Node& node) : type_(node.typeData().data()), object_(&node) {}
  explicit Inspect(Record const& record) : type_(*record.type), object_(record.object.get()) {}

  TypeData const& type() const { return type_; }

  /// The value of a constant, a field or a worked-out value.
  Value get(U32 id) const;
  Value get(std::string_view name) const;
  /// Stores a field.
  void set(U32 id, Value const& value);
  void set(std::string_view name, Value const& value);
  /// Calls an operation.
  Value call(U32 id, std::span<Value const> arguments = {});
  Value call(std::string_view name, std::span<Value const> arguments = {});
  /// Calls an operation that a collection itself offers.
  Value callOn(U32 id, std::string_view operation, std::span<Value const> arguments = {});
  /// Visits the elements of a collection. The visitor may change the collection.
  void walk(U32 id, TypeFunctions::Visitor const& visitor) const;
  void walk(std::string_view name, TypeFunctions::Visitor const& visitor) const;
  /// Stores an element of a collection that is a value class's own; an empty value removes it.
  void elementIs(U32 id, Value const& key, Value const& value);
  void elementIs(std::string_view name, Value const& key, Value const& value);
  /// The count and the version of a collection.
  CollectionFigures figures(U32 id) const;

 private:
  TypeData const& type_;
  void* object_;
};

/// A new object of a counted class, with one use for the caller.
Ptr<Node> inspectMake(TypeData const& type, String const& name = {},
                      std::span<Value const> arguments = {});
/// A default object of a value class.
Record inspectMakeValue(TypeData const& type);
/// Hash of an object of a value class. Throws `InspectError` if the class has none.
U32 inspectHash(Record const& record);
/// Refuses arguments beyond a name in a request to make a `type`.
[[noreturn]] void throwNewEntityArgsException(TypeData const& type, std::size_t arguments);

}  // namespace Vell
