// The base of an entry class that has a field list: equality, ordering, the non-default test and
// the text form come from the list, so that a data sheet writes no operator.

#pragma once

#include <array>
#include <ostream>

#include "platform/asic/EntryBase.h"
#include "platform/vell/Assert.h"
#include "platform/vell/Inspect.h"
#include "platform/zarn/Fields.h"

namespace Asic {

template <class E>
class FieldEntry : public EntryBase {
 public:
  /// The same object, or every field equal.
  static bool isEq(E const& a, E const& b) { return Zarn::FieldOps<E>::equal(a, b); }
  friend bool operator==(E const& a, E const& b) { return isEq(a, b); }
  /// -1, 0 or 1: field by field in list order.
  friend int operator<=>(E const& a, E const& b) { return Zarn::FieldOps<E>::compare(a, b); }
  /// True when any field differs from its default.
  explicit operator bool() const { return !isEq(static_cast<E const&>(*this), E{}); }
  friend std::ostream& operator<<(std::ostream& out, E const& entry) {
    return Zarn::FieldOps<E>::write(out, entry);
  }
};

/// Objects of a value class on their way through the reflection interface, as records of the type
/// `Reflection::type`.
template <class V, class Reflection>
struct RecordReflection {
  static Vell::Value toValue(V const& object) {
    return Vell::Record{&Reflection::type, std::make_shared<V>(object)};
  }
  /// The object of a record. Throws `Vell::ArgumentError` if the value is something else.
  static V const& fromValue(Vell::Value const& value) {
    auto const* record = value.record();
    if (!record || record->type != &Reflection::type)
      throw Vell::ArgumentError(
          Vell::concatenate("a record of ", Reflection::type.name, " is asked for"));
    return *static_cast<V const*>(record->object.get());
  }
  static Vell::Value makeValue() { return toValue(V()); }
  static U32 hash(void const* object) { return static_cast<V const*>(object)->hash(0); }
};

/// The reflection data of an entry class: two constants, then the fields.
template <class E>
class EntryReflection : public RecordReflection<E, EntryReflection<E>> {
 private:
  static constexpr auto makeAttributes() {
    using enum Vell::AttributeKind;
    using enum Vell::ValueShape;
    constexpr auto isPublic = Vell::AttributeAccess::isPublic;
    constexpr auto isConst = Vell::AttributeConstness::isConst;
    constexpr auto fields = Zarn::FieldOps<E>::attributes();
    std::array<Vell::AttributeData, 2 + fields.size()> all{{
        {0x82, "getBlockSizeDefinedByUser", constant, isPublic, isConst, boolean, 1},
        {0x83, "numDependentFields", constant, isPublic, isConst, number, 64},
    }};
    std::copy(fields.begin(), fields.end(), all.begin() + 2);
    return all;
  }
  static constexpr auto attributes_ = makeAttributes();

  /// Fields that refer to an entry of another table.
  static constexpr U64 dependentFields() {
    if constexpr (requires { E::numDependentFields; })
      return E::numDependentFields;
    else
      return 0;
  }

  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    if (attribute.kind == Vell::AttributeKind::constant)
      return attribute.shape == Vell::ValueShape::boolean ? Vell::Value(false)
                                                          : Vell::Value(dependentFields());
    return Zarn::FieldOps<E>::get(*static_cast<E const*>(object), attribute.id);
  }
  static void set(void* object, Vell::AttributeData const& attribute, Vell::Value const& value) {
    Zarn::FieldOps<E>::set(*static_cast<E*>(object), attribute.id, value);
  }
  static void walk(void const* object, Vell::AttributeData const& attribute,
                   Vell::TypeFunctions::Visitor const& visitor) {
    Zarn::FieldOps<E>::withCollection(
        *static_cast<E const*>(object), attribute.id,
        [&](auto const& collection, auto type) { type.walk(collection, visitor); });
  }
  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const& attribute) {
    Vell::CollectionFigures figures{};
    Zarn::FieldOps<E>::withCollection(
        *static_cast<E const*>(object), attribute.id,
        [&](auto const& collection, auto type) { figures = type.figures(collection); });
    return figures;
  }
  static void elementIs(void* object, Vell::AttributeData const& attribute, Vell::Value const& key,
                        Vell::Value const& value) {
    Zarn::FieldOps<E>::withCollection(
        *static_cast<E*>(object), attribute.id,
        [&](auto& collection, auto type) { type.elementIs(collection, key, value); });
  }

 public:
  static constexpr Vell::TypeData type{
      E::fields().tag,
      attributes_,
      {.makeValue = &EntryReflection::makeValue,
       .hash = &EntryReflection::hash,
       .get = &get,
       .set = &set,
       .walk = Zarn::FieldOps<E>::hasCollection ? &walk : nullptr,
       .figures = Zarn::FieldOps<E>::hasCollection ? &figures : nullptr,
       .elementIs = Zarn::FieldOps<E>::hasCollection ? &elementIs : nullptr}};
};

}  // namespace Asic
