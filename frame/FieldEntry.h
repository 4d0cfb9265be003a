// The base of an entry class that has a field list: equality, ordering, the non-default test and
// the text form come from the list, so that a data sheet writes no operator.

#pragma once

#include <array>
#include <ostream>

#include "platform/asic/EntryBase.h"
#include "platform/vell/Assert.h"
#include "platform/zarn/FieldReflection.h"

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

/// The reflection data of an entry class: two constants, then the fields.
template <class E>
class EntryReflection : public Zarn::FieldReflection<E, EntryReflection<E>> {
  using Fields = Zarn::FieldReflection<E, EntryReflection<E>>;

  static constexpr auto makeAttributes() {
    using namespace Vell::AttributeWords;
    constexpr auto fields = Zarn::FieldOps<E>::attributes();
    std::array<Vell::AttributeData, 2 + fields.size()> all{{
        {0x82, "getBlockSizeDefinedByUser", constant, isPublic, isConst, boolean, 1},
        {0x83, "numDependentFields", constant, isPublic, isConst, number, 64},
    }};
    std::copy(fields.begin(), fields.end(), all.begin() + 2);
    return all;
  }
  static constexpr auto attributes_ = makeAttributes();

  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    if (attribute.kind != Vell::AttributeKind::constant) return Fields::get(object, attribute);
    if (attribute.shape == Vell::ValueShape::boolean) return false;
    if constexpr (requires {
                    E::numDependentFields;
                  })  // those that refer to an entry of another table
      return E::numDependentFields;
    else
      return U64{0};
  }

 public:
  static constexpr Vell::TypeData type{E::fields().tag, attributes_,
                                       Fields::functions(&EntryReflection::get)};
};

}  // namespace Asic
