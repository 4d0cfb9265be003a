// The field list: the one place where a value class names its fields.
//
//   static constexpr auto fields() {
//     return Zarn::fieldList("TessarLoadBalance::DlbControlTable::Entry",
//                            Zarn::field(0x84, "portLoadingWeight",
//                            &Entry::portLoadingWeight), ...);
//   }
//
// Equality, ordering, the non-default test, both directions of the text form, and reflection follow
// from the list, in its order. It is a function, not a constant, because the class is complete only
// inside its functions. `FieldOps<Class>` are those operations for a class that has a list.

#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "platform/vell/Assert.h"
#include "platform/vell/Inspect.h"
#include "platform/vell/ModuleInspectData.h"
#include "platform/vell/Types.h"
#include "platform/vell/Value.h"
#include "platform/zarn/CharRange.h"

namespace Zarn {

/// Whether a field tells one object from another.
enum class FieldRole : U8 {
  identity,  ///< part of equality, order and the non-default test
  result,    ///< worked out from the others; two objects that differ in it alone are equal
};

template <class Owner, class Member>
struct Field {
  using Type = Member;

  U32 id;
  std::string_view name;
  Member Owner::*member;
  FieldRole role = FieldRole::identity;
};

template <class Owner, class Member>
constexpr Field<Owner, Member> field(U32 id, std::string_view name, Member Owner::*member,
                                     FieldRole role = FieldRole::identity) {
  return {id, name, member, role};
}

template <class... Fields>
struct FieldList {
  std::string_view tag;  ///< qualified name of the class
  std::tuple<Fields...> fields;

  static constexpr std::size_t size() { return sizeof...(Fields); }
};

template <class... Fields>
constexpr FieldList<Fields...> fieldList(std::string_view tag, Fields... fields) {
  return {tag, {fields...}};
}

template <class T>
concept HasFields = requires {
  T::fields().tag;
};

/// How a field's type looks from outside: the kind, shape and width that reflection tells, and the
/// way through `Vell::Value`. A field type beyond numbers and truth values brings a specialisation;
/// one that is a collection (containers/MapField.h) has `walk`, `figures` and `elementIs` in the
/// place of `toValue` and `fromValue`.
template <class T>
struct FieldType;

template <>
struct FieldType<bool> {
  static constexpr auto kind = Vell::AttributeKind::field;
  static constexpr auto shape = Vell::ValueShape::boolean;
  static constexpr U8 bits = 1;
  static Vell::Value toValue(bool value) { return value; }
  static void fromValue(bool& field, Vell::Value const& value) { field = *value.truth(); }
};

/// An enumeration is told as its number.
template <class T>
requires std::is_enum_v<T>
struct FieldType<T> {
  static constexpr auto kind = Vell::AttributeKind::field;
  static constexpr auto shape = Vell::ValueShape::number;
  static constexpr U8 bits = sizeof(T) * 8;
  static Vell::Value toValue(T value) { return static_cast<U64>(value); }
};

/// A value that may be absent is told as the value, or as nothing.
template <class T>
struct FieldType<Optional<T>> : FieldType<T> {
  static Vell::Value toValue(Optional<T> const& value) {
    return value ? FieldType<T>::toValue(*value) : Vell::Value();
  }
};

template <std::unsigned_integral T>
struct FieldType<T> {
  static constexpr auto kind = Vell::AttributeKind::field;
  static constexpr auto shape = Vell::ValueShape::number;
  static constexpr U8 bits = sizeof(T) * 8;
  static Vell::Value toValue(T value) { return static_cast<U64>(value); }
  static void fromValue(T& field, Vell::Value const& value) {
    field = static_cast<T>(*value.number());
  }
};

/// Where a node lies, as a number: what a pointer is compared by and told as.
template <class Node>
U64 addressOf(Vell::Ptr<Node> const& pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer.get());
}

/// A pointer is told as its address. The class of the node brings `atAddress(U64)`, which finds a
/// live node again.
template <class Node>
struct FieldType<Vell::Ptr<Node>> {
  static constexpr auto kind = Vell::AttributeKind::field;
  static constexpr auto shape = Vell::ValueShape::pointer;
  static constexpr U8 bits = 64;
  static Vell::Value toValue(Vell::Ptr<Node> const& pointer) { return addressOf(pointer); }
  static void fromValue(Vell::Ptr<Node>& field, Vell::Value const& value) {
    auto node = nodeAt<Node>(*value.number());
    if (!node && *value.number() != 0)
      throw Vell::ArgumentError("no live object of the class lies at that address");
    field = std::move(node);
  }
};

/// A field type that is a collection inside the object.
template <class T>
concept CollectionField = FieldType<T>::kind == Vell::AttributeKind::collection;

template <class Class>
struct FieldOps {
  static constexpr bool hasCollection = std::apply(
      [](auto const&... each) {
        return (CollectionField<typename std::remove_cvref_t<decltype(each)>::Type> || ...);
      },
      Class::fields().fields);

  /// Calls `visitor(field)` for each field in list order.
  template <class Visitor>
  static constexpr void forEach(Visitor&& visitor) {
    std::apply([&](auto const&... each) { (visitor(each), ...); }, Class::fields().fields);
  }

  /// Collections last: they cost most, and a difference is mostly found before them.
  static bool equal(Class const& a, Class const& b) {
    if (&a == &b) return true;
    return std::apply(
        [&](auto const&... each) {
          return ((isCollection(each) || isEqual(each, a, b)) && ...) &&
                 ((!isCollection(each) || isEqual(each, a, b)) && ...);
        },
        Class::fields().fields);
  }

