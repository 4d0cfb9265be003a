// A walk over a table that has two collections of entries: first the keys that wait, then those that
// have a value and do not wait. Each key is seen once.
//
// The walk survives every change of the table, the removal of its own key included. It holds a use of
// the table.

#pragma once

#include <variant>

#include "containers/HashMap2018Iterator.h"
#include "frame/Trait.h"
#include "platform/vell/Ptr.h"

namespace Asic {

template <class T>
requires Trait::tableNeedsDeleteDance<T>
class SwTable::EntryIteratorConst<T> {
  using AtUnresolved = Zarn::HashMap2018IteratorGeneric<typename T::UnresolvedMap const>;
  using AtResolved = Zarn::HashMap2018IteratorGeneric<typename T::ResolvedEntryMap const>;
  using AtEnd = std::monostate;

 public:
  /// At the first key that waits, or else at the first with a value.
  explicit EntryIteratorConst(T const& table) : table_(&table) {
    if (AtUnresolved at(table.unresolvedMap()); at)
      at_ = std::move(at);
    else
      resolvedIs(AtResolved(table.resolvedEntryMap()));
  }
  /// At `key` if it waits or has a value, otherwise at the end.
  EntryIteratorConst(T const& table, typename T::Key key) : table_(&table) {
    if (table.unresolvedHas(key))
      at_ = AtUnresolved(table.unresolvedMap(), key);
    else if (table.hasValue(key))
      at_ = AtResolved(table.resolvedEntryMap(), key);
  }

  explicit operator bool() const { return !std::holds_alternative<AtEnd>(at_); }
  typename T::Key key() const {
    if (auto const* at = std::get_if<AtUnresolved>(&at_)) return at->currNodeMaybeStale()->key();
    return std::get<AtResolved>(at_).currNodeMaybeStale()->key();
  }
  /// A copy of the entry; the last known one if the key has gone since, and a default entry if it has
  /// lost its value.
  typename T::Entry entry() const {
    auto const at = key();
    if (table_->unresolvedHas(at) || table_->resolvedHas(at)) return table_->entry(at);
    if (auto const* waited = std::get_if<AtUnresolved>(&at_))
      return waited->currNodeMaybeStale()->value_->entry();
    return std::get<AtResolved>(at_).currNodeMaybeStale()->value_.value_or(typename T::Entry{});
  }
  /// Nothing at the end.
  void advance() {
    if (auto* at = std::get_if<AtUnresolved>(&at_)) {
      at->advance();
      if (!*at) resolvedIs(AtResolved(table_->resolvedEntryMap()));
    } else if (auto* resolved = std::get_if<AtResolved>(&at_)) {
      resolved->advance();
      resolvedIs(std::move(*resolved));
    }
  }

 private:
  bool isSeen(AtResolved const& at) const {
    auto const* const node = at.currNodeMaybeStale();
    return node->value_.has_value() && !table_->unresolvedHas(node->key());
  }
  /// On from there to the next key that is to be seen here.
  void resolvedIs(AtResolved at) {
    while (at && !isSeen(at)) at.advance();
    if (at)
      at_ = std::move(at);
    else
      at_ = AtEnd();
  }

  Vell::Ptr<T const> table_;  // before the positions, which must not outlive the maps
  std::variant<AtEnd, AtUnresolved, AtResolved> at_;
};

}  // namespace Asic
