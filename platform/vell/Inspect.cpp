#include "platform/vell/Inspect.h"

#include "platform/vell/Assert.h"

namespace Vell {
namespace {

[[noreturn]] void refuse(TypeData const& type, auto const& attribute, std::string_view why) {
  throw InspectError(concatenate(type.name, ": ", attribute, ": "), std::string(why));
}

std::string shown(U32 id) { return concatenate("attribute 0x", std::hex, id); }
std::string shown(std::string_view name) { return concatenate("attribute \"", name, "\""); }

AttributeData const& publicAttribute(TypeData const& type, auto const& idOrName) {
  auto const* attribute = type.attribute(idOrName);
  if (!attribute) refuse(type, shown(idOrName), "the class has none");
  if (attribute->access != AttributeAccess::isPublic)
    refuse(type, shown(attribute->name), "not public");
  return *attribute;
}

template <class Function>
Function offered(TypeData const& type, AttributeData const& attribute, Function function, bool fits,
                 std::string_view why) {
  if (!function || !fits) refuse(type, shown(attribute.name), why);
  return function;
}

Value getAttribute(TypeData const& type, void const* object, AttributeData const& attribute) {
  auto const kind = attribute.kind;
  bool const readable = kind == AttributeKind::constant || kind == AttributeKind::field ||
                        kind == AttributeKind::value;
  return offered(type, attribute, type.functions.get, readable, "cannot be read")(object,
                                                                                  attribute);
}

/// Calls a function behind the class, and refuses arguments that it finds wrong.
template <class Function>
auto refusingArguments(TypeData const& type, AttributeData const& attribute, Function function) {
  try {
    return function();
  } catch (ArgumentError const& error) {
    refuse(type, shown(attribute.name), error.what());
  }
}

/// Refuses what is no number of that width; `what` says what the number is for.
void needNumber(TypeData const& type, AttributeData const& attribute, Value const& value, U8 bits,
                std::string_view what) {
  auto const* number = value.number();
  if (!number) refuse(type, shown(attribute.name), concatenate("takes a number", what));
  if (bits < 64 && *number >> bits)
    refuse(type, shown(attribute.name),
           concatenate(*number, what, " does not fit in ", +bits, " bits"));
}

void setAttribute(TypeData const& type, void* object, AttributeData const& attribute,
                  Value const& value) {
  bool const writable = attribute.kind == AttributeKind::field;
  auto const set = offered(type, attribute, type.functions.set, writable, "cannot be written");
  if (attribute.shape == ValueShape::number || attribute.shape == ValueShape::pointer)
    needNumber(type, attribute, value, attribute.bits, "");
  else if (attribute.shape == ValueShape::boolean && !value.truth())
    refuse(type, shown(attribute.name), "takes true or false");
  else if (attribute.shape == ValueShape::text && !value.text())
    refuse(type, shown(attribute.name), "takes a text");
  refusingArguments(type, attribute, [&] { set(object, attribute, value); });
}

void setElement(TypeData const& type, void* object, AttributeData const& attribute,
                Value const& key, Value const& value) {
  bool const collection = attribute.kind == AttributeKind::collection;
  auto const elementIs =
      offered(type, attribute, type.functions.elementIs, collection, "has no elements of its own");
  needNumber(type, attribute, key, attribute.keyBits, " as the key of an element");
  if (!value.empty() && attribute.shape == ValueShape::number)
    needNumber(type, attribute, value, attribute.bits, " as an element");
  refusingArguments(type, attribute, [&] { elementIs(object, attribute, key, value); });
}

Value callAttribute(TypeData const& type, void* object, AttributeData const& attribute,
                    std::span<Value const> arguments) {
  bool const callable = attribute.kind == AttributeKind::operation;
  auto const call = offered(type, attribute, type.functions.call, callable, "cannot be called");
  return refusingArguments(type, attribute, [&] { return call(object, attribute, arguments); });
}

void walkAttribute(TypeData const& type, void const* object, AttributeData const& attribute,
                   TypeFunctions::Visitor const& visitor) {
  bool const collection = attribute.kind == AttributeKind::collection;
  offered(type, attribute, type.functions.walk, collection, "is no collection")(object, attribute,
                                                                                visitor);
}

}  // namespace

Value Inspect::get(U32 id) const {
  return getAttribute(type_, object_, publicAttribute(type_, id));
}
Value Inspect::get(std::string_view name) const {
  return getAttribute(type_, object_, publicAttribute(type_, name));
}

void Inspect::set(U32 id, Value const& value) {
  setAttribute(type_, object_, publicAttribute(type_, id), value);
}
void Inspect::set(std::string_view name, Value const& value) {
  setAttribute(type_, object_, publicAttribute(type_, name), value);
}

Value Inspect::call(U32 id, std::span<Value const> arguments) {
  return callAttribute(type_, object_, publicAttribute(type_, id), arguments);
}
Value Inspect::call(std::string_view name, std::span<Value const> arguments) {
  return callAttribute(type_, object_, publicAttribute(type_, name), arguments);
}

Value Inspect::callOn(U32 id, std::string_view operation, std::span<Value const> arguments) {
  auto const& attribute = publicAttribute(type_, id);
  bool const collection = attribute.kind == AttributeKind::collection;
  auto const callOn =
      offered(type_, attribute, type_.functions.callOn, collection, "has no operations of its own");
  return refusingArguments(type_, attribute,
                           [&] { return callOn(object_, attribute, operation, arguments); });
}

void Inspect::walk(U32 id, TypeFunctions::Visitor const& visitor) const {
  walkAttribute(type_, object_, publicAttribute(type_, id), visitor);
}
void Inspect::walk(std::string_view name, TypeFunctions::Visitor const& visitor) const {
  walkAttribute(type_, object_, publicAttribute(type_, name), visitor);
}

void Inspect::elementIs(U32 id, Value const& key, Value const& value) {
  setElement(type_, object_, publicAttribute(type_, id), key, value);
}
void Inspect::elementIs(std::string_view name, Value const& key, Value const& value) {
  setElement(type_, object_, publicAttribute(type_, name), key, value);
}

CollectionFigures Inspect::figures(U32 id) const {
  auto const& attribute = publicAttribute(type_, id);
  bool const collection = attribute.kind == AttributeKind::collection;
  return offered(type_, attribute, type_.functions.figures, collection, "is no collection")(
      object_, attribute);
}

Ptr<Node> inspectMake(TypeData const& type, String const& name, std::span<Value const> arguments) {
  if (!type.functions.makeNode) throw InspectError(concatenate(type.name, ": cannot be made"));
  try {
    return type.functions.makeNode(name, arguments);
  } catch (ArgumentError const& error) {
    throw InspectError(concatenate(type.name, ": "), error.what());
  }
}

Record inspectMakeValue(TypeData const& type) {
  if (!type.functions.makeValue) throw InspectError(concatenate(type.name, ": is no value class"));
  return *type.functions.makeValue().record();
}

U32 inspectHash(Record const& record) {
  if (!record.type->functions.hash)
    throw InspectError(concatenate(record.type->name, ": has no hash"));
  return record.type->functions.hash(record.object.get());
}

void throwNewEntityArgsException(TypeData const& type, std::size_t arguments) {
  throw InspectError(
      concatenate(type.name, ": is made from a name only, and ", arguments, " more were given"));
}

}  // namespace Vell