  /// -1, 0 or 1; the first field that differs decides.
  static int compare(Class const& a, Class const& b) {
    if (&a == &b) return 0;
    int result = 0;
    std::apply(
        [&](auto const&... each) {
          static_cast<void>(((each.role == FieldRole::result ||
                              (result = compareField(a.*each.member, b.*each.member)) == 0) &&
                             ...));
        },
        Class::fields().fields);
    return result;
  }

  static std::ostream& write(std::ostream& out, Class const& object) {
    constexpr auto list = Class::fields();
    if constexpr (list.size() == 0) {
      return out;
    } else if constexpr (list.size() == 1) {
      return writeField(out, object.*std::get<0>(list.fields).member);
    } else {
      char const* separator = "{";
      out << list.tag;
      forEach([&](auto const& each) {
        out << separator << each.name << ':';
        writeField(out, object.*each.member);
        separator = " ";
      });
      return out << '}';
    }
  }

  /// `name` is what errors call a record that is itself an attribute, or stands alone. A class with
  /// a collection is never read from a text: that is a fatal assertion.
  static void read(CharRange& range, Class& object, std::string_view name) {
    constexpr auto list = Class::fields();
    if constexpr (hasCollection) {
      auto const brief = list.tag.substr(list.tag.rfind(':') + 1);
      VELL_ASSERT(false,
                  Vell::concatenate("No String constructor for ", brief, " - has collection"),
                  list.tag, " cannot be read from a text");
    } else if constexpr (list.size() == 1) {
      auto const& only = std::get<0>(list.fields);
      range.deserializeAttr(name.empty() ? only.name : name, object.*only.member);
    } else {
      std::size_t position = 0;
      forEach([&](auto const& each) {
        if (position == 0)
          range.desAttrPre(list.tag, each.name, object.*each.member);
        else if (position + 1 == list.size())
          range.desAttrPost(each.name, object.*each.member);
        else
          range.desAttrIntra(each.name, object.*each.member);
        ++position;
      });
    }
  }

  /// The attribute records of the fields, in list order.
  static constexpr auto attributes() {
    constexpr auto describe = [](auto const& each) {
      using Type = typename std::remove_cvref_t<decltype(each)>::Type;
      return Vell::AttributeData{each.id,
                                 each.name,
                                 FieldType<Type>::kind,
                                 Vell::AttributeAccess::isPublic,
                                 Vell::AttributeConstness::notConst,
                                 FieldType<Type>::shape,
                                 FieldType<Type>::bits,
                                 keyBits<Type>()};
    };
    return std::apply(
        [&](auto const&... each) {
          return std::array<Vell::AttributeData, sizeof...(each)>{describe(each)...};
        },
        Class::fields().fields);
  }

  static Vell::Value get(Class const& object, U32 id) {
    Vell::Value value;
    forEach([&](auto const& each) {
      using Type = typename std::remove_cvref_t<decltype(each)>::Type;
      if constexpr (!CollectionField<Type>)
        if (each.id == id) value = FieldType<Type>::toValue(object.*each.member);
    });
    return value;
  }
  static void set(Class& object, U32 id, Vell::Value const& value) {
    forEach([&](auto const& each) {
      using Type = typename std::remove_cvref_t<decltype(each)>::Type;
      if constexpr (!CollectionField<Type>)
        if (each.id == id) FieldType<Type>::fromValue(object.*each.member, value);
    });
  }
  /// Calls `visitor(collection, type)` with the collection of that id and its `FieldType`.
  template <class Object, class Visitor>
  static void withCollection(Object& object, U32 id, Visitor&& visitor) {
    forEach([&](auto const& each) {
      using Type = typename std::remove_cvref_t<decltype(each)>::Type;
      if constexpr (CollectionField<Type>)
        if (each.id == id) visitor(object.*each.member, FieldType<Type>{});
    });
  }

 private:
  template <class Each>
  static constexpr bool isCollection(Each const&) {
    return CollectionField<typename Each::Type>;
  }
  template <class Each>
  static bool isEqual(Each const& field, Class const& a, Class const& b) {
    return field.role == FieldRole::result || a.*field.member == b.*field.member;
  }
  template <class Type>
  static constexpr U8 keyBits() {
    if constexpr (CollectionField<Type>)
      return FieldType<Type>::keyBits;
    else
      return 0;
  }
  template <class V>
  static int compareField(V const& a, V const& b) {
    auto const order = a <=> b;
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
  }
  /// Pointers by address.
  template <class Node>
  static int compareField(Vell::Ptr<Node> const& a, Vell::Ptr<Node> const& b) {
    return compareField(addressOf(a), addressOf(b));
  }
  template <class Node>
  static std::ostream& writeField(std::ostream& out, Vell::Ptr<Node> const& pointer) {
    return out << Vell::concatenate("0x", std::hex, addressOf(pointer));
  }
  template <class V>
  static std::ostream& writeField(std::ostream& out, V const& value) {
    if constexpr (std::same_as<V, bool>) {
      return out << (value ? "true" : "false");
    } else if constexpr (std::unsigned_integral<V>) {
      return out << std::to_string(value);  // whatever base the stream is set to
    } else if constexpr (std::is_enum_v<V>) {
      return out << std::to_string(static_cast<U64>(value));
    } else if constexpr (requires {
                           *value;
                           value.has_value();
                         }) {
      return value ? writeField(out, *value) : out << '-';
    } else {
      return out << value;
    }
  }
};

}  // namespace Zarn
