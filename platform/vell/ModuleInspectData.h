// Reflection data: what a class has to offer, by attribute id and name, and how to reach it without
// knowing the class.
//
// A module groups the classes of one table; a `ZarnType` names one of them by module and number.
// Each class has a `TypeData`: its attributes, and a table of functions behind them. Users do not
// call those functions: they go through `Inspect` (Inspect.h), which answers public attributes only
// and refuses everything else by name.
//
// All of it is constant data of static storage. Modules are entered in one process-wide list when
// their library is loaded.

#pragma once

#include <functional>
#include <span>
#include <string_view>

#include "platform/vell/Types.h"

namespace Vell {

class Node;
class Value;
struct TypeData;
class ModuleInspectData;
template <class T>
class Ptr;

struct ZarnType {
  ModuleInspectData const* module = nullptr;
  U32 number = 0;

  /// The type's data. The module must be known.
  TypeData const& data() const;
  friend bool operator==(ZarnType const&, ZarnType const&) = default;
};

enum class AttributeKind : U8 {
  constant,         ///< the same for every object of the class
  field,            ///< a stored value, readable and writable
  value,            ///< a value worked out on reading
  collection,       ///< elements by key
  operation,        ///< called on an object
  staticOperation,  ///< called on the class
};

enum class AttributeAccess : U8 { isPublic, notPublic };
enum class AttributeConstness : U8 { isConst, notConst };

/// What a value of an attribute is.
enum class ValueShape : U8 { nothing, boolean, number, text, record, pointer };

struct AttributeData {
  U32 id;
  std::string_view name;
  AttributeKind kind;
  AttributeAccess access = AttributeAccess::isPublic;
  AttributeConstness constness = AttributeConstness::notConst;
  ValueShape shape = ValueShape::nothing;
  U8 bits = 0;     ///< width of a number, or of each number in a collection of them
  U8 keyBits = 0;  ///< width of the keys of a collection that is a value class's own
};

/// What a collection tells of itself.
struct CollectionFigures {
  U32 count;    ///< elements
  U32 version;  ///< changes with every insertion and removal; 23 bits
};

/// The functions behind a class's attributes. An object is passed as the address of a `Node` for
/// counted classes, and of the value itself for value classes. A null function is not offered.
struct TypeFunctions {
  using Visitor = std::function<void(Value const& key, Value const& value)>;

  /// Makes a counted object from its name and further arguments.
  Ptr<Node> (*makeNode)(String const& name, std::span<Value const> arguments) = nullptr;
  /// Makes a default value, as a record.
  Value (*makeValue)() = nullptr;
  U32 (*hash)(void const* object) = nullptr;
  Value (*get)(void const* object, AttributeData const&) = nullptr;
  void (*set)(void* object, AttributeData const&, Value const&) = nullptr;
  Value (*call)(void* object, AttributeData const&, std::span<Value const> arguments) = nullptr;
  void (*walk)(void const* object, AttributeData const&, Visitor const&) = nullptr;
  CollectionFigures (*figures)(void const* object, AttributeData const&) = nullptr;
  /// Calls an operation that a collection itself offers; it has no attribute of its own.
  Value (*callOn)(void* object, AttributeData const&, std::string_view operation,
                  std::span<Value const> arguments) = nullptr;
  /// Stores an element of a value class's own collection; an empty value removes it.
  void (*elementIs)(void* object, AttributeData const&, Value const& key,
                    Value const& value) = nullptr;
};

struct TypeData {
  std::string_view name;  ///< qualified, as "TessarLoadBalance::DlbControlTable::Entry"
  std::span<AttributeData const> attributes;
  TypeFunctions functions;

  /// The attribute of that id or name, or null.
  AttributeData const* attribute(U32 id) const;
  AttributeData const* attribute(std::string_view attributeName) const;
};

class ModuleInspectData {
 public:
  /// `name` and `types` are of static storage; `types[n]` is the type of number n.
  constexpr ModuleInspectData(std::string_view name, std::span<TypeData const* const> types)
      : name_(name), types_(types) {}
  ModuleInspectData(ModuleInspectData const&) = delete;

  std::string_view name() const { return name_; }
  std::span<TypeData const* const> types() const { return types_; }

  /// Makes the module known to the process; a second call changes nothing.
  void loaded();
  /// The first module made known and the one after this, in the order of `loaded`; null at the end.
  static ModuleInspectData const* first();
  ModuleInspectData const* next() const { return next_; }

 private:
  std::string_view name_;
  std::span<TypeData const* const> types_;
  ModuleInspectData* next_ = nullptr;
  bool known_ = false;
};

}  // namespace Vell
