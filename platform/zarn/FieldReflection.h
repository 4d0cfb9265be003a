// The reflection data of a class with a field list (platform/zarn/Fields.h):
// its fields one by one, and the collections among them.

#pragma once

#include "platform/vell/Reflection.h"
#include "platform/zarn/Fields.h"

namespace Zarn {

/// What serves the fields of `E`. `Reflection` has the class's `type`.
template <class E, class Reflection>
class FieldReflection : public Vell::RecordReflection<E, Reflection> {
  using Fields = FieldOps<E>;

 protected:
  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    return Fields::get(*static_cast<E const*>(object), attribute.id);
  }
  static void set(void* object, Vell::AttributeData const& attribute, Vell::Value const& value) {
    Fields::set(*static_cast<E*>(object), attribute.id, value);
  }
  static void walk(void const* object, Vell::AttributeData const& attribute,
                   Vell::TypeFunctions::Visitor const& visitor) {
    Fields::withCollection(
        *static_cast<E const*>(object), attribute.id,
        [&](auto const& collection, auto type) { type.walk(collection, visitor); });
  }
  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const& attribute) {
    Vell::CollectionFigures figures{};
    Fields::withCollection(
        *static_cast<E const*>(object), attribute.id,
        [&](auto const& collection, auto type) { figures = type.figures(collection); });
    return figures;
  }
  static void elementIs(void* object, Vell::AttributeData const& attribute, Vell::Value const& key,
                        Vell::Value const& value) {
    Fields::withCollection(
        *static_cast<E*>(object), attribute.id,
        [&](auto& collection, auto type) { type.elementIs(collection, key, value); });
  }

  /// The functions of a class that is edited field by field; `get` may know of
  /// more than the fields.
  static constexpr Vell::TypeFunctions functions(decltype(Vell::TypeFunctions::get) get) {
    constexpr bool hasCollection = Fields::hasCollection;
    return {.makeValue = &FieldReflection::makeValue,
            .hash = &FieldReflection::hash,
            .get = get,
            .set = &FieldReflection::set,
            .walk = hasCollection ? &FieldReflection::walk : nullptr,
            .figures = hasCollection ? &FieldReflection::figures : nullptr,
            .elementIs = hasCollection ? &FieldReflection::elementIs : nullptr};
  }
};

}  // namespace Zarn
