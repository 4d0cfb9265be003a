// Maps from numbers to numbers as fields of value classes: a group's members by port, for one.
//
// Such a map lies by value in its object and is copied whole with it. It is compared by its number
// of keys first, then walked in step with the other one: maps of one type with equal keys are
// walked alike, whatever their history. A text or a reflection user sees the keys in ascending
// order.
//
// Threading: that of the object.

#pragma once

#include <algorithm>
#include <concepts>
#include <map>
#include <ostream>
#include <utility>

#include "containers/HashMap2018.h"
#include "containers/HashMap2018Iterator.h"
#include "platform/vell/Value.h"
#include "platform/zarn/Fields.h"

namespace Zarn {

template <class Map>
concept NumberMap = std::same_as<Map, HashMap2018<typename Map::Node>> &&
    std::unsigned_integral<typename Map::Key> &&
    std::unsigned_integral<decltype(std::declval<typename Map::Node>().value_)>;

template <NumberMap Map>
using NumberMapValue = decltype(std::declval<typename Map::Node>().value_);

/// The value at the key; 0 if the key is absent.
template <NumberMap Map>
NumberMapValue<Map> elementOf(Map const& map, typename Map::Key key) {
  auto const* node = map.lookupNodeG(key);
  return node ? node->value_ : NumberMapValue<Map>{};
}

/// Stores a value: in place of that of the key, or as a new member.
template <NumberMap Map>
void elementIs(Map& map, typename Map::Key key, NumberMapValue<Map> value) {
  map.lookupOrNewMember({value, key})->value_ = value;
}

/// Removes the key and gives its value; 0 if the key is absent.
template <NumberMap Map>
NumberMapValue<Map> elementDel(Map& map, typename Map::Key key) {
  typename Map::Node removed{};
  map.deleteMemberG(key, &removed);
  return removed.value_;
}

/// -1, 0 or 1: the map with fewer members first, then the first member that differs, by key before
/// value, in the order of the walk.
template <NumberMap Map>
int operator<=>(Map const& a, Map const& b) {
  auto const order = [](auto const& x, auto const& y) { return (x > y) - (x < y); };
  if (int const byCount = order(a.count(), b.count())) return byCount;
  using Walk = HashMap2018UnsafeIteratorConstGeneric<Map>;
  for (Walk inA(a), inB(b); inA; ++inA, ++inB) {
    auto const* const one = inA.currNode();
    auto const* const other = inB.currNode();
    if (int const byKey = order(one->key(), other->key())) return byKey;
    if (int const byValue = order(one->value_, other->value_)) return byValue;
  }
  return 0;
}

template <NumberMap Map>
bool operator==(Map const& a, Map const& b) {
  if (a.count() != b.count()) return false;
  auto const isEq = [](auto const& one, auto const& other) {
    return one.key() == other.key() && one.value_ == other.value_;
  };
  // As many keys, as many buckets; which one differs does not matter, so any order will do.
  for (U32 bucket = 0; bucket < a.bucketCount(); ++bucket)
    if (!std::ranges::equal(a.bucketNodes(bucket), b.bucketNodes(bucket), isEq)) return false;
  return true;
}

/// The members in ascending order of their keys.
template <NumberMap Map>
std::map<U64, U64> sortedElements(Map const& map) {
  std::map<U64, U64> sorted;
  using Walk = HashMap2018UnsafeIteratorConstGeneric<Map>;
  for (Walk at(map); at; ++at) sorted.emplace(at.currNode()->key(), at.currNode()->value_);
  return sorted;
}

/// As "{1:2 5:6}".
template <NumberMap Map>
std::ostream& operator<<(std::ostream& out, Map const& map) {
  char const* separator = "";
  out << '{';
  for (auto const& [key, value] : sortedElements(map)) {
    out << std::exchange(separator, " ") << std::to_string(key) << ':' << std::to_string(value);
  }
  return out << '}';
}

template <NumberMap Map>
struct FieldType<Map> {
  static constexpr auto kind = Vell::AttributeKind::collection;
  static constexpr auto shape = Vell::ValueShape::number;
  static constexpr U8 bits = sizeof(NumberMapValue<Map>) * 8;
  static constexpr U8 keyBits = sizeof(typename Map::Key) * 8;

  static void walk(Map const& map, Vell::TypeFunctions::Visitor const& visitor) {
    for (auto const& [key, value] : sortedElements(map)) visitor(key, value);
  }
  static Vell::CollectionFigures figures(Map const& map) { return {map.count(), map.version()}; }
  static void elementIs(Map& map, Vell::Value const& key, Vell::Value const& value) {
    auto const number = static_cast<typename Map::Key>(*key.number());
    if (value.empty())
      elementDel(map, number);
    else
      Zarn::elementIs(map, number, static_cast<NumberMapValue<Map>>(*value.number()));
  }
};

}  // namespace Zarn
