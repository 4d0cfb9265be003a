// The reflection of collections: whoever asks is shown a map's or a set's elements one by one, and its figures.

#pragma once

#include <string_view>

#include "containers/HashMap2018Iterator.h"
#include "platform/vell/Reflection.h"

namespace Zarn {

/// Visits the keys and values of a collection, which may change meanwhile; of a
/// set, its keys.
template <class Collection, class Visit>
void forEachOf(Collection const& collection, Visit const& visit) {
  if constexpr (requires { collection.forEach(visit); }) {
    collection.forEach(visit);
  } else if constexpr (requires { typename Collection::Iterator; }) {
    for (typename Collection::Iterator at(collection); at; at.advance())
      visit(at.key(), at->value_);
  } else {
    for (HashMap2018IteratorGeneric at(collection); at; at.advance()) {
      auto const& node = *at.currNodeMaybeStale();
      if constexpr (requires { node.value_; })
        visit(node.key(), node.value_);
      else
        visit(node.key(), true);
    }
  }
}

/// The collections of a class. `Shown::show(object, name, use)` calls `use`
/// with the collection of that name, and with what makes values of its keys and
/// of its elements.
template <class T, class Shown>
struct CollectionReflection {
  static void walk(void const* object, Vell::AttributeData const& attribute,
                   Vell::TypeFunctions::Visitor const& visitor) {
    Vell::Ptr<T> const table(&Vell::nodeOf<T>(object));
    Shown::show(*table, attribute.name,
                [&](auto const& collection, auto const& keyValue, auto const& valueOf) {
                  forEachOf(collection, [&](auto const& key, auto const& element) {
                    visitor(keyValue(key), valueOf(element));
                  });
                });
  }
  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const& attribute) {
    Vell::CollectionFigures figures{};
    Shown::show(Vell::nodeOf<T>(object), attribute.name, [&](auto const& collection, auto&&...) {
      figures = {collection.count(), collection.version()};
    });
    return figures;
  }
};

}  // namespace Zarn
